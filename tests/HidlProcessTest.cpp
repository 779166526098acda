/*
 * The stand-in for the HIDL runtime between processes: a client meets what it meets on a phone.
 */

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>

#include "Asleep.h"
#include "fbo/Fbo.h"
#include "host/Runtime.h"

namespace {

using namespace std::string_literals;
using namespace vendor::nivora::hardware::fbo::implementation;
using ::android::sp;
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
        // Services are forked by a process that never has threads, other than this one.
        if (fork() == 0) startServices();
    }
    void TearDown() override {
        end();
        unlink(address_.sun_path);
        rmdir(directory_);
    }

    /** Starts a service of so many threads, in a process of its own. */
    void start(int threads) { process_ = order(threads); }
    void end() {
        if (process_ <= 0) return;
        kill(process_, SIGKILL);
        await();
    }
    /** What the service's process ends with. */
    int await() {
        process_ = -1;
        return order(0);
    }

    sockaddr* address() { return reinterpret_cast<sockaddr*>(&address_); }
    pid_t process() const { return process_; }

    Pipe tell, go;

  private:
    int order(int threads) {
        orders_.send({reinterpret_cast<const char*>(&threads), sizeof(threads)});
        int answer = 0;
        memcpy(&answer, answers_.receive(sizeof(answer)).data(), sizeof(answer));
        return answer;
    }

    /** Starts a service of so many threads, or waits for the end of the last one. */
    [[noreturn]] void startServices() {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pid_t last = -1;
        for (int threads; read(orders_.ends[0], &threads, sizeof(threads)) == sizeof(threads);) {
            int answer = 0;
            if (threads == 0) {
                waitpid(last, &answer, 0);
            } else {
                answer = last = fork();
                if (last == 0) serve(threads);
            }
            answers_.send({reinterpret_cast<const char*>(&answer), sizeof(answer)});
        }
        _exit(EXIT_SUCCESS);
    }

    [[noreturn]] void serve(int threads) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        unlink(address_.sun_path);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd, address(), sizeof(address_)), 0);
        host::offerServiceAt(fd);
        android::hardware::configureRpcThreadpool(threads, true);
        const sp<IFbo> service = new Held(tell, go);
        if (service->registerAsService() == android::OK) android::hardware::joinRpcThreadpool();
        _exit(EXIT_FAILURE);
    }

    Pipe orders_, answers_;
    char directory_[32] = "/tmp/hidl_process_XXXXXX";
    sockaddr_un address_{AF_UNIX, {}};
    pid_t process_ = -1;
};

TEST_F(HidlProcess, WhatIsAskedAndAnsweredArrivesWhole) {
    start(4);
    const sp<IFbo> service = IFbo::getService();
    EXPECT_TRUE(service->isRemote());
    for (const std::string& text : {""s, "a\0b\xff"s, std::string(500000, 'x')}) {
        EXPECT_EQ(echo(*service, text), text);
    }
    EXPECT_TRUE(service->FBO_VersionCtrl("ON"));
    EXPECT_FALSE(service->FBO_VersionCtrl("OFF"));
    EXPECT_EQ(service->SnapShot_getStatus(), -6);
    int pid = 0;
    EXPECT_TRUE(service->getDebugInfo([&](const auto& info) { pid = info.pid; }).isOk());
    EXPECT_EQ(pid, process());
    std::string hash;
    const auto take = [&](const auto& chain) {
        ASSERT_EQ(chain.size(), 2u);
        for (const uint8_t byte : chain[0]) {
            hash += "0123456789abcdef"[byte / 16];
            hash += "0123456789abcdef"[byte % 16];
        }
    };
    EXPECT_TRUE(service->getHashChain(take).isOk());
    std::ifstream frozen(FROZEN);
    const std::string hashes{std::istreambuf_iterator<char>(frozen), {}};
    EXPECT_NE(hashes.find(hash + " " + IFbo::descriptor), std::string::npos) << hash;
    const Return<void> refused = service->FBO_trigger("", nullptr);
    EXPECT_FALSE(refused.isOk());
    EXPECT_NE(refused.description().find("Null synchronous callback"), std::string::npos);
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
    Pipe heard;
    sp<IBase> linked;
};

