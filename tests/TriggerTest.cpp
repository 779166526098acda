#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

#include "Extents.h"
#include "Phone.h"
#include "fbo/Globals.h"

namespace {

/** A device that answers at once and maps nothing, so that only the zones are left. */
constexpr char kQuick[] = "ufs40:samsung,analysis=0,optimise=0,linear=0";

TEST_F(Phone, ZonesAreCutByCommas) {
    // What is asked for, the device's limit as its node words it, and the zones that reach the
    // device, each twice in a run, with "|" between them.
    // clang-format off
    const struct { const char *request, *limit, *zones; } kRows[] = {
            {"81920,64,204800,128,300000,8,", "2", "81920,64,204800,128|300000,8"},
            {"1,2,3,4,5,6,", "2", "1,2,3,4|5,6"},
            {"1,2,3,4,", "2", "1,2,3,4"}, {"100,8,", "1", "100,8"},
            // The last character goes, whatever it is.
            {"100,8", "1", "100,"}, {"1,2,3,44", "1", "1,2|3,4"},
            // A comma in the first place is not seen.
            {",1,2,3,", "1", ",1,2|3"}, {"1,2,,,", "1", "1,2|,"},
            {"no comma", "1", ""}, {",,", "1", ","},
            // Without a limit nothing is cut.
            {"1,2,3,4,", "0", "1,2,3,4"},
            {"1,2,3,4,", "-2147483648", "1,2,3,4"},
    };
    // clang-format on
    start(kQuick);
    // What the device makes of the list does not matter here.
    set("node.fbo_prog_state", "0");
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.request);
        set("node.fbo_max_lrc", row.limit);
        events();
        trigger(row.request);
        std::string zones;
        std::string last;
        for (const std::string& write : events("write fbo_send_lr_list ")) {
            const std::string zone = write.substr(1, write.rfind("\\n\"") - 1);
            if (zone != last) zones += (zones.empty() ? "" : "|") + zone;
            last = zone;
        }
        EXPECT_EQ(zones, row.zones);
    }
}

std::string ranges(int count) {
    std::string request;
    for (int i = 0; i < count; ++i) request += std::to_string(100000 + 10 * i) + ",4,";
    return request;
}

TEST_F(Phone, AZoneHoldsAtMost127Ranges) {
    start(kQuick);
    const struct {
        int limit;
        size_t stores;
        bool larger;
    } kRows[] = {{127, 4, false}, {128, 4, true}, {200, 4, true}, {126, 6, false}};
    for (const auto& row : kRows) {
        set("ranges", std::to_string(row.limit));
        trigger(ranges(254));
        EXPECT_EQ(logged("I FBO_trigger [FBO-HAL] fbo_max_lrc is larger"), row.larger);
        EXPECT_TRUE(logged("I FBO_trigger [FBO-HAL] fbo_max_lrc is " + std::to_string(row.limit) +
                           "."));
        EXPECT_EQ(events("write fbo_send_lr_list ").size(), row.stores);
    }
}

/** As much as one call can carry, in zones and, on a device without a limit, as one list. */
TEST_F(Phone, RunsAMebibyte) {
    start(std::string(kQuick) + ",ranges=127,fault.fbo_send_lr_list=missing");
    const std::string request = ranges(75000);
    EXPECT_EQ(trigger(request), "Fbo:0:0");
    EXPECT_EQ(events("log E FBO_trigger [FBO-HAL] zone[").size(), 75000u / 127 + 1);
    set("node.fbo_max_lrc", "0");
    set("fault.fbo_send_lr_list", "none");
    set("node.fbo_prog_state", "0/9");
    EXPECT_EQ(trigger(request), "Fbo:0:0");
    EXPECT_TRUE(logged("E UFS40_FBO_Imp [FBO-HAL] flc enable abnormal, try"));
}

TEST_F(Phone, AnswersZeroToWhatItCannotRun) {
    start("ufs40:samsung");
    for (const char* request : {"", ",", "1"}) {
        EXPECT_EQ(trigger(request), "Fbo:0:0");
        EXPECT_EQ(events(), std::vector<std::string>{"log E FBO_trigger [FBO-HAL] lba null."});
    }
    set("fault.fbo_max_lrc", "missing");
    EXPECT_EQ(trigger("1,2,"), "Fbo:0:0");
    EXPECT_EQ(events(), lines("log E FBO_Get_MaxLBACount [FBO-HAL] Open fbo_max_lrc file failure\n"
                              "log E FBO_trigger [FBO-HAL] read fbo max lrc fail."));
}

