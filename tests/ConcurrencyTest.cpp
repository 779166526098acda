/*
 * Calls that coincide from the first one on, as those of several clients do when the service has
 * just started. What a service remembers is its process's, so each service is a process of its own.
 */

#include <sys/wait.h>
#include <unistd.h>

#include <android/log.h>

#include <atomic>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Calls.h"
#include "fbo/Fbo.h"
#include "fbo/Globals.h"
#include "fbo/snapshot/Snapshot.h"
#include "sim/Simulator.h"
#include "sim/Uevent.h"

using namespace vendor::nivora::hardware::fbo::implementation;

namespace {

constexpr int kServices = 300;
constexpr size_t kThreads = 8;
constexpr size_t kCallsOfAThread = 3;

/** The calls that clients make first, and their answers. */
const std::pair<const char*, const char*> kCalls[] = {
        {"FBO_isSupport", "true"},
        {"EUA_GetFreeSpaceAPECycle", "120:1"},
        {"SnapShot_getStatus", "0"},
        {"EUA_SupportSize", "65536"},
        {"SnapShot_startDrop", "true"},
        {"FBO_VersionCtrl V:1.0,1.0:ON", "true"},
        // The worker asks for the status too.
        {"the drop event", ""},
};

std::string answerOf(Fbo& service, const std::string& call) {
    if (call != "the drop event") return callByName(service, call);
    sim::sendKernelUevent(sim::dropEvent());
    return "";
}

/** Has every thread run `work`, with its number, all at the same moment. */
void atOnce(const std::function<void(size_t thread)>& work) {
    std::atomic<size_t> ready = 0;
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (ready < kThreads) std::this_thread::yield();
            work(i);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

/**
 * Runs `serve` on a fresh service, in a process of its own.
 *
 * @return what `serve` returns, or -1 if the service died.
 */
int onFreshService(const std::function<int(Fbo& service)>& serve) {
    const pid_t child = fork();
    if (child == 0) {
        const android::sp<Fbo> service = new Fbo;
        sim::awaitListeners(1);
        _exit(serve(*service));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
    for (int i = 0; i < kServices && !HasFailure(); ++i) {
        setNewWords(phone, 40);
        const int wrong = onFreshService([i](Fbo& service) {
            std::atomic<int> wrong = 0;
            atOnce([&](size_t thread) {
                for (size_t j = 0; j < kCallsOfAThread; ++j) {
                    const size_t call = (i + thread + j) % std::size(kCalls);
                    const auto& [name, answer] = kCalls[call];
                    if (answerOf(service, name) != answer) wrong = static_cast<int>(call) + 1;
                }
            });
            return wrong.load();
        });
        ASSERT_GE(wrong, 0) << "service " << i << " died";
        ASSERT_EQ(wrong, 0) << "service " << i << ": " << kCalls[wrong - 1].first;
    }
}

/** The wear is read, and unknown words are entered, again and again on all threads. */
TEST(Concurrency, WhatIsRememberedStaysWhole) {
    constexpr int kRounds = 200;
    QuietPhone phone("ufs40:micron");
    constexpr size_t kWords = kThreads * kRounds;
    enum { kWhole, kLevelsLost, kWordsLost };
    for (int i = 0; i < kServices / 50; ++i) {
        setNewWords(phone, kWords);
        const int outcome = onFreshService([](Fbo& service) {
            const size_t known = snapshotStatusMap.size();
            atOnce([&](size_t) {
                for (int i = 0; i < kRounds; ++i) {
                    service.SnapShot_getStatus();
                    if (i % 4 == 0) service.getUFSPEcycleALevelToNum();
                }
            });
            if (service.level_to_num.size() != 11) return kLevelsLost;
            return snapshotStatusMap.size() == known + kWords ? kWhole : kWordsLost;
        });
        EXPECT_EQ(outcome, kWhole);
    }
}

/** Runs that share a device disturb each other, and each gets an answer all the same. */
TEST(Concurrency, TriggersMayCoincide) {
    QuietPhone phone("ufs40:micron,analysis=0,optimise=0");
    for (int i = 0; i < kServices / 10 && !HasFailure(); ++i) {
        const int wrong = onFreshService([](Fbo& service) {
            std::atomic<int> wrong = 0;
            atOnce([&](size_t thread) {
                const std::string range = std::to_string(thread * 1000) + ",8,";
                if (callByName(service, "FBO_trigger " + range + range).compare(0, 4, "Fbo:") != 0)
                    ++wrong;
            });
            return wrong.load();
        });
        EXPECT_EQ(wrong, 0) << "service " << i << (wrong < 0 ? " died" : ": answers are missing");
    }
}

}  // namespace
