#include "fbo/snapshot/Snapshot.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "Phone.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/SnapshotPolicy.h"

namespace {

constexpr off_t kRecord = 9437184;

/** What the gsort partition holds from `offset` on. */
std::string readPartition(off_t offset, size_t size) {
    std::string bytes(size, '\0');
    const int fd = open("/dev/block/by-name/gsort", O_RDONLY);
    bytes.resize(pread(fd, bytes.data(), size, offset));
    close(fd);
    return bytes;
}

void writePartition(off_t offset, const std::string& bytes) {
    const int fd = open("/dev/block/by-name/gsort", O_WRONLY);
    EXPECT_EQ(pwrite(fd, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
    close(fd);
}

TEST_F(Phone, RecordsTheBootLunOfASnapshotRecordOnly) {
    start("ufs40:samsung,bootlun=-2,snapbootlun=0");
    const std::pair<std::string, bool> kRows[] = {{"snapshoT", false},
                                                  {std::string("snapsho\0", 8), false},
                                                  {"snapshotXYZ", true},
                                                  {std::string("snapshot\0", 9), true}};
    for (const auto& [magic, is_snapshot] : kRows) {
        set("snapbootlun", "0");
        writePartition(kRecord, magic);
        std::string expected = readPartition(kRecord - 64, 256);
        if (is_snapshot) expected.replace(64 + 39, 4, "\xfe\xff\xff\xff");
        events();
        EXPECT_EQ(setBootlunInfo(), 107);
        EXPECT_TRUE(logged("D setBootlunInfo [SNAPSHOT-HAL] setBootlunInfo success"));
        const std::vector<std::string> story = this->story("setBootlunInfo");
        EXPECT_EQ(story.front(), "read gsort 107 at 9437184: 107");
        EXPECT_NE(story[1].find(", bootlun -2, snapbootLun 0"), std::string::npos) << story[1];
        EXPECT_EQ(readPartition(kRecord - 64, 256), expected) << magic;
    }
}

/** A record without any NUL is logged to its end and no further. */
TEST_F(Phone, LogsARecordWithoutNul) {
    start("ufs40:samsung");
    writePartition(kRecord, std::string(200, 'x'));
    EXPECT_EQ(setBootlunInfo(), 107);
    EXPECT_TRUE(logged("D setBootlunInfo [SNAPSHOT-HAL] magic_str " + std::string(107, 'x') +
                       ", bootlun 2021161080, snapbootLun 2021161080"));
}

/** A short read goes unnoticed: what was not read is written as zero. */
TEST_F(Phone, RecordsAfterAShortRead) {
    start("ufs40:samsung,gsort_size=9437200");
    EXPECT_EQ(setBootlunInfo(), 107);
    EXPECT_EQ(readPartition(kRecord + 8, 99), "\b\t\n\v\f\r\x0e\x0f" + std::string(91, '\0'));
}

TEST_F(Phone, TellsWhyThePartitionFails) {
    start("ufs40:samsung");
    const struct {
        const char* fault;
        const char* story;
    } kRows[] = {
            {"missing", "E open ddr_gsort_partition fail No such file or directory|"},
            {"unwritable", "E open ddr_gsort_partition fail Permission denied|"},
            {"read-error",
             "read gsort 107 at 9437184: Input/output error\n"
             "E read ddr_gsort_partition fail|"},
    };
    for (const auto& row : kRows) {
        set("fault.gsort", row.fault);
        EXPECT_EQ(setBootlunInfo(), -1);
        EXPECT_TRUE(logged("E setBootlunInfo [SNAPSHOT-HAL] read_from_partition fail"));
        EXPECT_EQ(story("read_from_partition"), lines(row.story));
    }
    set("fault.gsort", "write-error");
    EXPECT_EQ(setBootlunInfo(), -1);
    EXPECT_TRUE(logged("E setBootlunInfo [SNAPSHOT-HAL] write_to_partition fail"));
    EXPECT_TRUE(logged("E write_to_partition [UTILS-HAL] write ddr_gsort_partition fail|"));
    set("fault.gsort", "missing");
    char bytes[8] = {};
    EXPECT_EQ(write_to_partition(bytes, 7, 0), -1);
    EXPECT_TRUE(
            logged("E write_to_partition [UTILS-HAL] open ddr_gsort_partition fail, "
                   "No such file or directory|"));
    set("fault.gsort", "none");
    EXPECT_EQ(read_from_partition(bytes, 7, -1), -1);
    EXPECT_EQ(write_to_partition(bytes, 7, -1), -1);
    EXPECT_TRUE(logged("E read_from_partition [UTILS-HAL] lseek fail|"));
    EXPECT_TRUE(logged("E write_to_partition [UTILS-HAL] lseek fail|"));
}

struct Policy {
    bool enable = true;
    int min = 1;
    int max = 2;
    int block = 3;
};

Policy applyPolicy(bool enable) {
    Policy policy{enable};
    updateSnapshotCloudCtrlPolicy(policy.enable, policy.min, policy.max, policy.block);
    return policy;
}

/** The first word that applies decides; the device is identified only if there is none. */
TEST_F(Phone, TheControlPropertyIsSearchedInOrder) {
    start("ufs40:kioxia,product=THGJFLT2E46BATP");
    const struct {
        const char* control;
        bool enable;
        bool limits;
        bool identified;
    } kRows[] = {
            {"default,false", true, true, false},  {"nofalseyes", false, false, false},
            {"true,false", false, false, false},   {"untrue", true, true, false},
            {"THGJFLT2E46BATP", true, true, true}, {"X,THGJFLT2E46BATP ,Y", false, false, true},
            {"False TRUE", true, true, true}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.control);
        set("prop.vendor.snapshot_control", row.control);
        const Policy policy = applyPolicy(true);
        EXPECT_EQ(policy.enable, row.enable);
        EXPECT_EQ(policy.max, row.limits ? 20 : 2);
        EXPECT_EQ(policy.min, row.limits ? 8 : 1);
        EXPECT_EQ(policy.block, row.limits ? 16 : 3);
        EXPECT_EQ(logged("D updateSnapshotCloudCtrlPolicy [SNAPSHOT-HAL] snapshot_freespace "
                         "minlimit 8, maxlimit 20, devicefreeblock 16"),
                  row.limits);
        EXPECT_EQ(events("read inquiry").size(), row.identified ? 1u : 0u);
    }
    // "true" switches on; no word leaves what is.
    set("prop.vendor.snapshot_control", "true");
    EXPECT_TRUE(applyPolicy(false).enable);
    set("prop.vendor.snapshot_control", "other");
    EXPECT_FALSE(applyPolicy(false).enable);
    set("fault.inquiry", "missing");
    EXPECT_FALSE(applyPolicy(true).enable);
    EXPECT_EQ(story("updateSnapshotCloudCtrlPolicy").back(), "E getUfsInfo fail.");
}

TEST_F(Phone, TheLimitsAreNumbers) {
    start("ufs40:samsung");
    set("prop.vendor.snapshot_freespace.maxlimit", " +70%");
    set("prop.vendor.snapshot_devicefreeblock", "-1");
    const Policy policy = applyPolicy(true);
    EXPECT_EQ(policy.max, 70);
    EXPECT_EQ(policy.block, -1);
    set("prop.vendor.snapshot_freespace.minlimit", "few");
    EXPECT_THROW(service->SnapShot_startBackup(), std::invalid_argument);
    set("prop.vendor.snapshot_control", "false");
    EXPECT_FALSE(service->SnapShot_startBackup());
}

TEST_F(Phone, SetsTheFreeBlocksWhereTheyDiffer) {
    start("ufs40:micron");
    std::string vendor = "before";
    setSnapshotFreeBlockThr(vendor, 4194304);
    EXPECT_EQ(vendor, "MICRON  \n");
    EXPECT_EQ(tail(story("setSnapshotFreeBlockThr"), 3),
              lines("I m/k set snapshot free block thr\nread dropfreesize \"0\\n\"\n"
                    "write dropfreesize \"4194304\\n\""));
    setSnapshotFreeBlockThr(vendor, 4194304);
    EXPECT_EQ(events("write ").size(), 0u);
    for (const char* fault : {"missing", "unwritable"}) {
        set("fault.dropfreesize", fault);
        setSnapshotFreeBlockThr(vendor, 1);
        EXPECT_EQ(story("setSnapshotFreeBlockThr").back(), "E Open dropfreesize file failure");
    }
    set("node.dropfreesize", "-");
    EXPECT_THROW(service->SnapShot_startBackup(), std::invalid_argument);
    events();
    set("node.vendor", "SAMSUNG");
    setSnapshotFreeBlockThr(vendor, 1);
    EXPECT_EQ(events(), lines("read vendor \"SAMSUNG\""));
    set("fault.vendor", "missing");
    setSnapshotFreeBlockThr(vendor, 1);
    EXPECT_TRUE(logged("E setSnapshotFreeBlockThr [SNAPSHOT-HAL] get ufs vendor fail"));
}

TEST_F(Phone, TheFreeBlocksWrapAt32Bits) {
    start("ufs31:kioxia,backup=0");
    for (const auto& [units, blocks] :
         {std::pair("16", "4194304"), std::pair("8191", "2147221504"),
          std::pair("8192", "-2147483648"), std::pair("16385", "262144")}) {
        set("prop.vendor.snapshot_devicefreeblock", units);
        service->SnapShot_startBackup();
        EXPECT_EQ(events("write dropfreesize "),
                  std::vector<std::string>{std::string("\"") + blocks + "\\n\""});
        service->SnapShot_startDrop();
    }
}

TEST_F(Phone, ReadsTheStatusByItsWord) {
    start("ufs40:samsung");
    const char* const kWords[] = {
            "idle",         "inprogress",     "complete_backup", "complete_restore",
            "drop_by_host", "drop_by_device", "internal_error"};
    for (int status = 0; status < 7; ++status) {
        set("node.status", std::string(kWords[status]) + " rest\n");
        EXPECT_EQ(service->SnapShot_getStatus(), status);
        EXPECT_TRUE(logged(std::string("I SnapShot_getStatus [SNAPSHOT-HAL] status is ") +
                           kWords[status]));
    }
    EXPECT_EQ(snapshotStatusMap.size(), 7u);
    set("node.status", "bogus");
    EXPECT_EQ(service->SnapShot_getStatus(), 0);
    EXPECT_EQ(snapshotStatusMap.at("bogus"), SNAPSHOT_STATUS_IDLE);
    set("node.status", "");
    EXPECT_EQ(service->SnapShot_getStatus(), 0);
    set("fault.status", "missing");
    EXPECT_EQ(service->SnapShot_getStatus(), 0);
    EXPECT_TRUE(logged("E SnapShot_getStatus [SNAPSHOT-HAL] Open status file failure"));
}

struct WaitCase {
    const char* name;
    const char* device;
    bool result;
    /** Seconds slept, those of the page cache's drop among them. */
    size_t seconds;
    /** What the method says last, less the status reads. */
    const char* last;
};

void PrintTo(const WaitCase& row, std::ostream* out) {
    *out << row.device;
}

class Backup : public Phone, public testing::WithParamInterface<WaitCase> {};

TEST_P(Backup, WaitsForTheDevice) {
    start(GetParam().device);
    EXPECT_EQ(service->SnapShot_startBackup(), GetParam().result);
    std::vector<std::string> story = this->story("SnapShot_startBackup");
    EXPECT_EQ(std::count(story.begin(), story.end(), "sleep 1"), GetParam().seconds);
    while (story.back().compare(0, 5, "read ") == 0) story.pop_back();
    EXPECT_EQ(story.back(), GetParam().last);
}

// clang-format off
const WaitCase kBackups[] = {
        {"Slow", "ufs40:micron,backup_idle=5,backup=0", true, 8, "D backup success"},
        {"AtOnce", "ufs40:samsung,backup=0", true, 3, "D backup success"},
        {"InProgress", "ufs40:wdc,backup=30", true, 33, "D backup success"},
        // Complete a second after the last poll, which the last look does not see.
        {"TooSlow", "ufs40:wdc,backup=31", false, 33, "D snapshotStatus is 1, tryCount is 30"},
        {"SlowAndLong", "ufs40:kioxia,backup_idle=20,backup=10", true, 33, "D backup success"},
        {"NeverBegins", "ufs40:kioxia,backup_idle=stuck", false, 33,
         "D snapshotStatus is 0, tryCount is 30"},
        // Others that show idle right after the start are not waited for.
        {"IdleElsewhere", "ufs40:samsung,node.status=idle", false, 3,
         "D snapshotStatus is 0, tryCount is 0"},
        {"Fails", "ufs40:samsung,backup=2,backup_end=6", false, 5,
         "D snapshotStatus is 6, tryCount is 2"},
        {"SwitchedOff", "ufs40:samsung,prop.vendor.snapshot_control=false", false, 0,
         "D snapshot is cloud disable, do not backup."},
        {"NoPageCache", "ufs40:samsung,fault.drop_caches=missing", false, 0,
         "E drop_caches fail, do not backup."},
        {"NoCtrl", "ufs40:samsung,fault.ctrl=missing", false, 3, "E Open ctrl file failure"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, Backup, testing::ValuesIn(kBackups),
                         [](const auto& info) { return info.param.name; });

TEST_F(Phone, BackupTellsItsWholeWay) {
    start("ufs40:micron,backup_idle=1,backup=1");
    EXPECT_TRUE(service->SnapShot_startBackup());
    const std::vector<std::string> story = this->story("SnapShot_startBackup");
    EXPECT_EQ(tail(story, 14), lines(R"(read dropfreesize "0\n"
write dropfreesize "4194304\n"
write ctrl "start\n"
read status "idle\n"
D snapshotStatus is 0.
I snapshotStatus is 0.
sleep 1
read status "inprogress\n"
I snapshotStatus is 1.
sleep 1
read status "complete_backup\n"
D snapshotStatus is 2, tryCount is 2
read status "complete_backup\n"
D backup success)"));
    EXPECT_EQ(std::vector<std::string>(story.begin(), story.begin() + 4),
              lines("write drop_caches \"3\\n\"\nsleep 1\nwrite drop_caches \"3\\n\"\nsleep 1"));
}

class Drop : public Phone, public testing::WithParamInterface<WaitCase> {};

TEST_P(Drop, WaitsForTheDevice) {
    start(GetParam().device);
    EXPECT_EQ(service->SnapShot_startDrop(), GetParam().result);
    std::vector<std::string> story = this->story("SnapShot_startDrop");
    EXPECT_EQ(std::count(story.begin(), story.end(), "sleep 1"), GetParam().seconds);
    EXPECT_EQ(story.back(), GetParam().last);
}

// clang-format off
const WaitCase kDrops[] = {
        {"AtOnce", "ufs40:samsung,snapshot=2", true, 0, "D snapshot drop succcess."},
        {"Slow", "ufs40:kioxia,snapshot=2,drop=7", true, 7, "D snapshot drop succcess."},
        {"TooSlow", "ufs40:kioxia,snapshot=2,drop=stuck", false, 30, "E snapshot drop failed."},
        // Dropped, but not idle: waited for all the same, and good in the end.
        {"SlowAndDropped", "ufs40:micron,snapshot=2,drop=1,drop_end=4", true, 30,
         "D snapshot drop succcess."},
        {"FailsAtOnce", "ufs40:wdc,snapshot=2,drop_end=6", false, 0, "E snapshot drop failed."},
        // Without its vendor a device counts as one that drops at once.
        {"NoVendor", "ufs40:kioxia,snapshot=2,drop=7,fault.vendor=missing", false, 0,
         "E snapshot drop failed."},
        {"NothingToDrop", "ufs40:kioxia,snapshot=5", true, 0,
         "D snapshot status is not complete_backup, do not drop"},
        {"NoCtrl", "ufs40:kioxia,snapshot=2,fault.ctrl=missing", false, 0,
         "E Open ctrl file failure"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, Drop, testing::ValuesIn(kDrops),
                         [](const auto& info) { return info.param.name; });

TEST_F(Phone, SnapshotsNeedAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    EXPECT_FALSE(service->SnapShot_startDrop());
    EXPECT_THROW(service->SnapShot_getStatus(), std::bad_optional_access);
    EXPECT_THROW(service->SnapShot_startBackup(), std::bad_optional_access);
}

/** Sees what the object asks of itself. */
struct Seeing : Fbo {
    int statuses = 0;
    int drops = 0;
    Return<int32_t> SnapShot_getStatus() override {
        ++statuses;
        return 2;
    }
    Return<bool> SnapShot_startDrop() override {
        ++drops;
        return false;
    }
};

TEST_F(Phone, SnapshotsAskTheObjectItself) {
    start("ufs40:samsung");
    const android::sp<Seeing> seeing = serve<Seeing>();
    EXPECT_TRUE(seeing->SnapShot_startBackup());
    EXPECT_EQ(seeing->statuses, 2);
    EXPECT_FALSE(seeing->Fbo::SnapShot_startDrop() && seeing->statuses == 2);
    EXPECT_EQ(seeing->drops, 0);
    // A record that cannot be written has a backup dropped, whatever comes of that.
    set("fault.gsort", "missing");
    EXPECT_FALSE(seeing->SnapShot_startBackup());
    EXPECT_EQ(seeing->drops, 1);
    EXPECT_TRUE(
            logged("E SnapShot_startBackup [SNAPSHOT-HAL] setBootlunInfo fail, do not backup "
                   "and drop backup."));
}

}  // namespace