/** Errors below the trigger end the call, without an answer and without an open node. */
TEST_F(Phone, RaisesWhatItsNodesRaise) {
    start(kQuick);
    for (const char* node :
         {"fbo_max_lrc", "is_ufs31", "fbo_prog_state", "fbo2_linear_map_state"}) {
        set(std::string("node.") + node, "none");
        EXPECT_THROW(service->FBO_trigger("1,2,", [](const auto&) { FAIL(); }),
                     std::invalid_argument)
                << node;
        set(std::string("node.") + node, "0");
    }
    EXPECT_THROW(service->FBO_trigger("", nullptr), std::bad_function_call);
    EXPECT_THROW(service->FBO_stateCtl("stop", nullptr), std::bad_function_call);
    EXPECT_EQ(hal_status_flag, 1);
}

/** What the driver is told, and when: each value reaches it as its node is closed. */
TEST_F(Phone, PreparesTheDriverForTheFirstZone) {
    start(std::string(kQuick) + ",ranges=1");
    trigger("1,2,3,4,");
    std::vector<std::string> story = this->story("FBO_trigger");
    story.erase(std::remove_if(story.begin(), story.end(),
                               [](const std::string& event) {
                                   return event.compare(0, 5, "read ") == 0 ||
                                          event.find("fbo_operation_control") != std::string::npos;
                               }),
                story.end());
    EXPECT_EQ(story, lines(R"(I fbo_max_lrc is 1.
I enable debug.
I set exe_level.
write debug "1"
I set fbo_wholefile_enable.
write fbo_exe_level "0"
I lba is: 1,2 .
D is 4.0 ufs
write fbo_send_lr_list "1,2\n"
write fbo_send_lr_list "1,2\n"
write fbo_wholefile_enable "1"
I lba is: 3,4 .
D is 4.0 ufs
write fbo_send_lr_list "3,4\n"
write fbo_send_lr_list "3,4\n"
D cmd fail times is 0.
D cmd retry times is 0.)"));
}

TEST_F(Phone, GoesOnWithoutTheNodesOfThePreparation) {
    start(kQuick);
    for (const char* node : {"debug", "fbo_exe_level", "fbo_wholefile_enable"}) {
        set(std::string("fault.") + node, "missing");
    }
    EXPECT_EQ(trigger("1,2,9,2,"), "Fbo:124416:4864");
    const std::vector<std::string> story = this->story("FBO_trigger");
    const auto debug = std::find(story.begin(), story.end(), "I enable debug.");
    ASSERT_GE(story.end() - debug, 4);
    EXPECT_EQ(std::vector<std::string>(debug + 1, debug + 4),
              lines("E enable debug open fail.\nI set exe_level.\nI set fbo_wholefile_enable."));
}

/** The last value waits in its node even if an error ends the call: closing delivers it. */
TEST_F(Phone, DeliversTheLastValueWhenAnErrorEscapes) {
    start(kQuick);
    set("node.fbo_prog_state", "-");
    EXPECT_THROW(trigger("1,2,"), std::invalid_argument);
    EXPECT_EQ(tail(events(), 1), std::vector<std::string>{"write fbo_wholefile_enable \"1\""});
}

TEST_F(Phone, TakesTheEngineOfTheGenerationForEachZone) {
    start(std::string(kQuick) + ",ranges=1");
    set("node.is_ufs31", "1/0");
    trigger("1,2,3,4,");
    EXPECT_TRUE(logged("D FBO_trigger [FBO-HAL] is 3.1 ufs"));
    EXPECT_TRUE(logged("D FBO_trigger [FBO-HAL] is 4.0 ufs"));
    // The nodes of a UFS 3.1 device are not there.
    EXPECT_TRUE(logged("E FBO_trigger [FBO-HAL] zone[0]: 1,2 fail"));
}

TEST_F(Phone, TheSumsAreOfTheMakersNumbers) {
    // The vendor, the level's character in each of the reports that the device gives, what is
    // answered, and whether the levels have become larger.
    // clang-format off
    const struct { const char *vendor, *levels, *answer; bool larger; } kRows[] = {
            {"SAMSUNG", "3152", "Fbo:54784:17664", false},
            // Only the sums are compared, not the zones.
            {"SAMSUNG", "a813", "Fbo:129280:129280", true},
            {"MICRON", "1a00", "Fbo:256:256", true},
            {"MICRON", "1111", "Fbo:512:512", false},
            {"KIOXIA", "a0zz", "Fbo:131072:0", false},
            // Without a table the levels count themselves.
            {"NOBODY", "a0\"\x1f", "Fbo:-1024:-4352", false},
    };
    // clang-format on
    start(std::string(kQuick) + ",ranges=1");
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.levels);
        service->level_to_num.clear();
        set("node.vendor", row.vendor);
        std::string reports;
        for (const char* level = row.levels; *level != '\0'; ++level) {
            reports += (reports.empty() ? "" : "/") + std::string("0123456789") + *level +
                       std::string(20, '.');
        }
        set("node.fbo_get_lr_frag_level", reports);
        events();
        EXPECT_EQ(trigger("1,2,3,4,"), row.answer);
        EXPECT_EQ(logged("E FBO_trigger [FBO-HAL] the level becomes larger after defrag "),
                  row.larger);
    }
}

