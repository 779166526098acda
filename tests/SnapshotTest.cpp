#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include <android-base/unique_fd.h>

#include "Phone.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/Snapshot.h"
#include "fbo/snapshot/SnapshotPolicy.h"

namespace {

using android::base::unique_fd;

constexpr off_t kRecord = 9437184;

/** What the gsort partition holds from `offset` on. */
std::string readPartition(off_t offset, size_t size) {
    std::string bytes(size, '\0');
    const unique_fd fd(open("/dev/block/by-name/gsort", O_RDONLY));
    bytes.resize(pread(fd.get(), bytes.data(), size, offset));
    return bytes;
}

void writeRecord(const std::string& bytes) {
    const unique_fd fd(open("/dev/block/by-name/gsort", O_WRONLY));
    EXPECT_EQ(pwrite(fd.get(), bytes.data(), bytes.size(), kRecord),
              static_cast<ssize_t>(bytes.size()));
}

/** A record of 107 bytes; but for the magic and the numbers no byte is like its neighbour. */
std::string makeRecord(const std::string& magic, int32_t bootlun, int32_t snapbootlun) {
    std::string record(107, '\0');
    for (size_t i = 0; i < record.size(); ++i) record[i] = static_cast<char>(i);
    record.replace(0, magic.size(), magic);
    memcpy(&record[35], &bootlun, sizeof(bootlun));
    memcpy(&record[39], &snapbootlun, sizeof(snapbootlun));
    return record;
}

TEST_F(Phone, RecordsTheBootLunOfASnapshotRecordOnly) {
    using namespace std::string_literals;
    start("ufs40:samsung");
    const std::pair<std::string, bool> kRows[] = {{"snapshoT", false},
                                                  {"snapsho\0"s, false},
                                                  {"snapshotXYZ", true},
                                                  {"snapshot\0"s, true}};
    for (const auto& [magic, is_snapshot] : kRows) {
        writeRecord(makeRecord(magic, -2, 7));
        expect({{"", "setBootlunInfo", "107", "gsort=107@9437184", ", bootlun -2, snapbootLun 7"}});
        EXPECT_EQ(readPartition(kRecord - 64, 256),
                  std::string(64, '\0') + makeRecord(magic, -2, is_snapshot ? -2 : 7) +
                          std::string(85, '\0'));
    }
    // A record without any NUL is logged to its end and no further.
    writeRecord(std::string(107, 'x'));
    expect({{"", "setBootlunInfo", "107", kAny,
             " " + std::string(107, 'x') + ", bootlun 2021161"}});
    // A short read goes unnoticed: what was not read is written as zero.
    writeRecord("12345678abcdefgh");
    set("gsort_size", "9437200");
    expect({{"", "setBootlunInfo", "107", kAny, "", "magic_str", "gsort_size=16777216"}});
    EXPECT_EQ(readPartition(kRecord, 107), "12345678abcdefgh" + std::string(91, '\0'));
    // So does a short write.
    expect({{"gsort_size=9437200", "setBootlunInfo", "16", kAny, "setBootlunInfo success"}});
}

TEST_F(Phone, TellsWhyThePartitionFails) {
    start("ufs40:samsung");
    expect({{"fault.gsort=missing", "setBootlunInfo", "-1", "", "fail No such file or directory"},
            {"fault.gsort=unwritable", "setBootlunInfo", "-1", "", "fail Permission denied\n"},
            {"fault.gsort=read-error", "setBootlunInfo", "-1", "",
             "read ddr_gsort_partition fail;read_from_partition fail"},
            {"fault.gsort=write-error", "setBootlunInfo", "-1", "gsort=107@9437184!",
             "write ddr_gsort_partition fail;write_to_partition fail"}});
    char bytes[8] = "7654321";
    EXPECT_EQ(read_from_partition(bytes, 7, -1), -1);
    EXPECT_EQ(write_to_partition(bytes, 7, -1), -1);
    EXPECT_EQ(write_to_partition(bytes, 7, 100), 7);
    EXPECT_EQ(read_from_partition(bytes, 5, 99), 5);
    EXPECT_EQ(std::string(bytes, 8), std::string("\0"
                                                 "7654\0"
                                                 "1",
                                                 8));
    set("fault.gsort", "missing");
    EXPECT_EQ(write_to_partition(bytes, 7, 0), -1);
}

const std::string kPolicy = "updateSnapshotCloudCtrlPolicy ";
const std::string kControl = "prop.vendor.snapshot_control=";

/** The first word that applies decides; the device is identified only if there is none. */
TEST_F(Phone, TheControlPropertyIsSearchedInOrder) {
    start("ufs40:kioxia,product=THGJFLT2E46BATP");
    expect({{"", kPolicy + "true", "true 8 20 16", "",
             "minlimit 8, maxlimit 20, devicefreeblock 16"},
            {kControl + "a default false", kPolicy + "true", "true 8 20 16"},
            {kControl + "nofalseyes", kPolicy + "true", "false - - -", "",
             "property nofalseyes\n;all pn disable;!vendor_id"},
            {kControl + "true false", kPolicy + "true", "false - - -"},
            // "true" switches on; a text without any of the words leaves what is.
            {kControl + "untrue", kPolicy + "false", "true 8 20 16", "", "cloud enable;!vendor_id"},
            {kControl + "False TRUE", kPolicy + "true", "true 8 20 16"},
            {kControl + "THGJFLT2E46BATP", kPolicy + "false", "false 8 20 16"},
            {kControl + "X THGJFLT2E46BATP Y", kPolicy + "true", "false - - -", "", "pn match"},
            {"fault.inquiry=missing", kPolicy + "true", "false - - -", "", "getUfsInfo fail."}});
    set("fault.inquiry=missing");
    expect({{kControl + "default", kPolicy + "false", "false 8 20 16"},
            {"prop.vendor.snapshot_freespace.maxlimit= +70%", kPolicy + "true", "true 8 70 16"},
            {"prop.vendor.snapshot_devicefreeblock=-1", kPolicy + "true", "true 8 70 -1"},
            {"prop.vendor.snapshot_freespace.minlimit=5", kPolicy + "true", "true 5 70 -1"},
            {"prop.vendor.snapshot_freespace.minlimit=few", "SnapShot_startBackup",
             "invalid_argument"},
            {kControl + "false", "SnapShot_startBackup", "false", "",
             "cloud disable;!drop_caches"}});
    // Of three numbers the second one is none.
    set(kControl + "true");
    bool enable = false;
    int min = 1, max = 2, blocks = 3;
    EXPECT_THROW(updateSnapshotCloudCtrlPolicy(enable, min, max, blocks), std::invalid_argument);
    EXPECT_EQ(max * 10 + blocks, 703);
}

TEST_F(Phone, SetsTheFreeBlocksWhereTheyDiffer) {
    start("ufs40:micron");
    const std::string set = "setSnapshotFreeBlockThr ";
    expect({{"", set + "4194304", "MICRON  \n", "dropfreesize=4194304"},
            {"", set + "4194304", "MICRON  \n"},
            {"", set + "4194303", "MICRON  \n", "dropfreesize=4194303"},
            {"fault.dropfreesize=missing", set + "1", "MICRON  \n", "", "Open dropfreesize file"},
            {"fault.dropfreesize=unwritable", set + "1", "MICRON  \n", "",
             "Open dropfreesize file"},
            {"node.dropfreesize=-", set + "1", "invalid_argument"},
            {"node.vendor=KIOXIA", set + "2", "KIOXIA", "dropfreesize=2"},
            {"node.vendor=KIOXIAWDC", set + "3", "KIOXIAWDC", "dropfreesize=3"},
            {"node.vendor=SAMSUNG", set + "1", "SAMSUNG", "", "!m/k"},
            {"fault.vendor=missing", set + "1", "-", "", "get ufs vendor fail"}});
}

TEST_F(Phone, ReadsTheStatusByItsWord) {
    start("ufs40:samsung");
    const std::string ask = "SnapShot_getStatus";
    expect({{"node.status=idle rest\n", ask, "0", "", "status is idle"},
            {"node.status=inprogress", ask, "1"},
            {"node.status=complete_backup", ask, "2"},
            {"node.status=complete_restore", ask, "3"},
            {"node.status=drop_by_host", ask, "4"},
            {"node.status=drop_by_device", ask, "5"},
            {"node.status=internal_error", ask, "6"}});
    EXPECT_EQ(snapshotStatusMap.size(), 7u);
    expect({{"node.status=bogus;node.status=", ask, "0"},
            {"fault.status=missing", ask, "0", "", "Open status file failure"}});
    EXPECT_EQ(snapshotStatusMap.at("bogus"), SNAPSHOT_STATUS_IDLE);
    EXPECT_EQ(snapshotCtrlMap.at(SNAPSHOT_CTRL(2)) + snapshotCtrlMap.at(SNAPSHOT_CTRL(3)),
              "restoredrop");
}

const std::string kBackup = "SnapShot_startBackup";
const std::string kDrop = "SnapShot_startDrop";
const std::string kRecorded = "(drop_caches=3 +1)*3 gsort=107@9437184";
const std::string kStart = kRecorded + " ctrl=start";
const std::string kSlow = kRecorded + " dropfreesize=4194304 ctrl=start";

// clang-format off
INSTANTIATE_TEST_SUITE_P(Backup, FreshPhone, testing::ValuesIn(std::vector<Row>{
        {"ufs40:micron,backup_idle=5,backup=0", kBackup, "true", kSlow + " +5"},
        {"ufs40:samsung,backup=0", kBackup, "true", kStart, "backup success"},
        {"ufs40:skhynix,backup=0", kBackup, "true", kStart},
        {"ufs40:wdc,backup=30", kBackup, "true", kStart + " +30"},
        // Complete a second after the last poll, which the last look does not see.
        {"ufs40:wdc,backup=31", kBackup, "false", kStart + " +30", "tryCount is 30"},
        {"ufs40:kioxia,backup_idle=20,backup=10", kBackup, "true", kSlow + " +30"},
        {"ufs40:kioxia,backup_idle=5,backup=0,fault.dropfreesize=missing", kBackup, "true",
         kStart + " +5"},
        {"ufs40:kioxia,backup_idle=5,fault.vendor=missing", kBackup, "false", kStart},
        {"ufs40:kioxia,backup_idle=stuck,backup=stuck", kBackup, "false", kSlow + " +30",
         "snapshotStatus is 0, tryCount is 30"},
        // Others that show idle right after the start are not waited for.
        {"ufs40:samsung,node.status=idle", kBackup, "false", kStart, "tryCount is 0"},
        // The status that counts is read once more.
        {"ufs40:samsung,node.status=complete_restore/complete_backup", kBackup, "true", kStart},
        {"ufs40:samsung,backup=2,backup_end=6", kBackup, "false", kStart + " +2",
         "snapshotStatus is 6, tryCount is 2"},
        {"ufs40:samsung,fault.drop_caches=missing", kBackup, "false", "", "!magic"},
        {"ufs40:samsung,gsort_size=9437184", kBackup, "true", kStart + " +10", "", "magic_str",
         "gsort_size=16777216"},
        {"ufs40:samsung,gsort_size=9437184", kBackup, "false", kRecorded + "!",
         "write_to_partition fail"},
        // A record that is written in part counts as written.
        {"ufs40:samsung,backup=0,gsort_size=9437200", kBackup, "true", kStart},
        {"ufs40:micron,fault.ctrl=missing", kBackup, "false", kRecorded + " dropfreesize=4194304",
         "Open ctrl file failure"},
        {"ufs40:micron,node.dropfreesize=-", kBackup, "invalid_argument", kRecorded},
        // The free blocks wrap at 32 bits.
        {"ufs31:kioxia,backup_idle=0,prop.vendor.snapshot_devicefreeblock=16385", kBackup, "true",
         kRecorded + " dropfreesize=262144 ctrl=start +10"},
}));

INSTANTIATE_TEST_SUITE_P(Drop, FreshPhone, testing::ValuesIn(std::vector<Row>{
        {"ufs40:samsung,snapshot=2", kDrop, "true", "ctrl=stop", "drop succcess."},
        {"ufs40:kioxia,snapshot=2,drop=7", kDrop, "true", "ctrl=stop +7"},
        {"ufs40:kioxia,snapshot=2,drop=stuck", kDrop, "false", "ctrl=stop +30"},
        // Dropped, but not idle: waited for all the same, and good in the end.
        {"ufs40:micron,snapshot=2,drop=1,drop_end=4", kDrop, "true", "ctrl=stop +30"},
        {"ufs40:wdc,snapshot=2,drop_end=5", kDrop, "false", "ctrl=stop"},
        {"ufs40:wdc,snapshot=2,drop_end=6", kDrop, "false", "ctrl=stop", "drop failed."},
        {"ufs40:wdc,snapshot=2,drop_end=0", kDrop, "true", "ctrl=stop"},
        // Without its vendor a device counts as one that drops at once.
        {"ufs40:kioxia,snapshot=2,drop=7,fault.vendor=missing", kDrop, "false", "ctrl=stop"},
        {"ufs40:kioxia,snapshot=5", kDrop, "true", "", "snapshotStatus is 5.;do not drop"},
        {"ufs40:kioxia,snapshot=2,fault.ctrl=missing", kDrop, "false", "",
         "Open ctrl file failure"},
}));
// clang-format on

TEST_F(Phone, TellsOfABackup) {
    start("ufs40:micron,node.vendor=MICRON,backup_idle=1,backup=0,drop=1");
    call(kBackup);
    call(kDrop);
    EXPECT_EQ(transcriptOf(events()),
              R"(
D updateSnapshotCloudCtrlPolicy snapshot_freespace minlimit 8, maxlimit 20, devicefreeblock 16 | drop_caches=3 | +1 | drop_caches=3 | +1 | drop_caches=3 | +1 | gsort: 107
D setBootlunInfo magic_str snapshot, bootlun 1, snapbootLun 0 | gsort=107@9437184
D setBootlunInfo setBootlunInfo success | vendor: MICRON
I setSnapshotFreeBlockThr m/k set snapshot free block thr | dropfreesize: 0 | dropfreesize=4194304 | ctrl=start | status: idle
I SnapShot_getStatus status is idle
D SnapShot_startBackup snapshotStatus is 0.
I SnapShot_startBackup snapshotStatus is 0. | +1 | status: complete_backup
I SnapShot_getStatus status is complete_backup
D SnapShot_startBackup snapshotStatus is 2, tryCount is 1 | status: complete_backup
I SnapShot_getStatus status is complete_backup
D SnapShot_startBackup backup success | status: complete_backup
I SnapShot_getStatus status is complete_backup
D SnapShot_startDrop snapshotStatus is 2. | ctrl=stop | vendor: MICRON
I SnapShot_startDrop snapshotStatus is 2. | +1 | status: idle
I SnapShot_getStatus status is idle | status: idle
I SnapShot_getStatus status is idle
D SnapShot_startDrop snapshot drop succcess.)");
}

/** Sees what the object asks of itself. */
struct Seeing : Fbo {
    int statuses = 0;
    int drops = 0;
    Return<int32_t> SnapShot_getStatus() override { return ++statuses < 3 ? 1 : 2; }
    Return<bool> SnapShot_startDrop() override { return ++drops == 0; }
};

TEST_F(Phone, SnapshotsAskTheObjectItself) {
    start("ufs40:samsung");
    const android::sp<Seeing> seeing = serve<Seeing>();
    expect({{"", kBackup, "true", kStart + " +2"}});
    EXPECT_EQ(seeing->statuses, 4);
    EXPECT_FALSE(seeing->Fbo::SnapShot_startDrop());
    EXPECT_EQ(seeing->statuses, 6);
    EXPECT_EQ(seeing->drops, 0);
    // A record that cannot be written has a backup dropped, whatever comes of that.
    expect({{"fault.gsort=missing", kBackup, "false", "(drop_caches=3 +1)*3",
             "do not backup and drop backup."}});
    EXPECT_EQ(seeing->drops, 1);
}

}  // namespace
