#include "Phone.h"

namespace {

const std::string kNodes = "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc/ufsfbo/";
const std::string kClear =
        "FBO_Clear " + kNodes + "fbo_operation_control|" + kNodes + "fbo_prog_state";
/** The states that the device shows one after the other; the last one stays. */
const std::string kStates = "node.fbo_prog_state=";

TEST_F(Phone, ClearBringsTheDeviceToIdle) {
    start("ufs40:samsung");
    expect({{kStates + "0", kClear, "0"},
            {kStates + "1/00;" + kStates + "-1/0", kClear, "0", "op=0"},
            {kStates + "1/1/0", kClear, "0", "op=0 +30 op=0"},
            {kStates + "1/1/1/0", kClear, "0 r1 f1", "(op=0 +30)*2 op=0"},
            {kStates + "1/1/1/1/1/1/1/1/1/1/1/0", kClear, "0 r9 f9", "(op=0 +30)*10 op=0"},
            {kStates + "1", kClear, "-11 r9 f10", "(op=0 +30)*10 op=0", "flc ops abnormal"},
            // A zero anywhere in the last state will do, but only in the last one.
            {kStates + "1/10;" + kStates + "1/103", kClear, "0 r9 f9", "(op=0 +30)*10 op=0",
             "!abnormal"},
            {kStates + "10/10/7", kClear, "-11 r9 f10", "(op=0 +30)*10 op=0"},
            // A state that turns empty is taken for the one before.
            {kStates + "20/", kClear, "0 r9 f9", "(op=0 +30)*10 op=0"},
            {kStates + "1/1/busy", kClear, "invalid_argument", "op=0 +30 op=0"},
            {kStates + "1/1/1/busy", kClear, "invalid_argument r1 f1", "(op=0 +30)*2 op=0"},
            {kStates + ";" + kStates + "busy;fault.fbo_prog_state=read-error", kClear,
             "invalid_argument"},
            {"fault.fbo_prog_state=missing", kClear, "-10", "",
             kNodes + "fbo_prog_state open fail"},
            {"fault.fbo_operation_control=unwritable,fault.fbo_prog_state=missing", kClear, "-10",
             "", kNodes + "fbo_operation_control open fail"}});
}

TEST_F(Phone, RecordsACounter) {
    start("ufs40:samsung");
    expect({{"", "record_cmd_fail fbo_err_cnt|0;record_cmd_fail fbo_err_cnt|-3", ""},
            {"", "record_cmd_fail fbo_err_cnt|1", "", "fbo_err_cnt=1", "fail recode success"},
            {"", "record_cmd_fail fbo_no_cnt|1", "", "", kNodes + "fbo_no_cnt open fail!."}});
}

}  // namespace
