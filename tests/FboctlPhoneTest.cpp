/*
 * fboctl as on a phone: a service whose calls can fail, and a logcat in a process of its own.
 */

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Asleep.h"
#include "tools/fboctl/Erase.h"
#include "tools/fboctl/Parts.h"
#include "tools/fboctl/Run.h"

namespace fboctl {

using ::android::hardware::Return;
using ::android::hardware::Status;
using ::android::hardware::Void;

namespace {

/** A service that does as a test says. */
struct Service : public IFbo {
    Return<bool> FBO_isSupport() override { return true; }
    Return<void> FBO_trigger(const hidl_string& command, FBO_trigger_cb _hidl_cb) override {
        texts.push_back(command);
        Status status = run();
        if (!status.isOk()) return status;
        _hidl_cb("Fbo:10:4");
        return Void();
    }
    Return<void> FBO_stateCtl(const hidl_string& command, FBO_stateCtl_cb _hidl_cb) override {
        Status status = control(command);
        if (!status.isOk()) return status;
        _hidl_cb(command);
        return Void();
    }
    Return<bool> FBO_GCADisCard() override { return true; }
    Return<bool> FBO_VersionCtrl(const hidl_string&) override { return true; }
    Return<void> EUA_GetFreeSpaceAPECycle(EUA_GetFreeSpaceAPECycle_cb _hidl_cb) override {
        _hidl_cb("1:1");
        return Void();
    }
    Return<bool> EUA_SendEraseCmd(const hidl_string& command) override {
        if (texts.size() == erase_calls) return false;
        texts.push_back(command);
        return true;
    }
    Return<bool> EUA_isSupport() override { return true; }
    Return<int32_t> EUA_SupportSize() override { return 1; }
    Return<bool> SnapShot_isSupport() override { return true; }
    Return<bool> SnapShot_startBackup() override { return true; }
    Return<bool> SnapShot_startDrop() override { return true; }
    Return<int32_t> SnapShot_getStatus() override { return 0; }

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
        ASSERT_EQ(service->registerAsService(), android::OK);
        // As the program does it; threads take it over.
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
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
        service->run = [this] {
            progress.take("FBO_trigger:1: [FBO-HAL] lba is: 1,2 .");
            kill(getpid(), SIGINT);
            stop_.get_future().wait();
            ended_ = true;
            return Status::ok();
        };
        service->control = [this, answer, caller = gettid()](const std::string& command) {
            EXPECT_EQ(command, "stop");
            stop_.set_value();
            while (!ended_ || !isAsleep(caller)) std::this_thread::yield();
            return answer;
        };
    }

    const sp<Service> service = new Service;
    Progress progress{1};

  private:
    std::promise<void> stop_;
    std::atomic<bool> ended_ = false;
};

/** `text` again and again, to more than `size` characters. */
std::string repeat(const std::string& text, size_t size) {
    std::string repeated;
    while (repeated.size() <= size) repeated += text;
    return repeated;
}

std::string join(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) joined += text;
    return joined;
}

constexpr char kRange[] = "81920,64,";

TEST_F(PhoneFboctl, TellsOfAStopThatIsNotDelivered) {
    interruptRun(Status::fromStatusT(android::FAILED_TRANSACTION));
    testing::internal::CaptureStderr();
    const RunResult run = trigger(kRange);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("stop could not be delivered"),
              std::string::npos);
    EXPECT_FALSE(run.stopped);
    EXPECT_TRUE(run.ok());
    EXPECT_EQ(run.before, 10);
}

TEST_F(PhoneFboctl, CountsAStopThatIsDelivered) {
    interruptRun(Status::ok());
    const RunResult run = trigger(kRange);
    EXPECT_TRUE(run.stopped);
    EXPECT_FALSE(run.ok());
}

TEST_F(PhoneFboctl, SendsNothingMoreAfterCtrlC) {
    interruptRun(Status::fromStatusT(android::FAILED_TRANSACTION));
    EXPECT_TRUE(trigger(repeat(kRange, kMaxPart)).stopped);
    EXPECT_EQ(service->texts.size(), 1u);
}

TEST_F(PhoneFboctl, EndsAtTheSecondCtrlCThoughTheStopIsNotAnswered) {
    std::promise<void> stop;
    service->run = [&] {
        kill(getpid(), SIGINT);
        stop.get_future().wait();
        kill(getpid(), SIGINT);
        pause();
        return Status::ok();
    };
    service->control = [&](const std::string&) {
        stop.set_value();
        pause();
        return Status::ok();
    };
    EXPECT_EXIT(trigger(kRange), testing::KilledBySignal(SIGINT), "stopping");
}

