#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>

#include "Phone.h"
#include "sim/Uevent.h"

namespace {

constexpr char kReceived[] = "Snapshot drop uevent received: UFS_SNAPSHOT_DROP_EVENT";
constexpr char kDropped[] = "log D UEventEvent [SNAPSHOT-HAL] drop snapshot success in uevent";

/** A uevent of these strings, "|" behind each. */
std::string message(std::string strings) {
    std::replace(strings.begin(), strings.end(), '|', '\0');
    return strings;
}

const std::string kEvent = message("change@/devices/ufs|ACTION=change|UFS_SNAPSHOT_DROP_EVENT|");

TEST_F(Phone, DropsWhenTheKernelSaysSo) {
    start("ufs40:samsung,snapshot=2");
    sim::sendKernelUevent(kEvent);
    await(kDropped);
    EXPECT_EQ(events("write ctrl "), std::vector<std::string>{"\"stop\\n\""});
    // Passed by for less than four seconds, whatever the line says.
    for (const int seconds : {0, 3}) {
        sleep(seconds);
        sim::sendKernelUevent(kEvent);
        await("Snapshot drop uevent has been successfully executed within 3s, so by pass.");
        EXPECT_EQ(events("read ").size(), 0u);
        EXPECT_EQ(service->last_drop_time, 1700000000);
    }
    sleep(1);
    sim::sendKernelUevent(kEvent);
    await(kDropped);
    // Twice in one message is looked at twice.
    events();
    sleep(4);
    sim::sendKernelUevent(message("UFS_SNAPSHOT_DROP_EVENT|UFS_SNAPSHOT_DROP_EVENT|"));
    await("so by pass.");
    EXPECT_EQ(story("UEventEvent"),
              lines("sleep 4\nD Snapshot drop uevent received: UFS_SNAPSHOT_DROP_EVENT\nread "
                    "status \"drop_by_host\\n\"\nD drop snapshot success in uevent\nD Snapshot "
                    "drop uevent received: UFS_SNAPSHOT_DROP_EVENT\nD Snapshot drop uevent has "
                    "been successfully executed within 3s, so by pass."));
}

TEST_F(Phone, TriesAgainAtOnceAfterAFailedDrop) {
    start("ufs40:samsung,snapshot=2,drop_end=6/-1");
    sim::sendKernelUevent(kEvent);
    await("log E UEventEvent [SNAPSHOT-HAL] drop snapshot fail in uevent");
    EXPECT_EQ(service->last_drop_time, 0);
    set("snapshot", "2");
    sim::sendKernelUevent(kEvent);
    await(kDropped);
}

/** What is no drop request leaves no trace; the true one after it shows that it was read. */
TEST_F(Phone, IgnoresWhatIsNoDropRequest) {
    start("ufs40:samsung,snapshot=2");
    sim::sendKernelUevent(message("change@/x|EVENT=UFS_SNAPSHOT_DROP_EVENT|"));
    sim::sendKernelUevent(message("UFS_SNAPSHOT_DROP_EVENT2|"));
    sim::sendKernelUevent(message("|UFS_SNAPSHOT_DROP_EVENT|"));
    sim::sendKernelUevent(std::string("\xff\xfe\0\x80%n", 6));
    // As long as the buffer or longer, that is, perhaps cut.
    sim::sendKernelUevent(kEvent + std::string(2000, 'x'));
    // What is not from the kernel may be from anybody.
    sim::sendUserUevent(kEvent);
    sim::sendKernelUevent(kEvent);
    await(kDropped);
    const std::vector<std::string> received = events("log D UEventEvent [SNAPSHOT-HAL] ");
    EXPECT_EQ(received, lines(std::string(kReceived) + "\ndrop snapshot success in uevent"));
}

TEST_F(Phone, GoesOnListeningAfterASignal) {
    start("ufs40:samsung,snapshot=2");
    static std::atomic<bool> handled = false;
    struct sigaction action {};
    action.sa_handler = [](int) { handled = true; };
    sigaction(SIGUSR1, &action, nullptr);
    pthread_kill(service->worker.native_handle(), SIGUSR1);
    while (!handled) sched_yield();
    sim::sendKernelUevent(kEvent);
    await(kDropped);
    EXPECT_FALSE(logged("E UEventWorker [SNAPSHOT-HAL] epoll_wait failed, errno = 4"));
}

struct Deriving : Fbo {
    int drops = 0;
    Return<bool> SnapShot_startDrop() override {
        ++drops;
        return true;
    }
};

TEST_F(Phone, TheWorkerAsksTheObjectItself) {
    start("ufs40:samsung,snapshot=2");
    const android::sp<Deriving> deriving = serve<Deriving>();
    sim::sendKernelUevent(kEvent);
    await(kDropped, 2);
    EXPECT_EQ(deriving->drops, 1);
}

/** A worker whose wait fails says so, gives its descriptors back and ends. */
TEST_F(Phone, TheWorkerEndsWhenItCannotWait) {
    start("ufs40:samsung");
    // Once it has heard an event it does nothing but wait.
    sim::sendKernelUevent(kEvent);
    await(kDropped);
    while (serviceDescriptors().size() > 2) sched_yield();
    for (const int fd : serviceDescriptors()) {
        // No epoll instance any more; that is noticed once something has ended the wait.
        if (fd != service->uevent_fd) dup2(service->uevent_fd, fd);
    }
    sim::sendKernelUevent(kEvent);
    await("log E UEventWorker [SNAPSHOT-HAL] epoll_wait failed, errno = 22");
    service->worker.join();
    workerEnded();
}

}  // namespace
