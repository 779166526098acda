/*
 * The library against what a real kernel serves. scripts/vm-test boots one in an emulated machine,
 * and tests/vm/init lays out the phone there.
 */

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include <android-base/file.h>
#include <android-base/properties.h>
#include <gtest/gtest.h>

#include "fbo/Fbo.h"
#include "fbo/eua/EuaNodes.h"
#include "fbo/eua/Policy.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/DropEvent.h"
#include "fbo/snapshot/SnapshotNodes.h"
#include "fbo/utils/Inquiry.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Utils.h"
#include "host/LogSink.h"
#include "sim/Uevent.h"

using namespace vendor::nivora::hardware::fbo::implementation;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

constexpr size_t kMiB = 1024 * 1024;

// As tests/vm/init lays them out.
const std::string kController = kQcomDriver + "1d84000.ufshc"s;
const std::string kSnapshot = kController + kSnapshotDirectory;
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
    const auto patience = std::chrono::steady_clock::now() + 30s;
    while (!condition()) {
        ASSERT_TRUE(std::chrono::steady_clock::now() < patience) << what << " does not come";
        std::this_thread::sleep_for(10ms);
    }
}

/** The kernel's figure of that name. */
int64_t figure(const std::string& name) {
    const std::string text = "\n" + read("/proc/meminfo") + read("/proc/vmstat");
    const size_t at = text.find("\n" + name + " ");
    EXPECT_NE(at, std::string::npos) << name;
    return at == std::string::npos ? 0 : atoll(&text[at + 1 + name.size()]);
}

/** The emulated phone, with one service for all cases. */
class Vm : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        host::setLogSink([](int, const char*, const char* text) {
            fprintf(stderr, "    %s\n", text);
            if (strstr(text, "drop snapshot success in uevent") != nullptr) ++dropped;
            if (strstr(text, "so by pass") != nullptr) ++passed_by;
        });
        service = new Fbo;
        service->incStrong(nullptr);
        sim::awaitListeners(1);
    }

    void SetUp() override {
        ASSERT_EQ(access("/vm-test", F_OK), 0) << "only for the machine of scripts/vm-test";
    }

    /** Plugs in a disk in place of the one before. */
    void plugIn(const std::string& vendor, const std::string& product, const std::string& revision,
                int mib = 8) {
        unplug();
        run("modprobe scsi_debug inq_vendor=" + vendor + " inq_product=" + product +
            " inq_rev=" + revision + " dev_size_mb=" + std::to_string(mib));
        await("the disk", [] { return access("/dev/sda", F_OK) == 0; });
    }

    void unplug() {
        // Whoever looked at the new disk may still hold it.
        await("the disk's end", [] {
            (void)!system("rmmod scsi_debug 2>/dev/null");
            return access("/sys/module/scsi_debug", F_OK) != 0 && access("/dev/sda", F_OK) != 0;
        });
    }

    /** Changes what the snapshot driver says, in one step. */
    void setStatus(const std::string& status) {
        write(kSnapshot + "next", status + "\n");
        run("mv " + kSnapshot + "next " + kSnapshot + node::kSnapshotStatus);
    }

    static inline Fbo* service = nullptr;
    static inline std::atomic<int> dropped{0};
    static inline std::atomic<int> passed_by{0};
};

TEST_F(Vm, AsksTheFileSystemBehindTheLinkForUrgentGc) {
    // What the node reads back is a matter of the kernel's version.
    write(kGcUrgent, "1\n");
    const std::string urgent = read(kGcUrgent);
    write(kGcUrgent, "0\n");
    std::string volume;
    ASSERT_TRUE(android::base::Readlink(kUserdataLink, &volume));
    // No link; the other volume, which has no file system: a kernel does not let the request make a
    // file of its own where there is no node. Then the right one, and that once more.
    for (const std::string& target : {""s, "/dev/dm-0"s, volume, volume}) {
        unlink(kUserdataLink);
        if (!target.empty()) run("ln -s " + target + " " + kUserdataLink);
        EXPECT_EQ(service->FBO_GCADisCard(), target == volume) << target;
        EXPECT_EQ(read(kGcUrgent) == urgent, target == volume) << target;
    }
    write(kGcUrgent, "0\n");
}

