#include <cutils/uevent.h>
#include <fcntl.h>
#include <sys/epoll.h>

#include <cerrno>
#include <ctime>

#include <android-base/macros.h>

#include "fbo/Fbo.h"
#include "fbo/snapshot/DropEvent.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr int kSocketBuffer = 64 * 1024;
constexpr int kMaxEvents = 64;
constexpr int kMessageLength = 2048;

/** Seconds after a drop within which further events are passed by. */
constexpr time_t kDropInterval = 4;

}  // namespace

void Fbo::UEventWorker() {
    FBO_LOGE("[SNAPSHOT-HAL] Creating Memory uevent worker!");
    unique_fd socket(uevent_open_socket(kSocketBuffer, true));
    uevent_fd = socket.get();
    if (!socket.ok()) {
        FBO_LOGE("[SNAPSHOT-HAL] uevent_open_socket failed");
        return;
    }
    fcntl(uevent_fd, F_SETFL, O_NONBLOCK);
    const unique_fd epoll(epoll_create(kMaxEvents));
    if (!epoll.ok()) {
        FBO_LOGE("[SNAPSHOT-HAL] epoll_create failed");
        return;
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = uevent_fd;
    if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, uevent_fd, &event) < 0) {
        FBO_LOGE("[SNAPSHOT-HAL] epoll_ctl failed, errno = %d", errno);
        return;
    }
    for (;;) {
        epoll_event events[kMaxEvents] = {};
        const int count = TEMP_FAILURE_RETRY(epoll_wait(epoll.get(), events, kMaxEvents, -1));
        if (count < 0) break;
        for (int i = 0; i < count; ++i) {
            if (events[i].data.fd == uevent_fd) UEventEvent();
        }
    }
    FBO_LOGE("[SNAPSHOT-HAL] epoll_wait failed, errno = %d", errno);
}

void Fbo::UEventEvent() {
    // Two NULs find room behind the longest message, so that its list of strings has an end.
    char message[kMessageLength + 2] = {};
    const ssize_t size = uevent_kernel_multicast_recv(uevent_fd, message, kMessageLength);
    // A message that fills the buffer may have been cut.
    if (size <= 0 || size >= kMessageLength) return;
    message[size] = '\0';
    message[size + 1] = '\0';

    for (size_t left = countDropEvents(message); left > 0; --left) {
        FBO_LOGD("[SNAPSHOT-HAL] Snapshot drop uevent received: %s", kDropEvent);
        const time_t now = time(nullptr);
        if (now - last_drop_time < kDropInterval) {
            // The text says 3; 4 seconds is what holds.
            FBO_LOGD(
                    "[SNAPSHOT-HAL] Snapshot drop uevent has been successfully executed within "
                    "3s, so by pass.");
        } else if (SnapShot_startDrop()) {
            FBO_LOGD("[SNAPSHOT-HAL] drop snapshot success in uevent");
            last_drop_time = now;
        } else {
            FBO_LOGE("[SNAPSHOT-HAL] drop snapshot fail in uevent");
        }
    }
}

}  // namespace vendor::nivora::hardware::fbo::implementation