TEST_F(Phone, EntersAnUnknownLevelInTheTable) {
    start(kQuick);
    set("node.fbo_get_lr_frag_level", "0123456789z" + std::string(20, '.'));
    EXPECT_EQ(trigger("1,2,"), "Fbo:0:0");
    EXPECT_EQ(service->level_to_num.size(), 12u);
    EXPECT_EQ(service->level_to_num.at('z' - '0'), 0);
    set("node.vendor", "NOBODY");
    service->level_to_num.clear();
    EXPECT_EQ(trigger("1,2,"), "Fbo:18944:18944");
    EXPECT_TRUE(logged("E FBO_trigger [FBO-HAL] LevelToNum is empty, use frag level."));
}

TEST_F(Phone, RunsWithoutTheWear) {
    start(kQuick);
    set("fault.hr", "missing");
    EXPECT_EQ(trigger("1,2,9,2,"), "Fbo:2560:256");
    EXPECT_TRUE(logged("E FBO_trigger get ufs frag level to MB info fail"));
}

TEST_F(Phone, CountsAFailedZoneAndGoesOn) {
    start(std::string(kQuick) + ",ranges=2,analysis_end=9/9/-1");
    EXPECT_EQ(trigger("1,2,9,2,20,2,30,2,"), "Fbo:124416:4864");
    EXPECT_TRUE(logged("E FBO_trigger [FBO-HAL] zone[0]: 1,2,9,2 fail"));
    EXPECT_FALSE(logged("E FBO_trigger [FBO-HAL] zone[1]: 20,2,30,2 fail"));
}

TEST_F(Phone, ReportsTheCountersAndStartsAnew) {
    start("ufs40:samsung,analysis=6,analysis_end=-1,optimise=0,optimise_end=255,linear=0");
    trigger("1,2,9,2,");
    std::vector<std::string> story = this->story("FBO_trigger");
    story.pop_back();
    EXPECT_EQ(tail(story, 5), lines("write fbo_wholefile_enable \"1\"\n"
                                    "D cmd fail times is 1.\nD cmd retry times is 1.\n"
                                    "write fbo_err_cnt \"1\\n\"\nwrite fbo_retry_cnt \"1\\n\""));
    EXPECT_EQ(cmd_fail_count + cmd_retry_count, 0);
}

TEST_F(Phone, MapsLinearlyOnceInARun) {
    start("ufs40:samsung,analysis=0,optimise=0,mapping=0,mapping_end=-1/3,ranges=1");
    EXPECT_EQ(trigger("1,2,3,4,"), "Fbo:0:0");
    EXPECT_FALSE(logged("D FBO_trigger [FBO-HAL] FBO2.0 Linear Mapping Fail"));
    EXPECT_EQ(events("write fbo_operation_control \"4").size(), 1u);
    // With no zone to run too; how it ends does not change the answer.
    EXPECT_EQ(trigger("no ranges"), "Fbo:0:0");
    EXPECT_TRUE(logged("D FBO_trigger [FBO-HAL] FBO2.0 Linear Mapping Fail"));
}

