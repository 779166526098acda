#include <stdexcept>

#include "Phone.h"

namespace {

struct VersionCase {
    const char* text;
    bool on;
    /** The items that are logged, each closed by a "|". */
    const char* items;
};

void PrintTo(const VersionCase& row, std::ostream* out) {
    *out << row.text;
}

class VersionControl : public Phone, public testing::WithParamInterface<VersionCase> {};

TEST_P(VersionControl, WalksTheItems) {
    const VersionCase& row = GetParam();
    start("ufs40:samsung");
    EXPECT_EQ(service->FBO_VersionCtrl(row.text), row.on);
    std::string items;
    const std::string item = "log I FBO_VersionCtrl [FBO-HAL] FBO fbo_version_ctrl ";
    for (const std::string& line : events(item)) {
        if (line.compare(0, 3, "is ") != 0) items += line.substr(0, line.size() - 1) + "|";
    }
    EXPECT_EQ(items, row.items);
}

INSTANTIATE_TEST_SUITE_P(
        , VersionControl,
        testing::Values(
                VersionCase{"", true, ""}, VersionCase{"1.0:ON", true, "1.0:ON|"},
                VersionCase{"1.0:OFF", false, "1.0:OFF|"}, VersionCase{"ON:1.0", false, "ON:1.0|"},
                VersionCase{"ON", false, "ON|"}, VersionCase{"O,N", false, "O|N|"},
                VersionCase{">0.9:ON", true, ">0.9:ON|"}, VersionCase{">1.0:ON", false, ">1.0:ON|"},
                VersionCase{">1.1:ON", false, ">1.1:ON|"},
                // Texts are compared, not numbers.
                VersionCase{">1:ON", true, ">1:ON|"}, VersionCase{">10:ON", false, ">10:ON|"},
                VersionCase{">0.10:ON", true, ">0.10:ON|"}, VersionCase{">:ON", true, ">:ON|"},
                VersionCase{":ON", false, ":ON|"}, VersionCase{"1.0 ON", false, "1.0 ON|"},
                VersionCase{"1.0:xONx", true, "1.0:xONx|"},
                // The first match decides.
                VersionCase{"2.0:ON,1.0:ON,0.9:ON", true, "2.0:ON|1.0:ON|"},
                VersionCase{"2.0:ON,,a", false, "2.0:ON||a|"},
                // A comma in the first place belongs to the first item.
                VersionCase{",1.0:ON", false, ",1.0:ON|"}, VersionCase{",", false, ",|"},
                VersionCase{",,1.0:ON", true, ",|1.0:ON|"},
                VersionCase{"V:1.0,1.0:ON", true, "V:1.0|1.0:ON|"},
                VersionCase{"Vx1.0", false, "Vx1.0|"}, VersionCase{"V:2.0,1.0:ON", false, ""},
                VersionCase{"VV", false, ""}, VersionCase{"V:1.0:ON,1.0:ON", false, ""},
                VersionCase{"V,1.0,1.0:ON", true, "V|1.0|1.0:ON|"},
                VersionCase{"V:1.0", false, "V:1.0|"}, VersionCase{"V:", false, ""},
                VersionCase{"v:2.0,1.0:ON", true, "v:2.0|1.0:ON|"}));

TEST_F(Phone, VersionControlTellsItsWholeWay) {
    start("ufs40:samsung");
    service->FBO_VersionCtrl("V:1.0,0.9:ON,1.0:ON");
    EXPECT_EQ(tail(story("FBO_VersionCtrl"), 7),
              lines("I FBO fbo_version_ctrl is V:1.0,0.9:ON,1.0:ON.\n"
                    "D FBO current rules version is 1.0 support.\n"
                    "I FBO fbo_version_ctrl V:1.0.\n"
                    "I FBO fbo_version_ctrl 0.9:ON.\nI FBO on_fbo_version 0.9.\n"
                    "I FBO fbo_version_ctrl 1.0:ON.\nI FBO on_fbo_version 1.0."));
    service->FBO_VersionCtrl("V:1.1");
    EXPECT_EQ(tail(story("FBO_VersionCtrl"), 2),
              lines("I FBO fbo_version_ctrl is V:1.1.\n"
                    "E FBO current rules version is 1.1 not support."));
}

TEST_F(Phone, VersionControlRaisesOnAVAlone) {
    start("ufs40:samsung");
    EXPECT_THROW(service->FBO_VersionCtrl("V"), std::out_of_range);
}

struct Denying : Fbo {
    int asked = 0;
    Return<bool> FBO_isSupport() override {
        ++asked;
        return false;
    }
};

TEST_F(Phone, VersionControlAsksTheObjectItself) {
    start("ufs40:samsung");
    const android::sp<Denying> denying = serve<Denying>();
    for (const char* text : {"", "1.0:ON", "V"}) EXPECT_FALSE(denying->FBO_VersionCtrl(text));
    EXPECT_EQ(denying->asked, 3);
    EXPECT_TRUE(events().empty());
}

TEST_F(Phone, AsksForUrgentGarbageCollection) {
    start("ufs40:samsung");
    EXPECT_TRUE(service->FBO_GCADisCard());
    EXPECT_EQ(story("FBO_GCADisCard"), lines("I the gc path: /sys/fs/f2fs/dm-5/gc_urgent\n"
                                             "D trigger GC\nwrite gc_urgent \"1\\n\""));
    set("fault.gc_urgent", "write-error");
    EXPECT_TRUE(service->FBO_GCADisCard());
    EXPECT_EQ(events("write "), lines("gc_urgent \"1\\n\" Input/output error"));
    set("fault.userdata", "missing");
    EXPECT_FALSE(service->FBO_GCADisCard());
    EXPECT_EQ(story("FBO_GCADisCard"),
              lines("I the gc path: /sys/fs/f2fs//gc_urgent\nE gc node open fail"));
}

}  // namespace
