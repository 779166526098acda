#include "StateFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <android-base/file.h>

namespace fboctl {

namespace {

using android::base::unique_fd;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/** Whether the file that is open, and has to be a regular one, is the one in this place. */
bool isAt(const unique_fd& file, const std::string& path) {
    struct stat opened {};
    struct stat found {};
    if (fstat(file.get(), &opened) != 0) fail(path);
    if (!S_ISREG(opened.st_mode)) throw std::invalid_argument(path + " is no state file");
    return stat(path.c_str(), &found) == 0 && opened.st_dev == found.st_dev &&
           opened.st_ino == found.st_ino;
}

}  // namespace

StateFile::StateFile(const std::string& path) {
    do {
        file_.reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!file_.ok()) fail(path);
        if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
            throw std::runtime_error(path + " is in use by another fboctl");
        }
        // Another one may have put a new file there before this one was locked.
    } while (!isAt(file_, path));
    // Where a link points, so that the link stays.
    std::string real;
    if (!android::base::Realpath(path, &real)) fail(path);
    name_ = android::base::Basename(real);
    directory_.reset(
            open(android::base::Dirname(real).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory_.ok()) fail(path);
}

StateFile::~StateFile() {
    // Processes that were forked meanwhile hold it, too, and may end later.
    if (file_.ok()) flock(file_.get(), LOCK_UN);
}

std::string StateFile::read() const {
    std::string text;
    if (!android::base::ReadFdToString(file_.get(), &text)) fail(name_);
    return text;
}

void StateFile::keep(const std::string& text) const {
    struct stat before {};
    if (fstat(file_.get(), &before) != 0) fail(name_);
    const std::string made = name_ + ".new";
    const unique_fd file(openat(directory_.get(), made.c_str(),
                                O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.ok()) fail(made);
    if (!android::base::WriteStringToFd(text, file.get()) ||
        fchmod(file.get(), before.st_mode & 07777) != 0 || fsync(file.get()) != 0 ||
        renameat(directory_.get(), made.c_str(), directory_.get(), name_.c_str()) != 0) {
        const int error = errno;
        unlinkat(directory_.get(), made.c_str(), 0);
        errno = error;
        fail(made);
    }
}

}  // namespace fboctl