TEST_F(Vm, IdentifiesTheDisk) {
    write(kController + kEuaDirectory + node::kEuaSupport, "1\n");
    write(kController + kEuaDirectory + node::kEuaSupportSize, "4096\n");
    struct Disk {
        std::string vendor, product, revision, phone;
        bool excluded;
    };
    // The first one's phone is not known.
    for (const Disk& disk :
         std::initializer_list<Disk>{{"SKhynix", "HN8T174EJKX075", "X202", "", false},
                                     {"SKhynix", "HN8T174EJKX075", "X202", "tarno", true},
                                     {"SKhynix", "HN8T174EJKX075", "X204", "tarno", false},
                                     {"MICRON", "MT001TAYAX8U40", "0203", "tarno", true},
                                     {"KIOXIA", "THGJFLT2E46BATPB", "1100", "elmscote", true},
                                     {"WDC", "THGJFLT2E46BATPB", "1100", "elmscote", false},
                                     {"SAMSUNG", "KLUDG4UHGC-B0E1", "0800", "belvane", true}}) {
        SCOPED_TRACE(disk.vendor + " " + disk.revision + " " + disk.phone);
        if (!disk.phone.empty()) android::base::SetProperty("ro.product.device", disk.phone);
        plugIn(disk.vendor, disk.product, disk.revision);
        const std::string vendor_id = disk.vendor + std::string(8 - disk.vendor.size(), ' ');
        standard_inquiry info;
        EXPECT_EQ(getUfsInfo(info), 0);
        EXPECT_EQ(info.vendor_id, vendor_id);
        EXPECT_EQ(info.product_id, disk.product + std::string(16 - disk.product.size(), ' '));
        EXPECT_EQ(info.product_rev, disk.revision);
        std::string vendor;
        EXPECT_EQ(getUFSVendor(vendor), 9);
        EXPECT_EQ(vendor, vendor_id + "\n");
        EXPECT_EQ(checkDisableEuaPolicy(), disk.excluded);
        EXPECT_EQ(service->EUA_isSupport(), !disk.excluded);
        EXPECT_EQ(service->EUA_SupportSize(), disk.excluded ? 0 : 4096);

        // What cannot be identified is not excluded.
        unplug();
        EXPECT_EQ(getUfsInfo(info), 10);
        EXPECT_EQ(getUFSVendor(vendor), -1);
        EXPECT_TRUE(service->EUA_isSupport());
    }
}

TEST_F(Vm, DropsTheCachesThatTheKernelHolds) {
    write("/data/cached", std::string(64 * kMiB, 'x'));
    sync();
    const int64_t cached = figure("Cached:");
    // And 16 MiB that are not on the disk yet: what is dirty can be dropped once it is written.
    write("/data/dirty", std::string(16 * kMiB, 'y'));
    ASSERT_GT(figure("Dirty:"), 12 * 1024);
    const int64_t pages = figure("drop_pagecache");
    const int64_t slabs = figure("drop_slab");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(drop_caches(2), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2s);
    EXPECT_EQ(figure("drop_pagecache"), pages + 2);
    EXPECT_EQ(figure("drop_slab"), slabs + 2);
    EXPECT_LT(figure("Cached:"), cached - 60 * 1024);
    EXPECT_LT(figure("Dirty:"), 1024);
    run("rm /data/cached /data/dirty");
}

/** f2fs on 48 GiB, which is sold as 64 GiB. */
TEST_F(Vm, MeasuresTheFreeSpaceOfUserdata) {
    const int empty = getUserFreeSpaceInfo();
    // Nearly all of 48 GiB is free; f2fs keeps some for itself.
    EXPECT_NEAR(empty, 71, 4);
    run("fallocate -l 17179869184 /data/user/0/file");
    // 16 of 64 GiB less; whole GiB are counted.
    EXPECT_NEAR(getUserFreeSpaceInfo(), empty - 26, 1);
    run("rm /data/user/0/file");
    EXPECT_EQ(getUserFreeSpaceInfo(), empty);
    run("mv /data/user /data/away");
    EXPECT_EQ(getUserFreeSpaceInfo(), 0);
    run("mv /data/away /data/user");
    for (const auto& [gib, percent] :
         {std::pair(31, 0), {32, 50}, {127, 99}, {1023, 99}, {1024, 0}}) {
        run("mount -t tmpfs -o size=" + std::to_string(gib) + "g sized /data/user/0");
        EXPECT_EQ(getUserFreeSpaceInfo(), percent) << gib;
        run("umount /data/user/0");
    }
}

