#include "sim/Tracee.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace sim {

namespace {

/** What the stop at a system call shows as its signal, by PTRACE_O_TRACESYSGOOD. */
constexpr int kSystemCallStop = SIGTRAP | 0x80;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/** The number of the call that `thread` is about to make; nothing if it comes back from one. */
std::optional<long> callOf(pid_t thread) {
    __ptrace_syscall_info info{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(info), &info) < 0 ||
        info.op != PTRACE_SYSCALL_INFO_ENTRY) {
        return std::nullopt;
    }
    return static_cast<long>(info.entry.nr);
}

/** The signal that a thread which stopped for `status` is to get; 0 for a stop that is ptrace's. */
int signalOf(int status) {
    const int signal = WSTOPSIG(status);
    const bool is_event = status >> 16 != 0;
    // A new thread begins with a SIGSTOP that nobody sent.
    return is_event || signal == SIGSTOP || signal == kSystemCallStop ? 0 : signal;
}

}  // namespace

Tracee::Tracee(const std::function<int()>& action) : pid_(fork()), stopped_(pid_) {
    if (pid_ < 0) fail("fork");
    if (pid_ == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) < 0) _exit(errno);
        raise(SIGSTOP);
        _exit(action());
    }
    if (waitpid(pid_, &status_, 0) < 0) fail("waitpid");
    if (!WIFSTOPPED(status_)) {
        ended_ = true;
        errno = WEXITSTATUS(status_);
        fail("ptrace");
    }
    if (ptrace(PTRACE_SETOPTIONS, pid_, nullptr,
               PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL) < 0) {
        fail("ptrace");
    }
}

Tracee::~Tracee() {
    kill();
}

std::optional<SystemCall> Tracee::next() {
    if (ended_) return std::nullopt;
    ptrace(PTRACE_SYSCALL, stopped_, nullptr, 0);
    for (;;) {
        int status = 0;
        const pid_t thread = waitpid(-1, &status, __WALL);
        if (thread < 0) {
            if (errno == EINTR) continue;
            fail("waitpid");
        }
        if (WIFSTOPPED(status)) {
            const auto number = WSTOPSIG(status) == kSystemCallStop ? callOf(thread) : std::nullopt;
            if (number) {
                stopped_ = thread;
                return SystemCall{thread, *number};
            }
            ptrace(PTRACE_SYSCALL, thread, nullptr, signalOf(status));
        } else if (thread == pid_) {
            ended_ = true;
            status_ = status;
            return std::nullopt;
        }
    }
}

void Tracee::kill() {
    if (ended_) return;
    ::kill(pid_, SIGKILL);
    // Threads report their ends one by one; the process's own comes last.
    pid_t thread;
    do {
        thread = waitpid(-1, &status_, __WALL);
    } while (thread >= 0 ? thread != pid_ || WIFSTOPPED(status_) : errno == EINTR);
    ended_ = true;
}

}  // namespace sim
