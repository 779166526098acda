/*
 * fboctl as on a phone: a service whose calls can fail, and a logcat in a process of its own.
 */

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gtest/gtest.h>

#include "Asleep.h"
#include "fbo/Fbo.h"
#include "tools/fboctl/Erase.h"
#include "tools/fboctl/Extents.h"
#include "tools/fboctl/FirstBlock.h"
#include "tools/fboctl/Parts.h"
#include "tools/fboctl/TriggerRun.h"

namespace fboctl {

using namespace ::android::base;
using ::android::hardware::Return;
using ::android::hardware::Status;

namespace {

/** The service, but for the calls that fboctl cuts in parts: they do as a test says. */
struct Service : ::vendor::nivora::hardware::fbo::implementation::Fbo {
    Return<void> FBO_trigger(const hidl_string& command, FBO_trigger_cb _hidl_cb) override {
        texts.push_back(command);
        Status status = run();
        if (status.isOk()) _hidl_cb("Fbo:10:4");
        return status;
    }
    Return<void> FBO_stateCtl(const hidl_string& command, FBO_stateCtl_cb _hidl_cb) override {
        Status status = control(command);
        if (status.isOk()) _hidl_cb(command);
        return status;
    }
    Return<bool> EUA_SendEraseCmd(const hidl_string& command) override {
        if (texts.size() == erase_calls) return false;
        texts.push_back(command);
        return true;
    }

    /** What came in the calls that are cut in parts. */
    std::vector<std::string> texts;
    /** What happens in FBO_trigger() and FBO_stateCtl(). */
    std::function<Status()> run = [] { return Status::ok(); };
    std::function<Status(const std::string&)> control = [](const auto&) { return Status::ok(); };
    /** How many calls of EUA_SendEraseCmd() find their node. */
    size_t erase_calls = SIZE_MAX;
};

class PhoneFboctl : public testing::Test {
  protected:
    void SetUp() override {
        // As the program does it; threads take it over.
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
        service = new Service;
        // For good: its worker runs to the end of the process.
        service->incStrong(nullptr);
        ASSERT_EQ(service->registerAsService(), android::OK);
    }

    RunResult trigger(const std::string& request) {
        // Without a reader there is no logcat.
        return runTrigger(Session(Options{}), request, progress);
    }

    /**
     * The user hits Ctrl-C in a run, which goes on until the stop has come. `answer` to it comes
     * when the run has ended and nothing is left for its caller to do but to wait.
     */
    void interruptRun(Status answer) {
        stopped = ended = false;
        service->run = [this] {
            // As logcat has it, a text of two lines is two.
            for (const char* line : {"FBO_trigger:1: [FBO-HAL] lba is: 1,2 .",
                                     "UFS40_FBO_Imp:2: [FBO-HAL] fbo_defrag_enable success.",
                                     "UFS40_FBO_Imp:3: [FBO-HAL] read buff success, the level is ",
                                     ": frag_lvl: 1, lr_count: 2, optimised: 2"}) {
                progress.take(line);
            }
            kill(getpid(), SIGINT);
            while (!stopped) std::this_thread::yield();
            ended = true;
            return Status::ok();
        };
        service->control = [this, answer, caller = gettid()](const std::string& command) {
            EXPECT_EQ(command, "stop");
            stopped = true;
            while (!ended || !isAsleep(caller)) std::this_thread::yield();
            return answer;
        };
    }