TEST_F(PhoneFboctl, TellsThatTheServiceHasDied) {
    service->run = [] { return Status::fromStatusT(android::DEAD_OBJECT); };
    try {
        trigger(kRange);
        FAIL();
    } catch (const CallError& error) {
        EXPECT_STREQ(error.what(), "the service has died");
    }
}

/** Whether a zone failed only the log tells: a run without it is none that went well. */
TEST_F(PhoneFboctl, ARunThatLogsNothingIsNoSuccess) {
    EXPECT_FALSE(trigger(kRange).ok());
}

TEST_F(PhoneFboctl, CutsARequestAtWholeRanges) {
    std::string request;
    for (int i = 0; request.size() < 3 * kMaxPart; ++i) {
        request += std::to_string(i * 7919) + "," + std::to_string(i) + ",";
    }
    EXPECT_EQ(trigger(request).before, 40);
    EXPECT_EQ(join(service->texts), request);
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

/** The items that the service makes of `list`. */
std::vector<std::string> itemsOf(const std::string& list) {
    std::vector<std::string> items;
    for (size_t start = 0, end; start < list.size(); start = end + 1) {
        end = std::min(list.find(':', start), list.size());
        items.push_back(list.substr(start, end - start));
    }
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
        ASSERT_EQ(service->texts.size(), 2u);
        EXPECT_LE(service->texts[0].size(), 256u * 1024);
        std::vector<std::string> items = itemsOf(service->texts[0]);
        for (const std::string& item : itemsOf(service->texts[1])) items.push_back(item);
        EXPECT_EQ(items, itemsOf(list)) << shift;
    }
}

TEST_F(PhoneFboctl, CountsWhatWasErasedBeforeTheNodeWasGone) {
    service->erase_calls = 1;
    const EraseResult result = sendErase(Session(Options{}), repeat("1:", kMaxPart));
    EXPECT_FALSE(result.sent);
    EXPECT_EQ(result.items, kMaxPart / 2);
}

/**
 * A logcat that tells when it is there, and then stays. It does so on a pipe that it, its parent
 * and this process have open.
 */
class Logcat {
  public:
    Logcat() {
        EXPECT_EQ(pipe(ends_), 0);
        char name[] = "fboctl_phone_XXXXXX";
        directory_ = mkdtemp(name);
        FILE* const script = fopen((directory_ + "/logcat").c_str(), "w");
        fprintf(script, "#!/bin/sh\necho here >/proc/self/fd/%d\nexec sleep 60\n", ends_[1]);
        fclose(script);
        chmod((directory_ + "/logcat").c_str(), 0700);
        setenv("PATH", (directory_ + ":" + getenv("PATH")).c_str(), 1);
    }
    ~Logcat() {
        close(ends_[0]);
        unlink((directory_ + "/logcat").c_str());
        rmdir(directory_.c_str());
    }
    Logcat(const Logcat&) = delete;
    Logcat& operator=(const Logcat&) = delete;

    /** What logcat says; empty once nobody has the pipe open for writing. */
    std::string read() const {
        pollfd end{ends_[0], POLLIN, 0};
        if (poll(&end, 1, 20'000) != 1) return "nothing, but it is there";
        char text[16];
        const ssize_t size = ::read(ends_[0], text, sizeof(text));
        return {text, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }
    void closeMine() const { close(ends_[1]); }

  private:
    int ends_[2];
    std::string directory_;
};

TEST_F(PhoneFboctl, LeavesNoLogcatBehindWhenKilled) {
    for (const int signal : {SIGTERM, SIGKILL}) {
        const Logcat logcat;
        const pid_t program = fork();
        if (program == 0) {
            // Should the test itself be killed.
            alarm(60);
            // What such a user has ignored, logcat is to end by all the same.
            if (signal == SIGKILL) ::signal(SIGTERM, SIG_IGN);
            const Session session(Options{}, [](char, const std::string&) {});
            for (;;) pause();
        }
        logcat.closeMine();
        EXPECT_EQ(logcat.read(), "here\n");
        kill(program, signal);
        waitpid(program, nullptr, 0);
        EXPECT_EQ(logcat.read(), "") << signal;
    }
}

TEST_F(PhoneFboctl, LeavesNoLogcatBehindAtItsEnd) {
    const Logcat logcat;
    {
        const Session session(Options{}, [](char, const std::string&) {});
        EXPECT_EQ(logcat.read(), "here\n");
    }
    logcat.closeMine();
    EXPECT_EQ(logcat.read(), "");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD) << "a child has not been reaped";
}

}  // namespace

}  // namespace fboctl
