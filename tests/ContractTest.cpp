/*
 * What other programs are built against: the names that the library exports and needs, and the
 * slots of its interface.
 */

#include <cstdio>
#include <cstring>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "fbo/Fbo.h"

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

/** What `command` prints, a line each. */
std::set<std::string> run(const std::string& command) {
    std::set<std::string> lines;
    FILE* const pipe = popen(command.c_str(), "r");
    char line[4096];
    while (fgets(line, sizeof(line), pipe) != nullptr) lines.insert({line, strcspn(line, "\n")});
    EXPECT_EQ(pclose(pipe), 0) << command;
    return lines;
}

TEST(Contract, ExportsWhatIsPromisedAndNothingElse) {
    // Demangled, without the types of arguments; constructors and destructors count once.
    std::set<std::string> expected = {"VTT for Fbo", "vtable for Fbo",
                                      "virtual thunk to Fbo::~Fbo"};
#ifdef __cpp_rtti
    expected.insert({"typeinfo for Fbo", "typeinfo name for Fbo"});
#endif
    for (const char* name : {
                 "Fbo",
                 "~Fbo",
                 "FBO_isSupport",
                 "FBO_trigger",
                 "FBO_stateCtl",
                 "FBO_GCADisCard",
                 "FBO_VersionCtrl",
                 "EUA_GetFreeSpaceAPECycle",
                 "EUA_SendEraseCmd",
                 "EUA_isSupport",
                 "EUA_SupportSize",
                 "SnapShot_isSupport",
                 "SnapShot_startBackup",
                 "SnapShot_startDrop",
                 "SnapShot_getStatus",
                 "getUFSPEcycleALevelToNum",
                 "UEventWorker",
                 "UEventEvent",
         }) {
        expected.insert(std::string("Fbo::") + name);
    }
    for (const char* name : {
                 "hal_status_flag",
                 "is_stop",
                 "cmd_retry_count",
                 "cmd_fail_count",
                 "snapshotStatusMap",
                 "snapshotCtrlMap",
                 "getFeatureDevicePath",
                 "readFileToString",
                 "getUFSVendor",
                 "get_userdata_mapper",
                 "getUserFreeSpaceInfo",
                 "drop_caches",
                 "delay_work_timer",
                 "FBO_isUFS31",
                 "FBO_Get_MinLBASize",
                 "FBO_Get_MaxLBACount",
                 "FBO_Clear",
                 "record_cmd_fail",
                 "UFS40_FBO_Imp",
                 "UFS31_FBO_Imp",
                 "FBO2_Support_Linear_Mapping",
                 "FBO2_Linear_Mapping",
                 "getUfsInfo",
                 "checkDisableEuaPolicy",
                 "read_from_partition",
                 "write_to_partition",
                 "setBootlunInfo",
                 "updateSnapshotCloudCtrlPolicy",
                 "setSnapshotFreeBlockThr",
         }) {
        expected.insert(name);
    }
    EXPECT_EQ(
            run(NM
                " -DC --defined-only " FBO_LIBRARY
                " | sed -E 's/^[0-9a-f]+ . //; s/vendor::nivora::hardware::fbo::implementation:://;"
                " s/(\\[abi:[a-z0-9]+\\])?(\\(.*)?$//;"
                // Standard errors, as many as the standard library leaves to its users.
                " /^typeinfo (name )?for std::[a-z0-9_:]+$/d'"),
            expected);
}

TEST(Contract, NeedsPlatformLibrariesOnly) {
    std::set<std::string> needed =
            run(READELF " -d " FBO_LIBRARY
                        " | sed -nE '/NEEDED/ { s/.*\\[(.*)\\]/\\1/; s/\\.so\\.0$/.so/; p }'");
    // The language's own, and what a build for the sanitizers adds.
    const std::regex language(
            "lib(stdc\\+\\+|gcc_s|c\\+\\+(abi)?|unwind|c|m|asan|ubsan)\\.so\\..*|ld-linux.*");
    for (auto name = needed.begin(); name != needed.end();) {
        name = std::regex_match(*name, language) ? needed.erase(name) : std::next(name);
    }
    EXPECT_EQ(needed, (std::set<std::string>{"libbase.so", "libcutils_uevent.so", "libhidlbase.so",
                                             "liblog.so", "libutils.so",
                                             "vendor.nivora.hardware.fbo@1.0.so"}));
}

/** Where a virtual method stands, counted in slots from the first one. */
template <typename Method>
ptrdiff_t slotOf(Method method) {
    const auto offset = [](auto pointer) {
        ptrdiff_t value;
        memcpy(&value, &pointer, sizeof(value));
        return value;
    };
    return (offset(method) - offset(&IFbo::isRemote)) / static_cast<ptrdiff_t>(sizeof(void*));
}

TEST(Contract, TheMethodsStandInTheirSlots) {
    const ptrdiff_t slots[] = {
            slotOf(&IFbo::interfaceChain),
            slotOf(&IFbo::debug),
            slotOf(&IFbo::interfaceDescriptor),
            slotOf(&IFbo::getHashChain),
            slotOf(&IFbo::setHALInstrumentation),
            slotOf(&IFbo::linkToDeath),
            slotOf(&IFbo::ping),
            slotOf(&IFbo::getDebugInfo),
            slotOf(&IFbo::notifySyspropsChanged),
            slotOf(&IFbo::unlinkToDeath),
            slotOf(&IFbo::FBO_isSupport),
            slotOf(&IFbo::FBO_trigger),
            slotOf(&IFbo::FBO_stateCtl),
            slotOf(&IFbo::FBO_GCADisCard),
            slotOf(&IFbo::FBO_VersionCtrl),
            slotOf(&IFbo::EUA_GetFreeSpaceAPECycle),
            slotOf(&IFbo::EUA_SendEraseCmd),
            slotOf(&IFbo::EUA_isSupport),
            slotOf(&IFbo::EUA_SupportSize),
            slotOf(&IFbo::SnapShot_isSupport),
            slotOf(&IFbo::SnapShot_startBackup),
            slotOf(&IFbo::SnapShot_startDrop),
            slotOf(&IFbo::SnapShot_getStatus),
    };
    // Behind isRemote; two destructors stand between the ten base methods and the thirteen.
    ptrdiff_t expected = 0;
    for (size_t i = 0; i < std::size(slots); ++i) {
        if (i == 10) expected += 2;
        EXPECT_EQ(slots[i], ++expected) << i;
    }
}

}  // namespace
