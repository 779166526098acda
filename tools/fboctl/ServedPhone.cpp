/*
 * A simulated phone for other programs. These processes take part:
 *
 *     fboctl            stays on the host, runs the user's command and ends everything
 *     the phone         sees the simulated device alone, starts the service and, like init, does
 *                       so again
 *     the device        serves the nodes (sim::Simulator)
 *     the service       what a phone builds from service/main.cpp, with a log in a file
 */

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

#include "Platform.h"
#include "SimulatedDevice.h"
#include "host/LogSink.h"
#include "host/Runtime.h"
#include "sim/Clock.h"

/** The main() of service/main.cpp, by another name in this program. */
int serviceMain();

namespace fboctl {

namespace {

using android::base::unique_fd;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

/** What a shell makes of a command that a signal has ended. */
constexpr int kSignalled = 128;
constexpr int kNotFound = 127;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/**
 * Signals that this process deals with itself, one after the other. One that it was started to
 * ignore stays ignored, except for that of a child's end.
 */
class Signals {
  public:
    explicit Signals(std::initializer_list<int> signals) {
        sigemptyset(&signals_);
        for (const int signal : signals) {
            struct sigaction action {};
            sigaction(signal, nullptr, &action);
            if (signal == SIGCHLD || action.sa_handler != SIG_IGN) sigaddset(&signals_, signal);
        }
        child_before_ = signal(SIGCHLD, SIG_DFL);
        block();
    }
    ~Signals() { letPass(); }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    siginfo_t await() const {
        siginfo_t signal{};
        while (sigwaitinfo(&signals_, &signal) < 0) {
        }
        return signal;
    }
    /** A signal that has come already and is to end this process; 0 if none has. */
    int takeEnd() const {
        sigset_t ends = signals_;
        sigdelset(&ends, SIGCHLD);
        const timespec now{};
        return std::max(0, sigtimedwait(&ends, nullptr, &now));
    }
    void block() { sigprocmask(SIG_BLOCK, &signals_, &before_); }
    /** Signals do what they did before; also for a process that is forked from this one. */
    void letPass() const {
        sigprocmask(SIG_SETMASK, &before_, nullptr);
        signal(SIGCHLD, child_before_);
    }
    /** The same, but for those of children, whose end this process looks at. */
    void letEndsPass() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t signals_;
    sigset_t before_;
    sighandler_t child_before_;
};

/** Forks a process that gets `signal` when this one ends; 0 in that process. */
pid_t forkBound(int signal) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) fail("fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, signal);
        // One that had ended by then sends nothing any more.
        if (getppid() != parent) raise(signal);
    }
    return child;
}

