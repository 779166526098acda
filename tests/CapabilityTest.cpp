#include <cstring>

#include "Phone.h"

namespace {

const std::string kRead = "getUFSPEcycleALevelToNum";
const std::string kAsk = "FBO_isSupport";

TEST_F(Phone, KnowsTheLevelsOfEveryMaker) {
    const std::pair<const char*, std::vector<int>> kMakers[] = {
            {"SAMSUNG ", {0, 19, 50, 71, 106, 143, 192, 192, 486, 486, 486}},
            {"SKhynix ", {0, 2, 27, 60, 92, 124, 165, 165, 282, 282, 440}},
            {"MICRON  ", {0, 1, 2, 4, 6, 9, 12, 15, 20, 26, 38}},
            {"KIOXIA  ", {0, 0, 9, 14, 29, 62, 105, 183, 429, 486, 512}},
            {"WDC     ", {0, 1, 3, 11, 11, 27, 30, 64, 106, 221, 223}},
            // The first maker named in the text wins, in the order of the tables.
            {"SKhynixWDC", {0, 1, 3, 11, 11, 27, 30, 64, 106, 221, 223}},
            {"KIOXIAWDC", {0, 1, 3, 11, 11, 27, 30, 64, 106, 221, 223}},
            {"WDCMICRON", {0, 1, 2, 4, 6, 9, 12, 15, 20, 26, 38}}};
    start("ufs40:samsung");
    EXPECT_TRUE(service->level_to_num.empty());
    for (const auto& [vendor, levels] : kMakers) {
        set("node.vendor", vendor);
        // What a run has entered goes.
        service->level_to_num[77] = 0;
        EXPECT_EQ(call(kRead), "1024");
        ASSERT_EQ(service->level_to_num.size(), levels.size());
        for (int i = 0; i < 11; ++i) EXPECT_EQ(service->level_to_num[i], levels[i]) << vendor << i;
    }
}

TEST_F(Phone, ReadsTheWearInTheMakersOwnField) {
    // Where the maker keeps its cycles, the digits there and in the bytes written (at 144).
    // clang-format off
    const struct {
        const char* vendor; size_t at; const char *digits, *written; uint32_t cycles;
    } kRows[] = {
            {"SAMSUNG", 156, "01020304", "00000000", 0x01020304},
            {"WDC", 8, "01020304", "00000000", 0x04030201},
            {"MICRON", 24, "01020304", "00000000", 0x01020304},
            {"KIOXIA", 24, "fffffffe", "00000000", 0xfffffffe},
            // The older field of SKhynix, until any byte of what was written is not 0.
            {"SKhynix", 13, "fedc", "00000000", 0xfedc}, {"SKhynix", 8, "dcfe", "01000000", 0xfedc},
            {"SKhynix", 8, "0201", "00010000", 0x0102}, {"SKhynix", 8, "0201", "00000100", 0x0102},
            {"SKhynix", 8, "0201", "00000001", 0x0102}};
    // clang-format on
    // No byte is zero and no two neighbours are alike, so that a reader in the wrong place shows.
    std::string report;
    while (report.size() < 1024) report += "a1b2c3d4e5f69";
    report.resize(1024);
    start("ufs40:samsung");
    EXPECT_EQ(service->pe_cycle, -2);
    for (const auto& row : kRows) {
        set("node.hr", std::string(report)
                               .replace(2 * row.at, strlen(row.digits), row.digits)
                               .replace(2 * 144, 8, row.written));
        const bool has_written = strcmp(row.written, "00000000") != 0;
        expect({{std::string("node.vendor=") + row.vendor, kRead, "1024", "",
                 has_written ? "the tbw != 0" : "!tbw"}});
        EXPECT_EQ(service->pe_cycle, static_cast<int32_t>(row.cycles)) << row.vendor << row.written;
    }
}

/** What is missing or no number in the report repeats the byte before it. */
TEST_F(Phone, DecodesADamagedReport) {
    start("ufs40:samsung");
    const std::tuple<std::string, const char*, uint32_t> kRows[] = {
            {std::string(2 * 155, '0') + "7f", "312", 0x7f7f7f7f},
            {std::string(2 * 156, '0') + "01zz0003", "320", 0x01010003},
            {"", "0", 0},
            {std::string(2 * 156, '0') + "aBcDeF01" + std::string(3000, '5'), "1024", 0xabcdef01}};
    for (const auto& [report, answer, wear] : kRows) {
        expect({{"node.hr=" + report, kRead, answer}});
        EXPECT_EQ(static_cast<uint32_t>(service->pe_cycle), wear);
    }
}

TEST_F(Phone, SupportsADeviceThatIsNotWorn) {
    start("ufs40:samsung");
    // Unknown wear does not refuse, and is asked for again.
    expect({{"node.fbo_support=0", kAsk, "false", "", "!pe_cycle"},
            {"fault.vendor=missing;fault.hr=missing;fault.hr=read-error", kAsk, "true", "",
             "get ufs pecycle info fail"},
            {"fault.hr=read-error", kRead, "-1"},
            {"node.vendor=NOBODY,wear=2400", kAsk, "true", "", "!pecycle info fail"},
            {"node.vendor=NOBODY", kRead, "1024", "", "pe_cycle: -2"},
            {"wear=2399", kAsk, "true", "", "!pecycle info fail;FBO support."},
            {"node.vendor=NOBODY", kRead, "1024", "", "pe_cycle: 2399"},
            // Read once and remembered, as long as both are there.
            {"wear=2400", kAsk, "true", "", "!pe_cycle"}});
    service->level_to_num.clear();
    expect({{";wear=5", kAsk, "false", "", "!FBO support."},
            {"fault.fbo_support=missing", kAsk, "false", "", "Failed to open"}});
    service->pe_cycle = -2;
    expect({{"wear=4294967295", kAsk, "true", "", "pe_cycle: -1"},
            {"", kAsk, "true", "", "!pe_cycle"},
            {"node.fbo_support=0;node.fbo_support=;node.fbo_support= 1;node.fbo_support=2;"
             "fault.fbo_support=read-error",
             kAsk, "false", "", "device does not fbo"},
            {"node.fbo_support=12", kAsk, "true"}});
}

TEST_F(Phone, ReadsGenerationAndLimits) {
    start("ufs40:samsung,ranges=99");
    expect({{"node.is_ufs31=1\n;node.is_ufs31=01;node.is_ufs31= +1x", "FBO_isUFS31", "true", "",
             "3.1 version"},
            {";node.is_ufs31=11;node.is_ufs31=0x1;fault.is_ufs31=unreadable", "FBO_isUFS31",
             "false", "", "!version"},
            {"node.is_ufs31=", "FBO_isUFS31", "invalid_argument"},
            {"", "FBO_Get_MinLBASize", "1"},
            {"node.fbo_min_lrs=4294967296", "FBO_Get_MinLBASize", "out_of_range"},
            {"fault.fbo_min_lrs=missing", "FBO_Get_MinLBASize", "-1"},
            {"", "FBO_Get_MaxLBACount", "0 99"},
            {"node.fbo_max_lrc=-7", "FBO_Get_MaxLBACount", "0 -7"},
            {"node.fbo_max_lrc=many", "FBO_Get_MaxLBACount", "invalid_argument"},
            {"fault.fbo_max_lrc=missing", "FBO_Get_MaxLBACount", "-10 -"}});
}

}  // namespace
