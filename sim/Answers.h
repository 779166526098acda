#pragma once

#include <sys/types.h>

#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

/** How the phone's files behave at one operation on any of them. */
struct Answer {
    enum class Operation : char { kOpen = 'o', kRead = 'r', kStore = 's' };

    /** An operation that succeeds; a reading gives `text`. */
    static Answer success(Operation operation, std::string text = {}) {
        return {operation, 0, std::move(text)};
    }
    static Answer failure(Operation operation, int error) { return {operation, error, {}}; }

    Operation operation;
    /** The errno of an operation that fails, or 0. */
    int error;
    std::string text;
};

/**
 * Answers for a run in which the device decides nothing: the operations on whatever file are
 * answered in the order in which they come, those of each kind from a row of its own. When a row
 * is used up, files open, stores are taken, and readings give nothing.
 */
class Answers {
  public:
    /** Puts `answers` into one message that take() understands. */
    static std::string encode(const std::vector<Answer>& answers);

    /** Starts anew with the answers in `message`. False if it is cut short. */
    bool take(std::string_view message);

    // The next answer, a negative errno for a failure. Bytes are those of a device file.
    int open() { return -next(Answer::Operation::kOpen).error; }
    int store() { return -next(Answer::Operation::kStore).error; }
    int read(std::string& text);
    ssize_t readBytes(char* bytes, size_t count);
    ssize_t storeBytes(std::string_view bytes);

  private:
    Answer next(Answer::Operation operation);

    std::map<Answer::Operation, std::deque<Answer>> rows_;
};

}  // namespace sim
