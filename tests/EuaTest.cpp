#include <stdexcept>

#include "Phone.h"
#include "fbo/utils/Inquiry.h"
#include "fbo/eua/Policy.h"

namespace {

/** INQUIRY data with these fields, filled up with blanks. */
std::string inquiry(std::string vendor, std::string product, std::string revision) {
    vendor.resize(8, ' ');
    product.resize(16, ' ');
    revision.resize(4, ' ');
    return std::string("\0\0\6\2\37\0\0\2", 8) + vendor + product + revision;
}

struct PolicyCase {
    const char* device;
    const char* vendor;
    const char* product;
    const char* revision;
    /** The row that matches; -1 for none. */
    int row;
};

void PrintTo(const PolicyCase& row, std::ostream* out) {
    *out << row.device << " " << row.vendor << " " << row.product << " " << row.revision;
}

class EuaPolicy : public Phone, public testing::WithParamInterface<PolicyCase> {};

/** A match turns both queries around; without one the driver's answers stand. */
TEST_P(EuaPolicy, DisablesPhonesAndParts) {
    const PolicyCase& row = GetParam();
    start(std::string("ufs40:samsung,device=") + row.device);
    set("node.inquiry", inquiry(row.vendor, row.product, row.revision));
    const bool match = row.row >= 0;
    EXPECT_EQ(checkDisableEuaPolicy(), match);
    const std::string start = "D Check Policy match (" + std::to_string(row.row) + "), device (";
    const std::vector<std::string> story = this->story("checkDisableEuaPolicy");
    EXPECT_EQ(story.size(), match ? 2u : 1u);
    EXPECT_EQ(story.back().substr(0, start.size()) == start, match);

    EXPECT_EQ(service->EUA_isSupport(), !match);
    EXPECT_EQ(service->EUA_SupportSize(), match ? 0 : 65536);
    EXPECT_EQ(logged("D EUA_isSupport [EUA-HAL] disable eua policy match, set eua support to "
                     "false."),
              match);
    EXPECT_EQ(logged("D EUA_SupportSize [EUA-HAL] disable eua policy match, set support size to "
                     "0."),
              match);
}

// clang-format off
const PolicyCase kPolicies[] = {
        {"tarno", "SKhynix", "HN8T174EJKX075", "X202", 0},
        {"tarno", "SKhynix", "HN8T174EJKX075", "X204", -1},
        {"tarno", "MICRON", "MT256GBEAX4U40", "0203", 1},
        {"tarno_eea", "MICRON", "MT001TAYAX8U40", "0203", 2},
        {"tarn", "MICRON", "MT001TAYAX8U40", "0203", -1},
        {"belvane", "", "", "", 3},
        {"belvane_in", "SAMSUNG", "SIMUFS40-S256", "0800", 3},
        {"corvi", "WDC", "x", "y", 4},
        {"Corvi", "WDC", "x", "y", -1},
        {"dravine", "SKhynix", "HN8T174EJKX075", "X202", 5},
        {"dravine", "SKhynix", "HN8T174EJKX075xx", "X204", 6},
        {"dravine", "SKhynix", "HN8T174EJKX07", "X204", -1},
        {"elmscote", "SKhynix", "HN8T174EJKX075", "X202", 7},
        {"elmscote", "KIOXIA", "THGJFLT2E46BATPB", "1100", 8},
        {"elmscote", "MICRON", "THGJFLT2E46BATPB", "1100", -1},
        {"fenlow", "MICRON", "MT256GBEAX4U40", "0203", 9},
        // Without the property.
        {"", "MICRON", "MT256GBEAX4U40", "0203", -1},
        {"xtarno", "SKhynix", "HN8T174EJKX075", "X202", -1},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, EuaPolicy, testing::ValuesIn(kPolicies));

TEST_F(Phone, ReadsTheInquiryByteForByte) {
    start("ufs40:samsung");
    standard_inquiry info{"a", "b", "c"};
    set("node.inquiry", inquiry("SK\nhynix", "HN8T174EJKX075", "\t1") + "more");
    EXPECT_EQ(getUfsInfo(info), 0);
    EXPECT_EQ(info.vendor_id, "SK\nhynix");
    EXPECT_EQ(info.product_id, "HN8T174EJKX075  ");
    EXPECT_EQ(info.product_rev, "\t1  ");
    EXPECT_TRUE(
            logged("D getUfsInfo [EUA-HAL] vendor_id SK|hynix, product_id HN8T174EJKX075  , "
                   "product_rev \t1  "));
    set("node.inquiry", std::string(35, '\0'));
    EXPECT_EQ(getUfsInfo(info), 5);
    EXPECT_TRUE(logged("D getUfsInfo [EUA-HAL] inquiryResult size 35"));
    set("fault.inquiry", "read-error");
    EXPECT_EQ(getUfsInfo(info), 5);
    set("fault.inquiry", "missing");
    EXPECT_EQ(getUfsInfo(info), 10);
    EXPECT_TRUE(logged("E getUfsInfo [EUA-HAL] Open inquiryNode file failure"));
    EXPECT_EQ(info.product_id, "HN8T174EJKX075  ");
    // Who cannot be identified is not disabled.
    EXPECT_FALSE(checkDisableEuaPolicy());
    EXPECT_TRUE(logged("E checkDisableEuaPolicy [EUA-HAL] getUfsInfo fail."));
    EXPECT_TRUE(service->EUA_isSupport());
}

/** The two queries ask for the policy in orders of their own. */
TEST_F(Phone, EuaQueriesAskForThePolicyInTheirOwnOrder) {
    start("ufs40:samsung,device=corvi,eua=0");
    EXPECT_FALSE(service->EUA_isSupport());
    EXPECT_EQ(events(), lines("read eua_support \"0\\n\"\n"
                              "log I EUA_isSupport [EUA-HAL] eua_support is 0"));
    set("fault.eua_support_size", "missing");
    EXPECT_EQ(service->EUA_SupportSize(), 0);
    EXPECT_EQ(events(),
              lines("log E EUA_SupportSize [EUA-HAL] Open eua_support_size file failure"));
    set("fault.eua_support", "missing");
    EXPECT_FALSE(service->EUA_isSupport());
    EXPECT_EQ(events(), lines("log E EUA_isSupport [EUA-HAL] Open eua_support file failure"));
}

TEST_F(Phone, EuaAnswersAreNumbers) {
    start("ufs40:samsung");
    set("node.eua_support", "01 2");
    EXPECT_TRUE(service->EUA_isSupport());
    set("node.eua_support_size", "-7x");
    EXPECT_EQ(service->EUA_SupportSize(), -7);
    set("node.eua_support_size", "0x10");
    EXPECT_EQ(service->EUA_SupportSize(), 0);
    EXPECT_TRUE(logged("I EUA_SupportSize [EUA-HAL] eua_support_size is 0x10"));
    for (const char* text : {"", "yes"}) {
        set("node.eua_support", text);
        set("node.eua_support_size", text);
        EXPECT_THROW(service->EUA_isSupport(), std::invalid_argument);
        EXPECT_THROW(service->EUA_SupportSize(), std::invalid_argument);
    }
    set("node.eua_support_size", "2147483648");
    EXPECT_THROW(service->EUA_SupportSize(), std::out_of_range);
}

/** Without a controller one query says no and the other raises. */
TEST_F(Phone, EuaSizeRaisesWithoutAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    EXPECT_THROW(service->EUA_SupportSize(), std::bad_optional_access);
}

TEST_F(Phone, EuaIsNotSupportedWithoutAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    EXPECT_FALSE(service->EUA_isSupport());
}

/** How a list falls into items. The device takes none of these, so only the log tells. */
TEST_F(Phone, EraseListsAreSplitAtColons) {
    start("ufs40:samsung");
    const std::pair<const char*, std::vector<std::string>> kRows[] = {{"", {}},
                                                                      {"a", {"a "}},
                                                                      {"a:b", {"a ", "b "}},
                                                                      {"a:b:", {"a ", "b "}},
                                                                      {"a::b", {"a ", " ", "b "}},
                                                                      {":a", {" ", "a "}},
                                                                      {":", {" "}},
                                                                      {"::", {" ", " "}}};
    for (const auto& [list, items] : kRows) {
        EXPECT_TRUE(service->EUA_SendEraseCmd(list));
        EXPECT_EQ(events("log D EUA_SendEraseCmd [EUA-HAL] send erase lba "), items) << list;
    }
}

/**
 * After an item that the device refuses nothing of the list reaches it: not that item again, whose
 * blocks may be in use by then, nor those behind it. The pauses stay.
 */
TEST_F(Phone, EraseEndsForTheDeviceAtAnItemThatItRefuses) {
    start("ufs40:samsung");
    EXPECT_TRUE(service->EUA_SendEraseCmd("100,8:x:200,16"));
    EXPECT_EQ(story("EUA_SendEraseCmd"), lines(R"(D send erase lbaList 100,8:x:200,16 
D send erase lba 100,8 
write eua_file_lba_unmap "100,8\n"
sleep 5
D send erase lba x 
write eua_file_lba_unmap "x\n" Invalid argument
sleep 5
D send erase lba 200,16 
sleep 5)"));
}

TEST_F(Phone, EraseUnmapsWhatTheDeviceTakes) {
    start("ufs40:samsung");
    phone().setOptimised("96,8,104,4,300,8");
    service->EUA_SendEraseCmd("100,8:200,16");
    EXPECT_EQ(phone().unmapped(), "100,8,200,16");
    EXPECT_EQ(phone().optimised(), "96,4,300,8");
    set("fault.eua_file_lba_unmap", "write-error");
    EXPECT_TRUE(service->EUA_SendEraseCmd("300,8"));
    events();
    set("fault.eua_file_lba_unmap", "missing");
    EXPECT_FALSE(service->EUA_SendEraseCmd("400,8"));
    EXPECT_EQ(events(), lines("log E EUA_SendEraseCmd [EUA-HAL] open eua_file_lba_unmap fail"));
    EXPECT_EQ(phone().unmapped(), "100,8,200,16");
}

std::string wear(Fbo& service) {
    std::string report = "none";
    service.EUA_GetFreeSpaceAPECycle([&](const hidl_string& text) { report = text; });
    return report;
}

TEST_F(Phone, ReportsTheWear) {
    start("ufs40:samsung,wear=3000,device=corvi");
    EXPECT_EQ(wear(*service), "3000:0");
    EXPECT_EQ(story("EUA_GetFreeSpaceAPECycle").back(), "D GetFreeSpaceAPECycle is 3000:0 ");
    // The cycles are read once, whether EUA is supported each time.
    set("wear", "4000");
    set("product", "other");
    EXPECT_EQ(wear(*service), "3000:0");
    EXPECT_EQ(events("read hr").size(), 0u);
    set("node.eua_support", "x");
    EXPECT_THROW(wear(*service), std::invalid_argument);
    EXPECT_THROW(service->EUA_GetFreeSpaceAPECycle(nullptr), std::exception);
}

TEST_F(Phone, ReportsNothingWithoutTheWear) {
    start("ufs40:samsung");
    set("fault.hr", "missing");
    EXPECT_EQ(wear(*service), "");
    EXPECT_EQ(tail(events("log "), 4),
              lines("D EUA_GetFreeSpaceAPECycle [EUA-HAL] eua_support is 1 \n"
                    "E getUFSPEcycleALevelToNum [FBO-HAL] ufs hr node open fail\n"
                    "E EUA_GetFreeSpaceAPECycle [FBO-HAL] get ufs pecycle info fail\n"
                    "D EUA_GetFreeSpaceAPECycle [EUA-HAL] GetFreeSpaceAPECycle is  "));
    set("fault.hr", "none");
    set("fault.eua_support", "missing");
    EXPECT_EQ(wear(*service), "120:0");
    // An unknown maker is no failure: the report is of the wear that is not known.
    service->pe_cycle = -2;
    set("node.vendor", "NOBODY");
    EXPECT_EQ(wear(*service), "-2:0");
}

TEST_F(Phone, ReportsNothingWithoutAController) {
    start("ufs40:samsung,fault.ufshcd-qcom=missing");
    EXPECT_EQ(wear(*service), "");
    EXPECT_TRUE(logged("D EUA_GetFreeSpaceAPECycle [EUA-HAL] GetFreeSpaceAPECycle is  "));
}

struct Willing : Fbo {
    Return<bool> EUA_isSupport() override { return true; }
};

TEST_F(Phone, TheWearReportAsksTheObjectItself) {
    start("ufs40:samsung,device=corvi");
    const android::sp<Willing> willing = serve<Willing>();
    EXPECT_EQ(wear(*willing), "120:1");
}

}  // namespace
