/*
 * The stand-in for the HIDL runtime between processes: a client meets what it meets on a phone.
 */

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>

#include "Asleep.h"
#include "fbo/Fbo.h"
#include "host/Runtime.h"

namespace {

using namespace std::string_literals;
using namespace vendor::nivora::hardware::fbo::implementation;
using ::android::sp;
using ::android::base::unique_fd;
using ::android::hardware::Status;
using ::android::hidl::base::V1_0::IBase;

/** Bytes that go from one process to another. */
struct Pipe {
    Pipe() { EXPECT_EQ(pipe(ends), 0); }
    void send(const std::string& bytes) const {
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::string receive(size_t size) const {
        std::string bytes;
        for (char c; bytes.size() < size && read(ends[0], &c, 1) == 1;) bytes += c;
        EXPECT_EQ(bytes.size(), size);
        bytes.resize(size);
        return bytes;
    }
    int ends[2];
};

/** A service whose erase call tells that it enters and leaves, and between that waits. */
struct Held : Fbo {
    Held(const Pipe& telling, const Pipe& going) : tell(telling), go(going) {}
    Return<bool> FBO_VersionCtrl(const hidl_string& version) override {
        if (version.empty()) throw std::out_of_range("nothing");
        return version == "ON";
    }
    Return<int32_t> SnapShot_getStatus() override { return -6; }
    Return<void> EUA_GetFreeSpaceAPECycle(EUA_GetFreeSpaceAPECycle_cb) override { return {}; }
    Return<bool> EUA_SendEraseCmd(const hidl_string&) override {
        tell.send("e");
        go.receive(1);
        tell.send("l");
        return true;
    }
    const Pipe& tell;
    const Pipe& go;
};

std::string echo(IFbo& service, const std::string& text) {
    std::string answer;
    const Return<void> called =
            service.FBO_stateCtl(text, [&](const hidl_string& given) { answer = given; });
    return called.isOk() ? answer : called.description();
}

class HidlProcess : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(mkdtemp(directory_), nullptr);
        setenv("NIVORA_FBO_PHONE", directory_, 1);
        strcpy(address_.sun_path, (std::string(directory_) + "/service").c_str());
    }
    void TearDown() override {
        for (const pid_t service : services_) end(service);
        unlink(address_.sun_path);
        rmdir(directory_);
    }

    /**
     * Makes the process of a service of so many threads, and perhaps of another user. Before
     * anything else, while there are no threads here; it stands still until start().
     */
    pid_t prepare(int threads, uid_t user = geteuid()) {
        const pid_t service = fork();
        if (service == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            raise(SIGSTOP);
            serve(threads, user);
        }
        waitpid(service, nullptr, WUNTRACED);
        services_.push_back(service);
        return service;
    }
    static void start(pid_t service) { kill(service, SIGCONT); }
    /** What a service ends with, killed if it has not ended. */
    static int end(pid_t service, int signal = SIGKILL) {
        int status = 0;
        if (signal != 0) kill(service, signal);
        waitpid(service, &status, 0);
        return status;
    }

    /** Sends bytes to the service, and leaves the connection open. */
    unique_fd stall(const std::string& bytes) const {
        unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (connect(fd.get(), address(), sizeof(address_)) != 0) return {};
        (void)!send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        return fd;
    }

    Pipe tell, go;

  private:
    const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&address_); }

    [[noreturn]] void serve(int threads, uid_t user) {
        unlink(address_.sun_path);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd, address(), sizeof(address_)), 0);
        EXPECT_EQ(setuid(user), 0);
        host::offerServiceAt(fd);
        android::hardware::configureRpcThreadpool(threads, true);
        const sp<IFbo> service = new Held(tell, go);
        if (service->registerAsService() == android::OK) android::hardware::joinRpcThreadpool();
        _exit(EXIT_FAILURE);
    }

    char directory_[32] = "/tmp/hidl_process_XXXXXX";
    sockaddr_un address_{AF_UNIX, {}};
    std::vector<pid_t> services_;
};

