/*
 * The library against what a real kernel serves. scripts/vm-test boots one in an emulated machine,
 * tests/vm/init lays out the phone there, and each case runs in a process of its own.
 */

#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include "fbo/Fbo.h"
#include "fbo/utils/Inquiry.h"
#include "fbo/eua/Policy.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/utils/Utils.h"
#include "host/LogSink.h"
#include "sim/Uevent.h"

using namespace vendor::nivora::hardware::fbo::implementation;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

constexpr char kMachine[] = "/vm-test.cases";
constexpr char kUserdata[] = "/dev/block/mapper/userdata";
constexpr char kGsort[] = "/dev/block/by-name/gsort";
const std::string kController = "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc";

constexpr size_t kMiB = 1024 * 1024;

std::string read(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream) << path;
    return {std::istreambuf_iterator<char>(stream), {}};
}

/** Writes `text` to what exists at `path`, or to a new file, in one write. */
void write(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0) << path << ": " << strerror(errno);
    EXPECT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()))
            << path << ": " << strerror(errno);
    close(fd);
}

void run(const std::string& command) {
    const int status = system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
}

/** Waits for something that another process, thread or the kernel brings about. */
template <typename Condition>
void await(const char* what, Condition condition) {
    const auto patience = std::chrono::steady_clock::now() + 30s;
    while (!condition()) {
        ASSERT_TRUE(std::chrono::steady_clock::now() < patience) << what << " does not come";
        std::this_thread::sleep_for(10ms);
    }
}

std::string padded(std::string text, size_t length) {
    text.resize(length, ' ');
    return text;
}

/** The figure behind `name` in a file of names and figures. */
int64_t figure(const char* path, const std::string& name) {
    std::ifstream stream(path);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::string word;
        int64_t value;
        if (words >> word >> value && word == name) return value;
    }
    ADD_FAILURE() << path << " has no " << name;
    return 0;
}

/** The emulated phone. */
class Vm : public testing::Test {
  protected:
    void SetUp() override {
        host::setLogSink([this](int, const char*, const char* text) {
            const std::lock_guard<std::mutex> lock(mutex_);
            log_.emplace_back(text);
            std::cout << "    " << text << std::endl;
        });
        run("rm -rf " + kController);
        run("mkdir -p " + kController + "/ufseua " + kController + "/ufssnapshot " + kController +
            "/host0/target0:0:0");
    }

    void TearDown() override { host::setLogSink(nullptr); }

    /** Plugs in a disk in place of the one before and makes it the controller's. */
    void plugIn(const std::string& vendor, const std::string& product, const std::string& revision,
                int mib = 8) {
        unplug();
        run("modprobe scsi_debug inq_vendor=" + vendor + " inq_product=" + product +
            " inq_rev=" + revision + " dev_size_mb=" + std::to_string(mib));
        await("the disk", [] { return access("/dev/sda", F_OK) == 0; });
        char path[PATH_MAX];
        ASSERT_NE(realpath("/sys/class/block/sda/device", path), nullptr) << strerror(errno);
        const std::string link = kController + "/host0/target0:0:0/0:0:0:0";
        unlink(link.c_str());
        ASSERT_EQ(symlink(path, link.c_str()), 0) << strerror(errno);
    }

    void unplug() {
        // Whoever looked at the new disk may still hold it.
        await("the module's release", [] {
            return access("/sys/module/scsi_debug", F_OK) != 0 ||
                   system("rmmod scsi_debug 2>/dev/null") == 0;
        });
        await("the disk's end", [] { return access("/dev/sda", F_OK) != 0; });
    }

    /** How many lines of the log contain `text`. */
    size_t logged(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex_);
        size_t count = 0;
        for (const std::string& line : log_) count += line.find(text) != std::string::npos;
        return count;
    }

    /** A service, kept until the process ends, whose worker listens. */
    Fbo& serve() {
        auto* service = new Fbo;
        service->incStrong(nullptr);
        await("the worker", [] {
            bool found = false;
            DIR* directory = opendir("/proc/self/fd");
            while (const dirent* entry = readdir(directory)) {
                char target[PATH_MAX] = {};
                const ssize_t size =
                        readlinkat(dirfd(directory), entry->d_name, target, sizeof(target) - 1);
                found = found || (size > 0 && strstr(target, "[eventpoll]") != nullptr);
            }
            closedir(directory);
            return found;
        });
        return *service;
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> log_;
};

