#include "fbo/defrag/Ufs40.h"

#include "EngineTest.h"

namespace {

// clang-format off
const EngineCase kCases[] = {
        {"Complete", "analysis=6,optimise=12", {0, 7, 1, 4, 0, 24}, "L 1 2 0 L 1",
         {"D read buff success, the level is |: frag_lvl: 1, lr_count: 4, optimised: 4|."}},
        {"CompleteAtOnce", "analysis=0,optimise=0", {0, 7, 1, 0, 0, 0}, "L 1 2 0 L 1",
         {"I fbo complete analysis.", "I read buff.",
         "read fbo_get_lr_frag_level \"frag_lvl: 1, lr_count: 4, optimised: 4\\n\"",
         "D read buff success, the level is |: frag_lvl: 1, lr_count: 4, optimised: 4|."}},
        {"AnalysisNeverEnds", "analysis=stuck", {-11, kNone, kNone, 200, 0, 1200}, "L 1",
         {"I flc ops is: 1.", "E flc enable abnormal, exit"}},
        {"AnalysisPollEndsAbnormal", "analysis=6,analysis_end=3", {-11, kNone, kNone, 1, 0, 6},
         "L 1", {"I flc ops is: 3.", "E flc enable abnormal, exit"}},
        {"AbnormalOnce", "analysis=0,analysis_end=0/-1,optimise=0", {0, 7, 1, 1, 1, 0},
         "L 1 L 1 2 0 L 1", {}},
        {"AbnormalTwice", "analysis=0,analysis_end=255", {-11, kNone, kNone, 1, 1, 0}, "L 1 0 L 1",
         {"D flc ops is: 255.", "E flc enable abnormal, exit"}},
        {"AbnormalInTheSecondPass", "analysis=0,analysis_end=9/-1/9,optimise=0",
         {-11, 7, kNone, 1, 1, 0}, "L 1 0 L 1 2 0 L 1", {"D flc ops is: 9.",
         "E flc enable abnormal, exit"}},
        {"ReportShortOnce", "analysis=0,optimise=0,report=28/29", {0, 7, 1, 0, 0, 0},
         "L 1 0 L 1 2 0 L 1", {}},
        {"ReportShortTwice", "analysis=0,report=28", {-11, kNone, kNone, 0, 0, 0}, "L 1 0 L 1",
         {"I read buff.", "read fbo_get_lr_frag_level \"frag_lvl: 7, lr_count: 4, op\"",
         "E read buff fail"}},
        {"ReportUnreadable", "analysis=0,fault.fbo_get_lr_frag_level=unreadable",
         {-11, kNone, kNone, 0, 0, 0}, "L 1 0 L 1", {"I read buff.", "E read buff fail"}},
        {"ShortReportSpendsTheRetry", "analysis=0,report=0/99,analysis_end=-1/9",
         {-11, kNone, kNone, 0, 0, 0}, "L 1 0 L 1", {"E flc enable abnormal, exit"}},
        {"OptimisationFails", "analysis=0,optimise=0,optimise_end=255", {0, 7, kNone, 0, 1, 0},
         "L 1 2", {"E fbo enable optimization fail."}},
        {"OptimisationEndsOtherwise", "analysis=0,optimise=6,optimise_end=2",
         {0, 7, kNone, 1, 0, 6}, "L 1 2", {"read fbo_prog_state \"2\\n\""}},
        {"OptimisationPollEndsFailed", "analysis=0,optimise=6,optimise_end=255",
         {0, 7, kNone, 1, 0, 6}, "L 1 2", {"read fbo_prog_state \"255\\n\""}},
        {"OptimisationNeverEnds", "analysis=0,optimise=stuck", {0, 7, kNone, 200, 0, 1200}, "L 1 2",
         {"read fbo_prog_state \"1\\n\""}},
        {"NotClearable", "node.fbo_prog_state=7", {-11, kNone, kNone, 9, 10, 300},
         "0 0 0 0 0 0 0 0 0 0 0", {}},
        {"LevelTen",
         "analysis=0,optimise=0,node.fbo_get_lr_frag_level=0123456789a..................",
         {0, 10, 10, 0, 0, 0}, "L 1 2 0 L 1", {}},
        // Nothing checks the level's character; it counts by its code.
        {"LevelOfAnyCharacter",
         "analysis=0,optimise=0,node.fbo_get_lr_frag_level=0123456789\xff..................",
         {0, 207, 207, 0, 0, 0}, "L 1 2 0 L 1", {}},
        {"NoList", "fault.fbo_send_lr_list=missing", {-10, kNone, kNone, 0, 0, 0}, "",
         {"I write buffer", "E Open file failure"}},
        // An optimisation that cannot be started goes unnoticed: the state stays the one read last.
        {"NoOptimisation", "analysis=0", {0, 7, kNone, 0, 0, 0}, "L 1", {"I enable optimization."},
         "enable optimization", {"fault.fbo_operation_control=unwritable",
         "fault.fbo_prog_state=missing"}},
        {"NoState", "", {-10, kNone, kNone, 0, 0, 0}, "L", {"E Open file failure"},
         "write buff lba", {"fault.fbo_prog_state=missing"}},
        {"NoControl", "", {-10, kNone, kNone, 0, 0, 0}, "L", {"I enable analysis",
         "E Open file failure"}, "enable analysis", {"fault.fbo_operation_control=missing"}},
        // What a node refuses is never offered again, nor is what depends on it.
        {"ListRefused", "analysis=0,fault.fbo_send_lr_list=write-error",
         {-11, kNone, kNone, 1, 1, 0}, "L 1 L 1", {"E flc enable abnormal, exit"}},
        {"StateVanishesInThePoll", "analysis=stuck", {-11, kNone, kNone, 200, 0, 1200}, "L 1",
         {"E flc enable abnormal, exit"}, "on going", {"fault.fbo_prog_state=read-error"}},
};
// clang-format on

class Ufs40 : public EngineTest {};

TEST_P(Ufs40, Runs) {
    check("UFS40_FBO_Imp", "ufs40:samsung", UFS40_FBO_Imp);
}

INSTANTIATE_TEST_SUITE_P(, Ufs40, testing::ValuesIn(kCases), EngineCase::nameOf);

TEST_F(Phone, Ufs40TellsItsWholeWay) {
    start("ufs40:samsung,analysis=6,optimise=6");
    int32_t before;
    int32_t after;
    UFS40_FBO_Imp("8,8,64,8", before, after);
    const std::string analysis = R"(I write buffer
I write buff lba is: 8,8,64,8.
write fbo_send_lr_list "8,8,64,8\n"
I enable analysis
write fbo_operation_control "1\n"
read fbo_prog_state "1\n"
I fbo analysis on going.
sleep 6
read fbo_prog_state "2\n"
I flc ops is: 2.
I read buff.
)";
    EXPECT_EQ(story("UFS40_FBO_Imp"), lines(R"(I check flc ops.
read fbo_prog_state "0\n"
)" + analysis + R"(read fbo_get_lr_frag_level "frag_lvl: a, lr_count: 2, optimised: 0\n"
D read buff success, the level is |: frag_lvl: a, lr_count: 2, optimised: 0|.
I enable optimization.
write fbo_operation_control "2\n"
read fbo_prog_state "1\n"
sleep 6
read fbo_prog_state "3\n"
D fbo_defrag_enable success.
I check flc ops.
read fbo_prog_state "3\n"
write fbo_operation_control "0\n"
read fbo_prog_state "0\n"
)" + analysis + R"(read fbo_get_lr_frag_level "frag_lvl: 1, lr_count: 2, optimised: 2\n"
D read buff success, the level is |: frag_lvl: 1, lr_count: 2, optimised: 2|.
)"));
}

/** A stop in a poll ends the call only after the device has been brought back to idle. */
TEST_F(Phone, Ufs40StopsInEachPoll) {
    start("ufs40:samsung,analysis=12,optimise=12");
    for (const int sleep : {1, 3}) {
        SCOPED_TRACE(sleep);
        stateCtl("continue");
        tellAtSleep(sleep, "stop");
        int32_t before = kNone;
        int32_t after = kNone;
        EXPECT_EQ(UFS40_FBO_Imp("8,8,64,8", before, after), 0);
        EXPECT_EQ(before, sleep == 1 ? kNone : 10);
        EXPECT_EQ(after, kNone);
        EXPECT_EQ(tail(story("UFS40_FBO_Imp"), 6), lines(R"(D hal stop
I check flc ops.
read fbo_prog_state "1\n"
write fbo_operation_control "0\n"
read fbo_prog_state "0\n"
D hal stop.)"));
    }
}

TEST_F(Phone, Ufs40RaisesOnAStateThatIsNoNumber) {
    start("ufs40:samsung");
    int32_t before;
    int32_t after;
    set("node.fbo_prog_state", "0/x");
    EXPECT_THROW(UFS40_FBO_Imp("8,8", before, after), std::invalid_argument);
    set("node.fbo_prog_state", "0/1/99999999999");
    EXPECT_THROW(UFS40_FBO_Imp("8,8", before, after), std::out_of_range);
    set("node.fbo_prog_state", "");
    EXPECT_THROW(UFS40_FBO_Imp("8,8", before, after), std::invalid_argument);
}

}  // namespace
