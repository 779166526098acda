#include "fbo/defrag/Capability.h"

#include <stdexcept>

#include "Phone.h"

namespace {

struct WearCase {
    const char* device;
    int cycles;
    bool supported;
    /** What levels 1 and 10 count for on flash of this maker. */
    int level_1;
    int level_10;
};

void PrintTo(const WearCase& row, std::ostream* out) {
    *out << row.device;
}

class Wear : public Phone, public testing::WithParamInterface<WearCase> {};

TEST_P(Wear, IsReadInTheMakersOwnField) {
    const WearCase& row = GetParam();
    start(std::string(row.device) + ",wear=" + std::to_string(row.cycles));
    EXPECT_EQ(service->pe_cycle, -2);
    EXPECT_TRUE(service->level_to_num.empty());
    EXPECT_EQ(service->FBO_isSupport(), row.supported);
    EXPECT_EQ(service->pe_cycle, row.cycles);
    EXPECT_EQ(service->level_to_num.size(), 11u);
    EXPECT_EQ(service->level_to_num[0], 0);
    EXPECT_EQ(service->level_to_num[1], row.level_1);
    EXPECT_EQ(service->level_to_num[10], row.level_10);
    EXPECT_EQ(logged("D FBO_isSupport [FBO-HAL] FBO support."), row.supported);
    // Read once and remembered.
    events();
    EXPECT_EQ(service->FBO_isSupport(), row.supported);
    EXPECT_EQ(events("read ").size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(, Wear,
                         testing::Values(WearCase{"ufs40:samsung", 2399, true, 19, 486},
                                         WearCase{"ufs31:samsung", 2400, false, 19, 486},
                                         WearCase{"ufs40:skhynix", 2399, true, 2, 440},
                                         WearCase{"ufs31:skhynix,tbw=0", 2400, false, 2, 440},
                                         // The largest number of the field, as a signed one.
                                         WearCase{"ufs40:micron", -1, true, 1, 38},
                                         WearCase{"ufs31:micron", 70000, false, 1, 38},
                                         WearCase{"ufs40:kioxia", 2399, true, 0, 512},
                                         WearCase{"ufs31:kioxia", 0x01020304, false, 0, 512},
                                         WearCase{"ufs40:wdc", 2399, true, 1, 223},
                                         WearCase{"ufs31:wdc", 0x01020304, false, 1, 223}));

TEST_F(Phone, TellsWhichFieldOfSkHynixItReads) {
    start("ufs40:skhynix,tbw=1");
    const std::string line = "D getUFSPEcycleALevelToNum [FBO-HAL] vendor is sk, the tbw != 0";
    EXPECT_EQ(service->getUFSPEcycleALevelToNum(), 1024);
    EXPECT_TRUE(logged(line));
    events();
    set("tbw", "0");
    EXPECT_EQ(service->getUFSPEcycleALevelToNum(), 1024);
    EXPECT_FALSE(logged(line));
}

/** The first maker named in the vendor text wins, in the order of the tables. */
TEST_F(Phone, PicksTheFirstOfTwoMakers) {
    start("ufs40:skhynix");
    set("node.vendor", "SKhynixWDC");
    service->getUFSPEcycleALevelToNum();
    EXPECT_EQ(service->level_to_num[10], 223);
}

TEST_F(Phone, AnswersNoWithoutTheNodeOrItsOne) {
    start("ufs40:samsung");
    const std::string refused =
            "E FBO_isSupport [FBO-HAL] Read fbo_support node failed or device does not fbo.";
    for (const char* text : {"0\n", "", " 1", "2"}) {
        set("node.fbo_support", text);
        EXPECT_FALSE(service->FBO_isSupport());
        EXPECT_EQ(events("log "), std::vector<std::string>{refused});
    }
    set("fault.fbo_support", "read-error");
    EXPECT_FALSE(service->FBO_isSupport());
    EXPECT_EQ(events("log "), std::vector<std::string>{refused});
    set("fault.fbo_support", "missing");
    EXPECT_FALSE(service->FBO_isSupport());
    EXPECT_EQ(
            events("log "),
            std::vector<std::string>{"E FBO_isSupport [FBO-HAL] Failed to open fbo_support node."});
    set("fault.fbo_support", "none");
    set("node.fbo_support", "12");
    EXPECT_TRUE(service->FBO_isSupport());
}

/** Unknown wear does not refuse, and is asked for again. */
TEST_F(Phone, SupportsADeviceOfUnknownWear) {
    start("ufs40:samsung");
    const struct {
        const char* fault;
        const char* what;
        const char* line;
    } kRows[] = {
            {"fault.vendor", "missing", "E getUFSPEcycleALevelToNum [FBO-HAL] get ufs vendor fail"},
            {"fault.hr", "missing", "E getUFSPEcycleALevelToNum [FBO-HAL] ufs hr node open fail"},
            {"fault.hr", "read-error", "E getUFSPEcycleALevelToNum [FBO-HAL] read hr failed"},
    };
    for (const auto& row : kRows) {
        set(row.fault, row.what);
        EXPECT_TRUE(service->FBO_isSupport());
        EXPECT_TRUE(logged(row.line));
        EXPECT_TRUE(logged("E FBO_isSupport [FBO-HAL] get ufs pecycle info fail"));
        set(row.fault, "none");
        events();
    }
    set("node.vendor", "NOBODY");
    EXPECT_TRUE(service->FBO_isSupport());
    EXPECT_EQ(tail(events("log "), 3),
              lines("E getUFSPEcycleALevelToNum [FBO-HAL] vendor not supported|\n"
                    "I getUFSPEcycleALevelToNum [FBO-HAL] ufs vendor: NOBODY pe_cycle: -2\n"
                    "D FBO_isSupport [FBO-HAL] FBO support."));
    EXPECT_EQ(service->pe_cycle, -2);
}

/** What is missing or no number in the report repeats the byte before it. */
TEST_F(Phone, DecodesADamagedReport) {
    start("ufs40:samsung");
    set("node.hr", std::string(2 * 155, '0') + "7f");
    EXPECT_EQ(service->getUFSPEcycleALevelToNum(), 312);
    EXPECT_EQ(service->pe_cycle, 0x7f7f7f7f);
    set("node.hr", std::string(2 * 156, '0') + "01zz0003");
    service->getUFSPEcycleALevelToNum();
    EXPECT_EQ(service->pe_cycle, 0x01010003);
    set("node.hr", "");
    EXPECT_EQ(service->getUFSPEcycleALevelToNum(), 0);
    EXPECT_EQ(service->pe_cycle, 0);
    set("node.hr", std::string(2 * 156, '0') + "aBcDeF01" + std::string(3000, '5'));
    EXPECT_EQ(service->getUFSPEcycleALevelToNum(), 1024);
    EXPECT_EQ(static_cast<uint32_t>(service->pe_cycle), 0xabcdef01u);
}

TEST_F(Phone, ReadsTheGeneration) {
    start("ufs40:samsung");
    const std::pair<const char*, bool> kTexts[] = {
            {"1\n", true}, {"01", true}, {" +1x", true}, {"0\n", false}, {"11", false}};
    for (const auto& [text, is31] : kTexts) {
        set("node.is_ufs31", text);
        EXPECT_EQ(FBO_isUFS31(), is31) << text;
        EXPECT_EQ(logged("D FBO_isUFS31 [FBO-HAL] the ufs is 3.1 version"), is31);
        events();
    }
    set("node.is_ufs31", "");
    EXPECT_THROW(FBO_isUFS31(), std::invalid_argument);
    set("fault.is_ufs31", "unreadable");
    EXPECT_FALSE(FBO_isUFS31());
    EXPECT_TRUE(logged("E FBO_isUFS31 [FBO-HAL] open is_ufs31 node fail"));
}

TEST_F(Phone, ReadsTheLimitsOfARange) {
    start("ufs40:samsung,ranges=99");
    int most = -5;
    EXPECT_EQ(FBO_Get_MinLBASize(), 1);
    EXPECT_EQ(FBO_Get_MaxLBACount(most), 0);
    EXPECT_EQ(most, 99);
    set("node.fbo_max_lrc", "many");
    EXPECT_THROW(FBO_Get_MaxLBACount(most), std::invalid_argument);
    set("node.fbo_min_lrs", "4294967296");
    EXPECT_THROW(FBO_Get_MinLBASize(), std::out_of_range);
    events();
    set("fault.fbo_min_lrs", "missing");
    set("fault.fbo_max_lrc", "missing");
    EXPECT_EQ(FBO_Get_MinLBASize(), -1);
    EXPECT_EQ(FBO_Get_MaxLBACount(most), -10);
    EXPECT_EQ(most, 99);
    EXPECT_EQ(events(), lines("log E FBO_Get_MinLBASize [FBO-HAL] Open fbo_min_lrs file failure\n"
                              "log E FBO_Get_MaxLBACount [FBO-HAL] Open fbo_max_lrc file failure"));
}

/** Without a controller one of the two limits answers and the other raises. */
TEST_F(Phone, HasNoLimitsWithoutAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    int most = -5;
    EXPECT_EQ(FBO_Get_MaxLBACount(most), 0);
    EXPECT_EQ(most, -5);
}

TEST_F(Phone, HasNoLeastSizeWithoutAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    EXPECT_THROW(FBO_Get_MinLBASize(), std::invalid_argument);
}

}  // namespace