TEST_F(HidlProcess, AProxyAnswersInTheNameOfItsService) {
    const pid_t process = prepare(4);
    start(process);
    const sp<IFbo> service = IFbo::getService();
    EXPECT_EQ(service->SnapShot_getStatus(), -6);
    int pid = 0;
    EXPECT_TRUE(service->getDebugInfo([&](const auto& info) { pid = info.pid; }).isOk());
    EXPECT_EQ(pid, process);
    EXPECT_FALSE(service->getHashChain(nullptr).isOk());
    EXPECT_FALSE(service->getDebugInfo(nullptr).isOk());
}

/** Tells, by a pipe, of which service it hears that it has died, or that it has registered. */
struct Told : android::hardware::hidl_death_recipient,
              android::hidl::manager::V1_0::IServiceNotification {
    void serviceDied(uint64_t cookie, const android::wp<IBase>& who) override {
        heard.send(who.promote() == linked ? std::to_string(cookie) : "?");
    }
    Return<void> onRegistration(const hidl_string& fqName, const hidl_string& name,
                                bool preexisting) override {
        heard.send(fqName == IFbo::descriptor && name == "default" ? preexisting ? "P" : "R" : "?");
        return Status::fromStatusT(android::UNKNOWN_ERROR);
    }
    bool hasHeard() const {
        pollfd next{heard.ends[0], POLLIN, 0};
        return poll(&next, 1, 0) > 0;
    }
    Pipe heard;
    sp<IBase> linked;
};

TEST_F(HidlProcess, AnErrorThatEscapesEndsTheServiceAndItsClientsAreTold) {
    const pid_t first = prepare(4), second = prepare(4);
    start(first);
    const sp<IFbo> service = IFbo::getService(), other = IFbo::getService();
    const sp<Told> told = new Told, gone = new Told;
    told->linked = service;
    EXPECT_FALSE(service->linkToDeath(nullptr, 0));
    EXPECT_TRUE(service->linkToDeath(gone, 1));
    EXPECT_TRUE(service->linkToDeath(told, 7));
    EXPECT_TRUE(service->unlinkToDeath(gone));
    EXPECT_FALSE(service->unlinkToDeath(gone));
    // Whoever lets a service go is told no more of it.
    EXPECT_TRUE(IFbo::getService()->linkToDeath(gone, 2));
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(service->ping().isOk() && !told->hasHeard());
    EXPECT_TRUE(service->FBO_VersionCtrl("").isDeadObject());
    EXPECT_EQ(told->heard.receive(1), "7");
    EXPECT_EQ(WTERMSIG(end(first, 0)), SIGABRT);
    EXPECT_FALSE(service->unlinkToDeath(told));
    for (const sp<IFbo>& dead : {service, other}) EXPECT_FALSE(dead->linkToDeath(told, 8));
    EXPECT_EQ(IFbo::tryGetService(), nullptr);

    // One that comes after it is another one.
    start(second);
    EXPECT_EQ(echo(*IFbo::getService(), "x"), "x");
    EXPECT_TRUE(service->ping().isDeadObject());
    // A method that answers with a text and does not is such an error, too.
    const auto take = [](const hidl_string&) {};
    EXPECT_TRUE(IFbo::getService()->EUA_GetFreeSpaceAPECycle(take).isDeadObject());
    EXPECT_EQ(WTERMSIG(end(second, 0)), SIGABRT);
    EXPECT_FALSE(service->getHashChain([](const auto&) {}).isOk());
    EXPECT_FALSE(gone->hasHeard());
}

TEST_F(HidlProcess, ServicesThatRegisterAreWaitedForAndTold) {
    const pid_t first = prepare(4), second = prepare(4);
    const sp<Told> told = new Told, late = new Told;
    EXPECT_FALSE(IFbo::registerForNotifications("other", told));
    EXPECT_TRUE(IFbo::registerForNotifications("default", told));
    auto waiting = std::async(std::launch::async, [] { return IFbo::getService(); });
    EXPECT_EQ(IFbo::tryGetService(), nullptr);
    start(first);
    EXPECT_NE(waiting.get(), nullptr);
    EXPECT_EQ(told->heard.receive(1), "R");
    EXPECT_TRUE(IFbo::registerForNotifications("default", late));
    EXPECT_EQ(late->heard.receive(1), "P");
    end(first);
    start(second);
    EXPECT_EQ(told->heard.receive(1) + late->heard.receive(1), "RR");
    EXPECT_FALSE(told->hasHeard());
}

