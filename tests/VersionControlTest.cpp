#include <stdexcept>

#include "Phone.h"

namespace {

TEST_F(Phone, VersionControlWalksTheItems) {
    // The text, whether FBO is on, and the items that are logged, each closed by a "|".
    // clang-format off
    const struct { const char* text; bool on; const char* items; } kRows[] = {
            {"", true, ""}, {"1.0:ON", true, "1.0:ON|"},
            {"1.0:OFF", false, "1.0:OFF|"}, {"ON:1.0", false, "ON:1.0|"},
            {"ON", false, "ON|"}, {"O,N", false, "O|N|"},
            {">0.9:ON", true, ">0.9:ON|"}, {">1.0:ON", false, ">1.0:ON|"},
            {">1.1:ON", false, ">1.1:ON|"},
            // Texts are compared, not numbers.
            {">1:ON", true, ">1:ON|"}, {">10:ON", false, ">10:ON|"},
            {">0.10:ON", true, ">0.10:ON|"}, {">:ON", true, ">:ON|"},
            {":ON", false, ":ON|"}, {"1.0 ON", false, "1.0 ON|"},
            {"1.0:xONx", true, "1.0:xONx|"},
            // The first match decides.
            {"2.0:ON,1.0:ON,0.9:ON", true, "2.0:ON|1.0:ON|"},
            {"2.0:ON,,a", false, "2.0:ON||a|"},
            // A comma in the first place belongs to the first item.
            {",1.0:ON", false, ",1.0:ON|"}, {",", false, ",|"},
            {",,1.0:ON", true, ",|1.0:ON|"},
            {"V:1.0,1.0:ON", true, "V:1.0|1.0:ON|"},
            {"Vx1.0", false, "Vx1.0|"}, {"V:2.0,1.0:ON", false, ""},
            {"VV", false, ""}, {"V:1.0:ON,1.0:ON", false, ""},
            {"V,1.0,1.0:ON", true, "V|1.0|1.0:ON|"},
            {"V:1.0", false, "V:1.0|"}, {"V:", false, ""},
            {"v:2.0,1.0:ON", true, "v:2.0|1.0:ON|"},
    };
    // clang-format on
    start("ufs40:samsung");
    const std::string item = "log I FBO_VersionCtrl [FBO-HAL] FBO fbo_version_ctrl ";
    for (const auto& row : kRows) {
        EXPECT_EQ(service->FBO_VersionCtrl(row.text), row.on) << row.text;
        std::string items;
        for (const std::string& line : events(item)) {
            if (line.compare(0, 3, "is ") != 0) items += line.substr(0, line.size() - 1) + "|";
        }
        EXPECT_EQ(items, row.items) << row.text;
    }
}

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
