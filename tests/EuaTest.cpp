#include <array>
#include <functional>

#include "Phone.h"
#include "fbo/eua/Policy.h"
#include "fbo/utils/Inquiry.h"
#include "sim/DeviceData.h"

namespace {

using Part = std::array<std::string, 3>;

/** Vendor, part number and revision of parts that are excluded from some phones. */
const Part kParts[] = {{"SKhynix", "HN8T174EJKX075", "X202"},
                       {"SKhynix", "HN8T174EJKX075", "X204"},
                       {"MICRON", "MT256GBEAX4U40", "0203"},
                       {"MICRON", "MT001TAYAX8U40", "0203"},
                       {"KIOXIA", "THGJFLT2E46BATPB", "1100"}};

/** A phone's model, and the row of the table that excludes each of the parts; -1 for none. */
struct Model {
    const char* name;
    std::array<int, std::size(kParts)> rows = {-1, -1, -1, -1, -1};
};

void PrintTo(const Model& model, std::ostream* out) {
    *out << model.name;
}

// clang-format off
const Model kModels[] = {
        // Without the property.
        {""},
        {"tarno", {0, -1, 1, 2, -1}}, {"tarno_eea", {0, -1, 1, 2, -1}}, {"tarn"}, {"xtarno"},
        {"belvane", {3, 3, 3, 3, 3}}, {"belvane_in", {3, 3, 3, 3, 3}}, {"belvan"},
        {"corvi", {4, 4, 4, 4, 4}}, {"corv"}, {"Corvi"},
        {"dravine", {5, 6, -1, -1, -1}}, {"dravin"},
        {"elmscote", {7, -1, -1, -1, 8}}, {"elmscot"},
        {"fenlow", {-1, -1, 9, -1, -1}}, {"fenlo"},
};
// clang-format on

/** A phone is of one model for as long as it is on. */
class Excluded : public Phone, public testing::WithParamInterface<Model> {
  protected:
    void setPart(const Part& part) {
        set("node.inquiry", sim::inquiryData(part[0], part[1], part[2]));
    }
};

TEST_P(Excluded, TurnsBothQueriesAround) {
    const std::string name = GetParam().name;
    start("ufs40:samsung,device=" + name);
    for (size_t i = 0; i < std::size(kParts); ++i) {
        const int row = GetParam().rows[i];
        const bool any_part = row == 3 || row == 4;
        Part part = kParts[i];
        const Part named = any_part ? Part() : part;
        setPart(part);
        const bool match = row >= 0;
        const std::string line = "match (" + std::to_string(row) + "), device (" +
                                 name.substr(0, name.find('_')) + "), vendor (" + named[0] +
                                 "), P/N (" + named[1] + "), Rev (" + named[2];
        expect({{"", "checkDisableEuaPolicy", match ? "true" : "false", "",
                 match ? line : "!match"},
                {"", "EUA_isSupport", match ? "false" : "true"},
                {"", "EUA_SupportSize", match ? "0" : "65536"}});
        if (!match) continue;
        // A part with less of a field is another one.
        for (std::string& field : part) {
            const char last = field.back();
            field.pop_back();
            setPart(part);
            expect({{"", "checkDisableEuaPolicy", any_part ? "true" : "false"}});
            field += last;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, Excluded, testing::ValuesIn(kModels));

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
    events();
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
            {"", erase + '\0' + ":x", "true", unmap + '\0' + "! +10"},
            {"", erase + "5,6:x:3,4", "true", unmap + "5,6 +5 " + unmap + "x! +10"},
            {"fault.eua_file_lba_unmap=write-error", erase + "9,1", "true", unmap + "9,1! +5",
             "!unmap fail"},
            {"fault.eua_file_lba_unmap=missing", erase + "9,1", "false", "", "unmap fail"}});
    EXPECT_EQ(phone().unmapped(), "1,10");
}

TEST_F(Phone, TellsOfEua) {
    start("ufs40:samsung,device=corvi,node.vendor=SAMSUNG");
    call("EUA_GetFreeSpaceAPECycle");
    call("EUA_SendEraseCmd 1,2:3,4");
    EXPECT_EQ(transcriptOf(events()), R"( | eua_support: 1
I EUA_isSupport eua_support is 1
D getUfsInfo vendor_id SAMSUNG , product_id SIMUFS40-S256   , product_rev 0800
D checkDisableEuaPolicy Check Policy match (4), device (corvi), vendor (), P/N (), Rev ()
D EUA_isSupport disable eua policy match, set eua support to false.
D EUA_GetFreeSpaceAPECycle eua_support is 0  | vendor: SAMSUNG
I getUFSPEcycleALevelToNum ufs vendor: SAMSUNG pe_cycle: 120
D EUA_GetFreeSpaceAPECycle GetFreeSpaceAPECycle is 120:0 
D EUA_SendEraseCmd send erase lbaList 1,2:3,4 
D EUA_SendEraseCmd send erase lba 1,2  | eua_file_lba_unmap=1,2 | +5
D EUA_SendEraseCmd send erase lba 3,4  | eua_file_lba_unmap=3,4 | +5)");
}

struct Willing : Fbo {
    Return<bool> EUA_isSupport() override { return true; }
};

TEST_F(Phone, ReportsTheWear) {
    start("ufs40:samsung,wear=3000,device=corvi");
    const std::string report = "EUA_GetFreeSpaceAPECycle";
    // The cycles are read once, if it works, and whether EUA is supported each time.
    expect({{"node.eua_support=x", report, "invalid_argument", "", "!pe_cycle"},
            {"fault.hr=missing", report, "", "",
             "E EUA_GetFreeSpaceAPECycle [FBO-HAL] get ufs;Cycle is  "},
            {"", report, "3000:0", "", "eua_support is 0 ;GetFreeSpaceAPECycle is 3000:0 "},
            {"wear=4000,fault.eua_support=missing", report, "3000:0"}});
    EXPECT_THROW(service->EUA_GetFreeSpaceAPECycle(nullptr), std::bad_function_call);
    // An unknown maker is no failure: the report is of the wear that is not known.
    service->pe_cycle = -2;
    expect({{"node.vendor=NOBODY", report, "-2:0"}});
    // The object itself is asked.
    serve<Willing>();
    expect({{"", report, "4000:1"}});
}

}  // namespace
