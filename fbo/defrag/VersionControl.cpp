#include <string>
#include <string_view>

#include "fbo/Fbo.h"
#include "fbo/utils/Log.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

/** The version of the rules that this service goes by. */
constexpr std::string_view kRulesVersion = "1.0";

constexpr char kSwitchOn[] = "ON";

/** Whether an item's version rule means this service: its own version, or ">" a lower one. */
bool matches(std::string_view rule) {
    // Compared as texts, character by character: ">" alone matches, ">10" does not.
    return rule == kRulesVersion ||
           (!rule.empty() && rule[0] == '>' && rule.substr(1) < kRulesVersion);
}

/** Whether an item switches FBO on for this service. */
bool switchesOn(const std::string& item) {
    if (item.find(kSwitchOn) == std::string::npos) return false;
    const std::string rule = item.substr(0, item.find(':'));
    FBO_LOG(ANDROID_LOG_INFO, "FBO_VersionCtrl", "[FBO-HAL] FBO on_fbo_version %s.", rule.c_str());
    return matches(rule);
}

}  // namespace

Return<bool> Fbo::FBO_VersionCtrl(const hidl_string& version) {
    std::string text = version;
    if (!FBO_isSupport()) return false;
    if (text.empty()) return true;

    FBO_LOGI("[FBO-HAL] FBO fbo_version_ctrl is %s.", text.c_str());
    if (text[0] == 'V') {
        // The separator behind the "V" is not looked at. A "V" alone raises here.
        const std::string rules = text.substr(2, text.find(',', 2) - 2);
        if (rules != kRulesVersion) {
            FBO_LOGE("[FBO-HAL] FBO current rules version is %s not support.", rules.c_str());
            return false;
        }
        FBO_LOGD("[FBO-HAL] FBO current rules version is %s support.", rules.c_str());
    }

    text += ',';
    size_t start = 0;
    // The first item holds a comma that stands at its very beginning.
    for (size_t end = text.find(',', 1); end != std::string::npos; end = text.find(',', start)) {
        const std::string item = text.substr(start, end - start);
        FBO_LOGI("[FBO-HAL] FBO fbo_version_ctrl %s.", item.c_str());
        if (switchesOn(item)) return true;
        start = end + 1;
    }
    return false;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
