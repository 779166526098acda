#include "fbo/utils/Utils.h"

#include "Phone.h"
#include "sim/Clock.h"

namespace {

int syncs = 0;

}  // namespace

/** The library's sync(2). */
extern "C" void sync() {
    ++syncs;
}

namespace {

const std::string kQcom = "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc";
const std::string kMtk = "/sys/bus/platform/drivers/ufshcd-mtk/112b0000.ufshci/ufsfbo/";
const std::string kFind = "getFeatureDevicePath /ufsfbo/";

INSTANTIATE_TEST_SUITE_P(Controller, FreshPhone,
                         testing::Values(Row{"ufs40:samsung,platform=mtk", kFind, kMtk},
                                         // The property is not set at all.
                                         Row{"ufs40:samsung,hardware=", kFind, kQcom + "/ufsfbo/"},
                                         Row{"ufs40:samsung,platform=mtk,hardware=qcom2", kFind,
                                             kMtk}));

TEST_F(Phone, FindsTheControllerOnce) {
    start("ufs40:samsung");
    expect({{"", kFind, kQcom + "/ufsfbo/"},
            {"fault.ufshcd-qcom=missing", "getFeatureDevicePath /ufseua/", kQcom + "/ufseua/"},
            {"", "getFeatureDevicePath ", kQcom}});
}

constexpr char kNoDriver[] = "ufs40:samsung,fault.ufshcd-qcom=missing";
constexpr char kNoDevice[] = "ufs40:samsung,fault.1d84000.ufshc=missing";

class NoController : public FreshPhone {};

/** What each function makes of it. A failed search is remembered: every later look-up raises. */
TEST_P(NoController, IsAnAnswerOnce) {
    const Row& row = GetParam();
    start(row.settings);
    expect({{"", row.call, row.answer, "", row.log}});
    set("fault.ufshcd-qcom=none,fault.1d84000.ufshc=none");
    expect({{"", row.call, "bad_optional_access"}, {"", "SnapShot_isSupport", "true"}});
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(, NoController, testing::ValuesIn(std::vector<Row>{
        {kNoDriver, kFind, "none", "", "E getFeatureDevicePath [FBO-HAL] Cannot open /sys"},
        {kNoDevice, kFind, "none", "", "E getFeatureDevicePath [FBO-HAL] Cannot find"},
        {kNoDriver, "FBO_isSupport", "false"}, {kNoDriver, "FBO_isUFS31", "false"},
        {kNoDriver, "FBO_Get_MaxLBACount", "0 -"},
        {kNoDriver, "FBO_Get_MinLBASize", "invalid_argument"},
        {kNoDriver, "UFS40_FBO_Imp 1,2", "0 - -"}, {kNoDriver, "UFS31_FBO_Imp 1,2", "0 - -"},
        {kNoDriver, "record_cmd_fail fbo_err_cnt|1", ""},
        // "Supported", and then nothing to do.
        {kNoDriver, "FBO2_Support_Linear_Mapping", "true - -"},
        {kNoDriver, "FBO2_Linear_Mapping 1|2", "0"},
        // Only the trigger's first look-up is answered; that of the zone raises.
        {kNoDriver, "FBO_trigger 1,2,", "bad_optional_access", "", "fbo_max_lrc is 0."},
        {kNoDriver, "EUA_isSupport", "false"}, {kNoDriver, "EUA_SendEraseCmd 1,2", "false"},
        {kNoDriver, "EUA_SupportSize", "bad_optional_access"},
        {kNoDriver, "EUA_GetFreeSpaceAPECycle", "", "", "GetFreeSpaceAPECycle is  "},
        {kNoDriver, "checkDisableEuaPolicy", "false"}, {kNoDriver, "SnapShot_getStatus", "0"},
        {kNoDriver, "SnapShot_startBackup", "false"}, {kNoDriver, "SnapShot_startDrop", "false"},
}));
// clang-format on

TEST_F(Phone, ReadsTheFirstWordOfAFile) {
    start("ufs40:samsung");
    const std::string read = "readFileToString " + kQcom + "/ufsfbo/fbo_min_lrs";
    const std::string text = "node.fbo_min_lrs=";
    // A node gives less than a page.
    const std::string word(4095, 'x');
    expect({{text + ";" + text + " \n\t ;fault.fbo_min_lrs=read-error", read, "true -"},
            {text + "one\n", read, "true one"},
            {text + "\n\v two three", read, "true two"},
            {text + "four\f5;" + text + "four\v5;" + text + "four\r\n", read, "true four"},
            {text + word + "y", read, "true " + word},
            {"fault.fbo_min_lrs=missing", read, "false -", "", "E readFileToString Open /sys"}});
    // A word of another file can be longer than what is read at once.
    std::string list = "1,1";
    for (int i = 10000; i < 11000; ++i) list += "," + std::to_string(2 * i) + ",1";
    phone().setOptimised(list);
    expect({{"", "readFileToString /.sim/optimised", "true " + list}});
}

TEST_F(Phone, ReadsVendorAndVolume) {
    start("ufs40:samsung");
    const std::string link(509, 'x');
    expect({{"", "getUFSVendor", "9 SAMSUNG \n"},
            {"node.vendor=ABCDEFGHIJKLM", "getUFSVendor", "10 ABCDEFGHIJ"},
            {"node.vendor=AB\\x00CD", "getUFSVendor", "5 AB"},
            {"fault.vendor=read-error", "getUFSVendor", "-1 -", "", "node read fail"},
            {"fault.vendor=missing", "getUFSVendor", "-1 -", "", "node open fail"},
            {"", "get_userdata_mapper", "dm-5", "", "userdata: /dev/block/dm-5."},
            {"userdata=dm-6", "get_userdata_mapper", "dm-6"},
            {"userdata=/" + link, "get_userdata_mapper", link},
            {"userdata=/x" + link, "get_userdata_mapper", "", "", "readlink fail"},
            {"fault.userdata=missing", "get_userdata_mapper", "", "", "readlink fail"}});
}

TEST_F(Phone, MeasuresTheFreeSpace) {
    start("ufs40:samsung");
    // Size and free space in GiB, the size that they are reckoned to be of, and the percentage.
    const struct {
        int total, free, nominal, ratio;
    } kRows[] = {{31, 30, 0, 0},    {32, 31, 64, 48},       {60, 16, 64, 25},
                 {64, 64, 128, 50}, {230, 80, 256, 31},     {256, 0, 512, 0},
                 {512, 1, 1024, 0}, {1023, 1000, 1024, 97}, {1024, 900, 0, 0}};
    for (const auto& row : kRows) {
        set("userdata_gib", std::to_string(row.total));
        set("userdata_free_gib", std::to_string(row.free));
        expect({{"", "getUserFreeSpaceInfo", std::to_string(row.ratio), "",
                 "freeSizeG:" + std::to_string(row.free) + ", totalSizeG:" +
                         std::to_string(row.total) + ", ufssize:" + std::to_string(row.nominal) +
                         ", ratio:" + std::to_string(row.ratio)}});
    }
    expect({{"fault.0=missing", "getUserFreeSpaceInfo", "0", "", "getUserSpaceInfo fail."}});
}

TEST_F(Phone, DropsThePageCacheAndSpins) {
    start("ufs40:samsung");
    expect({{"", "drop_caches 0;drop_caches -1", "0"},
            {"", "drop_caches 2", "0", "(drop_caches=3 +1)*2"},
            {"fault.drop_caches=write-error", "drop_caches 1", "0", "drop_caches=3! +1"},
            {"fault.drop_caches=unwritable", "drop_caches 1", "-1"}});
    EXPECT_EQ(syncs, 3);
    sim::setTick(2);
    expect({{"", "delay_work_timer 3", "", "",
             "start time: 1700000005, delay time is 3;current time is 1700000009."},
            {"", "delay_work_timer 4", "", "", "current time is 1700000015."}});
}

TEST_F(Phone, TheServiceIsCastToItsInterfaceAndAStrangerIsNot) {
    using android::hidl::base::V1_0::IBase;
    start("ufs40:samsung");
    const android::sp<IBase> base = service;
    EXPECT_EQ(android::sp<IFbo>(IFbo::castFrom(base)), service);
    const android::sp<IBase> stranger = new IBase;
    EXPECT_EQ(android::sp<IFbo>(IFbo::castFrom(stranger)), nullptr);
    EXPECT_EQ(android::sp<IFbo>(IFbo::castFrom(android::sp<IBase>())), nullptr);
}

}  // namespace