TEST_F(Phone, AStopEndsTheRunBeforeTheNextZone) {
    start("ufs40:samsung,analysis=12,optimise=6,ranges=2");
    // In the second pass of the first zone, which is then cut short.
    tellAtSleep(4, "stop");
    EXPECT_EQ(trigger("1,2,9,2,20,2,30,2,"), "Fbo:124416:0");
    const std::vector<std::string> story = this->story("FBO_trigger");
    EXPECT_EQ(story.back(), "D hal stop.");
    EXPECT_EQ(std::count(story.begin(), story.end(), "I lba is: 20,2,30,2 ."), 0);
    EXPECT_EQ(std::count(story.begin(), story.end(), "read fbo2_linear_map_state \"1\\n\""), 0);
    EXPECT_EQ(cmd_retry_count, 4);
    // The next run is a run like any other, and reports what was left over.
    EXPECT_EQ(trigger("100,2,200,2,"), "Fbo:124416:4864");
    EXPECT_EQ(hal_status_flag, 0);
    EXPECT_TRUE(is_stop);
    EXPECT_TRUE(logged("D FBO_trigger [FBO-HAL] cmd retry times is 9."));
}

TEST_F(Phone, AStopIsTakenBackByContinueAndByALaterRun) {
    start(std::string(kQuick) + ",ranges=1");
    EXPECT_FALSE(is_stop);
    // Without any stop before, the flag is nobody's to clear.
    hal_status_flag = 1;
    EXPECT_EQ(trigger("1,2,"), "Fbo:0:0");
    EXPECT_TRUE(logged("D FBO_trigger [FBO-HAL] hal stop."));
    events();
    EXPECT_EQ(hal_status_flag, 1);

    const struct {
        const char* text;
        int flag;
        bool latch;
    } kRows[] = {{"continue", 0, false},   {"STOP", 0, false},         {"", 0, false},
                 {"unstoppable", 1, true}, {"now continue!", 0, true}, {"stopcontinue", 1, true},
                 {"no", 1, true},          {"continue stop", 1, true}};
    for (const auto& row : kRows) {
        EXPECT_EQ(stateCtl(row.text), row.text);
        EXPECT_EQ(hal_status_flag, row.flag) << row.text;
        EXPECT_EQ(is_stop, row.latch) << row.text;
    }
    // Too short a request is refused before it takes a stop back.
    trigger("1");
    EXPECT_EQ(hal_status_flag, 1);
    trigger("1,2,");
    EXPECT_EQ(hal_status_flag, 0);
}

TEST_F(Phone, SkipsTheZonesWithoutAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    // Only the first look-up of a process answers; the zone's own raises.
    EXPECT_THROW(trigger("1,2,"), std::bad_optional_access);
    EXPECT_TRUE(logged("I FBO_trigger [FBO-HAL] fbo_max_lrc is 0."));
}

/** Extents of real files go in, their fragmentation before and after comes out. */
TEST_F(Phone, DefragmentsARealFile) {
    char path[] = "defragXXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    // Every other block is taken out again, so that no two pieces lie end to end.
    const std::string text(80 * 4096, 'x');
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    fsync(fd);
    for (int i = 1; i < 80; i += 2) {
        fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, i * 4096, 4096);
    }
    close(fd);
    const fboctl::FileExtents file = fboctl::readExtents(path, 1000);
    unlink(path);
    if (!file.error.empty()) GTEST_SKIP() << "this file system: " << file.error;
    ASSERT_GT(file.ranges.size(), 1u);
    EXPECT_GT(file.ranges[0].start, 1000u);
    std::string request;
    fboctl::appendRanges(request, file.ranges);

    start("ufs31:wdc,ranges=16");
    const std::string first = trigger(request);
    const std::string second = trigger(request);
    int before[2];
    int after[2];
    ASSERT_EQ(sscanf(first.c_str(), "Fbo:%d:%d", &before[0], &after[0]), 2) << first;
    ASSERT_EQ(sscanf(second.c_str(), "Fbo:%d:%d", &before[1], &after[1]), 2) << second;
    EXPECT_GT(before[0], after[0]);
    EXPECT_EQ(before[1], after[0]);
}

}  // namespace
