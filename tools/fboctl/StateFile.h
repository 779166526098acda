#pragma once

#include <string>

#include <android-base/unique_fd.h>

namespace fboctl {

/**
 * A file that one program at a time uses, and that is either as it was or as it was to be kept,
 * whatever happens meanwhile. It may go out of sight once it is open.
 */
class StateFile {
  public:
    /**
     * Makes the file if there is none. Throws std::runtime_error if another program uses it,
     * std::invalid_argument if it is no regular file, or std::system_error.
     */
    explicit StateFile(const std::string& path);
    ~StateFile();
    StateFile(const StateFile&) = delete;
    StateFile& operator=(const StateFile&) = delete;

    /** What the file holds. Throws std::system_error. */
    std::string read() const;
    /** Puts a new file that holds `text` in its place. Throws std::system_error. */
    void keep(const std::string& text) const;

  private:
    std::string name_;
    android::base::unique_fd file_;
    android::base::unique_fd directory_;
};

}  // namespace fboctl
