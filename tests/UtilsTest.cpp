#include "fbo/utils/Utils.h"

#include <stdexcept>

#include "Phone.h"
#include "sim/Clock.h"

namespace {

const std::string kQcom = "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc";
const std::string kMtk = "/sys/bus/platform/drivers/ufshcd-mtk/112b0000.ufshci";

TEST_F(Phone, FindsTheQualcommControllerOnce) {
    start("ufs40:samsung");
    EXPECT_EQ(getFeatureDevicePath("/ufsfbo/"), kQcom + "/ufsfbo/");
    // Found once, it is not looked for again.
    set("fault.ufshcd-qcom", "missing");
    EXPECT_EQ(getFeatureDevicePath("/ufseua/"), kQcom + "/ufseua/");
    EXPECT_EQ(getFeatureDevicePath(""), kQcom);
    EXPECT_TRUE(events().empty());
}

struct PropertyCase {
    const char* device;
    const std::string& controller;
};

void PrintTo(const PropertyCase& row, std::ostream* out) {
    *out << row.device;
}

class Controller : public Phone, public testing::WithParamInterface<PropertyCase> {};

TEST_P(Controller, IsPickedByTheProperty) {
    start(std::string("ufs40:samsung,") + GetParam().device);
    EXPECT_EQ(getFeatureDevicePath("/ufsfbo/"), GetParam().controller + "/ufsfbo/");
}

INSTANTIATE_TEST_SUITE_P(, Controller,
                         testing::Values(PropertyCase{"platform=mtk", kMtk},
                                         // Not set at all.
                                         PropertyCase{"hardware=", kQcom},
                                         PropertyCase{"platform=mtk,hardware=qcom2", kMtk}));

struct SearchFailure {
    const char* name;
    const char* missing;
    const char* line;
};

void PrintTo(const SearchFailure& row, std::ostream* out) {
    *out << row.missing;
}

class SearchFails : public Phone, public testing::WithParamInterface<SearchFailure> {};

/** A failed search is remembered: every later look-up raises, that of any method too. */
TEST_P(SearchFails, OnceAndForAll) {
    const SearchFailure& row = GetParam();
    start("ufs40:samsung");
    set(std::string("fault.") + row.missing, "missing");
    EXPECT_EQ(getFeatureDevicePath("/ufsfbo/"), std::nullopt);
    EXPECT_EQ(events(), std::vector<std::string>{row.line});
    set(std::string("fault.") + row.missing, "none");
    EXPECT_THROW(getFeatureDevicePath("/ufsfbo/"), std::bad_optional_access);
    EXPECT_THROW(service->FBO_isSupport(), std::bad_optional_access);
    EXPECT_THROW(trigger("1,2,"), std::bad_optional_access);
    EXPECT_TRUE(service->SnapShot_isSupport());
}

INSTANTIATE_TEST_SUITE_P(
        , SearchFails,
        testing::Values(SearchFailure{"NoDriver", "ufshcd-qcom",
                                      "log E getFeatureDevicePath [FBO-HAL] Cannot open "
                                      "/sys/bus/platform/drivers/ufshcd-qcom/, not an UFS device?"},
                        SearchFailure{
                                "NoDevice", "1d84000.ufshc",
                                "log E getFeatureDevicePath [FBO-HAL] Cannot find UFS platform "
                                "device, not an UFS device?"}),
        [](const auto& info) { return info.param.name; });

TEST_F(Phone, ReadsTheFirstWordOfAFile) {
    start("ufs40:samsung");
    const std::string path = kQcom + "/ufsfbo/fbo_min_lrs";
    std::string word = "before";
    const std::pair<std::string, std::string> kTexts[] = {
            {"", "before"},   {" \n\t ", "before"}, {"one\n", "one"}, {"\n\v two three", "two"},
            {"four", "four"},
    };
    for (const auto& [text, expected] : kTexts) {
        set("node.fbo_min_lrs", text);
        EXPECT_TRUE(readFileToString(path, word));
        EXPECT_EQ(word, expected);
    }
    // A word can be longer than what is read at once.
    set("node.fbo_min_lrs", std::string(10000, 'x') + " y");
    EXPECT_TRUE(readFileToString(path, word));
    EXPECT_EQ(word, std::string(10000, 'x'));
    set("fault.fbo_min_lrs", "read-error");
    EXPECT_TRUE(readFileToString(path, word));
    set("fault.fbo_min_lrs", "missing");
    EXPECT_FALSE(readFileToString(path, word));
    EXPECT_EQ(word.size(), 10000u);
    EXPECT_TRUE(logged("E readFileToString Open " + path + " Fail"));
}

TEST_F(Phone, ReadsTheVendorWithItsBlanks) {
    start("ufs40:samsung");
    std::string vendor = "before";
    EXPECT_EQ(getUFSVendor(vendor), 9);
    EXPECT_EQ(vendor, "SAMSUNG \n");
    set("node.vendor", "ABCDEFGHIJKLM");
    EXPECT_EQ(getUFSVendor(vendor), 10);
    EXPECT_EQ(vendor, "ABCDEFGHIJ");
    set("fault.vendor", "read-error");
    EXPECT_EQ(getUFSVendor(vendor), -1);
    EXPECT_TRUE(logged("E getUFSVendor [FBO-HAL] UFS Vendor node read fail"));
    set("fault.vendor", "missing");
    EXPECT_EQ(getUFSVendor(vendor), -1);
    EXPECT_TRUE(logged("E getUFSVendor [FBO-HAL] UFS Vendor node open fail"));
    EXPECT_EQ(vendor, "ABCDEFGHIJ");
}

TEST_F(Phone, NamesTheMapperOfUserdata) {
    start("ufs40:samsung");
    EXPECT_EQ(get_userdata_mapper(), "dm-5");
    EXPECT_EQ(events(), std::vector<std::string>{
                                "log I get_userdata_mapper [FBO-HAL] userdata: /dev/block/dm-5."});
    set("userdata", "dm-6");
    EXPECT_EQ(get_userdata_mapper(), "dm-6");
    set("userdata", "/" + std::string(509, 'x'));
    EXPECT_EQ(get_userdata_mapper(), std::string(509, 'x'));
    events();
    set("userdata", "/" + std::string(510, 'x'));
    EXPECT_EQ(get_userdata_mapper(), "");
    set("fault.userdata", "missing");
    EXPECT_EQ(get_userdata_mapper(), "");
    EXPECT_EQ(events(),
              std::vector<std::string>(2, "log E get_userdata_mapper [FBO-HAL] readlink fail."));
}

TEST_F(Phone, MeasuresTheFreeSpace) {
    start("ufs40:samsung");
    struct {
        int total;
        int free;
        int nominal;
        int ratio;
    } const kRows[] = {{31, 30, 0, 0},    {32, 31, 64, 48},       {60, 16, 64, 25},
                       {64, 64, 128, 50}, {230, 80, 256, 31},     {256, 0, 512, 0},
                       {512, 1, 1024, 0}, {1023, 1000, 1024, 97}, {1024, 900, 0, 0}};
    for (const auto& row : kRows) {
        set("userdata_gib", std::to_string(row.total));
        set("userdata_free_gib", std::to_string(row.free));
        EXPECT_EQ(getUserFreeSpaceInfo(), row.ratio);
        EXPECT_TRUE(logged("I getUserFreeSpaceInfo [UTILS-HAL] freeSizeG:" +
                           std::to_string(row.free) + ", totalSizeG:" + std::to_string(row.total) +
                           ", ufssize:" + std::to_string(row.nominal) +
                           ", ratio:" + std::to_string(row.ratio)));
    }
    set("fault.0", "missing");
    EXPECT_EQ(getUserFreeSpaceInfo(), 0);
    EXPECT_TRUE(logged("E getUserFreeSpaceInfo [UTILS-HAL] getUserSpaceInfo fail."));
}

TEST_F(Phone, DropsThePageCache) {
    start("ufs40:samsung");
    EXPECT_EQ(drop_caches(0), 0);
    EXPECT_EQ(drop_caches(-1), 0);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(drop_caches(2), 0);
    EXPECT_EQ(events(), lines("write drop_caches \"3\\n\"\nsleep 1\n"
                              "write drop_caches \"3\\n\"\nsleep 1"));
    set("fault.drop_caches", "write-error");
    EXPECT_EQ(drop_caches(1), 0);
    set("fault.drop_caches", "unwritable");
    EXPECT_EQ(drop_caches(1), -1);
    EXPECT_TRUE(logged("E drop_caches [UTILS-HAL] drop_caches fail"));
}

TEST_F(Phone, SpinsUntilTheTimeHasPassed) {
    start("ufs40:samsung");
    sim::setTick(1);
    delay_work_timer(3);
    EXPECT_EQ(events(),
              lines("log I delay_work_timer [FBO-HAL] start time: 1700000001, delay time is 3\n"
                    "log I delay_work_timer [FBO-HAL] current time is 1700000004.\n"
                    "log I delay_work_timer [FBO-HAL] delay work exit"));
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