/** Plays the snapshot part of the driver: answers `word` in "ctrl" with a new state. */
class SnapshotDriver {
  public:
    SnapshotDriver(const std::string& state, const std::string& word, const std::string& answer) {
        say(state);
        write(kCtrl, "");
        thread_ = std::thread([this, word, answer] {
            while (!ended_) {
                if (read(kCtrl) == word + "\n") {
                    write(kCtrl, "");
                    ++words_;
                    say(answer);
                }
                std::this_thread::sleep_for(20ms);
            }
        });
    }
    ~SnapshotDriver() {
        ended_ = true;
        thread_.join();
    }

    /** Changes the state in one step: a reader sees the old one or the new one. */
    void say(const std::string& state) const {
        write(kStatus + ".new", state + "\n");
        rename((kStatus + ".new").c_str(), kStatus.c_str());
    }
    /** How often the word was there. */
    int words() const { return words_; }

  private:
    const std::string kCtrl = kController + "/ufssnapshot/ctrl";
    const std::string kStatus = kController + "/ufssnapshot/status";
    std::thread thread_;
    std::atomic<bool> ended_{false};
    std::atomic<int> words_{0};
};

// Urgent garbage collection.

/** The node of the mounted f2fs, found without the link. */
std::string urgentGcNode() {
    std::string node;
    DIR* directory = opendir("/sys/fs/f2fs");
    while (const dirent* entry = readdir(directory)) {
        if (strncmp(entry->d_name, "dm-", 3) == 0) {
            node = std::string("/sys/fs/f2fs/") + entry->d_name + "/gc_urgent";
        }
    }
    closedir(directory);
    return node;
}

TEST_F(Vm, UrgentGcIsAskedForAndF2fsSaysSo) {
    const std::string node = urgentGcNode();
    // What the node reads back is a matter of the kernel's version.
    write(node, "1\n");
    const std::string urgent = read(node);
    write(node, "0\n");
    const std::string normal = read(node);
    ASSERT_NE(normal, urgent);
    Fbo& service = serve();
    EXPECT_TRUE(service.FBO_GCADisCard());
    EXPECT_EQ(read(node), urgent);
    EXPECT_TRUE(service.FBO_GCADisCard());
    EXPECT_EQ(read(node), urgent);
    write(node, "0\n");
}

/** A kernel does not let the request make a file of its own where there is no node. */
TEST_F(Vm, UrgentGcNeedsTheVolumeOfTheLink) {
    Fbo& service = serve();
    char target[PATH_MAX] = {};
    ASSERT_GT(readlink(kUserdata, target, sizeof(target) - 1), 0);
    ASSERT_EQ(unlink(kUserdata), 0);
    EXPECT_FALSE(service.FBO_GCADisCard());
    // The other volume, which has no file system.
    ASSERT_EQ(symlink("/dev/dm-0", kUserdata), 0);
    EXPECT_FALSE(service.FBO_GCADisCard());
    ASSERT_EQ(unlink(kUserdata), 0);
    ASSERT_EQ(symlink(target, kUserdata), 0);
    EXPECT_TRUE(service.FBO_GCADisCard());
    write(urgentGcNode(), "0\n");
}

// The disk.

struct DiskCase {
    /** The property; none if empty. */
    const char* device;
    const char* vendor;
    const char* product;
    const char* revision;
    bool excluded;
};

void PrintTo(const DiskCase& row, std::ostream* out) {
    *out << row.device << " " << row.vendor << " " << row.product << " " << row.revision;
}

class VmDisk : public Vm, public testing::WithParamInterface<DiskCase> {};

