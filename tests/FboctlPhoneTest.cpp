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
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
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
    // clang-format off
    const struct { bool delivered; std::string request; bool stopped; } kRows[] = {
            {false, kRange, false}, {true, kRange, true}, {false, repeat(kRange, kMaxPart), true}};
    // clang-format on
    for (const auto& row : kRows) {
        interruptRun(row.delivered ? Status::ok()
                                   : Status::fromStatusT(android::FAILED_TRANSACTION));
        testing::internal::CaptureStderr();
        const RunResult run = trigger(row.request);
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(errors.find("stop could not be delivered") == std::string::npos, row.delivered);
        EXPECT_EQ(run.stopped, row.stopped);
        EXPECT_EQ(run.ok(), !row.stopped);
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
    std::string request;
    for (int i = 0; request.size() < 3 * kMaxPart; ++i) {
        request += std::to_string(i * 7919) + "," + std::to_string(i) + ",";
    }
    EXPECT_EQ(trigger(request).before, 40);
    EXPECT_EQ(Join(service->texts, ""), request);
    for (const std::string& text : service->texts) {
        EXPECT_LE(text.size(), 256u * 1024);
        EXPECT_EQ(text.back(), ',');
        EXPECT_EQ(std::count(text.begin(), text.end(), ',') % 2, 0);
    }
}

TEST_F(PhoneFboctl, SendsNoRangeThatDoesNotFit) {
    EXPECT_THROW(trigger(repeat(kRange, kMaxPart) + std::string(kMaxPart + 1, '1')), UsageError);
    EXPECT_TRUE(service->texts.empty());
    trigger(std::string(kMaxPart, '1'));
    EXPECT_EQ(service->texts.size(), 1u);
}

/** The items that the service makes of `list`: a ":" at the end begins none. */
std::vector<std::string> itemsOf(const std::string& list) {
    std::vector<std::string> items = Split(list, ":");
    if (items.back().empty()) items.pop_back();
    return items;
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
        EXPECT_EQ(result.items, itemsOf(list).size());
        EXPECT_EQ(Join(service->texts, ""), list);
        ASSERT_EQ(service->texts.size(), 2u);
        EXPECT_LE(service->texts[0].size(), 256u * 1024);
        EXPECT_EQ(itemsOf(service->texts[0]).size() + itemsOf(service->texts[1]).size(),
                  result.items);
    }
}

TEST_F(PhoneFboctl, CountsWhatWasErasedBeforeTheNodeWasGone) {
    service->erase_calls = 1;
    const EraseResult result = sendErase(Session(Options{}), repeat("1:", kMaxPart));
    EXPECT_FALSE(result.sent);
    EXPECT_EQ(result.items, kMaxPart / 2);
}

TEST_F(PhoneFboctl, LeavesNoLogcatBehind) {
    // A logcat that says on a pipe when it is there, and then stays.
    unique_fd output;
    unique_fd input;
    ASSERT_TRUE(Pipe(&output, &input, 0));
    const TemporaryDir directory;
    const std::string path = directory.path;
    const std::string script = "#!/bin/sh\necho here >/proc/self/fd/" +
                               std::to_string(input.get()) + "\nexec sleep 20\n";
    ASSERT_TRUE(WriteStringToFile(script, path + "/logcat", 0700, getuid(), getgid()));
    setenv("PATH", (path + ":" + getenv("PATH")).c_str(), 1);
    const auto begin = [&] {
        auto session = std::make_unique<Session>(Options{}, [](char, const std::string&) {});
        char line[5];
        EXPECT_TRUE(ReadFully(output, line, sizeof(line)));
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
    // clang-format off
    const struct { const char *type, *parameters, *device; uint64_t start; } kRows[] = {
            {"linear", "8:5 2048", "8:5", 2048},
            {"crypt", "aes-xts-plain64 00 0 259:3 4096 1 allow_discards", "259:3", 4096},
            {"default-key", "aes-xts-plain64 - 0 8:33 0 3 allow_discards", "8:33", 0},
            {"linear", "8:5", nullptr, 0}, {"linear", "8:5 x", nullptr, 0},
            {"striped", "2 16 8:5 0 8:6 0", nullptr, 0}, {"crypt", "", nullptr, 0}};
    // clang-format on
    for (const auto& row : kRows) {
        const auto found = parseTarget(row.type, row.parameters);
        EXPECT_EQ(found.has_value(), row.device != nullptr) << row.parameters;
        if (!found || row.device == nullptr) continue;
        EXPECT_EQ(found->device, row.device);
        EXPECT_EQ(found->start, row.start);
    }
}

}  // namespace

}  // namespace fboctl