constexpr int kRecord = kBootLunRecordOffset;
constexpr int kRecordSize = sizeof(BootLunRecord);

/** Fills the gsort partition with bytes that differ from place to place, and `magic`. */
std::string writePartition(const std::string& magic) {
    std::string content(16 * kMiB, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i % 251);
    content.replace(kRecord, magic.size(), magic);
    write(kGsortPartition, content);
    return content;
}

/** Unlike a file, a block device does not grow. */
TEST_F(Vm, ABlockDeviceTooSmallForTheRecordIsAFailure) {
    std::string partition;
    ASSERT_TRUE(android::base::Readlink(kGsortPartition, &partition));
    run("ln -sf /dev/sda "s + kGsortPartition);
    char record[kRecordSize + 1] = {};
    for (const auto& [mib, read, written] :
         {std::tuple(8, -1, -1), {9, 0, -1}, {10, kRecordSize, kRecordSize}}) {
        plugIn("SAMSUNG", "x", "1", mib);
        EXPECT_EQ(read_from_partition(record, kRecordSize, kRecord), read) << mib;
        EXPECT_EQ(write_to_partition(record, kRecordSize, kRecord), written) << mib;
        EXPECT_EQ(setBootlunInfo(), written) << mib;
    }
    unplug();
    EXPECT_EQ(setBootlunInfo(), -1);
    run("ln -sf " + partition + " " + kGsortPartition);
}

/** Caches, partition, vendor and driver in one call. */
TEST_F(Vm, RecordsTheBootLunInABackup) {
    std::string content = writePartition("");
    EXPECT_EQ(setBootlunInfo(), kRecordSize);
    EXPECT_TRUE(read(kGsortPartition) == content) << "changed though there is no record";

    plugIn("KIOXIA", "THGJFLT2E46BATPB", "1100");
    content = writePartition("snapshot");
    write(kSnapshot + node::kDropFreeSize, "0\n");
    write(kSnapshot + node::kSnapshotCtrl, "");
    setStatus("complete_backup");
    const int64_t pages = figure("drop_pagecache");
    EXPECT_TRUE(service->SnapShot_startBackup());
    EXPECT_EQ(figure("drop_pagecache"), pages + 3);
    // Only snapbootLun has become bootlun, on the disk: nobody has had it open since.
    content.replace(kRecord + offsetof(BootLunRecord, snapbootLun), 4, content,
                    kRecord + offsetof(BootLunRecord, bootlun), 4);
    EXPECT_TRUE(read(kGsortPartition) == content);
    EXPECT_EQ(read(kSnapshot + node::kDropFreeSize), "4194304\n");
    EXPECT_EQ(read(kSnapshot + node::kSnapshotCtrl), "start\n");
}

TEST_F(Vm, DropsTheSnapshotWhenTheKernelSaysSo) {
    const std::string ctrl = kSnapshot + node::kSnapshotCtrl;
    const std::string event = "change@/devices/ufs\0ACTION=change\0"s + kDropEvent + '\0';
    write(ctrl, "");
    setStatus("complete_backup");
    // Events of disks that come and go, and one that is asked for, are of no concern.
    plugIn("SAMSUNG", "KLUDG4UHGC-B0E1", "0800");
    plugIn("MICRON", "MT256GBEAX4U40", "0203");
    write("/sys/class/block/sda/uevent", "change 5f2b6a1e-0c1d-4c8e-9c54-1f6a3e0f7d21 UFS=DROP\n");
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(read(ctrl), "");

    for (int drops = 1; drops <= 2; ++drops) {
        sim::sendKernelUevent(event);
        await("the drop", [&] { return read(ctrl) == "stop\n"; });
        write(ctrl, "");
        setStatus("idle");
        await("its end", [&] { return dropped == drops; });
        setStatus("complete_backup");
        sim::sendKernelUevent(event);
        await("the event", [&] { return passed_by == drops; });
        EXPECT_EQ(read(ctrl), "");
        std::this_thread::sleep_for(4s);
    }
    unplug();
}

}  // namespace