TEST_P(VmDisk, DecidesOnErase) {
    const DiskCase& row = GetParam();
    plugIn(row.vendor, row.product, row.revision);
    if (*row.device != '\0') android::base::SetProperty("ro.product.device", row.device);
    write(kController + "/ufseua/eua_support", "1\n");
    write(kController + "/ufseua/eua_support_size", "4096\n");

    standard_inquiry info;
    ASSERT_EQ(getUfsInfo(info), 0);
    EXPECT_EQ(info.vendor_id, padded(row.vendor, 8));
    EXPECT_EQ(info.product_id, padded(row.product, 16));
    EXPECT_EQ(info.product_rev, padded(row.revision, 4));
    std::string vendor;
    EXPECT_EQ(getUFSVendor(vendor), 9);
    EXPECT_EQ(vendor, padded(row.vendor, 8) + "\n");

    EXPECT_EQ(checkDisableEuaPolicy(), row.excluded);
    Fbo& service = serve();
    EXPECT_EQ(service.EUA_isSupport(), !row.excluded);
    EXPECT_EQ(service.EUA_SupportSize(), row.excluded ? 0 : 4096);

    // What cannot be identified is not excluded.
    unplug();
    EXPECT_EQ(getUfsInfo(info), 10);
    EXPECT_EQ(getUFSVendor(vendor), -1);
    EXPECT_TRUE(service.EUA_isSupport());
}

INSTANTIATE_TEST_SUITE_P(
        , VmDisk,
        testing::Values(DiskCase{"tarno", "SKhynix", "HN8T174EJKX075", "X202", true},
                        DiskCase{"tarno", "SKhynix", "HN8T174EJKX075", "X204", false},
                        DiskCase{"dravine_eea", "SKhynix", "HN8T174EJKX075", "X204", true},
                        DiskCase{"tarno", "MICRON", "MT001TAYAX8U40", "0203", true},
                        DiskCase{"fenlow", "MICRON", "MT256GBEAX4U40", "0203", true},
                        DiskCase{"fenlow", "MICRON", "MT256GBEAX8U40", "0203", false},
                        DiskCase{"elmscote", "KIOXIA", "THGJFLT2E46BATPB", "1100", true},
                        DiskCase{"elmscote", "WDC", "THGJFLT2E46BATPB", "1100", false},
                        DiskCase{"belvane", "SAMSUNG", "KLUDG4UHGC-B0E1", "0800", true},
                        DiskCase{"", "SKhynix", "HN8T174EJKX075", "X202", false}));

// The page cache.

constexpr char kVmstat[] = "/proc/vmstat";
constexpr char kMeminfo[] = "/proc/meminfo";

