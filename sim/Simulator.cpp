#include "sim/Simulator.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/properties.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "sim/Clock.h"
#include "sim/Flash.h"
#include "sim/Profile.h"
#include "sim/Server.h"
#include "sim/Settings.h"
#include "sim/Tree.h"

namespace sim {

namespace {

using android::base::unique_fd;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/** Owns a descriptor that has just been opened. */
unique_fd own(int fd, const char* what) {
    if (fd < 0) fail(what);
    return unique_fd(fd);
}

void writeFile(const char* path, std::string_view text) {
    const unique_fd file = own(open(path, O_WRONLY | O_CLOEXEC), path);
    if (write(file.get(), text.data(), text.size()) < 0) fail(path);
}

std::string readFile(const char* path) {
    std::ifstream file(path);
    if (!file) fail(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Makes this process root of a user namespace of its own, where it may mount and chroot. */
void becomeRoot() {
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        fail("the system allows no user namespace; try as root");
    }
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", "0 " + uid + " 1");
    writeFile("/proc/self/gid_map", "0 " + gid + " 1");
}

using Options = std::vector<std::pair<const char*, std::string>>;

constexpr char kNoFuse[] = "the system allows no FUSE file system; try as root";

/**
 * Mounts a file system where fsopen() is missing, as under user-mode emulation: in a mount
 * namespace of this process's own, over a directory that is there for sure.
 */
int mountFileSystem(const Options& options) {
    constexpr char kPlace[] = "/dev";
    std::string text;
    for (const auto& [key, value] : options) {
        text += std::string(key) + (value.empty() ? "" : "=" + value) + ",";
    }
    text.pop_back();
    if (unshare(CLONE_NEWNS) != 0) fail("the system allows no mount namespace; try as root");
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("fuse", kPlace, "fuse", 0, text.c_str()) != 0) {
        fail(kNoFuse);
    }
    // With O_PATH the kernel asks the server nothing, which does not run yet.
    const int root = open(kPlace, O_PATH | O_DIRECTORY | O_CLOEXEC);
    // The server needs the directory below; the file system lives on in the open descriptor.
    if (umount2(kPlace, MNT_DETACH) != 0) fail(kPlace);
    return root;
}

/** Makes a file system served by `fuse` that nobody else sees, and returns its root. */
int makeFileSystem(int fuse) {
    const Options options = {{"fd", std::to_string(fuse)},
                             {"rootmode", "40000"},
                             {"user_id", std::to_string(geteuid())},
                             {"group_id", std::to_string(getegid())},
                             // Flags: every user may come in, as far as the nodes' modes go.
                             {"allow_other", ""},
                             {"default_permissions", ""}};
    const int opened = fsopen("fuse", FSOPEN_CLOEXEC);
    if (opened < 0 && errno == ENOSYS) return mountFileSystem(options);
    const unique_fd context = own(opened, "the kernel offers no FUSE file system");
    for (const auto& [key, value] : options) {
        const int set =
                value.empty() ? fsconfig(context.get(), FSCONFIG_SET_FLAG, key, nullptr, 0)
                              : fsconfig(context.get(), FSCONFIG_SET_STRING, key, value.c_str(), 0);
        if (set != 0) fail(key);
    }
    if (fsconfig(context.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0) fail(kNoFuse);
    return fsmount(context.get(), FSMOUNT_CLOEXEC, 0);
}

/** Serves the device in a process of its own, which ends with this one. */
void serve(int fuse, int root, const Profile& profile, bool mtk) {
    const pid_t pid = fork();
    if (pid < 0) fail("fork");
    if (pid > 0) return;
    // Ctrl-C reaches all processes of a terminal; the device has to outlive the user's program.
    signal(SIGINT, SIG_IGN);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(root);
    Server(profile, mtk).run(fuse);
    _exit(0);
}

/** Makes `root` the root directory of this process. */
void enter(int root) {
    if (fchdir(root) != 0 || chroot(".") != 0) fail("cannot enter the simulated device");
}

/** The settings of a file: a line each, but for empty lines and those that begin with "#". */
void readSettings(const std::string& path, std::vector<std::string>& settings) {
    std::ifstream file(path);
    if (!file) throw std::invalid_argument(path + ": " + strerror(errno));
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line[0] != '#') settings.push_back(line);
    }
    if (file.bad()) throw std::invalid_argument(path + " cannot be read");
}

std::vector<std::pair<std::string, std::string>> parseSettings(std::string_view text) {
    std::vector<std::string> words;
    for (const std::string& word : android::base::Split(std::string(text), ",")) {
        if (word[0] == '@') {
            readSettings(word.substr(1), words);
        } else if (!word.empty()) {
            words.push_back(word);
        }
    }
    std::vector<std::pair<std::string, std::string>> settings;
    for (const std::string& setting : words) {
        const size_t equals = setting.find('=');
        if (equals == std::string::npos) {
            throw std::invalid_argument("\"" + setting + "\" is not KEY=VALUE");
        }
        settings.emplace_back(setting.substr(0, equals), setting.substr(equals + 1));
    }
    return settings;
}

unsigned parsePace(const std::string& text) {
    unsigned pace = 0;
    if (!android::base::ParseUint(text, &pace)) throw std::invalid_argument("pace takes a number");
    return pace;
}

/** Sets a property of this process, unless it is to be left unset. */
void setProperty(const std::string& name, const std::string& value) {
    if (!value.empty() && !android::base::SetProperty(name, value)) {
        throw std::invalid_argument("the property " + name + " cannot be \"" + value + "\"");
    }
}

}  // namespace

