/*
 * The library against what a real kernel serves. scripts/vm-test boots one in an emulated machine,
 * and tests/vm/init lays out the phone there.
 */

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include <android-base/file.h>
#include <android-base/properties.h>
#include <gtest/gtest.h>

#include "fbo/Fbo.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/SnapshotNodes.h"
#include "fbo/utils/Inquiry.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Utils.h"
#include "host/LogSink.h"
#include "sim/Uevent.h"
#include "tools/fboctl/FirstBlock.h"

using namespace vendor::nivora::hardware::fbo::implementation;
using namespace std::chrono_literals;

namespace {

// As tests/vm/init lays them out.
const std::string kController = std::string(kQcomDriver) + "1d84000.ufshc";
const std::string kSnapshot = kController + kSnapshotDirectory;
const std::string kCtrl = kSnapshot + node::kSnapshotCtrl;
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

/** Changes what the snapshot driver says, in one step. */
void setStatus(const std::string& status) {
    run("cd " + kSnapshot + " && echo " + status + " >next && mv next " + node::kSnapshotStatus);
}

/** The emulated phone, with one service for all cases. */
struct Vm : testing::Test {
    static void SetUpTestSuite() {
        host::setLogSink([](int, const char*, const char* text) {
            fprintf(stderr, "    %s\n", text);
            if (strstr(text, "drop snapshot success in uevent") != nullptr) ++outcomes;
            if (strstr(text, "so by pass") != nullptr) ++outcomes;
        });
        service = new Fbo;
        service->incStrong(nullptr);
        sim::awaitListeners(1);
    }

    void SetUp() override {
        ASSERT_EQ(access("/vm-test", F_OK), 0) << "only for the machine of scripts/vm-test";
    }

    static inline Fbo* service = nullptr;
    /** What has come of drop events. */
    static inline std::atomic<int> outcomes{0};
};

TEST_F(Vm, AsksTheFileSystemBehindTheLinkForUrgentGc) {
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
        android::base::SetProperty("ro.product.device", disk.phone);
        plugIn("inq_vendor=" + disk.vendor + " inq_product=" + disk.product +
               " inq_rev=" + disk.revision);
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
    for (const auto& [gib, percent] :
         {std::pair(31, 0), {32, 50}, {127, 99}, {1023, 99}, {1024, 0}}) {
        run("mount -t tmpfs -o size=" + std::to_string(gib) + "g sized /data/user/0");
        EXPECT_EQ(getUserFreeSpaceInfo(), percent) << gib;
        run("umount /data/user/0");
    }
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

/** Partition, vendor and driver in one call. */
TEST_F(Vm, RecordsTheBootLunInABackup) {
    // Random bytes, without a record among them.
    std::string content = read(kGsortPartition);
    EXPECT_EQ(setBootlunInfo(), 107);
    EXPECT_TRUE(read(kGsortPartition) == content) << "changed though there is no record";

    plugIn("inq_vendor=KIOXIA");
    content.replace(kBootLunRecordOffset, 8, "snapshot");
    write(kGsortPartition, content);
    setStatus("complete_backup");
    EXPECT_TRUE(service->SnapShot_startBackup());
    // Only the protected boot LUN has changed, on the disk: nobody has had it open since.
    content.replace(kBootLunRecordOffset + 39, 4, content, kBootLunRecordOffset + 35, 4);
    EXPECT_TRUE(read(kGsortPartition) == content);
    EXPECT_EQ(read(kSnapshot + node::kDropFreeSize), "4194304\n");
    EXPECT_EQ(read(kCtrl), "start\n");
}

TEST_F(Vm, DropsTheSnapshotWhenTheKernelSaysSo) {
    write(kCtrl, "");
    setStatus("complete_backup");
    // Events of disks that come and go, and one that is asked for, are of no concern. This maker's
    // device takes its time over a drop, in which the test changes the status.
    plugIn("inq_vendor=MICRON");
    plugIn("inq_vendor=MICRON");
    write("/sys/class/block/sda/uevent", "change 5f2b6a1e-0c1d-4c8e-9c54-1f6a3e0f7d21 UFS=DROP\n");
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(read(kCtrl), "");

    for (const int before : {0, 2}) {
        sim::sendKernelUevent(sim::dropEvent());
        await("the drop", [] { return read(kCtrl) == "stop\n"; });
        write(kCtrl, "");
        setStatus("idle");
        await("its end", [&] { return outcomes == before + 1; });
        setStatus("complete_backup");
        sim::sendKernelUevent(sim::dropEvent());
        await("the event", [&] { return outcomes == before + 2; });
        EXPECT_EQ(read(kCtrl), "");
        std::this_thread::sleep_for(4s);
    }
}

}  // namespace