TEST_F(HidlProcess, AnErrorThatEscapesEndsTheServiceAndItsClientsAreTold) {
    start(4);
    const sp<IFbo> service = IFbo::getService();
    const sp<Told> told = new Told, gone = new Told;
    told->linked = service;
    EXPECT_FALSE(service->linkToDeath(nullptr, 0));
    EXPECT_TRUE(service->linkToDeath(gone, 1));
    EXPECT_TRUE(service->linkToDeath(told, 7));
    EXPECT_TRUE(service->unlinkToDeath(gone));
    EXPECT_FALSE(service->unlinkToDeath(gone));
    EXPECT_TRUE(service->FBO_VersionCtrl("").isDeadObject());
    EXPECT_EQ(told->heard.receive(1), "7");
    EXPECT_EQ(WTERMSIG(await()), SIGABRT);
    EXPECT_FALSE(service->unlinkToDeath(told));
    EXPECT_FALSE(service->linkToDeath(told, 8));
    EXPECT_EQ(IFbo::tryGetService(), nullptr);

    // One that comes after it is another one.
    start(4);
    EXPECT_EQ(echo(*IFbo::getService(), "x"), "x");
    EXPECT_TRUE(service->ping().isDeadObject());
    // A method that answers with a text and does not is such an error, too.
    const auto take = [](const hidl_string&) {};
    EXPECT_TRUE(IFbo::getService()->EUA_GetFreeSpaceAPECycle(take).isDeadObject());
    EXPECT_EQ(WTERMSIG(await()), SIGABRT);
    EXPECT_FALSE(service->getHashChain([](const auto&) {}).isOk());
    pollfd unheard{gone->heard.ends[0], POLLIN, 0};
    EXPECT_EQ(poll(&unheard, 1, 0), 0);
}

TEST_F(HidlProcess, ServicesThatRegisterAreWaitedForAndTold) {
    const sp<Told> told = new Told, late = new Told;
    EXPECT_FALSE(IFbo::registerForNotifications("other", told));
    EXPECT_TRUE(IFbo::registerForNotifications("default", told));
    auto waiting = std::async(std::launch::async, [] { return IFbo::getService(); });
    EXPECT_EQ(IFbo::tryGetService(), nullptr);
    start(4);
    EXPECT_NE(waiting.get(), nullptr);
    EXPECT_EQ(told->heard.receive(1), "R");
    EXPECT_TRUE(IFbo::registerForNotifications("default", late));
    EXPECT_EQ(late->heard.receive(1), "P");
    end();
    start(4);
    EXPECT_EQ(told->heard.receive(1) + late->heard.receive(1), "RR");
}

TEST_F(HidlProcess, TheCallsInProgressShareABuffer) {
    start(4);
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

TEST_F(HidlProcess, AsManyCallsRunAsThereAreThreads) {
    for (const auto& [threads, order] : {std::pair(1, "elel"), {2, "eell"}}) {
        start(threads);
        const sp<IFbo> service = IFbo::getService();
        std::vector<std::thread> callers;
        std::promise<pid_t> second;
        callers.emplace_back([&] { EXPECT_TRUE(service->EUA_SendEraseCmd("1")); });
        std::string happened = tell.receive(1);
        callers.emplace_back([&] {
            second.set_value(gettid());
            EXPECT_TRUE(service->EUA_SendEraseCmd("1"));
        });
        const pid_t waiting = second.get_future().get();
        while (!isAsleep(waiting)) std::this_thread::yield();
        if (threads == 2) happened += tell.receive(1);
        go.send("!!");
        happened += tell.receive(4 - happened.size());
        for (std::thread& caller : callers) caller.join();
        EXPECT_EQ(happened, order);
        end();
    }
}

/** Whatever comes on the socket is its sender's affair alone. */
TEST_F(HidlProcess, WhoSendsNonsenseOrStallsDisturbsNobody) {
    start(4);
    const sp<IFbo> service = IFbo::getService();
    const auto magic = "!fbo"s;
    const std::string zeros(20, '\0');
    std::vector<int> stalled;
    for (const std::string& bytes :
         {""s, "x"s, std::string(100, 'x'), magic, magic + zeros,
          // Methods that there are not; a text beyond the buffer; one that never comes.
          magic + "\xff\xff\xff\xff"s + std::string(16, '\0'),
          magic + "\1\0\0\0"s + std::string(8, '\0') + std::string(8, '\xff'),
          magic + "\1\0\0\0"s + std::string(8, '\0') + "\xff\0\0\0\0\0\0\0"s}) {
        for (const bool stalls : {true, false}) {
            const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            ASSERT_EQ(connect(fd, address(), sizeof(sockaddr_un)), 0);
            (void)!send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            stalls ? stalled.push_back(fd) : void(close(fd));
        }
        EXPECT_EQ(echo(*service, "still"), "still") << bytes;
    }
    // As many as a client can have, and others still find their way.
    for (int i = 0; i < 900; ++i) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd, address(), sizeof(sockaddr_un)) == 0) stalled.push_back(fd);
    }
    EXPECT_GT(stalled.size(), 900u);
    EXPECT_EQ(echo(*IFbo::getService(), "still"), "still");
    for (const int fd : stalled) close(fd);
    EXPECT_EQ(echo(*service, "there"), "there");
}

}  // namespace
