#include <functional>

#include "Phone.h"
#include "fbo/eua/Policy.h"
#include "fbo/utils/Inquiry.h"
#include "sim/DeviceData.h"

namespace {

/** A phone, fields of its INQUIRY data, and the row of the table that matches; -1 for none. */
struct Exclusion {
    const char *device, *vendor, *product, *revision;
    int row;
};

void PrintTo(const Exclusion& exclusion, std::ostream* out) {
    *out << exclusion.device << " " << exclusion.vendor << " " << exclusion.revision;
}

// clang-format off
const Exclusion kExclusions[] = {
        // Without the property.
        {"", "MICRON", "MT256GBEAX4U40", "0203", -1},
        {"tarno", "SKhynix", "HN8T174EJKX075", "X202", 0},
        {"tarno", "SKhynix", "HN8T174EJKX075", "X204", -1},
        {"tarno", "MICRON", "MT256GBEAX4U40", "0203", 1},
        {"tarno_eea", "MICRON", "MT001TAYAX8U40", "0203", 2},
        {"tarn", "MICRON", "MT001TAYAX8U40", "0203", -1},
        {"belvane", "", "", "", 3}, {"belvane_in", "SAMSUNG", "SIMUFS40-S256", "0800", 3},
        {"corvi", "WDC", "x", "y", 4}, {"Corvi", "WDC", "x", "y", -1},
        {"dravine", "SKhynix", "HN8T174EJKX075", "X202", 5},
        {"dravine", "SKhynix", "HN8T174EJKX075xx", "X204", 6},
        {"dravine", "SKhynix", "HN8T174EJKX07", "X204", -1},
        {"elmscote", "SKhynix", "HN8T174EJKX075", "X202", 7},
        {"elmscote", "KIOXIA", "THGJFLT2E46BATPB", "1100", 8},
        {"elmscote", "MICRON", "THGJFLT2E46BATPB", "1100", -1},
        {"fenlow", "MICRON", "MT256GBEAX4U40", "0203", 9},
        {"xtarno", "SKhynix", "HN8T174EJKX075", "X202", -1},
        {"belvan", "", "", "", -1}, {"corv", "WDC", "x", "y", -1},
        {"dravin", "SKhynix", "HN8T174EJKX075", "X204", -1},
        {"dravine", "SKhynix", "HN8T174EJKX07", "X202", -1},
        {"elmscot", "KIOXIA", "THGJFLT2E46BATPB", "1100", -1},
        {"fenlo", "MICRON", "MT256GBEAX4U40", "0203", -1},
        {"fenlow", "MICRON", "MT256GBEAX4U4", "0203", -1},
};
// clang-format on

/** A phone is of one model for as long as it is on. */
class Excluded : public Phone, public testing::WithParamInterface<Exclusion> {};

TEST_P(Excluded, TurnsBothQueriesAround) {
    const Exclusion& exclusion = GetParam();
    start(std::string("ufs40:samsung,device=") + exclusion.device);
    set("node.inquiry", sim::inquiryData(exclusion.vendor, exclusion.product, exclusion.revision));
    const bool match = exclusion.row >= 0;
    const std::string log = match ? "match (" + std::to_string(exclusion.row) + "), " : "!match";
    expect({{"", "checkDisableEuaPolicy", match ? "true" : "false", "", log},
            {"", "EUA_isSupport", match ? "false" : "true", "",
             match ? "set eua support to false." : "!set eua"},
            {"", "EUA_SupportSize", match ? "0" : "65536", "",
             match ? "set support size to 0." : "!set support"}});
}

INSTANTIATE_TEST_SUITE_P(, Excluded, testing::ValuesIn(kExclusions));

TEST_F(Phone, NamesTheFieldsOfTheRow) {
    start("ufs40:samsung,device=fenlow");
    set("node.inquiry", sim::inquiryData("MICRON", "MT256GBEAX4U40", "0203"));
    expect({{"", "checkDisableEuaPolicy", "true", "",
             "match (9), device (fenlow), vendor (MICRON), P/N (MT256GBEAX4U40), Rev (0203)"}});
}

TEST_F(Phone, AsksForTheSupportBeforeThePolicy) {
    start("ufs40:samsung,device=corvi");
    // And a size that cannot be read ends the query.
    expect({{"eua=0", "EUA_isSupport", "false", "", "!Policy;eua_support is 0"},
            {"fault.eua_support_size=missing", "EUA_SupportSize", "0", "",
             "!Policy;Open eua_support_size file"},
            {"fault.eua_support=missing", "EUA_isSupport", "false", "",
             "!Policy;Open eua_support file"}});
}

TEST_F(Phone, ReadsTheInquiryByteForByte) {
    start("ufs40:samsung");
    standard_inquiry info{"a", "b", "c"};
    set("node.inquiry", sim::inquiryData("SK\nhynix", "HN8T174EJKX075", "\t1") + "more");
    EXPECT_EQ(getUfsInfo(info), 0);
    EXPECT_EQ(logOf(events()),
              "D getUfsInfo [EUA-HAL] vendor_id SK\nhynix, product_id HN8T174EJKX075  , "
              "product_rev \t1  \n");
    EXPECT_EQ(info.vendor_id, "SK\nhynix");
    EXPECT_EQ(info.product_id, "HN8T174EJKX075  ");
    EXPECT_EQ(info.product_rev, "\t1  ");
    set("node.inquiry", std::string(35, '\0'));
    EXPECT_EQ(getUfsInfo(info), 5);
    EXPECT_EQ(logOf(events()), "D getUfsInfo [EUA-HAL] inquiryResult size 35\n");
    set("fault.inquiry", "read-error");
    EXPECT_EQ(getUfsInfo(info), 5);
    set("fault.inquiry", "missing");
    EXPECT_EQ(getUfsInfo(info), 10);
    EXPECT_EQ(info.product_id, "HN8T174EJKX075  ");
    // A part that cannot be identified is not excluded.
    expect({{"", "checkDisableEuaPolicy", "false", "", "getUfsInfo fail."},
            {"", "EUA_isSupport", "true"}});
}

TEST_F(Phone, EuaAnswersAreNumbers) {
    start("ufs40:samsung");
    expect({{"node.eua_support=01 2", "EUA_isSupport", "true"},
            {"node.eua_support=2", "EUA_isSupport", "false"},
            {"node.eua_support=;node.eua_support=yes", "EUA_isSupport", "invalid_argument"},
            {"node.eua_support_size=-7x", "EUA_SupportSize", "-7"},
            {"node.eua_support_size=0x10", "EUA_SupportSize", "0", "", "eua_support_size is 0x10"},
            {"node.eua_support_size=;node.eua_support_size=x", "EUA_SupportSize",
             "invalid_argument"},
            {"node.eua_support_size=2147483648", "EUA_SupportSize", "out_of_range"}});
}

TEST_F(Phone, EraseListsAreSplitAtColons) {
    start("ufs40:samsung");
    const std::string unmap = "eua_file_lba_unmap=";
    const std::string erase = "EUA_SendEraseCmd ";
    expect({{"", erase, "true", "", "!erase lba "},
            {"", erase + "1,2", "true", unmap + "1,2 +5", "erase lbaList 1,2 ;erase lba 1,2 "},
            {"", erase + "1,2:3,4", "true", unmap + "1,2 +5 " + unmap + "3,4 +5"},
            {"", erase + "1,2:3,4:", "true", unmap + "1,2 +5 " + unmap + "3,4 +5"},
            // An empty item is one, which the device refuses. What it has refused does not reach it
            // again, when the blocks may be in use, nor do the items behind. The pauses stay.
            {"", erase + ":", "true", unmap + "! +5"},
            {"", erase + "::", "true", unmap + "! +10", "erase lba  "},
            {"", erase + ":1,2", "true", unmap + "! +10"},
            {"", erase + "1,2::3,4", "true", unmap + "1,2 +5 " + unmap + "! +10"},
            {"", erase + "5,6:x:3,4", "true", unmap + "5,6 +5 " + unmap + "x! +10"},
            {"fault.eua_file_lba_unmap=write-error", erase + "9,1", "true", unmap + "9,1! +5",
             "!unmap fail"},
            {"fault.eua_file_lba_unmap=missing", erase + "9,1", "false", "", "unmap fail"}});
    EXPECT_EQ(phone().unmapped(), "1,10");
}

struct Willing : Fbo {
    Return<bool> EUA_isSupport() override { return true; }
};

TEST_F(Phone, ReportsTheWear) {
    start("ufs40:samsung,wear=3000,device=corvi");
    const std::string report = "EUA_GetFreeSpaceAPECycle";
    // The cycles are read once, if it works, and whether EUA is supported each time.
    expect({{"fault.hr=missing", report, "", "",
             "E EUA_GetFreeSpaceAPECycle [FBO-HAL] get ufs;Cycle is  "},
            {"", report, "3000:0", "", "eua_support is 0 ;GetFreeSpaceAPECycle is 3000:0 "},
            {"wear=4000,fault.eua_support=missing", report, "3000:0"},
            {"node.eua_support=x", report, "invalid_argument"}});
    EXPECT_THROW(service->EUA_GetFreeSpaceAPECycle(nullptr), std::bad_function_call);
    // An unknown maker is no failure: the report is of the wear that is not known.
    service->pe_cycle = -2;
    expect({{"node.vendor=NOBODY", report, "-2:0"}});
    // The object itself is asked.
    serve<Willing>();
    expect({{"", report, "4000:1"}});
}

}  // namespace
