#include "Phone.h"

namespace {

/** Version control for each of the texts, which have ";" between. */
std::string forTexts(std::string texts) {
    const std::string call = "FBO_VersionCtrl ";
    for (size_t at = 0; (at = texts.find(';', at)) != std::string::npos;) {
        texts.insert(++at, call);
    }
    return call + texts;
}

TEST_F(Phone, VersionControlWalksTheItems) {
    start("ufs40:samsung");
    expect({{"", forTexts(""), "true", "", "!version_ctrl"},
            // Texts are compared, not numbers.
            {"", forTexts("1.0:ON;1.0:xONx;1.0:x:ON;>0.9:ON;>1:ON;>0.10:ON;>:ON;1.0:ON,V:2.0"),
             "true"},
            {"", forTexts("1.0:OFF;1.0 ON;1.0x:ON;ON:1.0;O,N;>1.0:ON;>1.1:ON;>10:ON;:ON"), "false"},
            {"", forTexts("ON"), "false", "", "on_fbo_version ON."},
            // The first match decides.
            {"", forTexts("2.0:ON,1.0:ON,0.9:ON"), "true", "", "!version_ctrl 0.9"},
            {"", forTexts("2.0:ON,,a"), "false", "", "version_ctrl a."},
            // A comma in the first place belongs to the first item.
            {"", forTexts(",1.0:ON"), "false", "", "version_ctrl ,1.0:ON."},
            {"", forTexts(","), "false"},
            {"", forTexts(",,1.0:ON;V,1.0,1.0:ON;v:2.0,1.0:ON"), "true"},
            {"", forTexts("V:1.0,0.9:ON,1.0:ON"), "true", "",
             "ctrl is V:1.0,0.9:ON,1.0:ON.;version is 1.0 support;version_ctrl "
             "V:1.0.;on_fbo_version 0.9."},
            {"", forTexts("Vx1.0"), "false", "", "version_ctrl Vx1.0."},
            {"", forTexts("V:2.0,1.0:ON;VV;V:1.0:ON,1.0:ON;V:"), "false", "", " not support"},
            {"", forTexts("V"), "out_of_range"}});
}

struct Denying : Fbo {
    Return<bool> FBO_isSupport() override { return false; }
};

TEST_F(Phone, VersionControlAsksTheObjectItself) {
    start("ufs40:samsung");
    serve<Denying>();
    expect({{"", forTexts(";1.0:ON;V"), "false", "", "!version"}});
}

TEST_F(Phone, AsksForUrgentGarbageCollection) {
    start("ufs40:samsung");
    expect({{"", "FBO_GCADisCard", "true", "gc_urgent=1", "gc path: /sys/fs/f2fs/dm-5/gc_urgent"},
            {"fault.gc_urgent=write-error", "FBO_GCADisCard", "true", "gc_urgent=1!"},
            {"fault.userdata=missing", "FBO_GCADisCard", "false", "", "gc node open fail"}});
}

}  // namespace
