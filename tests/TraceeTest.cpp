#include "sim/Tracee.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>

namespace {

/** A process to watch, or nothing where there is no ptrace(2). */
std::unique_ptr<sim::Tracee> watch(const std::function<int()>& action) {
    try {
        return std::make_unique<sim::Tracee>(action);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::function_not_supported) throw;
        return nullptr;
    }
}

TEST(Tracee, SeesEverySystemCallOfEveryThread) {
    const auto tracee = watch([] {
        for (int i = 0; i < 3; ++i) syscall(SYS_getppid);
        std::thread([] { syscall(SYS_getppid); }).join();
        raise(SIGWINCH);
        return 7;
    });
    if (!tracee) GTEST_SKIP() << "no ptrace";
    std::map<pid_t, int> calls;
    while (const auto call = tracee->next()) calls[call->thread] += call->number == SYS_getppid;
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[tracee->pid()], 3);
    calls.erase(tracee->pid());
    EXPECT_EQ(calls.begin()->second, 1);
    EXPECT_TRUE(WIFEXITED(tracee->status()) && WEXITSTATUS(tracee->status()) == 7);
}

TEST(Tracee, DiesBeforeTheCallThatItStandsAt) {
    auto* const made = static_cast<int*>(
            mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const auto tracee = watch([made] {
        std::thread([] { pause(); }).detach();
        for (;;) {
            syscall(SYS_getppid);
            ++*made;
        }
        return 0;
    });
    if (!tracee) GTEST_SKIP() << "no ptrace";
    for (int calls = 0; calls < 5;) calls += tracee->next()->number == SYS_getppid;
    tracee->kill();
    EXPECT_EQ(*made, 4);
    EXPECT_TRUE(WIFSIGNALED(tracee->status()) && WTERMSIG(tracee->status()) == SIGKILL);
    EXPECT_FALSE(tracee->next());
}

}  // namespace
