#include "fbo/defrag/Clear.h"

#include <algorithm>
#include <stdexcept>

#include "Phone.h"
#include "fbo/Globals.h"
#include "fbo/defrag/Trigger.h"

namespace {

const std::string kNodes = "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc/ufsfbo/";

TEST_F(Phone, ClearBringsTheDeviceToIdle) {
    // What the state node holds, one reading after the other; then result, stores, sleeps and
    // what is added to the counters of retries and failures.
    // clang-format off
    const struct { const char* states; int result, writes, sleeps, retries, fails; } kRows[] = {
            {"0", 0, 0, 0, 0, 0},
            {"1/0", 0, 1, 0, 0, 0},
            {"1/1/0", 0, 2, 1, 0, 0},
            {"1/1/1/0", 0, 3, 2, 1, 1},
            {"1/1/1/1/1/1/1/1/1/1/1/0", 0, 11, 10, 9, 9},
            {"1", -11, 11, 10, 9, 10},
            // A zero anywhere in the last state will do, but only in the last one.
            {"1/10", 0, 11, 10, 9, 9},
            {"10/10/7", -11, 11, 10, 9, 10},
    };
    // clang-format on
    start("ufs40:samsung");
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.states);
        cmd_retry_count = cmd_fail_count = 0;
        set("node.fbo_prog_state", row.states);
        EXPECT_EQ(FBO_Clear(kNodes + "fbo_operation_control", kNodes + "fbo_prog_state"),
                  row.result);
        EXPECT_EQ(cmd_retry_count, row.retries);
        EXPECT_EQ(cmd_fail_count, row.fails);
        EXPECT_EQ(logged("E FBO_Clear [FBO-HAL] flc ops abnormal, exit"), row.result != 0);
        const std::vector<std::string> events = this->events();
        const auto count = [&](const std::string& event) {
            return std::count(events.begin(), events.end(), event);
        };
        EXPECT_EQ(count("write fbo_operation_control \"0\\n\""), row.writes);
        EXPECT_EQ(count("sleep 30"), row.sleeps);
    }
}

TEST_F(Phone, ClearTellsItsWholeWay) {
    start("ufs40:samsung");
    set("node.fbo_prog_state", "3/2/0");
    EXPECT_EQ(FBO_Clear(kNodes + "fbo_operation_control", kNodes + "fbo_prog_state"), 0);
    const std::string state = "D ops " + kNodes + "fbo_prog_state is ";
    EXPECT_EQ(story("FBO_Clear"),
              lines("read fbo_prog_state \"3\"\n" + state + "3!.\nD clear ops\n" +
                    "write fbo_operation_control \"0\\n\"\nread fbo_prog_state \"2\"\n" + state +
                    "2!.\nsleep 30\n" +
                    "write fbo_operation_control \"0\\n\"\nread fbo_prog_state \"0\"\n" + state +
                    "0!."));
    EXPECT_EQ(FBO_Clear(kNodes + "fbo_operation_control", kNodes + "fbo_prog_state"), 0);
    EXPECT_EQ(story("FBO_Clear"), lines("read fbo_prog_state \"0\"\n" + state +
                                        "0!.\nD progress state is already idle."));
}

TEST_F(Phone, ClearNeedsBothNodesAndANumber) {
    start("ufs40:samsung");
    const std::string control = kNodes + "fbo_operation_control";
    const std::string state = kNodes + "fbo_prog_state";
    set("fault.fbo_operation_control", "unwritable");
    EXPECT_EQ(FBO_Clear(control, state), -10);
    EXPECT_EQ(story("FBO_Clear"), std::vector<std::string>{"E " + control + " open fail!."});
    set("fault.fbo_operation_control", "none");
    set("fault.fbo_prog_state", "missing");
    EXPECT_EQ(FBO_Clear(control, state), -10);
    EXPECT_EQ(story("FBO_Clear"), std::vector<std::string>{"E " + state + " open fail!."});
    set("fault.fbo_prog_state", "none");
    for (const char* states : {"", "busy", "1/1/busy", "1/1/1/1/1/1/1/1/1/1/1/busy"}) {
        set("node.fbo_prog_state", states);
        EXPECT_THROW(FBO_Clear(control, state), std::invalid_argument) << states;
    }
    set("fault.fbo_prog_state", "read-error");
    EXPECT_THROW(FBO_Clear(control, state), std::invalid_argument);
}

/** A state that turns empty is taken for the one before. */
TEST_F(Phone, ClearKeepsAStateThatTurnsEmpty) {
    start("ufs40:samsung");
    set("node.fbo_prog_state", "20/");
    EXPECT_EQ(FBO_Clear(kNodes + "fbo_operation_control", kNodes + "fbo_prog_state"), 0);
    EXPECT_EQ(events("sleep ").size(), 10u);
}

TEST_F(Phone, RecordsACounter) {
    start("ufs40:samsung");
    record_cmd_fail("fbo_err_cnt", 0);
    record_cmd_fail("fbo_err_cnt", -3);
    EXPECT_TRUE(events().empty());
    record_cmd_fail("fbo_err_cnt", 3);
    EXPECT_EQ(events(), lines("write fbo_err_cnt \"3\\n\"\n"
                              "log D record_cmd_fail fail recode success"));
    record_cmd_fail("fbo_no_cnt", 1);
    EXPECT_EQ(events(), std::vector<std::string>{"log E record_cmd_fail [FBO-HAL] " + kNodes +
                                                 "fbo_no_cnt open fail!."});
}

}  // namespace
