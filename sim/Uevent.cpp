#include "sim/Uevent.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <system_error>

#include <android-base/unique_fd.h>

#include "fbo/snapshot/DropEvent.h"

namespace sim {

namespace {

using android::base::unique_fd;
using vendor::nivora::hardware::fbo::implementation::kDropEvent;

/** Sends `message` to the kernel, or to a multicast group as if from the kernel. */
void send(std::string_view message, unsigned group) {
    const unique_fd fd(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = group;
    const ssize_t size = sendto(fd.get(), message.data(), message.size(), 0,
                                reinterpret_cast<sockaddr*>(&address), sizeof(address));
    if (size < 0) throw std::system_error(errno, std::generic_category(), "uevent");
}

/** Enters a namespace of the process `pid`; false if this process is in it already. */
bool enterNamespace(pid_t pid, const std::string& kind) {
    const std::string path = "/proc/" + std::to_string(pid) + "/ns/" + kind;
    struct stat theirs;
    struct stat ours;
    if (stat(path.c_str(), &theirs) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (stat(("/proc/self/ns/" + kind).c_str(), &ours) == 0 && ours.st_ino == theirs.st_ino) {
        return false;
    }
    const unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (setns(fd.get(), 0) != 0) throw std::system_error(errno, std::generic_category(), path);
    return true;
}

constexpr int kDescriptors = 256;

bool isUeventSocket(int fd) {
    int domain = 0;
    int protocol = 0;
    socklen_t size = sizeof(int);
    return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_NETLINK &&
           getsockopt(fd, SOL_SOCKET, SO_PROTOCOL, &protocol, &size) == 0 &&
           protocol == NETLINK_KOBJECT_UEVENT;
}

/** Whether `fd` is an epoll instance, asked without a change to what it waits for. */
bool isEpoll(int fd, int stranger) {
    // An instance does not know the stranger; what is none refuses in another way. A plain system
    // call, because the thread sanitizer would take epoll_ctl() for a use of other threads'
    // descriptors.
    epoll_event event{};
    return syscall(SYS_epoll_ctl, fd, EPOLL_CTL_MOD, stranger, &event) != 0 && errno == ENOENT;
}

size_t countListeners() {
    size_t sockets = 0;
    size_t instances = 0;
    const android::base::unique_fd stranger(eventfd(0, EFD_CLOEXEC));
    for (int fd = 0; fd < kDescriptors; ++fd) {
        sockets += isUeventSocket(fd);
        instances += isEpoll(fd, stranger.get());
    }
    return std::min(sockets, instances);
}

}  // namespace

std::string uevent(std::initializer_list<std::string_view> strings) {
    std::string message;
    for (const std::string_view string : strings) message.append(string) += '\0';
    return message;
}

std::string dropEvent() {
    return uevent({"change@/devices/platform/ufs", "ACTION=change", kDropEvent});
}

void sendKernelUeventTo(pid_t pid, std::string_view message) {
    enterNamespace(pid, "user");
    // In this machine's own namespace every program that listens would take it for real.
    if (!enterNamespace(pid, "net")) {
        throw std::invalid_argument("process " + std::to_string(pid) + " has no simulated device");
    }
    sendKernelUevent(message);
}

void sendKernelUevent(std::string_view message) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(message.size()));
    header.nlmsg_type = NLMSG_MIN_TYPE;
    header.nlmsg_flags = NLM_F_REQUEST;
    std::string request(reinterpret_cast<const char*>(&header), NLMSG_HDRLEN);
    send(request.append(message), 0);
}

void sendUserUevent(std::string_view message) {
    send(message, 1);
}

void awaitListeners(size_t count) {
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (countListeners() < count) {
        if (std::chrono::steady_clock::now() > patience) {
            throw std::runtime_error("nobody listens for uevents");
        }
        sched_yield();
    }
}

}  // namespace sim
