#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>

namespace sim {

/** A system call that a thread is about to make. */
struct SystemCall {
    pid_t thread;
    /** As <sys/syscall.h> numbers it. */
    long number;
};

/**
 * A process that its maker watches: it stops whenever one of its threads is about to make a system
 * call. Processes that it makes in its turn go their own way. Its maker has one at a time, and
 * takes note of no other child's end meanwhile.
 */
class Tracee {
  public:
    /**
     * Makes a process that runs `action` and exits with what that returns. It stands still until
     * next().
     *
     * @throws std::system_error if the system does not allow it; where there is no ptrace(2), as
     *     under user-mode emulation, with ENOSYS.
     */
    explicit Tracee(const std::function<int()>& action);
    /** Kills the process if it has not ended. */
    ~Tracee();
    Tracee(const Tracee&) = delete;
    Tracee& operator=(const Tracee&) = delete;

    /**
     * Lets the process go on until a thread is about to make a system call, and returns that; the
     * thread then waits for the next next(), while the others go on. Nothing if the process has
     * ended.
     */
    std::optional<SystemCall> next();

    /** Kills the process where it is: the system call that next() returned last is not made. */
    void kill();

    /** What the process ended with, as waitpid(2) tells. */
    int status() const { return status_; }

    pid_t pid() const { return pid_; }

  private:
    pid_t pid_;
    /** The thread that waits at its system call. */
    pid_t stopped_;
    bool ended_ = false;
    int status_ = 0;
};

}  // namespace sim