/** The directory where clients find the service, in which no other phone is served. */
class Directory {
  public:
    /** @param of_its_own a new one, that ends with this object. */
    explicit Directory(bool of_its_own)
        // The command may have another working directory.
        : path_(std::filesystem::absolute(of_its_own ? placeOfNew() : host::phoneDirectory())),
          is_own_(of_its_own) {
        if (path_.native().size() + strlen("/service") >= sizeof(sockaddr_un::sun_path)) {
            throw std::runtime_error(path_.native() + " is too long a name");
        }
        std::string path = path_;
        if (is_own_ ? mkdtemp(path.data()) == nullptr
                    : mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
            fail(path);
        }
        path_ = path;
        fd_ = openDirectory(path_, O_NOFOLLOW);
        above_ = openDirectory(path_.parent_path(), 0);
        struct stat attributes {};
        if (fstat(fd_.get(), &attributes) != 0) fail(path_);
        if (attributes.st_uid != geteuid() || (attributes.st_mode & 077) != 0) {
            throw std::runtime_error(path_.native() + " is not this user's alone");
        }
        // One that has just ended may hold it for a moment.
        for (int tries = 0; flock(fd_.get(), LOCK_EX | LOCK_NB) != 0; ++tries) {
            if (tries == 20) throw std::runtime_error(path_.native() + " is served already");
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        setenv("NIVORA_FBO_PHONE", path_.c_str(), 1);
    }
    /** By descriptors: the phone's process, which sees no path, does so if it is the last one. */
    ~Directory() {
        unlinkat(fd_.get(), "service", 0);
        unlinkat(fd_.get(), "log", 0);
        if (is_own_) unlinkat(above_.get(), path_.filename().c_str(), AT_REMOVEDIR);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const std::string& path() const { return path_.native(); }
    int fd() const { return fd_.get(); }

  private:
    static std::string placeOfNew() {
        const char* const place = getenv("TMPDIR");
        return std::string(place == nullptr || *place == '\0' ? "/tmp" : place) +
               "/nivora-fbo-XXXXXX";
    }

    static unique_fd openDirectory(const std::filesystem::path& path, int flags) {
        unique_fd fd(open(path.c_str(), flags | O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!fd.ok()) fail(path);
        return fd;
    }

    std::filesystem::path path_;
    const bool is_own_;
    unique_fd fd_;
    unique_fd above_;
};

/** The phone: starts the service, and again when it has died. */
class Phone {
  public:
    Phone(const SimOptions& sim, const ServeOptions& options, int directory, const Signals& signals)
        : options_(options),
          directory_(directory),
          signals_(signals),
          log_(openat(directory, "log", O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600)),
          device_(sim) {
        if (!log_.ok()) fail("log");
        // What waits for events from outside waits in real time.
        sim::followRealTime();
    }

    /**
     * Returns what the program ends with, once it is told to or nobody is left to be served: the
     * service has died and there is no command that may still look at what it meets then.
     */
    int keepUp() {
        start();
        for (;;) {
            if (signals_.await().si_signo == SIGTERM) {
                if (service_ <= 0) return EXIT_SUCCESS;
                kill(service_, SIGKILL);
                waitpid(service_, nullptr, 0);
                return EXIT_SUCCESS;
            }
            int status = 0;
            for (pid_t ended; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
                if (ended != service_) throw std::runtime_error("the simulated device has ended");
                service_ = -1;
                tellDeath(status);
                if (options_.restart) {
                    startAgain();
                } else if (options_.command.empty()) {
                    return EXIT_FAILURE;
                }
            }
        }
    }

  private:
    void tellDeath(int status) const {
        const std::string how = WIFSIGNALED(status)
                                        ? strsignal(WTERMSIG(status))
                                        : "exit status " + std::to_string(WEXITSTATUS(status));
        fprintf(stderr, "fboctl: the service has died (%s)%s\n", how.c_str(),
                options_.restart ? " and is started again" : "");
    }

    void startAgain() {
        // One that does not live is not started all the time.
        std::this_thread::sleep_until(started_ + std::chrono::seconds(1));
        start();
    }

    void start() {
        started_ = std::chrono::steady_clock::now();
        service_ = forkBound(SIGKILL);
        if (service_ == 0) becomeService();
    }

    /** An error of the service ends it, as nobody catches it. */
    [[noreturn]] void becomeService() const noexcept {
        signals_.letPass();
        // As it is called on a phone, as far as there is room.
        prctl(PR_SET_NAME, "fbo@1.0-service");
        try {
            host::offerServiceAt(bindSocket());
        } catch (const std::exception& error) {
            fprintf(stderr, "fboctl: %s\n", error.what());
            _exit(EXIT_FAILURE);
        }
        host::logTo(log_.get(), options_.log);
        _exit(serviceMain());
    }

    /** The socket that takes the place of that of a service before. */
    int bindSocket() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "service");
        // The directory is out of sight, but not out of reach.
        if (fchdir(directory_) != 0) fail("the phone's directory");
        unlink(address.sun_path);
        const mode_t mask = umask(077);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) fail("bind");
        umask(mask);
        if (chdir("/") != 0) fail("/");
        return fd;
    }