TEST_F(HidlProcess, TheCallsInProgressShareABuffer) {
    start(prepare(4));
    const sp<IFbo> service = IFbo::getService();
    const auto erase = [&](size_t size) {
        return service->EUA_SendEraseCmd(std::string(size, '1'));
    };
    EXPECT_FALSE(erase(1040129).isOk());
    EXPECT_EQ(echo(*service, std::string(1040128, 'x')).size(), 1040128u);
    // What a call in progress takes of 1,040,384 bytes, and whether a stop finds place beside it.
    for (const auto& [size, fits] :
         {std::pair(1040128, false), {1039865, false}, {1039864, true}}) {
        auto held = std::async(std::launch::async, [&, size = size] { return bool(erase(size)); });
        EXPECT_EQ(tell.receive(1), "e");
        EXPECT_EQ(echo(*service, "stop") == "stop", fits) << size;
        go.send("!");
        EXPECT_TRUE(held.get());
        EXPECT_EQ(tell.receive(1), "l");
        EXPECT_TRUE(service->ping().isOk());
    }
}

/** Whether all threads of the process wait for something. */
bool areAllAsleep(pid_t process) {
    const std::filesystem::directory_iterator threads("/proc/" + std::to_string(process) + "/task");
    return std::all_of(begin(threads), end(threads), [](const auto& thread) {
        std::string stat;
        android::base::ReadFileToString(thread.path() / "stat", &stat);
        return stat.find(") S") != stat.npos;
    });
}

TEST_F(HidlProcess, AsManyCallsRunAsThereAreThreads) {
    const pid_t services[] = {prepare(1), prepare(2)};
    for (const pid_t process : services) {
        start(process);
        const sp<IFbo> service = IFbo::getService();
        const auto erase = [&] { return bool(service->EUA_SendEraseCmd("1")); };
        auto first = std::async(std::launch::async, erase);
        std::string happened = tell.receive(1);
        std::promise<pid_t> thread;
        auto second = std::async(std::launch::async, [&] {
            thread.set_value(gettid());
            return erase();
        });
        const pid_t caller = thread.get_future().get();
        while (!isAsleep(caller) || !areAllAsleep(process)) std::this_thread::yield();
        go.send("!");
        go.send("!");
        EXPECT_TRUE(first.get() && second.get());
        EXPECT_EQ(happened + tell.receive(3), process == services[0] ? "elel" : "eell");
        end(process);
    }
}

TEST_F(HidlProcess, AServiceOfAnotherUserIsNone) {
    if (geteuid() != 0) GTEST_SKIP() << "this user can become no other";
    start(prepare(4, 65534));
    while (!stall("").ok()) std::this_thread::yield();
    EXPECT_EQ(IFbo::tryGetService(), nullptr);
}

/** Whatever comes on the socket is its sender's affair alone. */
TEST_F(HidlProcess, WhoSendsNonsenseOrStallsDisturbsNobody) {
    start(prepare(4));
    const sp<IFbo> service = IFbo::getService();
    const auto magic = "!fbo"s;
    std::vector<unique_fd> stalled;
    for (const std::string& bytes :
         {""s, "x"s, std::string(100, 'x'), magic, magic + std::string(20, '\0'),
          // Methods that there are not; a text beyond the buffer; one that never comes.
          magic + "\xff\xff\xff\xff"s + std::string(16, '\0'),
          magic + "\1\0\0\0"s + std::string(8, '\0') + std::string(8, '\xff'),
          magic + "\1\0\0\0"s + std::string(8, '\0') + "\xff\0\0\0\0\0\0\0"s}) {
        stall(bytes).reset();
        stalled.push_back(stall(bytes));
        EXPECT_EQ(echo(*service, "still"), "still") << bytes;
    }
    // As many as a client can have, and others still find their way.
    for (int i = 0; i < 900; ++i) stalled.push_back(stall(""));
    EXPECT_TRUE(stalled.back().ok());
    EXPECT_EQ(echo(*IFbo::getService(), "still"), "still");
    stalled.clear();
    EXPECT_EQ(echo(*service, "there"), "there");
}

}  // namespace
