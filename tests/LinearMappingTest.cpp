#include "Phone.h"

namespace {

const std::string kMap = "FBO2_Linear_Mapping 4096|8192";
const std::string kSent = "list=4096,8192 op=4";

// clang-format off
INSTANTIATE_TEST_SUITE_P(LinearMapping, FreshPhone, testing::ValuesIn(std::vector<Row>{
        {"ufs40:samsung,mapping=0", kMap, "0", kSent, "Write buff lba is: 4096,8192."},
        {"ufs40:samsung,mapping=4", kMap, "0", kSent + " +6", "state is: 1."},
        {"ufs40:samsung,mapping=0,mapping_end=2", kMap, "-11", kSent, "abnormal, exit"},
        {"ufs40:samsung,mapping=0,mapping_end=255", kMap, "-11", kSent},
        {"ufs40:samsung,mapping=stuck", kMap, "-11", kSent + " +600"},
        {"ufs40:samsung,fault.fbo_send_lr_list=missing", kMap, "-10"},
        {"ufs40:samsung,node.fbo_prog_state=7", kMap, "-11 r9 f10", "(op=0 +30)*10 op=0"},
        {"ufs40:samsung,fault.fbo_prog_state=missing", kMap, "-10"},
        {"ufs40:samsung", kMap, "-10", "list=4096,8192", "operation_control_node Fail",
         "Enable Linear", "fault.fbo_operation_control=missing"},
        {"ufs40:samsung", kMap, "-10", kSent, "prog_state_node Fail", "Enable Linear",
         "fault.fbo_prog_state=missing"},
        {"ufs40:samsung,node.fbo_prog_state=0/1/gone", kMap, "invalid_argument", kSent + " +3"},
        // A stop does not shorten a mapping.
        {"ufs40:samsung,mapping=9", kMap, "0", kSent + " +9", "", "on going", "stop"},
}));
// clang-format on

TEST_F(Phone, AsksWhetherToMapLinearly) {
    start("ufs40:samsung");
    const std::string ask = "FBO2_Support_Linear_Mapping";
    expect({{"", ask, "true 0 262144"},
            // Words, not numbers.
            {"node.fbo2_linear_mapping_start= 0x10 rest", ask, "true 0x10 262144"},
            {"node.fbo2_linear_mapping_end=", ask, "true 0 -"},
            {"fault.fbo2_linear_map_state=missing;fault.fbo2_linear_mapping_start=missing;"
             "node.fbo2_linear_map_state=0;node.fbo2_linear_map_state=2",
             ask, "false - -"},
            {"fault.fbo2_linear_mapping_end=missing", ask, "false 0 -"},
            {"node.fbo2_linear_map_state=yes;node.fbo2_linear_map_state=", ask,
             "invalid_argument"}});
}

}  // namespace