Simulator::Simulator(std::string_view device) {
    const std::string_view name = device.substr(0, device.find(','));
    const Profile& profile = findProfile(name);
    device.remove_prefix(std::min(name.size() + 1, device.size()));
    std::string platform = "qcom";
    std::optional<std::string> hardware;
    std::string phone = profile.phone;
    std::vector<std::pair<std::string, std::string>> settings;
    for (auto& [key, value] : parseSettings(device)) {
        if (key == "platform") {
            platform = value;
        } else if (key == "hardware") {
            hardware = value;
        } else if (key == "device") {
            phone = value;
        } else if (key == "pace") {
            setPace(parsePace(value));
        } else {
            settings.emplace_back(std::move(key), std::move(value));
        }
    }
    if (platform != "qcom" && platform != "mtk") {
        throw std::invalid_argument("platform is qcom or mtk");
    }

    if (geteuid() != 0) becomeRoot();
    if (unshare(CLONE_NEWNET) != 0) fail("the system allows no network namespace; try as root");
    unique_fd fuse = own(open("/dev/fuse", O_RDWR | O_CLOEXEC), "/dev/fuse cannot be opened");
    const unique_fd root = own(makeFileSystem(fuse.get()), "fsmount");
    serve(fuse.get(), root.get(), profile, platform == "mtk");
    // The device's process alone has it: when that ends, what it has not answered fails.
    fuse.reset();
    enter(root.get());

    startClock([](unsigned seconds) { writeFile("/.sim/clock", std::to_string(seconds)); });
    // Literals, not the library's constants: a wrong name there shows in tests as an unset
    // property.
    setProperty("ro.hardware", hardware.value_or(platform));
    setProperty("ro.product.device", phone);
    for (const auto& [key, value] : settings) set(key, value);
}

void Simulator::set(const std::string& key, const std::string& value) {
    if (std::string_view property = key; android::base::ConsumePrefix(&property, "prop.")) {
        setProperty(std::string(property), value);
        return;
    }
    try {
        writeFile("/.sim/set", key + "=" + value);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::invalid_argument) throw;
        throw std::invalid_argument(key + "=" + value + ": " + readFile("/.sim/problem"));
    }
}

std::string Simulator::trace() const {
    return readFile("/.sim/trace");
}

void Simulator::clearTrace() {
    writeFile("/.sim/trace", " ");
}

void Simulator::note(std::string_view line) {
    writeFile("/.sim/note", line);
}

void Simulator::log(char priority, const std::string& function, std::string_view text) {
    note(std::string("log ") + priority + " " + function + " " + quote(text));
}

std::string Simulator::optimised() const {
    return readFile("/.sim/optimised");
}

std::string Simulator::unmapped() const {
    return readFile("/.sim/unmapped");
}

void Simulator::setOptimised(std::string_view ranges) {
    // The list is too long for one write, it may be.
    constexpr size_t kAtOnce = 1000;
    if (ranges.empty()) return;
    std::vector<Range> all;
    if (!parseRanges(ranges, all)) throw std::invalid_argument("it is no list of ranges");
    for (size_t next = 0; next < all.size();) {
        RangeSet some;
        for (; next < all.size() && some.size() < kAtOnce; ++next) some.add(all[next]);
        writeFile("/.sim/optimised", some.list());
    }
}

std::string Simulator::describe() {
    std::string text = "Device profiles:\n";
    for (const Profile& profile : profiles()) text += "  " + profile.name + "\n";
    return text +
           "\nSettings, added as \",KEY=VALUE\" (several values with \"/\" are used in turn, " +
           "\"stuck\" lasts for ever):\n" + Settings::describe() +
           "  platform=qcom            host controller, qcom or mtk\n"
           "  hardware=                what the property ro.hardware says, if not the platform\n"
           "  device=simphone          what the property ro.product.device says; empty: unset\n"
           "  pace=0                   device seconds that pass in a real one; 0: all at once\n"
           "  product=, revision=      part number and revision in the INQUIRY data\n"
           "  userdata=/dev/block/dm-5 where the link to the userdata volume points\n"
           "  gsort_size=16777216      size of the gsort partition\n"
           "  prop.NAME=VALUE          a property, such as prop.vendor.snapshot_control=false\n"
           "  node.NAME=ANSWER         what a node has its readers read, see below\n"
           "  store.NAME=ANSWER        what comes of stores to a node\n"
           "  fault.NAME=FAULT         " +
           describeFaults() +
           "\n"
           "  after.NAME.N=KEY=VALUE   a setting for the time after the N-th store to a node\n"
           "  @FILE                    settings from a file, one a line; \"#\" begins a remark\n"
           "\nAn ANSWER is a text to read, * for the node's own answer, or an errno such as !EIO;\n"
           "several with \"/\" are used in turn. ~SECONDS: before it lets device time pass first. "
           "In\n"
           "a text \\n is a line feed and \\x2c, for one, a comma. NAME may have its directory, "
           "as\n"
           "in ufsfbo/debug.\n"
           "\n  node.fbo_prog_state=0/~30:1/!EIO/*             store.fbo_send_lr_list=*/!ENOSPC/*\n"
           "  after.fbo_operation_control.2=node.fbo_prog_state=7\n";
}

}  // namespace sim
