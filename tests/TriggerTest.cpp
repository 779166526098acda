#include <functional>

#include "Phone.h"
#include "fbo/Globals.h"

namespace {

/** A device that answers at once and maps nothing, so that only the zones are left. */
constexpr char kQuick[] = "ufs40:samsung,analysis=0,optimise=0,linear=0,ranges=1";

const std::string kTrigger = "FBO_trigger ";
const std::string kPrepared = "debug=1- fbo_exe_level=0- ";

/** The effects of a zone that is run without a wait. */
std::string zone(const std::string& list) {
    return "list=" + list + " op=1 op=2 op=0 list=" + list + " op=1";
}

std::string ranges(int count) {
    std::string request;
    for (int i = 0; i < count; ++i) request += std::to_string(100000 + 10 * i) + ",4,";
    return request;
}

/** The effects of zones on a device that takes no list: each is tried twice. */
std::string refused(const std::vector<std::string>& zones) {
    std::string effects = zones.empty() ? "" : kPrepared;
    for (const std::string& zone : zones) {
        effects += "(list=" + zone + "! op=1!)*2 ";
        if (&zone == &zones[0]) effects += "fbo_wholefile_enable=1- ";
    }
    const std::string count = std::to_string(zones.size());
    return zones.empty() ? "" : effects + "fbo_err_cnt=" + count + " fbo_retry_cnt=" + count;
}

TEST_F(Phone, ZonesAreCutByCommas) {
    // What is asked for, the device's limit as its node words it, and the zones that are run.
    // clang-format off
    const struct { const char *request, *limit; std::vector<std::string> zones; } kRows[] = {
            {"81920,64,204800,128,300000,8,", "2", {"81920,64,204800,128", "300000,8"}},
            {"1,2,3,4,", "2", {"1,2,3,4"}}, {"100,8,", "1", {"100,8"}},
            // The last character goes, whatever it is.
            {"100,8", "1", {"100,"}}, {"1,2,3,44", "1", {"1,2", "3,4"}},
            // A comma in the first place is not seen.
            {",1,2,3,", "1", {",1,2", "3"}}, {"1,2,,,", "1", {"1,2", ","}},
            {"no comma", "1", {}}, {",,", "1", {","}},
            // Without a limit nothing is cut.
            {"1,2,3,4,", "0", {"1,2,3,4"}}, {"1,2,3,4,", "-2147483648", {"1,2,3,4"}},
    };
    // clang-format on
    start(std::string(kQuick) + ",fault.fbo_send_lr_list=write-error");
    for (const auto& row : kRows) {
        expect({{std::string("node.fbo_max_lrc=") + row.limit, kTrigger + row.request, "Fbo:0:0",
                 refused(row.zones)}});
    }
}

TEST_F(Phone, AZoneHoldsAtMost127Ranges) {
    start(kQuick);
    const std::string request = ranges(254);
    const size_t half = request.find("101270,");
    const std::string zones = zone(request.substr(0, half - 1)) + " fbo_wholefile_enable=1- op=0 " +
                              zone(request.substr(half, request.size() - half - 1));
    expect({{"ranges=127", kTrigger + request, "Fbo:248832:9728", kPrepared + zones, "!is larger"},
            {"ranges=128", kTrigger + request, "Fbo:9728:9728", kPrepared + "op=0 " + zones,
             "fbo_max_lrc is 128."}});
}

/** As much as one call can carry, in zones and, on a device without a limit, as one list. */
TEST_F(Phone, RunsAMebibyte) {
    start(std::string(kQuick) + ",ranges=127");
    const std::string request = kTrigger + ranges(75000);
    expect({{"fault.fbo_send_lr_list=missing", request, "Fbo:0:0", kAny, "zone[590]: "},
            {"node.fbo_max_lrc=0,node.fbo_prog_state=0/9", request, "Fbo:0:0", kAny,
             "flc enable abnormal, try;!is larger"}});
}

TEST_F(Phone, AnswersZeroToWhatItCannotRun) {
    start("ufs40:samsung");
    expect({{"", kTrigger + ";" + kTrigger + ",;" + kTrigger + "1", "Fbo:0:0", "", "lba null."},
            {"", kTrigger + std::string(2, '\0'), "Fbo:0:0", kAny, "!lba null."},
            {"fault.fbo_max_lrc=missing", kTrigger + "1,2,", "Fbo:0:0", "", "max lrc fail."}});
}

/** Errors below the trigger end the call, without an answer and without an open node. */
TEST_F(Phone, RaisesWhatItsNodesRaise) {
    start(kQuick);
    const std::string request = kTrigger + "1,2,";
    expect({{"node.fbo_max_lrc=-", request, "invalid_argument"},
            // The last value waits in its node even then: closing delivers it.
            {"node.is_ufs31=-;node.fbo_prog_state=-", request, "invalid_argument",
             kPrepared + "fbo_wholefile_enable=1-"},
            {"node.fbo2_linear_map_state=-", request, "invalid_argument", kAny}});
    EXPECT_THROW(service->FBO_trigger("", nullptr), std::bad_function_call);
    EXPECT_THROW(service->FBO_stateCtl("stop", nullptr), std::bad_function_call);
    EXPECT_EQ(hal_status_flag, 1);
}

TEST_F(Phone, RunsEachZoneThroughTheEngineOfTheGeneration) {
    start(kQuick);
    const std::string request = kTrigger + "1,2,9,2,";
    const std::string zones = zone("1,2") + " fbo_wholefile_enable=1- op=0 " + zone("9,2");
    expect({{"", request, "Fbo:0:0", kPrepared + zones},
            // The nodes of the preparation may be missing, those of a UFS 3.1 device are.
            {"fault.debug=missing", request, "Fbo:0:0", "fbo_exe_level=0- op=0 " + zones,
             "enable debug open fail."},
            {"fault.fbo_exe_level=missing", request, "Fbo:0:0", "debug=1- op=0 " + zones,
             "!open fail"},
            {"node.is_ufs31=1/0", request, "Fbo:0:0",
             kPrepared + "fbo_wholefile_enable=1- op=0 " + zone("9,2"), "zone[0]: 1,2 fail"}});
}

TEST_F(Phone, TheSumsAreOfTheMakersNumbers) {
    // The vendor, the level's character in each of the reports that the device gives, what is
    // answered, and whether the levels have become larger.
    // clang-format off
    const struct { const char *vendor, *levels, *answer; bool larger; } kRows[] = {
            {"SAMSUNG", "3152", "Fbo:54784:17664", false},
            // Only the sums are compared, not the zones.
            {"SAMSUNG", "a813", "Fbo:129280:129280", true},
            {"MICRON", "1a00", "Fbo:256:256", true}, {"MICRON", "1111", "Fbo:512:512", false},
            {"KIOXIA", "a0zy", "Fbo:131072:0", false},
            // Without a table the levels count themselves.
            {"NOBODY", "a0\"\x1f", "Fbo:-1024:-4352", false}};
    // clang-format on
    start(kQuick);
    for (const auto& row : kRows) {
        service->level_to_num.clear();
        set("node.vendor", row.vendor);
        std::string reports;
        for (const char level : std::string(row.levels)) {
            reports += std::string("0123456789") + level + std::string(20, '.') + "/";
        }
        reports.pop_back();
        expect({{"node.fbo_get_lr_frag_level=" + reports, kTrigger + "1,2,3,4,", row.answer, kAny,
                 row.larger ? "the level becomes larger" : "!becomes larger"}});
        // Unknown levels are entered in the table.
        EXPECT_EQ(service->level_to_num.size(), *row.vendor == 'N'   ? 0
                                                : *row.vendor == 'K' ? 13
                                                                     : 11);
    }
    service->level_to_num = {{10, 1 << 23}};
    expect({{"ranges=2", kTrigger + "50,2,60,2,", "Fbo:-2147483648:-2147483648", kAny,
             "becomes larger"}});
    service->level_to_num.clear();
    expect({{"ranges=2,fault.hr=missing", kTrigger + "70,2,90,2,", "Fbo:2560:256", kAny,
             "to MB info fail"},
            {"", kTrigger + "1,2,", "Fbo:0:0", kAny, "LevelToNum is empty, use frag level."}});
}

TEST_F(Phone, CountsAFailedZoneAndGoesOn) {
    start(kQuick);
    expect({{"analysis_end=9/9/-1,ranges=2", kTrigger + "1,2,9,2,20,2,30,2,", "Fbo:124416:4864",
             kPrepared + "list=1,2,9,2 op=1 op=0 list=1,2,9,2 op=1 fbo_wholefile_enable=1- op=0 " +
                     zone("20,2,30,2") + " fbo_err_cnt=1 fbo_retry_cnt=1",
             "!zone[1]"},
            // What it has reached by then counts.
            {"analysis_end=-1/9", kTrigger + "40,2,60,2,", "Fbo:124416:0", kAny, "zone[0]: 40"}});
}

TEST_F(Phone, MapsLinearlyOnceInARun) {
    start("ufs40:samsung,analysis=0,optimise=0,mapping=0,mapping_end=-1/3,ranges=1");
    const std::string mapping = "op=0 list=0,262144 op=4";
    expect({{"", kTrigger + "1,2,3,4,", "Fbo:0:0",
             kPrepared + zone("1,2") + " fbo_wholefile_enable=1- op=0 " + zone("3,4") + " " +
                     mapping,
             "!Mapping Fail"},
            // With no zone to run too; how it ends does not change the answer.
            {"", kTrigger + "no ranges", "Fbo:0:0", mapping, "FBO2.0 Linear Mapping Fail"}});
}

TEST_F(Phone, AStopEndsTheRunBeforeTheNextZone) {
    start("ufs40:samsung,analysis=12,optimise=6,ranges=2");
    // In the second pass of the first zone, which is then cut short.
    onSleep(4, [this] { call("FBO_stateCtl stop"); });
    expect({{"", kTrigger + "1,2,9,2,20,2,30,2,", "Fbo:124416:0 r4 f0",
             kPrepared + "list=1,2,9,2 op=1 +12 op=2 +6 op=0 list=1,2,9,2 op=1 +6 op=0 "
                         "fbo_wholefile_enable=1-",
             "D FBO_trigger [FBO-HAL] hal stop."}});
    // The next run is a run like any other, and reports what was left over.
    cmd_retry_count = 4;
    EXPECT_EQ(call(kTrigger + "100,2,200,2,"), "Fbo:124416:4864");
    EXPECT_NE(logOf(events()).find("cmd retry times is 9."), std::string::npos);
    EXPECT_EQ(cmd_retry_count, 0);
    EXPECT_EQ(hal_status_flag, 0);
    EXPECT_TRUE(is_stop);
}

TEST_F(Phone, AStopIsTakenBackByContinueAndByALaterRun) {
    start(kQuick);
    EXPECT_FALSE(is_stop);
    // Without any stop before, the flag is nobody's to clear.
    hal_status_flag = -1;
    expect({{"", kTrigger + "1,2,", "Fbo:0:0", "", "D FBO_trigger [FBO-HAL] hal stop."}});
    EXPECT_EQ(hal_status_flag, -1);

    // clang-format off
    const struct { const char* text; int flag; bool latch; } kRows[] = {
            {"continue", 0, false}, {"STOP", 0, false}, {"", 0, false}, {"unstoppable", 1, true},
            {"now continue!", 0, true}, {"stopcontinue", 1, true}, {"no", 1, true},
            {"continue stop", 1, true}};
    // clang-format on
    for (const auto& row : kRows) {
        expect({{"", std::string("FBO_stateCtl ") + row.text, row.text}});
        EXPECT_EQ(hal_status_flag, row.flag) << row.text;
        EXPECT_EQ(is_stop, row.latch) << row.text;
    }
    // Too short a request is refused before it takes a stop back.
    call(kTrigger + "1");
    EXPECT_EQ(hal_status_flag, 1);
    expect({{"fault.fbo_max_lrc=missing", kTrigger + "1,2,", "Fbo:0:0"}});
    EXPECT_EQ(hal_status_flag, 0);
    // What a stopped run has reached is not compared.
    onLog("lba is: 3,4", [this] { call("FBO_stateCtl stop"); });
    const std::string reports = "01234567891.................../01234567899...................";
    expect({{"node.fbo_get_lr_frag_level=" + reports, kTrigger + "1,2,3,4,5,6,", "Fbo:4864:124416",
             kAny}});
}

TEST_F(Phone, TellsOfARunOnUfs40) {
    start("ufs40:samsung,node.vendor=SAMSUNG,analysis=6,optimise=6,optimise_end=2,mapping=3");
    EXPECT_EQ(call(kTrigger + "8,8,64,8,"), "Fbo:124416:0");
    EXPECT_EQ(transcriptOf(events()), R"( | fbo_max_lrc: 64
I FBO_trigger fbo_max_lrc is 64. | vendor: SAMSUNG
I getUFSPEcycleALevelToNum ufs vendor: SAMSUNG pe_cycle: 120
I FBO_trigger enable debug.
I FBO_trigger set exe_level. | debug=1-
I FBO_trigger set fbo_wholefile_enable. | fbo_exe_level=0-
I FBO_trigger lba is: 8,8,64,8 . | is_ufs31: 0
D FBO_trigger is 4.0 ufs
I UFS40_FBO_Imp check flc ops. | fbo_prog_state: 0
D FBO_Clear ops fbo_prog_state is 0!.
D FBO_Clear progress state is already idle.
I UFS40_FBO_Imp write buffer
I UFS40_FBO_Imp write buff lba is: 8,8,64,8. | list=8,8,64,8
I UFS40_FBO_Imp enable analysis | op=1 | fbo_prog_state: 1
I UFS40_FBO_Imp fbo analysis on going. | +6 | fbo_prog_state: 2
I UFS40_FBO_Imp flc ops is: 2.
I UFS40_FBO_Imp read buff. | fbo_get_lr_frag_level: frag_lvl: a, lr_count: 2, optimised: 0
D UFS40_FBO_Imp read buff success, the level is 
: frag_lvl: a, lr_count: 2, optimised: 0
.
I UFS40_FBO_Imp enable optimization. | op=2 | fbo_prog_state: 1 | +6 | fbo_prog_state: 2 | fbo_wholefile_enable=1-
D FBO_trigger cmd fail times is 0.
D FBO_trigger cmd retry times is 2. | fbo_retry_cnt=2
D record_cmd_fail fail recode success | fbo2_linear_map_state: 1
I FBO2_Support_Linear_Mapping LinearMappingSupNode is 1 | fbo2_linear_mapping_start: 0 | fbo2_linear_mapping_end: 262144 | fbo_prog_state: 2
D FBO_Clear ops fbo_prog_state is 2!.
D FBO_Clear clear ops | op=0 | fbo_prog_state: 0
D FBO_Clear ops fbo_prog_state is 0!.
D FBO2_Linear_Mapping Write buff lba is: 0,262144. | list=0,262144
I FBO2_Linear_Mapping Enable Linear Mapping | op=4 | fbo_prog_state: 1
I FBO2_Linear_Mapping is on going. | +3 | fbo_prog_state: 5
I FBO2_Linear_Mapping state is: 5.)");
}

TEST_F(Phone, TellsOfARunOnUfs31) {
    start("ufs31:samsung,accept=20/0,analysis=6,optimise=0,optimise_end=255");
    onLog("fbs_defrag_enable fail", [this] { call("FBO_stateCtl stop"); });
    EXPECT_EQ(call("UFS31_FBO_Imp 8,8,64,8"), "0 10 -");
    EXPECT_EQ(transcriptOf(events()), R"(
I UFS31_FBO_Imp check flc ops. | fbs_flc_ops: 0
D FBO_Clear ops fbs_flc_ops is 0!.
D FBO_Clear progress state is already idle.
I UFS31_FBO_Imp check defrag ops. | fbs_defrag_ops: 0
D FBO_Clear ops fbs_defrag_ops is 0!.
D FBO_Clear progress state is already idle.
I UFS31_FBO_Imp write buffer
I UFS31_FBO_Imp write buff lba is: 8,8,64,8. | list=8,8,64,8 | fbs_flc_ops: 0 | +30 | fbs_flc_ops: 1
D UFS31_FBO_Imp write buffer success
I UFS31_FBO_Imp flc enable | list=8,8,64,8- | flc=1 | fbs_flc_ops: 2 | +6 | fbs_flc_ops: 3
D UFS31_FBO_Imp flc ops is: 3.
I UFS31_FBO_Imp flc enable success.
I UFS31_FBO_Imp read buff. | fbo_get_lr_frag_level: frag_lvl: a, lr_count: 2, optimised: 0
D UFS31_FBO_Imp read buff success.
I UFS31_FBO_Imp read buff success, the level is: frag_lvl: a, lr_count: 2, optimised: 0
.
I UFS31_FBO_Imp enable defrag. | defrag=1 | fbs_defrag_ops: 255
E UFS31_FBO_Imp fbs_defrag_enable fail. | fbs_defrag_ops: 255
I UFS31_FBO_Imp check flc ops. | fbs_flc_ops: 3
D FBO_Clear ops fbs_flc_ops is 3!.
D FBO_Clear clear ops | flc=0 | fbs_flc_ops: 0
D FBO_Clear ops fbs_flc_ops is 0!.
I UFS31_FBO_Imp check defrag ops. | fbs_defrag_ops: 255
D FBO_Clear ops fbs_defrag_ops is 255!.
D FBO_Clear clear ops | defrag=0 | fbs_defrag_ops: 0
D FBO_Clear ops fbs_defrag_ops is 0!.
D UFS31_FBO_Imp hal stop)");
}

}  // namespace