TEST_F(Vm, DropsTheCachesThatTheKernelHolds) {
    const std::string text(64 * kMiB, 'x');
    write("/data/cached", text);
    sync();
    EXPECT_EQ(read("/data/cached"), text);
    const int64_t cached = figure(kMeminfo, "Cached:");
    ASSERT_GT(cached, 64 * 1024);
    // And 16 MiB that are not on the disk yet.
    write("/data/dirty", std::string(16 * kMiB, 'y'));
    ASSERT_GT(figure(kMeminfo, "Dirty:"), 12 * 1024);
    const int64_t pages = figure(kVmstat, "drop_pagecache");
    const int64_t slabs = figure(kVmstat, "drop_slab");

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(drop_caches(1), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_EQ(figure(kVmstat, "drop_pagecache"), pages + 1);
    EXPECT_EQ(figure(kVmstat, "drop_slab"), slabs + 1);
    // What was dirty when the caches were dropped has been written since, and is a cache now.
    EXPECT_LT(figure(kMeminfo, "Cached:"), cached - 60 * 1024 + 16 * 1024);
    EXPECT_LT(figure(kMeminfo, "Dirty:"), 1024);

    EXPECT_EQ(drop_caches(2), 0);
    EXPECT_EQ(figure(kVmstat, "drop_pagecache"), pages + 3);
    EXPECT_EQ(figure(kVmstat, "drop_slab"), slabs + 3);
    EXPECT_LT(figure(kMeminfo, "Cached:"), cached - 60 * 1024);
    unlink("/data/cached");
    unlink("/data/dirty");
}

// The file system of the user data: f2fs on 48 GiB, which is sold as 64 GiB.

TEST_F(Vm, MeasuresTheFreeSpaceOfUserdata) {
    const int empty = getUserFreeSpaceInfo();
    // Nearly all of 48 GiB is free; f2fs keeps some for itself.
    EXPECT_GE(empty, 67);
    EXPECT_LE(empty, 75);
    constexpr char kFile[] = "/data/user/0/file";
    const int fd = open(kFile, O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(posix_fallocate(fd, 0, off_t{16} << 30), 0);
    close(fd);
    const int less = getUserFreeSpaceInfo();
    // 16 of 64 GiB less; whole GiB are counted.
    EXPECT_GE(less, empty - 27);
    EXPECT_LE(less, empty - 25);
    ASSERT_EQ(unlink(kFile), 0);
    EXPECT_EQ(getUserFreeSpaceInfo(), empty);
    ASSERT_EQ(rename("/data/user", "/data/away"), 0);
    EXPECT_EQ(getUserFreeSpaceInfo(), 0);
    ASSERT_EQ(rename("/data/away", "/data/user"), 0);
}

TEST_F(Vm, MeasuresFreeSpaceOfEverySize) {
    const std::pair<int, int> kRows[] = {{31, 0},   {32, 50},  {63, 98},   {64, 50},
                                         {127, 99}, {512, 50}, {1023, 99}, {1024, 0}};
    for (const auto& [gib, percent] : kRows) {
        run("mount -t tmpfs -o size=" + std::to_string(gib) + "g sized /data/user/0");
        EXPECT_EQ(getUserFreeSpaceInfo(), percent) << gib;
        run("umount /data/user/0");
    }
}

// The partition of the boot-LUN record.

constexpr size_t kRecord = 9 * kMiB;
constexpr size_t kBootlun = kRecord + 35;
constexpr size_t kSnapBootlun = kRecord + 39;

/** The first `size` bytes of the partition, past the page cache. */
std::string readPartition(size_t size) {
    const int fd = open(kGsort, O_RDONLY | O_DIRECT);
    EXPECT_GE(fd, 0) << strerror(errno);
    constexpr size_t kAlignment = 4096;
    const std::unique_ptr<char, void (*)(void*)> block(
            static_cast<char*>(aligned_alloc(kAlignment, kMiB)), free);
    std::string content;
    ssize_t count;
    while (content.size() < size && (count = ::read(fd, block.get(), kMiB)) > 0) {
        content.append(block.get(), count);
    }
    close(fd);
    EXPECT_EQ(content.size(), size);
    return content;
}

/** Bytes that differ from place to place. */
std::string pattern(size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = 12345;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

/** Has `content` on the partition itself, not in the page cache alone. */
void writePartition(const std::string& content) {
    const int fd = open(kGsort, O_WRONLY);
    ASSERT_GE(fd, 0) << strerror(errno);
    for (size_t done = 0; done < content.size();) {
        const ssize_t size = ::write(fd, content.data() + done, content.size() - done);
        ASSERT_GT(size, 0) << strerror(errno);
        done += size;
    }
    ASSERT_EQ(fsync(fd), 0) << strerror(errno);
    close(fd);
}

TEST_F(Vm, RecordsTheBootLunOnABlockDevice) {
    std::string content = pattern(16 * kMiB);
    writePartition(content);
    // No record: written back as it was.
    EXPECT_EQ(setBootlunInfo(), 107);
    EXPECT_TRUE(readPartition(content.size()) == content);

    content.replace(kRecord, 8, "snapshot");
    writePartition(content);
    ASSERT_NE(content.substr(kBootlun, 4), content.substr(kSnapBootlun, 4));
    EXPECT_EQ(setBootlunInfo(), 107);
    content.replace(kSnapBootlun, 4, content.substr(kBootlun, 4));
    const std::string now = readPartition(content.size());
    for (size_t i = 0; i < now.size(); ++i) {
        ASSERT_EQ(now[i], content[i]) << "at " << i;
    }
}

/** Unlike a file, a block device does not grow. */
TEST_F(Vm, ABlockDeviceTooSmallForTheRecordIsAFailure) {
    char partition[PATH_MAX] = {};
    ASSERT_GT(readlink(kGsort, partition, sizeof(partition) - 1), 0);
    ASSERT_EQ(unlink(kGsort), 0);
    ASSERT_EQ(symlink("/dev/sda", kGsort), 0);
    plugIn("SAMSUNG", "x", "1", 8);
    EXPECT_LT(setBootlunInfo(), 0);
    EXPECT_EQ(logged("lseek fail"), 1u);
    plugIn("SAMSUNG", "x", "1", 9);
    EXPECT_LT(setBootlunInfo(), 0);
    EXPECT_EQ(logged("write ddr_gsort_partition fail"), 1u);
    // One MiB more holds it.
    plugIn("SAMSUNG", "x", "1", 10);
    EXPECT_EQ(setBootlunInfo(), 107);
    unplug();
    EXPECT_LT(setBootlunInfo(), 0);
    EXPECT_EQ(logged("open ddr_gsort_partition fail"), 1u);
    ASSERT_EQ(unlink(kGsort), 0);
    ASSERT_EQ(symlink(partition, kGsort), 0);
}

// Snapshots: caches, partition, vendor and driver in one call.

TEST_F(Vm, BacksUpOnADeviceThatTakesItsTime) {
    plugIn("KIOXIA", "THGJFLT2E46BATPB", "1100");
    std::string content = pattern(16 * kMiB);
    content.replace(kRecord, 8, "snapshot");
    writePartition(content);
    const std::string threshold = kController + "/ufssnapshot/dropfreesize";
    write(threshold, "0\n");
    const SnapshotDriver driver("idle", "start", "complete_backup");
    const int64_t pages = figure(kVmstat, "drop_pagecache");

    Fbo& service = serve();
    EXPECT_TRUE(service.SnapShot_startBackup());
    EXPECT_EQ(driver.words(), 1);
    EXPECT_EQ(figure(kVmstat, "drop_pagecache"), pages + 3);
    content.replace(kSnapBootlun, 4, content.substr(kBootlun, 4));
    EXPECT_TRUE(readPartition(content.size()) == content);
    EXPECT_EQ(read(threshold), "4194304\n");
    unplug();
}

TEST_F(Vm, DropsTheSnapshotWhenTheKernelSaysSo) {
    const std::string event = "change@/devices/ufs\0ACTION=change\0UFS_SNAPSHOT_DROP_EVENT\0"s;
    const SnapshotDriver driver("complete_backup", "stop", "idle");
    Fbo& service = serve();
    // Events of disks that come and go, and one that is asked for, are of no concern.
    plugIn("SAMSUNG", "KLUDG4UHGC-B0E1", "0800");
    plugIn("MICRON", "MT256GBEAX4U40", "0203");
    write("/sys/class/block/sda/uevent", "change 5f2b6a1e-0c1d-4c8e-9c54-1f6a3e0f7d21 UFS=DROP\n");
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(driver.words(), 0);

    sim::sendKernelUevent(event);
    await("the drop", [&] { return logged("drop snapshot success in uevent") == 1; });
    EXPECT_EQ(driver.words(), 1);
    EXPECT_EQ(service.SnapShot_getStatus(), 0);
    sim::sendKernelUevent(event);
    await("the event", [&] { return logged("so by pass") == 1; });
    EXPECT_EQ(logged("Snapshot drop uevent received"), 2u);
    EXPECT_EQ(driver.words(), 1);

    std::this_thread::sleep_for(4s);
    driver.say("complete_backup");
    sim::sendKernelUevent(event);
    await("the drop", [&] { return logged("drop snapshot success in uevent") == 2; });
    EXPECT_EQ(driver.words(), 2);
    EXPECT_EQ(logged("Snapshot drop uevent received"), 3u);
    unplug();
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (access(kMachine, F_OK) != 0 && !testing::GTEST_FLAG(list_tests)) {
        std::cerr << "This changes disks and modules: scripts/vm-test runs it, in a machine of its "
                     "own.\n";
        return 2;
    }
    const int status = RUN_ALL_TESTS();
    std::cout << std::flush;
    // The worker goes on to the very end.
    _exit(status);
}
