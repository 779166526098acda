#include "Phone.h"

namespace {

TEST_F(Phone, VersionControlWalksTheItems) {
    // The text, whether FBO is on, and what is logged of the way there.
    const struct {
        const char* text;
        bool on;
        const char* log = "";
    } kRows[] = {
            {"", true, "!version_ctrl"},
            {"1.0:ON", true, "on_fbo_version 1.0."},
            {"1.0:OFF", false},
            {"ON:1.0", false},
            {"ON", false, "on_fbo_version ON."},
            {"O,N", false},
            {">0.9:ON", true},
            {">1.0:ON", false},
            {">1.1:ON", false},
            // Texts are compared, not numbers.
            {">1:ON", true},
            {">10:ON", false},
            {">0.10:ON", true},
            {">:ON", true},
            {":ON", false},
            {"1.0 ON", false},
            {"1.0x:ON", false},
            {"1.0:x:ON", true},
            {"1.0:xONx", true},
            // The first match decides.
            {"2.0:ON,1.0:ON,0.9:ON", true, "!version_ctrl 0.9"},
            {"2.0:ON,,a", false, "version_ctrl a."},
            // A comma in the first place belongs to the first item.
            {",1.0:ON", false, "version_ctrl ,1.0:ON."},
            {",", false},
            {",,1.0:ON", true},
            {"V:1.0,0.9:ON,1.0:ON", true, "rules version is 1.0 support"},
            {"Vx1.0", false, "version_ctrl Vx1.0."},
            {"V:2.0,1.0:ON", false, "rules version is 2.0 not support"},
            {"VV", false},
            {"V:1.0:ON,1.0:ON", false},
            {"V,1.0,1.0:ON", true},
            {"V:", false},
            {"v:2.0,1.0:ON", true},
    };
    start("ufs40:samsung");
    for (const auto& row : kRows) {
        expect({{"", std::string("FBO_VersionCtrl ") + row.text, row.on ? "true" : "false", "",
                 row.log}});
    }
    expect({{"", "FBO_VersionCtrl V", "out_of_range"}});
}

struct Denying : Fbo {
    Return<bool> FBO_isSupport() override { return false; }
};

TEST_F(Phone, VersionControlAsksTheObjectItself) {
    start("ufs40:samsung");
    serve<Denying>();
    expect({{"", "FBO_VersionCtrl ", "false", "", "!version"},
            {"", "FBO_VersionCtrl 1.0:ON", "false"},
            {"", "FBO_VersionCtrl V", "false"}});
}

TEST_F(Phone, AsksForUrgentGarbageCollection) {
    start("ufs40:samsung");
    expect({{"", "FBO_GCADisCard", "true", "gc_urgent=1", "gc path: /sys/fs/f2fs/dm-5/gc_urgent"},
            {"fault.gc_urgent=write-error", "FBO_GCADisCard", "true", "gc_urgent=1!"},
            {"fault.userdata=missing", "FBO_GCADisCard", "false", "", "gc node open fail"}});
}

}  // namespace
