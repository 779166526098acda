#include <fcntl.h>
#include <linux/netlink.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>

#include "Phone.h"
#include "fbo/snapshot/DropEvent.h"
#include "host/LogSink.h"
#include "sim/Uevent.h"

namespace {

constexpr char kDropped[] = "drop snapshot success in uevent";

struct Dropping : Fbo {
    int drops = 0;
    unsigned seconds = 0;
    bool succeeds = true;
    Return<bool> SnapShot_startDrop() override {
        ++drops;
        if (seconds > 0) sleep(seconds);
        return succeeds;
    }
};

/**
 * A service that receives what the test sends, as long as it likes: messages from a socket whose
 * name reads as the kernel's address, with port 0 and a multicast group, and that is root's.
 */
class UEventEvent : public Phone {
  protected:
    void SetUp() override {
        start("ufs40:samsung");
        // A worker that gets no epoll instance ends, and so does one that gets no socket, which
        // leaves the service to the test alone.
        const int free = dup(STDIN_FILENO);
        close(free);
        EXPECT_NE(logOfWorker(free + 1).find("epoll_create failed"), std::string::npos);
        EXPECT_NE(logOfWorker(0).find("uevent_open_socket failed"), std::string::npos);
        EXPECT_EQ(fbo->uevent_fd, -1);
        socketpair(AF_UNIX, SOCK_DGRAM, 0, sockets_);
        const int pass = 1;
        setsockopt(sockets_[0], SOL_SOCKET, SO_PASSCRED, &pass, sizeof(pass));
        sockaddr_nl kernel{};
        kernel.nl_family = AF_UNIX;
        kernel.nl_groups = 1;
        ASSERT_EQ(bind(sockets_[1], reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel)), 0);
        fbo->uevent_fd = sockets_[0];
    }

    /** Makes a service whose worker may open descriptors below `limit`, and awaits its end. */
    std::string logOfWorker(rlim_t limit) {
        std::string log;
        host::setLogSink([&log](int, const char*, const char* text) { log += text; });
        rlimit usual{};
        getrlimit(RLIMIT_NOFILE, &usual);
        const rlimit low{limit, usual.rlim_max};
        setrlimit(RLIMIT_NOFILE, &low);
        fbo = new Dropping;
        fbo->worker.join();
        setrlimit(RLIMIT_NOFILE, &usual);
        host::setLogSink({});
        return log;
    }

    void TearDown() override {
        for (const int socket : sockets_) close(socket);
        Phone::TearDown();
    }

    /** Has the service receive `message`; returns how often it drops the snapshot for it. */
    int receive(const std::string& message) {
        const int before = fbo->drops;
        EXPECT_EQ(send(sockets_[1], message.data(), message.size(), 0),
                  static_cast<ssize_t>(message.size()));
        fbo->UEventEvent();
        return fbo->drops - before;
    }

    android::sp<Dropping> fbo;

  private:
    int sockets_[2];
};

TEST_F(UEventEvent, IsADropRequestForEachStringThatIsTheWord) {
    using namespace std::string_literals;
    const std::string word = "UFS_SNAPSHOT_DROP_EVENT";
    const std::string head = word + '\0';
    const std::pair<std::string, int> kRows[] = {
            {word, 1},
            {head, 1},
            {sim::uevent({"a", word, "b", word}), 2},
            {"UFS_SNAPSHOT_DROP_EVEN\0"s, 0},
            {"UFS_SNAPSHOT_DROP_EVENT2\0"s, 0},
            {"EVENT=UFS_SNAPSHOT_DROP_EVENT\0"s, 0},
            {sim::uevent({"ufs_snapshot_drop_event", " " + word}), 0},
            // An empty string ends the list.
            {sim::uevent({"", word}), 0},
            {sim::uevent({"a", "", word}), 0},
            {sim::uevent({"\xff\x01=%n", word}), 1},
            // What just fits the buffer, the word in front and behind; longer ones may be cut.
            {head + std::string(2047 - head.size(), 'x'), 1},
            {std::string(2047 - head.size(), 'x') + '\0' + word, 1},
            {head + std::string(2048 - head.size(), 'x'), 0},
            {head + std::string(3000, 'x'), 0}};
    fbo->succeeds = false;
    for (const auto& [message, drops] : kRows) EXPECT_EQ(receive(message), drops) << message;
}

