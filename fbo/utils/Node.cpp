#include "fbo/utils/Node.h"

#include <fcntl.h>
#include <unistd.h>

#include <android-base/macros.h>

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr size_t kChunkSize = 4096;

/** Text that a writer keeps at most before it has to store; a single text may be longer. */
constexpr size_t kPendingLimit = 64 * 1024;

/** read(2) at `offset`; sysfs asks the driver for a new value at offset 0. */
ssize_t readAt(int fd, char* chunk, off_t offset) {
    return TEMP_FAILURE_RETRY(pread(fd, chunk, kChunkSize, offset));
}

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

unique_fd openFile(const std::string& path, int flags) {
    return unique_fd(TEMP_FAILURE_RETRY(open(path.c_str(), flags | O_CLOEXEC)));
}

ssize_t readFile(int fd, void* buffer, size_t size) {
    return TEMP_FAILURE_RETRY(read(fd, buffer, size));
}

bool NodeReader::open(const std::string& path) {
    close();
    fd_ = openFile(path, O_RDONLY);
    return fd_.ok();
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
    fd_.reset(TEMP_FAILURE_RETRY(
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)));
    failed_ = !fd_.ok();
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
        const ssize_t size = TEMP_FAILURE_RETRY(write(fd_.get(), rest.data(), rest.size()));
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
