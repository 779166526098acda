#include "Wire.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "host/Runtime.h"

namespace host {

namespace {

using android::base::unique_fd;

bool sendBytes(int fd, const void* bytes, size_t size) {
    const char* rest = static_cast<const char*>(bytes);
    while (size > 0) {
        // Without a signal: whoever waits for the answer may be gone.
        const ssize_t sent = TEMP_FAILURE_RETRY(send(fd, rest, size, MSG_NOSIGNAL));
        if (sent <= 0) return false;
        rest += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool receiveBytes(int fd, void* bytes, size_t size) {
    char* rest = static_cast<char*>(bytes);
    while (size > 0) {
        const ssize_t received = TEMP_FAILURE_RETRY(recv(fd, rest, size, 0));
        if (received <= 0) return false;
        rest += received;
        size -= static_cast<size_t>(received);
    }
    return true;
}

template <typename Header>
bool sendMessage(int fd, Header& header, const std::string& text) {
    header.size = text.size();
    return sendBytes(fd, &header, sizeof(header)) && sendBytes(fd, text.data(), text.size());
}

template <typename Header>
bool receiveMessage(int fd, Header& header, std::string& text) {
    if (!receiveBytes(fd, &header, sizeof(header)) || header.magic != kMagic ||
        header.size > kBufferSize) {
        return false;
    }
    text.resize(header.size);
    return receiveBytes(fd, text.data(), text.size());
}

/** Whether the process at the other end is the user's own, or root's. */
bool isTrusted(int fd) {
    ucred other{};
    socklen_t size = sizeof(other);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &other, &size) == 0 &&
           (other.uid == geteuid() || other.uid == 0);
}

}  // namespace

std::string phoneDirectory() {
    const auto variable = [](const char* name) -> std::string {
        const char* const value = getenv(name);
        return value == nullptr ? "" : value;
    };
    if (const std::string phone = variable("NIVORA_FBO_PHONE"); !phone.empty()) return phone;
    if (const std::string run = variable("XDG_RUNTIME_DIR"); !run.empty()) {
        return run + "/nivora-fbo";
    }
    return "/tmp/nivora-fbo-" + std::to_string(geteuid());
}

unique_fd connectToService() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = phoneDirectory() + "/service";
    if (path.size() >= sizeof(address.sun_path)) return {};
    memcpy(address.sun_path, path.data(), path.size());
    unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int connected = TEMP_FAILURE_RETRY(
            connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    return connected == 0 && isTrusted(fd.get()) ? std::move(fd) : unique_fd();
}

bool sendRequest(int fd, Request request, const std::string& text) {
    return sendMessage(fd, request, text);
}

bool receiveRequest(int fd, Request& request, std::string& text) {
    return receiveMessage(fd, request, text);
}

bool sendReply(int fd, Reply reply, const std::string& text) {
    return sendMessage(fd, reply, text);
}

bool receiveReply(int fd, Reply& reply, std::string& text) {
    return receiveMessage(fd, reply, text);
}

void awaitEnd(int fd) {
    char nothing;
    while (TEMP_FAILURE_RETRY(recv(fd, &nothing, sizeof(nothing), 0)) > 0) {
    }
}

}  // namespace host