TEST_F(UEventEvent, IsPassedByForFourSecondsAfterADrop) {
    const std::string twice = sim::uevent({kDropEvent, kDropEvent});
    // The drop itself takes one of the seconds.
    fbo->seconds = 1;
    EXPECT_EQ(receive(twice), 1);
    EXPECT_EQ(fbo->last_drop_time, 1700000000);
    sleep(2);
    EXPECT_EQ(receive(twice), 0);
    sleep(1);
    EXPECT_EQ(receive(twice), 1);
    // A drop that fails is tried again at once.
    sleep(4);
    fbo->succeeds = false;
    EXPECT_EQ(receive(twice), 2);
    EXPECT_EQ(fbo->last_drop_time, 1700000004);
}

/** What is not from the kernel may be from anybody: it leaves no trace, and nothing is dropped. */
TEST_F(Phone, TheWorkerListensToTheKernelAlone) {
    start("ufs40:samsung,snapshot=2");
    const android::sp<Dropping> beside = serve<Dropping>();
    EXPECT_EQ(service->last_drop_time, 0);
    // A signal ends a wait, and nothing else.
    static std::atomic<bool> handled = false;
    struct sigaction action {};
    action.sa_handler = [](int) { handled = true; };
    sigaction(SIGUSR1, &action, nullptr);
    pthread_kill(service->worker.native_handle(), SIGUSR1);
    while (!handled) sched_yield();
    sim::sendUserUevent(sim::dropEvent());
    sim::sendKernelUevent(sim::uevent({"change@/x", "EVENT=UFS_SNAPSHOT_DROP_EVENT"}));
    // What arrives together while the worker is busy is dealt with too.
    onLog("uevent received", [] {
        sim::sendUserUevent(sim::dropEvent());
        sim::sendKernelUevent(sim::dropEvent());
    });
    sim::sendKernelUevent(sim::dropEvent());
    await(kDropped, 2);
    await("so by pass", 2);
    EXPECT_EQ(beside->drops, 1);
    const sim::Trace trace = events();
    EXPECT_EQ(effectsOf(trace), "ctrl=stop");
    EXPECT_EQ(logOf(trace).find("UEventWorker"), std::string::npos);
    EXPECT_NE(fcntl(service->uevent_fd, F_GETFL) & O_NONBLOCK, 0);
    int room = 0;
    socklen_t size = sizeof(room);
    getsockopt(service->uevent_fd, SOL_SOCKET, SO_RCVBUF, &room, &size);
    // The kernel keeps as much again for itself.
    EXPECT_EQ(room, 2 * 65536);
}

/** A worker whose wait fails says so, gives its descriptors back and ends. */
TEST_F(Phone, TheWorkerEndsWhenItCannotWait) {
    const std::vector<int> before = openDescriptors();
    start("ufs40:samsung");
    // Once it has heard an event it does nothing but wait.
    sim::sendKernelUevent(sim::dropEvent());
    await(kDropped);
    std::vector<int> opened;
    while (opened.size() != 2) {
        opened.clear();
        const std::vector<int> open = openDescriptors();
        std::set_difference(open.begin(), open.end(), before.begin(), before.end(),
                            std::back_inserter(opened));
    }
    // No epoll instance any more; that is noticed once something has ended the wait.
    for (const int fd : opened) dup2(service->uevent_fd, fd);
    sim::sendKernelUevent(sim::dropEvent());
    await("epoll_wait failed, errno = 22");
    service->worker.join();
    workerEnded();
}

}  // namespace
