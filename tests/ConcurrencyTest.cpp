/*
 * Calls that coincide from the first one on, as those of several clients do when the service has
 * just started. What a service remembers is its process's, so each service is a process of its own.
 */

#include <android/log.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

#include "Phone.h"
#include "fbo/Globals.h"
#include "fbo/snapshot/Snapshot.h"
#include "sim/Uevent.h"

namespace {

/** Whether another thread may run whenever memory is allocated, in the midst of what that is for.
 */
std::atomic<bool> yields = false;

}  // namespace

__attribute__((noinline)) void* operator new(size_t size) {
    if (yields) std::this_thread::yield();
    if (void* memory = malloc(size)) return memory;
    throw std::bad_alloc();
}

// The address sanitizer has one of its own, whose memory is not to be freed here.
__attribute__((noinline)) void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return malloc(size);
}

__attribute__((noinline)) void operator delete(void* memory) noexcept {
    free(memory);
}

__attribute__((noinline)) void operator delete(void* memory, size_t) noexcept {
    free(memory);
}

namespace {

constexpr size_t kServices = 100;
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
        yields = true;
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

/** Has the driver tell `count` new words for the snapshot's state, each as often as threads ask. */
void setNewWords(sim::Simulator& phone, int count) {
    std::string words;
    for (size_t i = 0; i < count * kThreads; ++i) words += "/word" + std::to_string(i / kThreads);
    phone.set("node.status", words.substr(1));
}

TEST(Concurrency, FirstCallsMayCoincide) {
    QuietPhone phone("ufs40:micron");
    for (size_t i = 0; i < kServices && !HasFailure(); ++i) {
        setNewWords(phone, 5);
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
    QuietPhone phone("ufs40:micron");
    const size_t known = snapshotStatusMap.size();
    for (size_t i = 0; i < kServices / 25; ++i) {
        setNewWords(phone, kRounds);
        onFreshService(
                [](Fbo& service, size_t) {
                    for (size_t i = 0; i < kRounds; ++i) {
                        service.SnapShot_getStatus();
                        if (i % 4 == 0) service.getUFSPEcycleALevelToNum();
                    }
                },
                [known](Fbo& service) {
                    EXPECT_EQ(service.level_to_num.size(), 11u);
                    EXPECT_EQ(snapshotStatusMap.size(), known + kRounds);
                });
    }
}

/** Runs that share a device disturb each other, and each gets an answer all the same. */
TEST(Concurrency, TriggersMayCoincide) {
    QuietPhone phone("ufs40:micron,analysis=0,optimise=0");
    // A level that the table does not have is entered, by all of them.
    phone.set("node.fbo_get_lr_frag_level", "0123456789z" + std::string(20, '.'));
    for (size_t i = 0; i < kServices / 4 && !HasFailure(); ++i) {
        onFreshService(
                [](Fbo& service, size_t thread) {
                    const std::string trigger =
                            "FBO_trigger " + std::to_string(thread * 1000) + ",8,";
                    EXPECT_EQ(callByName(service, trigger).substr(0, 4), "Fbo:");
                },
                [](Fbo& service) { EXPECT_LE(service.level_to_num.size(), 12u); });
    }
}

}  // namespace
