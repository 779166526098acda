/*
 * The library and the service process against what a real kernel serves, and the reference driver
 * in it. scripts/vm-test boots one in an emulated machine, and tests/vm/init lays out the phone
 * there.
 */

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

#include "fbo/Fbo.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/eua/EuaNodes.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/SnapshotNodes.h"
#include "fbo/utils/Inquiry.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Utils.h"
#include "host/LogSink.h"
#include "host/Runtime.h"
#include "tools/fboctl/FirstBlock.h"

using namespace vendor::nivora::hardware::fbo::implementation;
using namespace std::chrono_literals;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

/** The main() of service/main.cpp, by another name in this program. */
int serviceMain();

namespace {

const std::string kDriver = kQcomDriver;
const std::string kFbo = kDriver + "ufshc.0" + kFboDirectory;
const std::string kSnapshot = kDriver + "ufshc.0" + kSnapshotDirectory;
const std::string kParameters = "/sys/module/nivora_ufs_trial/parameters/";
/** What fboctl prints after a run on a device of SAMSUNG. */
constexpr char kDone[] = "Fragmentation before: 49152, after: 12800\n";
constexpr char kGcUrgent[] = "/sys/fs/f2fs/dm-1/gc_urgent";

std::string read(const std::string& path) {
    std::string content;
    EXPECT_TRUE(android::base::ReadFileToString(path, &content, true)) << path;
    return content;
}

void write(const std::string& path, const std::string& content) {
    EXPECT_TRUE(android::base::WriteStringToFile(content, path, true)) << path;
}

void run(const std::string& command) {
    EXPECT_EQ(system(command.c_str()), 0) << command;
}

/** Waits for something that another thread or the kernel brings about. */
template <typename Condition>
void await(const char* what, Condition condition) {
    for (int tries = 0; tries < 3000 && !condition(); ++tries) std::this_thread::sleep_for(10ms);
    ASSERT_TRUE(condition()) << what << " does not come";
}

/** The kernel's figure of that name; throws if there is none. */
int64_t figure(const std::string& name) {
    const std::string text = "\n" + read("/proc/meminfo") + read("/proc/vmstat");
    return atoll(text.substr(text.find("\n" + name + " ")).c_str() + name.size() + 1);
}

void unplug() {
    // Whoever looked at the new disk may still hold it.
    await("the disk's end", [] {
        (void)!system("rmmod scsi_debug 2>/dev/null");
        return access("/sys/module/scsi_debug", F_OK) != 0 && access("/dev/sda", F_OK) != 0;
    });
}

/** Plugs in a disk in place of the one before. */
void plugIn(const std::string& parameters) {
    unplug();
    run("modprobe scsi_debug " + parameters);
    await("the disk", [] { return access("/dev/sda", F_OK) == 0; });
}

/** Loads the driver in place of the one before. */
void load(const std::string& parameters) {
    run("rmmod nivora_ufs_trial 2>/dev/null; modprobe nivora_ufs_trial " + parameters);
}

/** Stores a text as a whole or not at all; returns the error. */
int store(const std::string& node, const std::string& text) {
    const android::base::unique_fd fd(open(node.c_str(), O_WRONLY));
    const ssize_t taken = ::write(fd.get(), text.data(), text.size());
    EXPECT_TRUE(taken < 0 || static_cast<size_t>(taken) == text.size()) << taken;
    return taken < 0 ? errno : 0;
}

/** What fboctl prints as a client of the service, and its exit status. */
std::string fboctl(const std::string& arguments) {
    run("{ fboctl " + arguments + " || echo status $?; } >/printed");
    return read("/printed");
}

/** The service's process, on a phone of that name. */
[[noreturn]] void becomeService(const char* phone) {
    const std::string directory = host::phoneDirectory();
    host::logTo(open((directory + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), true);
    android::base::SetProperty("ro.product.device", phone);
    sockaddr_un address{AF_UNIX, {}};
    strcpy(address.sun_path, (directory + "/service").c_str());
    unlink(address.sun_path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) abort();
    host::offerServiceAt(fd);
    exit(serviceMain());
}

/** The service in a process of its own, for as long as this object lives. */
class Service {
  public:
    explicit Service(const std::string& phone = "") : pid_(fork()) {
        if (pid_ == 0) execl("/proc/self/exe", "service", phone.c_str(), nullptr);
        await("the service", [this] { return (fbo_ = IFbo::tryGetService()) != nullptr; });
    }
    ~Service() {
        kill(pid_, SIGKILL);
        EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    IFbo* operator->() const { return fbo_.get(); }

  private:
    const pid_t pid_;
    android::sp<IFbo> fbo_;
};

struct Vm : testing::Test {
    void SetUp() override {
        ASSERT_EQ(access("/vm-test", F_OK), 0) << "only for the machine of scripts/vm-test";
    }
};

TEST_F(Vm, AsksTheFileSystemBehindTheLinkForUrgentGc) {
    const Service service;
    // What the node reads back is a matter of the kernel's version.
    write(kGcUrgent, "1\n");
    const std::string urgent = read(kGcUrgent);
    write(kGcUrgent, "0\n");
    constexpr char kVolume[] = "/dev/dm-1";
    // No link; the other volume, which has no file system: a kernel does not let the request make a
    // file of its own where there is no node. Then the right one, and that once more.
    for (const std::string target : {"", "/dev/dm-0", kVolume, kVolume}) {
        unlink(kUserdataLink);
        if (!target.empty()) run("ln -s " + target + " " + kUserdataLink);
        EXPECT_EQ(service->FBO_GCADisCard(), target == kVolume) << target;
        EXPECT_EQ(read(kGcUrgent) == urgent, target == kVolume) << target;
    }
    write(kGcUrgent, "0\n");
}

TEST_F(Vm, IdentifiesTheDisk) {
    // The first one's phone is not known. EuaTest has all rows of the policy.
    // clang-format off
    const struct { std::string vendor, product, revision, phone; bool excluded; } kDisks[] = {
            {"SKhynix ", "HN8T174EJKX075  ", "X202", "", false},
            {"SKhynix ", "HN8T174EJKX075  ", "X202", "tarno", true},
            {"SKhynix ", "HN8T174EJKX075  ", "X204", "tarno", false},
            {"MICRON  ", "MT001TAYAX8U40  ", "0203", "tarno", true},
            {"KIOXIA  ", "THGJFLT2E46BATPB", "1100", "elmscote", true}};
    // clang-format on
    for (const auto& disk : kDisks) {
        SCOPED_TRACE(disk.vendor + disk.revision + disk.phone);
        plugIn("inq_vendor=" + disk.vendor + " inq_product=" + disk.product +
               " inq_rev=" + disk.revision);
        load("");
        const Service service(disk.phone);
        standard_inquiry info;
        EXPECT_EQ(getUfsInfo(info), 0);
        EXPECT_EQ(info.vendor_id + info.product_id + info.product_rev,
                  disk.vendor + disk.product + disk.revision);
        std::string vendor;
        EXPECT_EQ(getUFSVendor(vendor), 9);
        EXPECT_EQ(vendor, disk.vendor + "\n");
        EXPECT_EQ(service->EUA_isSupport(), !disk.excluded);
        EXPECT_EQ(service->EUA_SupportSize(), disk.excluded ? 0 : 4096);

        // What cannot be identified is not excluded.
        unplug();
        EXPECT_TRUE(service->EUA_isSupport());
    }
}

TEST_F(Vm, DropsTheCachesThatTheKernelHolds) {
    write("/data/cached", std::string(64 << 20, 'x'));
    sync();
    const int64_t cached = figure("Cached:");
    // And 16 MiB that are not on the disk yet: what is dirty can be dropped once it is written.
    write("/data/dirty", std::string(16 << 20, 'y'));
    ASSERT_GT(figure("Dirty:"), 12 * 1024);
    const int64_t pages = figure("drop_pagecache");
    EXPECT_EQ(drop_caches(2), 0);
    EXPECT_EQ(figure("drop_pagecache"), pages + 2);
    EXPECT_LT(figure("Cached:"), cached - 60 * 1024);
    EXPECT_LT(figure("Dirty:"), 1024);
}

/** Through device-mapper to the disk: 16384 sectors are 2048 blocks. */
TEST_F(Vm, FindsTheBlockAtWhichTheFileSystemBegins) {
    struct stat attributes {};
    ASSERT_EQ(stat("/data", &attributes), 0);
    EXPECT_EQ(fboctl::firstBlockOf(attributes.st_dev), 2048u);
    ASSERT_EQ(stat("/proc", &attributes), 0);
    EXPECT_EQ(fboctl::firstBlockOf(attributes.st_dev), std::nullopt);
}

/** f2fs on 48 GiB, which is sold as 64 GiB. */
TEST_F(Vm, MeasuresTheFreeSpaceOfUserdata) {
    const int empty = getUserFreeSpaceInfo();
    // Nearly all of 48 GiB is free; f2fs keeps some for itself.
    EXPECT_NEAR(empty, 71, 4);
    run("fallocate -l 17179869184 /data/user/0/file");
    // 16 of 64 GiB less; whole GiB are counted.
    EXPECT_NEAR(getUserFreeSpaceInfo(), empty - 26, 1);
    run("rm /data/user/0/file && mv /data/user /data/away");
    EXPECT_EQ(getUserFreeSpaceInfo(), 0);
    run("mv /data/away /data/user");
}

/** Unlike a file, a block device does not grow. */
TEST_F(Vm, ABlockDeviceTooSmallForTheRecordIsAFailure) {
    const std::string partition = kGsortPartition;
    run("mv " + partition + " " + partition + ".away && ln -s /dev/sda " + partition);
    // Too small to seek there, to read there, and large enough.
    for (const auto& [mib, result] : {std::pair(8, -1), {9, -1}, {10, 107}}) {
        plugIn("dev_size_mb=" + std::to_string(mib));
        EXPECT_EQ(setBootlunInfo(), result) << mib;
    }
    unplug();
    EXPECT_EQ(setBootlunInfo(), -1);
    run("mv " + partition + ".away " + partition);
}

/** Partition, vendor and driver in one call; then the drop that the driver asks for. */
TEST_F(Vm, TakesASnapshotAndDropsItWhenTheDriverSaysSo) {
    // Random bytes, without a record among them.
    std::string content = read(kGsortPartition);
    EXPECT_EQ(setBootlunInfo(), 107);
    EXPECT_TRUE(read(kGsortPartition) == content) << "changed though there is no record";

    plugIn("inq_vendor=KIOXIA");
    load("backup_ms=1500 drop_ms=500 drop_event_ms=3000");
    const Service service;
    content.replace(kBootLunRecordOffset, 8, "snapshot");
    write(kGsortPartition, content);
    EXPECT_TRUE(service->SnapShot_startBackup());
    // Only the protected boot LUN has changed, on the disk: nobody has had it open since.
    content.replace(kBootLunRecordOffset + 39, 4, content, kBootLunRecordOffset + 35, 4);
    EXPECT_TRUE(read(kGsortPartition) == content);
    EXPECT_EQ(read(kSnapshot + node::kDropFreeSize), "4194304\n");
    // Events that are asked for are of no concern.
    write("/sys/class/block/sda/uevent", "change 5f2b6a1e-0c1d-4c8e-9c54-1f6a3e0f7d21 UFS=DROP\n");
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(read(kSnapshot + node::kSnapshotStatus), "complete_backup\n");
    await("the drop", [] { return read(kSnapshot + node::kSnapshotStatus) == "idle\n"; });
}

TEST_F(Vm, DefragmentsOnDevicesOfBothGenerations) {
    plugIn("inq_vendor=SAMSUNG");
    for (const char* const device :
         {"generation=40 analysis_ms=0", "generation=31 analysis_ms=0 optimise_ms=0"}) {
        SCOPED_TRACE(device);
        load(device);
        const Service service;
        EXPECT_EQ(fboctl("trigger 1,8,64,8"), kDone);
        EXPECT_EQ(read(kFbo + node::kErrorCount), "0\n");
    }
}

/** What a service sends again comes when the list is accepted already, and has no end. */
TEST_F(Vm, KeepsAnAcceptedListWhateverComesLate) {
    load("generation=31 analysis_ms=0");
    EXPECT_EQ(store(kFbo + node::kSendLrList, "64,8\n"), 0);
    store(kFbo + node::kSendLrList, "64,864,8");
    EXPECT_EQ(read(kFbo + node::kFlcOps), "1\n");
    EXPECT_EQ(store(kFbo + node::kFlcEnable, "1\n"), 0);
    EXPECT_EQ(read(kFbo + node::kFlcOps), "3\n");
}

TEST_F(Vm, PassesTheExerciseOfEachFeature) {
    write("/data/exercised", std::string(64 << 10, 'x'));
    sync();
    for (const char* const device : {"generation=40", "generation=31"}) {
        load(std::string(device) + " analysis_ms=0 optimise_ms=0 backup_ms=0 drop_event_ms=500");
        for (const char* const feature : {"fbo /data/exercised", "eua --yes /data/exercised",
                                          "snapshot --yes --drop-event 30"}) {
            run(std::string("fboctl_phone exercise ") + feature + " >&2");
        }
        const bool is31 = strstr(device, "31") != nullptr;
        EXPECT_EQ(access((kFbo + node::kFlcOps).c_str(), F_OK) == 0, is31);
        EXPECT_EQ(access((kFbo + node::kProgState).c_str(), F_OK) == 0, !is31);
    }
    load("backup_ms=0");
    run("! fboctl_phone exercise snapshot --yes --drop-event 1 >&2");
}

TEST_F(Vm, LeavesNoListInForceThatIsNotWhole) {
    load("max_lrc=0 analysis_ms=0 optimise_ms=0");
    // What comes of it in one store ends within the count of a range.
    std::string cut = "10,22,";
    while (cut.size() < 4096) cut += "100000,888,";
    cut += "1,8\n";
    const struct {
        std::string list;
        int error;
    } kLists[] = {{"1,8\n", 0},    {"+1,8,64,8\n", 0},        {"1,88", EINVAL},
                  {"1\n", EINVAL}, {"1,8,\n", EINVAL},        {"1,x\n", EINVAL},
                  {cut, EINVAL},   {"2147483648,1\n", ERANGE}};
    for (const auto& [list, error] : kLists) {
        SCOPED_TRACE(list);
        EXPECT_EQ(store(kFbo + node::kSendLrList, "64,8\n"), 0);
        EXPECT_EQ(store(kFbo + node::kSendLrList, list), error);
        EXPECT_EQ(store(kDriver + "ufshc.0" + kEuaDirectory + node::kEuaUnmap, list), error);
        // Not on the list before.
        EXPECT_EQ(store(kFbo + node::kOperationControl, "1\n"), error == 0 ? 0 : EINVAL);
        EXPECT_EQ(read(kFbo + node::kProgState), error == 0 ? "2\n" : "0\n");
        EXPECT_EQ(store(kFbo + node::kOperationControl, "0\n"), 0);
    }
    const Service service;
    cut.pop_back();
    EXPECT_EQ(fboctl("trigger " + cut),
              "1 of 1 zones failed.\nFragmentation before: 0, after: 0\nstatus 1\n");
}

TEST_F(Vm, GoesOnAfterTheDriverWasUnbound) {
    plugIn("inq_vendor=SAMSUNG");
    load("analysis_ms=60000 optimise_ms=0");
    const Service service;
    run("{ fboctl trigger 1,8 || echo status $?; } >/stopped &");
    const std::string state = kFbo + node::kProgState;
    await("the analysis", [&] { return read(state) == "1\n"; });
    const android::base::unique_fd held(open(state.c_str(), O_RDONLY));
    const auto isDead = [&] {
        char byte;
        return pread(held.get(), &byte, 1, 0) < 0 && errno == ENODEV;
    };
    EXPECT_FALSE(isDead());
    write(kDriver + "unbind", "ufshc.0");
    EXPECT_TRUE(isDead());
    EXPECT_NE(access(state.c_str(), F_OK), 0);
    // The service looks in vain, and then at a node that stays dead.
    std::this_thread::sleep_for(7s);
    write(kDriver + "bind", "ufshc.0");
    EXPECT_TRUE(isDead());
    EXPECT_EQ(read(state), "0\n");
    fboctl("stop");
    await("the stop", [] { return read("/stopped").find("status 1") != std::string::npos; });
    EXPECT_EQ(read("/stopped").find("Stopped after 1 zone"), 0u);
    write(kParameters + "analysis_ms", "0");
    EXPECT_EQ(fboctl("trigger 1,8"), kDone);
}

TEST_F(Vm, UsesOneOfThreeControllers) {
    plugIn("inq_vendor=SAMSUNG");
    load("controllers=3 analysis_ms=0 optimise_ms=0");
    const Service service;
    EXPECT_EQ(fboctl("trigger 1,8"), kDone);
    bool is_first = true;
    for (const auto& entry : std::filesystem::directory_iterator(kDriver)) {
        if (entry.path().filename().string().find("ufs") == std::string::npos) continue;
        EXPECT_EQ(read(entry.path().string() + kFboDirectory + node::kDebug),
                  is_first ? "1\n" : "0\n");
        is_first = false;
    }
}

TEST_F(Vm, ServesAnotherUserForReadingAlone) {
    load("");
    ASSERT_EQ(seteuid(65534), 0);
    for (const auto& [name, is_readable] :
         {std::pair(node::kProgState, true), {node::kDebug, true}, {node::kSendLrList, false}}) {
        EXPECT_EQ(eaccess((kFbo + name).c_str(), R_OK), is_readable ? 0 : -1) << name;
        EXPECT_NE(eaccess((kFbo + name).c_str(), W_OK), 0) << name;
    }
    EXPECT_EQ(seteuid(0), 0);
}

}  // namespace

int main(int argc, char** argv) {
    if (strcmp(argv[0], "service") == 0) becomeService(argv[1]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