    sp<Service> service;
    Progress progress{false};
    std::atomic<bool> stopped = false;
    std::atomic<bool> ended = false;
};

/** `text` again and again, to more than `size` characters. */
std::string repeat(const std::string& text, size_t size) {
    std::string repeated;
    while (repeated.size() <= size) repeated += text;
    return repeated;
}

constexpr char kRange[] = "81920,64,";

/** A stop that does not reach the service still keeps back what has not been sent. */
TEST_F(PhoneFboctl, CountsAStopThatIsDeliveredOrKeepsPartsBack) {
    const std::tuple<Status, std::string, bool> kRows[] = {
            {Status::fromStatusT(android::FAILED_TRANSACTION), kRange, false},
            {Status::ok(), kRange, true},
            {Status::fromStatusT(android::FAILED_TRANSACTION), repeat(kRange, kMaxPart), true}};
    for (const auto& [answer, request, stopped] : kRows) {
        interruptRun(answer);
        testing::internal::CaptureStderr();
        const RunResult run = trigger(request);
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(errors.find("stop could not be delivered") == errors.npos, answer.isOk());
        EXPECT_EQ(run.stopped, stopped);
        EXPECT_EQ(run.ok(), !stopped);
        // Of one call.
        EXPECT_EQ(run.before, 10);
    }
}

/** What another terminal has stopped goes on no further here, either. */
TEST_F(PhoneFboctl, SendsNothingAfterAStopOfSomebodyElse) {
    service->run = [this] {
        progress.take("UFS31_FBO_Imp:1: [FBO-HAL] hal stop.");
        return Status::ok();
    };
    EXPECT_TRUE(trigger(repeat(kRange, kMaxPart)).stopped);
    EXPECT_EQ(service->texts.size(), 1u);
}

TEST_F(PhoneFboctl, EndsAtTheSecondCtrlCThoughTheStopIsNotAnswered) {
    const auto interrupt = [] {
        kill(getpid(), SIGINT);
        pause();
        return Status::ok();
    };
    service->run = interrupt;
    service->control = [=](const std::string&) { return interrupt(); };
    EXPECT_EXIT(trigger(kRange), testing::KilledBySignal(SIGINT), "stopping");
}

TEST_F(PhoneFboctl, TellsWhatIsNoSuccess) {
    // Whether a zone failed only the log tells: a run that logs nothing is none that went well.
    EXPECT_FALSE(trigger(kRange).ok());
    service->run = [] { return Status::fromStatusT(android::DEAD_OBJECT); };
    try {
        trigger(kRange);
        FAIL();
    } catch (const CallError& error) {
        EXPECT_STREQ(error.what(), "the service has died");
    }
}

TEST_F(PhoneFboctl, CutsARequestAtWholeRanges) {
    EXPECT_THROW(trigger(repeat(kRange, kMaxPart) + std::string(kMaxPart + 1, '1')), UsageError);
    EXPECT_TRUE(service->texts.empty());
    std::string request;
    for (int i = 0; request.size() < 3 * kMaxPart; ++i) {
        request += std::to_string(i * 7919) + "," + std::to_string(i) + ",";
    }
    const RunResult run = trigger(request);
    EXPECT_EQ(std::pair(run.before, run.after), std::pair(int64_t{40}, int64_t{16}));
    EXPECT_EQ(Join(service->texts, ""), request);
    for (const std::string& text : service->texts) {
        EXPECT_LE(text.size(), 256u * 1024);
        EXPECT_EQ(text.back(), ',');
        EXPECT_EQ(std::count(text.begin(), text.end(), ',') % 2, 0);
    }
    trigger(std::string(kMaxPart, '1'));
    EXPECT_EQ(service->texts.size(), 5u);
}

TEST_F(PhoneFboctl, CutsEraseRequestsAtWholeItems) {
    const std::string unit = "100,8:::2,1:";
    const std::string most = repeat(std::string(99, '7') + ":", kMaxPart - 500);
    // Each character of the unit is once the first that does not fit.
    for (size_t shift = 0; shift < unit.size(); ++shift) {
        const std::string list = std::string(shift, ':') + most + repeat(unit, 1000) + "3,1";
        service->texts.clear();
        const EraseResult result = sendErase(Session(Options{}), list);
        EXPECT_TRUE(result.sent);
        EXPECT_EQ(Join(service->texts, ""), list);
        ASSERT_EQ(service->texts.size(), 2u);
        EXPECT_LE(service->texts[0].size(), 256u * 1024);
        EXPECT_EQ(service->texts[0].back(), ':');
        // The last item ends the list.
        EXPECT_EQ(result.items, 1u + std::count(list.begin(), list.end(), ':'));
    }
    // One call finds the node, the next one does not.
    service->erase_calls = service->texts.size() + 1;
    const EraseResult result = sendErase(Session(Options{}), repeat("1:", kMaxPart));
    EXPECT_FALSE(result.sent);
    EXPECT_EQ(result.items, kMaxPart / 2);
}

TEST_F(PhoneFboctl, LeavesNoLogcatBehind) {
    // A logcat that has a line, and then stays.
    const TemporaryDir directory;
    const std::string path = directory.path;
    ASSERT_TRUE(WriteStringToFile("#!/bin/sh\necho 'D/mem_fbo : F:1: a: b'\nexec sleep 1000\n",
                                  path + "/logcat", 0700, getuid(), getgid()));
    setenv("PATH", (path + ":" + getenv("PATH")).c_str(), 1);
    const auto begin = [&] {
        const auto line = std::make_shared<std::promise<std::string>>();
        auto session = std::make_unique<Session>(Options{}, [=](char priority, const auto& text) {
            line->set_value(priority + text);
        });
        EXPECT_EQ(line->get_future().get(), "DF:1: a: b");
        return session;
    };

    begin().reset();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "there is a child, alive or not reaped";
    // What a program leaves behind when it is killed becomes a child of this process.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const int signal : {SIGTERM, SIGKILL}) {
        const pid_t program = fork();
        if (program == 0) {
            // What such a user has ignored, logcat is to end by all the same.
            if (signal == SIGKILL) ::signal(SIGTERM, SIG_IGN);
            const auto session = begin();
            kill(getpid(), signal);
            pause();
        }
        EXPECT_EQ(waitpid(program, nullptr, 0), program);
        int status = 0;
        EXPECT_GT(waitpid(-1, &status, 0), 0);
        EXPECT_EQ(WTERMSIG(status), SIGKILL);
    }
}

TEST(Extents, ThatOverlapOrTouchAreOneRange) {
    const std::vector<FileExtents> files = {{"a", {{100, 8}, {10, 5}}, 0, ""},
                                            {"b", {{15, 1}, {104, 1}, {17, 3}}, 0, ""},
                                            {"c", {{0, 9}, {100, 10}}, 0, ""},
                                            {"a", {{100, 8}, {10, 5}}, 0, ""}};
    std::string request;
    appendRanges(request, joinRanges(files));
    EXPECT_EQ(request, "0,9,10,6,17,3,100,10,");
}

TEST(Extents, BeginWhereTheVolumesTargetSays) {
    // The type of the target, its parameters, and the device and the sector of it, if there are.
    const char* const kRows[][3] = {
            {"linear", "8:5 2048", "8:5 2048"},
            {"crypt", "aes-xts-plain64 00 0 259:3 4096 1 allow_discards", "259:3 4096"},
            {"default-key", "aes-xts-plain64 - 0 8:33 0 3 allow_discards", "8:33 0"},
            {"linear", "8:5", "none"},
            {"linear", "8:5 x", "none"},
            {"striped", "2 16 8:5 0 8:6 0", "none"},
            {"crypt", "", "none"}};
    for (const auto& [type, parameters, place] : kRows) {
        const auto found = parseTarget(type, parameters);
        EXPECT_EQ(found ? found->device + " " + std::to_string(found->start) : "none", place);
    }
}

}  // namespace

}  // namespace fboctl
