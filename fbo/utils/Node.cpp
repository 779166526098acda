#include "fbo/utils/Node.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr size_t kChunkSize = 4096;

/** Text that a writer keeps at most before it has to store; a single text may be longer. */
constexpr size_t kPendingLimit = 64 * 1024;

/** read(2) at `offset`; sysfs asks the driver for a new value at offset 0. */
ssize_t readAt(int fd, char* chunk, off_t offset) {
    ssize_t size;
    do {
        size = pread(fd, chunk, kChunkSize, offset);
    } while (size < 0 && errno == EINTR);
    return size;
}

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

void UniqueFd::reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
}

int openFile(const std::string& path, int flags) {
    int fd;
    do {
        fd = ::open(path.c_str(), flags | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

ssize_t readFile(int fd, void* buffer, size_t size) {
    ssize_t count;
    do {
        count = ::read(fd, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

bool NodeReader::open(const std::string& path) {
    close();
    fd_.reset(openFile(path, O_RDONLY));
    return fd_.isOpen();
}

void NodeReader::close() {
    fd_.reset();
}

void NodeReader::readToken(std::string& token) const {
    char chunk[kChunkSize];
    bool found = false;
    ssize_t size;
    for (off_t offset = 0; (size = readAt(fd_.get(), chunk, offset)) > 0; offset += size) {
        for (const char c : std::string_view(chunk, size)) {
            if (isBlank(c)) {
                if (found) return;
                continue;
            }
            if (!found) token.clear();
            found = true;
            token += c;
        }
    }
}

std::string NodeReader::readAll() const {
    char chunk[kChunkSize];
    std::string text;
    ssize_t size;
    while ((size = readAt(fd_.get(), chunk, static_cast<off_t>(text.size()))) > 0) {
        text.append(chunk, size);
    }
    return text;
}

bool NodeWriter::open(const std::string& path) {
    close();
    // As fopen's mode "w" does; a driver's directory refuses to create what is not there.
    do {
        fd_.reset(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    } while (!fd_.isOpen() && errno == EINTR);
    failed_ = !fd_.isOpen();
    return !failed_;
}

void NodeWriter::put(std::string_view text) {
    if (pending_.size() + text.size() > kPendingLimit) flush();
    if (!failed_) pending_ += text;
}

void NodeWriter::putLine(std::string_view text) {
    // Room for the line feed too: growing for it would double a long list.
    if (!failed_) pending_.reserve(pending_.size() + text.size() + 1);
    put(text);
    if (!failed_) pending_ += '\n';
    flush();
}

void NodeWriter::flush() {
    std::string_view rest = pending_;
    while (!rest.empty()) {
        const ssize_t size = ::write(fd_.get(), rest.data(), rest.size());
        if (size < 0 && errno == EINTR) continue;
        // A driver that takes nothing has failed as well.
        if (size <= 0) {
            failed_ = true;
            break;
        }
        rest.remove_prefix(size);
    }
    pending_.clear();
}

void NodeWriter::close() {
    flush();
    pending_ = {};
    fd_.reset();
    failed_ = true;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