    const ServeOptions& options_;
    const int directory_;
    const Signals& signals_;
    const unique_fd log_;
    SimulatedDevice device_;
    pid_t service_ = -1;
    std::chrono::steady_clock::time_point started_;
};

/** What this process ends with after another one. */
int statusOf(int status) {
    return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

/** The phone's process, as fboctl sees it. It ends with this object. */
class PhoneProcess {
  public:
    explicit PhoneProcess(pid_t pid) : pid_(pid) {}
    ~PhoneProcess() { end(); }
    PhoneProcess(const PhoneProcess&) = delete;
    PhoneProcess& operator=(const PhoneProcess&) = delete;

    /** Whether the service can be called; false if the phone has ended. */
    bool awaitService() {
        const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (IFbo::tryGetService() == nullptr) {
            if (hasEnded()) return false;
            if (std::chrono::steady_clock::now() > patience) {
                throw std::runtime_error("the service does not register");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

    bool hasEnded() {
        if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) == pid_) pid_ = -1;
        return pid_ <= 0;
    }

    /** Ends it, unless it has ended; returns what with. */
    int end() {
        if (pid_ > 0) kill(pid_, SIGTERM);
        const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!hasEnded()) {
            if (std::chrono::steady_clock::now() > patience) kill(pid_, SIGKILL);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return status();
    }

    /** What it has ended with. */
    int status() const { return statusOf(status_); }

  private:
    pid_t pid_;
    int status_ = 0;
};

pid_t startCommand(const std::vector<std::string>& command, const Signals& signals) {
    const pid_t pid = fork();
    if (pid < 0) fail("fork");
    if (pid > 0) return pid;
    signals.letPass();
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    execvp(words[0], words.data());
    fprintf(stderr, "fboctl: %s: %s\n", words[0], strerror(errno));
    _exit(kNotFound);
}

/** Returns the status of the command, which is handed on what fboctl is told. */
int awaitCommand(pid_t command, const Signals& signals, PhoneProcess& phone) {
    for (;;) {
        const siginfo_t signal = signals.await();
        // What is typed at the terminal comes to the command, too; its end only to the first.
        if (signal.si_signo == SIGHUP || (signal.si_signo != SIGCHLD && signal.si_code <= 0)) {
            kill(command, signal.si_signo);
        }
        int status = 0;
        const pid_t ended = waitpid(command, &status, WNOHANG);
        if (ended == command) return statusOf(status);
        if (ended < 0) fail("the command");
        phone.hasEnded();
    }
}

}  // namespace

int servePhone(const SimOptions& sim, const ServeOptions& options) {
    if (sim.device.empty()) throw std::invalid_argument("run and serve need --sim");
    Signals signals{SIGCHLD, SIGINT, SIGTERM, SIGHUP};
    const Directory directory(!options.command.empty());
    const pid_t pid = forkBound(SIGTERM);
    if (pid == 0) {
        // What is typed at the terminal is for the user's command.
        setsid();
        // A reader of log or trace that goes away ends neither service nor device.
        signal(SIGPIPE, SIG_IGN);
        return Phone(sim, options, directory.fd(), signals).keepUp();
    }
    PhoneProcess phone(pid);
    // Until then a signal ends this process, and the phone with it.
    signals.letEndsPass();
    const bool is_up = phone.awaitService();
    signals.block();
    if (!is_up) return phone.status();
    if (!options.command.empty()) {
        if (const int signal = signals.takeEnd()) return kSignalled + signal;
        const int status = awaitCommand(startCommand(options.command, signals), signals, phone);
        const int ended = phone.end();
        return status == EXIT_SUCCESS ? ended : status;
    }
    printf("Serving in %s; Ctrl-C ends it\n", directory.path().c_str());
    fflush(stdout);
    while (!phone.hasEnded()) {
        if (signals.await().si_signo != SIGCHLD) return phone.end();
    }
    return phone.status();
}

}  // namespace fboctl
