#include "fbo/defrag/Ufs31.h"

#include <algorithm>

#include "EngineTest.h"

namespace {

// clang-format off
const EngineCase kCases[] = {
        {"Complete", "analysis=6,optimise=12", {0, 7, 1, 4, 0, 24}, "L A1 D1 A0 L A1",
         {"D read buff success.",
         "I read buff success, the level is: frag_lvl: 1, lr_count: 4, optimised: 4|."}},
        {"CompleteAtOnce", "analysis=0,optimise=0", {0, 7, 1, 0, 0, 0}, "L A1 D1 A0 L A1", {}},
        // What is sent again waits, without a line end, until the node is closed, and is then a
        // list of its own to the device.
        {"ListAcceptedLate", "accept=61/0,analysis=0,optimise=0", {0, 9, 1, 3, 3, 90},
         "L 1,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,1- A1 D1 A0 L A1", {}},
        {"ListNeverAccepted", "node.fbs_flc_ops=0/2", {-11, kNone, kNone, 10, 10, 300},
         "L 1,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,1-",
         {}},
        // What the driver refused is gone; what is sent again is a new text, all of it in one store.
        {"ListRefused", "fault.fbo_send_lr_list=write-error", {-11, kNone, kNone, 10, 10, 300},
         "L 1,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,11,1,2,1,4,1,8,1-", {}},
        {"AnalysisNeverEnds", "analysis=stuck", {-11, kNone, kNone, 200, 0, 1200}, "L A1",
         {"D flc ops is: 2.", "E flc enable fail."}},
        {"AnalysisPollEndsAbnormal", "analysis=6,analysis_end=1", {-11, kNone, kNone, 1, 0, 6},
         "L A1", {"D flc ops is: 1.", "E flc enable fail."}},
        {"AbnormalOnce", "analysis=0,analysis_end=1/-1,optimise=0", {0, 7, 1, 1, 1, 0},
         "L A1 A0 L A1 D1 A0 L A1", {}},
        // Nobody clears what shows as idle.
        {"EndsInIdleOnce", "analysis=0,analysis_end=0/-1,optimise=0", {0, 7, 1, 1, 1, 0},
         "L A1 L A1 D1 A0 L A1", {}},
        {"AbnormalTwice", "analysis=0,analysis_end=9", {-11, kNone, kNone, 1, 1, 0}, "L A1 A0 L A1",
         {"D flc ops is: 9.", "E flc enable abnormal, exit"}},
        {"ReportShortOnce", "analysis=0,optimise=0,report=28/29", {0, 7, 1, 0, 0, 0},
         "L A1 A0 L A1 D1 A0 L A1", {}},
        {"ReportShortTwice", "analysis=0,report=1", {-11, kNone, kNone, 0, 0, 0}, "L A1 A0 L A1",
         {"I read buff.", "read fbo_get_lr_frag_level \"f\"", "E read buff fail"}},
        // Each failure starts the first pass again, on a device that has to be cleared first.
        {"DefragFailsTwice", "analysis=0,optimise=0,optimise_end=255/255/-1", {0, 7, 1, 0, 2, 0},
         "L A1 D1 A0 D0 L A1 D1 A0 D0 L A1 D1 A0 L A1", {}},
        {"DefragEndsOtherwise", "analysis=0,optimise=6,optimise_end=255", {0, 7, kNone, 1, 0, 6},
         "L A1 D1", {"read fbs_defrag_ops \"255\\n\""}},
        {"DefragNeverEnds", "analysis=0,optimise=stuck", {0, 7, kNone, 200, 0, 1200}, "L A1 D1",
         {"read fbs_defrag_ops \"2\\n\""}},
        // A device about to finish is asked again without a pause.
        {"DefragFinishes", "analysis=0,node.fbs_defrag_ops=0/2/3/3/0", {0, 7, 7, 3, 0, 6},
         "L A1 D1 A0 L A1", {}},
        {"DefragNeverFinishes", "analysis=0,node.fbs_defrag_ops=0/3", {0, 7, kNone, 200, 0, 0},
         "L A1 D1", {"read fbs_defrag_ops \"3\""}},
        // The first FBO_Clear succeeds, the second one cannot, and its -10 becomes -11.
        {"NoDefragState", "fault.fbs_defrag_ops=missing", {-11, kNone, kNone, 0, 0, 0}, "",
         {"I check flc ops.", "read fbs_flc_ops \"0\\n\"", "I check defrag ops."}},
        {"NoAnalysisState", "fault.fbs_flc_ops=missing", {-11, kNone, kNone, 0, 0, 0}, "",
         {"I check flc ops."}},
        {"NoList", "fault.fbo_send_lr_list=unwritable", {-10, kNone, kNone, 0, 0, 0}, "",
         {"I write buffer", "E Open file failure"}},
        {"StateGoesAway", "", {-10, kNone, kNone, 0, 0, 0}, "L", {"E Open file failure"},
         "write buff lba", {"fault.fbs_flc_ops=missing"}},
        {"NoAnalysis", "", {-10, kNone, kNone, 0, 0, 0}, "L", {"I flc enable",
         "E Open file failure"}, "write buffer success", {"fault.fbs_flc_enable=missing"}},
        // The state of the analysis, 3, is then taken for one of the defragmentation.
        {"NoDefrag", "analysis=0", {0, 7, kNone, 200, 0, 0}, "L A1", {"I enable defrag."},
         "enable defrag", {"fault.fbs_defrag_enable=missing", "fault.fbs_defrag_ops=missing"}},
};
// clang-format on

class Ufs31 : public EngineTest {};

TEST_P(Ufs31, Runs) {
    check("UFS31_FBO_Imp", "ufs31:samsung", UFS31_FBO_Imp);
}

INSTANTIATE_TEST_SUITE_P(, Ufs31, testing::ValuesIn(kCases), EngineCase::nameOf);

TEST_F(Phone, Ufs31TellsItsWholeWay) {
    start("ufs31:samsung,analysis=6,optimise=6");
    int32_t before;
    int32_t after;
    UFS31_FBO_Imp("8,8,64,8", before, after);
    const std::string analysis = R"(I write buffer
I write buff lba is: 8,8,64,8.
write fbo_send_lr_list "8,8,64,8\n"
read fbs_flc_ops "1\n"
D write buffer success
I flc enable
write fbs_flc_enable "1\n"
read fbs_flc_ops "2\n"
sleep 6
read fbs_flc_ops "3\n"
D flc ops is: 3.
I flc enable success.
I read buff.
)";
    EXPECT_EQ(story("UFS31_FBO_Imp"), lines(R"(I check flc ops.
read fbs_flc_ops "0\n"
I check defrag ops.
read fbs_defrag_ops "0\n"
)" + analysis + R"(read fbo_get_lr_frag_level "frag_lvl: a, lr_count: 2, optimised: 0\n"
D read buff success.
I read buff success, the level is: frag_lvl: a, lr_count: 2, optimised: 0|.
I enable defrag.
write fbs_defrag_enable "1\n"
read fbs_defrag_ops "2\n"
sleep 6
read fbs_defrag_ops "0\n"
D fbs_defrag_enable success.
I check flc ops.
read fbs_flc_ops "3\n"
write fbs_flc_enable "0\n"
read fbs_flc_ops "0\n"
I check defrag ops.
read fbs_defrag_ops "0\n"
)" + analysis + R"(read fbo_get_lr_frag_level "frag_lvl: 1, lr_count: 2, optimised: 2\n"
D read buff success.
I read buff success, the level is: frag_lvl: 1, lr_count: 2, optimised: 2|.
)"));
}

/** Each wait words the stop in its own way; both clear the device before they end the call. */
TEST_F(Phone, Ufs31StopsInEachPoll) {
    start("ufs31:samsung,analysis=12,optimise=12");
    for (const int sleep : {1, 3}) {
        SCOPED_TRACE(sleep);
        stateCtl("continue");
        tellAtSleep(sleep, "stop");
        int32_t before = kNone;
        int32_t after = kNone;
        EXPECT_EQ(UFS31_FBO_Imp("8,8,64,8", before, after), 0);
        EXPECT_EQ(before, sleep == 1 ? kNone : 10);
        EXPECT_EQ(after, kNone);
        const std::vector<std::string> story = this->story("UFS31_FBO_Imp");
        EXPECT_EQ(std::count(story.begin(), story.end(), "D hal stop."), sleep == 1 ? 1 : 0);
        EXPECT_EQ(story.back(), "D hal stop");
        EXPECT_EQ(events("read fbs_").size(), 0u);
    }
}

/** The five minutes of resending do not look at a stop; the next wait does. */
TEST_F(Phone, Ufs31ResendsThroughAStop) {
    start("ufs31:samsung,accept=100");
    tellAtSleep(1, "stop");
    int32_t before;
    int32_t after;
    EXPECT_EQ(UFS31_FBO_Imp("8,8", before, after), 0);
    EXPECT_EQ(cmd_fail_count, 4);
    EXPECT_EQ(tail(events("sleep "), 4), (std::vector<std::string>(4, "30")));
}

/** A device that keeps failing keeps the engine at it until a stop. */
TEST_F(Phone, Ufs31GoesOnUntilAStop) {
    start("ufs31:samsung,optimise=0,optimise_end=255");
    tellAtSleep(100, "stop");
    int32_t before;
    int32_t after = kNone;
    EXPECT_EQ(UFS31_FBO_Imp("8,8,64,8", before, after), 0);
    EXPECT_EQ(after, kNone);
    EXPECT_EQ(cmd_fail_count, 50);
}

/** A long list and its line feed are one store, however a stream would split them. */
TEST_F(Phone, ALongListIsOneStore) {
    std::string list;
    for (int i = 0; i < 127; ++i) list += std::to_string(1000000000 + 16 * i) + ",8,";
    list.pop_back();
    start("ufs31:samsung,ranges=127,accept=20/0,analysis=0,optimise=0");
    int32_t before;
    int32_t after;
    EXPECT_EQ(UFS31_FBO_Imp(list, before, after), 0);
    const std::vector<std::string> stores = events("write fbo_send_lr_list ");
    ASSERT_EQ(stores.size(), 3u);
    EXPECT_EQ(stores[0], "\"" + list + "\\n\"");
    EXPECT_EQ(stores[1].substr(0, list.size() + 2), "\"" + list + "\"");
}

}  // namespace
