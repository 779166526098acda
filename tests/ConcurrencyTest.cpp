/*
 * Calls that coincide from the first one on, as those of several clients do when the service has
 * just started. What a service remembers is its process's, so each service is a process of its own.
 */

#include <android/log.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "Phone.h"
#include "fbo/Globals.h"
#include "fbo/snapshot/Snapshot.h"
#include "sim/Uevent.h"

namespace {

constexpr size_t kServices = 300;
constexpr size_t kThreads = 8;
constexpr size_t kCallsOfAThread = 3;

/** The calls that clients make first, and their answers. */
const std::pair<const char*, const char*> kCalls[] = {
        {"FBO_isSupport", "true"},      {"EUA_GetFreeSpaceAPECycle", "120:1"},
        {"SnapShot_getStatus", "0"},    {"EUA_SupportSize", "65536"},
        {"SnapShot_startDrop", "true"}, {"FBO_VersionCtrl V:1.0,1.0:ON", "true"}};

/**
 * Makes a service in a process of its own and has every thread run `work` on it, with the thread's
 * number, all at the same moment; then `check`. An expectation may fail there too.
 */
void onFreshService(const std::function<void(Fbo& service, size_t thread)>& work,
                    const std::function<void(Fbo& service)>& check = {}) {
    const pid_t child = fork();
    if (child == 0) {
        const android::sp<Fbo> service = new Fbo;
        sim::awaitListeners(1);
        std::atomic<size_t> ready = 0;
        std::vector<std::thread> threads;
        for (size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                ++ready;
                while (ready < kThreads) std::this_thread::yield();
                work(*service, i);
            });
        }
        for (std::thread& thread : threads) thread.join();
        if (check) check(*service);
        fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "the service died";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

extern "C" __attribute__((weak)) void __sanitizer_symbolize_global(void* data, const char* format,
                                                                   char* out, size_t size);

/**
 * A phone whose service logs nothing. The sanitizer of threads names the variables of a race by the
 * files of the program, which the phone hides, so it has to read them before.
 */
class QuietPhone : public sim::Simulator {
  public:
    explicit QuietPhone(const char* device) : Simulator((readNames(), device)) {
        __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    }

  private:
    static void readNames() {
        char name[64];
        if (__sanitizer_symbolize_global == nullptr) return;
        __sanitizer_symbolize_global(&hal_status_flag, "%g", name, sizeof(name));
    }
};

/** Has the driver tell a new word for the snapshot's state each time, `count` times. */
void setNewWords(sim::Simulator& phone, int count) {
    std::string words = "word0";
    for (int i = 1; i < count; ++i) words += "/word" + std::to_string(i);
    phone.set("node.status", words);
}

TEST(Concurrency, FirstCallsMayCoincide) {
    QuietPhone phone("ufs40:micron");
    for (size_t i = 0; i < kServices && !HasFailure(); ++i) {
        setNewWords(phone, 40);
        onFreshService([i](Fbo& service, size_t thread) {
            for (size_t j = 0; j < kCallsOfAThread; ++j) {
                const size_t call = (i + thread + j) % (std::size(kCalls) + 1);
                if (call == std::size(kCalls)) {
                    // The worker asks for the status too.
                    sim::sendKernelUevent(sim::dropEvent());
                } else {
                    EXPECT_EQ(callByName(service, kCalls[call].first), kCalls[call].second);
                }
            }
        });
    }
}

/** The wear is read, and unknown words are entered, again and again on all threads. */
TEST(Concurrency, WhatIsRememberedStaysWhole) {
    constexpr size_t kRounds = 200;
    constexpr size_t kWords = kThreads * kRounds;
    QuietPhone phone("ufs40:micron");
    const size_t known = snapshotStatusMap.size();
    for (size_t i = 0; i < kServices / 50; ++i) {
        setNewWords(phone, kWords);
        onFreshService(
                [](Fbo& service, size_t) {
                    for (size_t i = 0; i < kRounds; ++i) {
                        service.SnapShot_getStatus();
                        if (i % 4 == 0) service.getUFSPEcycleALevelToNum();
                    }
                },
                [known](Fbo& service) {
                    EXPECT_EQ(service.level_to_num.size(), 11u);
                    EXPECT_EQ(snapshotStatusMap.size(), known + kWords);
                });
    }
}

/** Runs that share a device disturb each other, and each gets an answer all the same. */
TEST(Concurrency, TriggersMayCoincide) {
    QuietPhone phone("ufs40:micron,analysis=0,optimise=0");
    for (size_t i = 0; i < kServices / 10 && !HasFailure(); ++i) {
        onFreshService([](Fbo& service, size_t thread) {
            const std::string range = std::to_string(thread * 1000) + ",8,";
            EXPECT_EQ(callByName(service, "FBO_trigger " + range + range).substr(0, 4), "Fbo:");
        });
    }
}

}  // namespace
