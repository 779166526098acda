#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/** What a file answers instead of what it would by itself. */
struct Answer {
    /** The device's seconds that pass before. */
    int64_t wait = 0;
    /** The errno that the user of the file gets; 0 for none. */
    int error = 0;
    /** Whether the file answers by itself after all. */
    bool is_own = true;
    /** What a reader gets. */
    std::string text;
};

/** Answers that are used one after the other, the last one again and again. */
class Script {
  public:
    /**
     * Reads answers with "/" between. Each is a text, "*" for what the file answers by itself, or
     * "!" and the name of an errno; behind "~SECONDS:" it comes so much later. In a text "\\n" is a
     * line feed, "\\x" with two hexadecimal digits a byte, and "\\\\" a backslash. Throws
     * std::invalid_argument if it cannot, or if there is a text and no `texts` may be.
     */
    static Script parse(std::string_view text, bool texts);

    const Answer& take();

  private:
    std::vector<Answer> answers_;
    size_t next_ = 0;
};

/** Words `text` so that a script takes it as it is. */
std::string escape(std::string_view text);

}  // namespace sim
