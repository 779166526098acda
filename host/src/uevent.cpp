/*
 * The two uevent calls that a host's libcutils lacks, over a real kernel uevent socket.
 */

#include <cutils/uevent.h>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

/** Whether the kernel itself multicast the message, for root to see. */
bool isKernelMulticast(const msghdr& header, const sockaddr_nl& sender) {
    if (sender.nl_pid != 0 || sender.nl_groups == 0) return false;
    const cmsghdr* control = CMSG_FIRSTHDR(&header);
    if (control == nullptr || control->cmsg_level != SOL_SOCKET ||
        control->cmsg_type != SCM_CREDENTIALS) {
        return false;
    }
    ucred credentials;
    memcpy(&credentials, CMSG_DATA(control), sizeof(credentials));
    return credentials.uid == 0;
}

}  // namespace

int uevent_open_socket(int buf_sz, bool passcred) {
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (fd < 0) return -1;

    const int pass = passcred ? 1 : 0;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 0xffffffff;
    // Only root may force a larger buffer; others take what the system allows.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buf_sz, sizeof(buf_sz)) < 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buf_sz, sizeof(buf_sz));
    }
    setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &pass, sizeof(pass));
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

ssize_t uevent_kernel_multicast_recv(int socket, void* buffer, size_t length) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    sockaddr_nl sender{};
    iovec message{buffer, length};
    msghdr header{};
    header.msg_name = &sender;
    header.msg_namelen = sizeof(sender);
    header.msg_iov = &message;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof(control);

    const ssize_t size = recvmsg(socket, &header, 0);
    if (size < 0 || isKernelMulticast(header, sender)) return size;
    // Nobody may act on what somebody else than the kernel sent.
    memset(buffer, 0, length);
    errno = EIO;
    return -1;
}
