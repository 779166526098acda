#include "fbo/defrag/LinearMapping.h"

#include <stdexcept>

#include "Phone.h"
#include "fbo/Globals.h"

namespace {

struct MappingCase {
    const char* name;
    const char* device;
    int result;
    int seconds;
    int retries;
    /** What FBO2_Linear_Mapping says from the start of the operation on. */
    const char* story;
};

void PrintTo(const MappingCase& row, std::ostream* out) {
    *out << row.device;
}

class LinearMapping : public Phone, public testing::WithParamInterface<MappingCase> {};

TEST_P(LinearMapping, Runs) {
    const MappingCase& row = GetParam();
    start(std::string("ufs40:samsung") + row.device);
    // A stop is of no concern to it.
    stateCtl("stop");
    EXPECT_EQ(FBO2_Linear_Mapping("4096", "8192"), row.result);
    EXPECT_EQ(cmd_retry_count, row.retries);
    std::vector<std::string> story = this->story("FBO2_Linear_Mapping");
    int seconds = 0;
    for (const std::string& event : story) seconds += event == "sleep 3" ? 3 : 0;
    EXPECT_EQ(seconds, row.seconds);
    // The first reading is that of the clear.
    if (!story.empty() && story[0] == "read fbo_prog_state \"0\\n\"") story.erase(story.begin());
    const std::vector<std::string> expected = lines(row.story);
    if (story.size() > expected.size()) story.resize(expected.size());
    EXPECT_EQ(story, expected);
}

// clang-format off
const MappingCase kMappings[] = {
        {"DoneAtOnce", ",mapping=0", 0, 0, 0,
         "D Write buff lba is: 4096,8192.\nwrite fbo_send_lr_list \"4096,8192\\n\"\nI Enable Linear Mapping\nwrite fbo_operation_control \"4\\n\"\nread fbo_prog_state \"5\\n\""},
        { "DoneAfterAWhile", ",mapping=4", 0, 6, 0,
         "D Write buff lba is: 4096,8192.\nwrite fbo_send_lr_list \"4096,8192\\n\"\nI Enable Linear Mapping\nwrite fbo_operation_control \"4\\n\"\nread fbo_prog_state \"1\\n\"\nI is on going.\nsleep 3\nread fbo_prog_state \"1\\n\"\nI state is: 1.\nsleep 3\nread fbo_prog_state \"5\\n\"\nI state is: 5."},
        {"EndsOtherwise", ",mapping=0,mapping_end=2", -11, 0, 0,
         "D Write buff lba is: 4096,8192.\nwrite fbo_send_lr_list \"4096,8192\\n\"\nI Enable Linear Mapping\nwrite fbo_operation_control \"4\\n\"\nread fbo_prog_state \"2\\n\"\nE Check State After Linear Mapping abnormal, exit"},
        {"NeverEnds", ",mapping=stuck", -11, 600, 0, ""},
        {"NoList", ",fault.fbo_send_lr_list=missing", -10, 0, 0,
         "E Open fbo_send_lr_list_node Fail"},
        {"NotIdle", ",node.fbo_prog_state=7", -11, 0, 9, ""},
        {"NoState", ",fault.fbo_prog_state=missing", -10, 0, 0, ""},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, LinearMapping, testing::ValuesIn(kMappings),
                         [](const auto& info) { return info.param.name; });

TEST_F(Phone, LinearMappingNeedsItsNodesToTheEnd) {
    start("ufs40:samsung");
    onLog("Enable Linear Mapping", [this] { set("fault.fbo_operation_control", "missing"); });
    EXPECT_EQ(FBO2_Linear_Mapping("1", "2"), -10);
    EXPECT_TRUE(logged("E FBO2_Linear_Mapping [FBO2-HAL]Open fbo_operation_control_node Fail"));
    set("fault.fbo_operation_control", "none");
    onLog("Enable Linear Mapping", [this] { set("fault.fbo_prog_state", "missing"); });
    EXPECT_EQ(FBO2_Linear_Mapping("1", "2"), -10);
    EXPECT_TRUE(logged("E FBO2_Linear_Mapping [FBO2-HAL]Open fbo_prog_state_node Fail"));
    set("fault.fbo_prog_state", "none");
    onLog("", [] {});
    set("node.fbo_prog_state", "0/1/gone");
    EXPECT_THROW(FBO2_Linear_Mapping("1", "2"), std::invalid_argument);
}

TEST_F(Phone, AsksWhetherToMapLinearly) {
    start("ufs40:samsung");
    std::string from;
    std::string to;
    EXPECT_TRUE(FBO2_Support_Linear_Mapping(from, to));
    EXPECT_EQ(from + "-" + to, "0-262144");
    EXPECT_TRUE(logged("I FBO2_Support_Linear_Mapping [FBO2-HAL]LinearMappingSupNode is 1"));
    // Words, not numbers.
    set("node.fbo2_linear_mapping_start", " 0x10 rest");
    set("node.fbo2_linear_mapping_end", "");
    EXPECT_TRUE(FBO2_Support_Linear_Mapping(from, to));
    EXPECT_EQ(from + "-" + to, "0x10-262144");
    for (const char* node : {"state", "mapping_start", "mapping_end"}) {
        const std::string fault =
                std::string("fault.fbo2_linear_") + (*node == 's' ? "map_" : "") + node;
        set(fault, "missing");
        EXPECT_FALSE(FBO2_Support_Linear_Mapping(from, to)) << fault;
        set(fault, "none");
    }
    set("node.fbo2_linear_map_state", "0");
    EXPECT_FALSE(FBO2_Support_Linear_Mapping(from, to));
    set("node.fbo2_linear_map_state", "yes");
    EXPECT_THROW(FBO2_Support_Linear_Mapping(from, to), std::invalid_argument);
}

/** Without a controller the device "supports" a mapping that then has nothing to do. */
TEST_F(Phone, LinearMappingIsQuietWithoutAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    std::string from;
    std::string to;
    EXPECT_TRUE(FBO2_Support_Linear_Mapping(from, to));
    EXPECT_EQ(from + to, "");
}

}  // namespace
