#include "Calls.h"

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <vector>

#include <android-base/strings.h>

#include "fbo/defrag/Capability.h"
#include "fbo/defrag/Clear.h"
#include "fbo/defrag/LinearMapping.h"
#include "fbo/defrag/Trigger.h"
#include "fbo/defrag/Ufs31.h"
#include "fbo/defrag/Ufs40.h"
#include "fbo/eua/Policy.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/SnapshotPolicy.h"
#include "fbo/utils/Utils.h"

namespace {

using Call = std::function<std::string(Fbo&, const std::string& arguments)>;
using Callback = std::function<void(const hidl_string&)>;

/** What an output argument holds before the call. */
constexpr int kUntouched = -77;

std::string show(const std::string& value) {
    return value;
}

std::string show(const std::optional<std::string>& value) {
    return value.value_or("none");
}

std::string show(bool value) {
    return value ? "true" : "false";
}

std::string show(int value) {
    return value == kUntouched ? "-" : std::to_string(value);
}

template <typename Value>
std::string show(const Return<Value>& value) {
    return show(static_cast<Value>(value));
}

/** The value that a function is given for an argument of type `Argument`. */
template <typename Argument>
auto take(std::string& arguments, std::vector<std::string>& answers) {
    using Value = std::decay_t<Argument>;
    if constexpr (std::is_same_v<Value, Callback>) {
        return Callback([&answers](const hidl_string& answer) { answers.push_back(answer); });
    } else {
        const std::string word = arguments.substr(0, arguments.find('|'));
        if constexpr (std::is_same_v<Argument, int&>) {
            return kUntouched;
        } else if constexpr (std::is_same_v<Argument, std::string&>) {
            return std::string("-");
        } else {
            arguments.erase(0, word.size() + 1);
            if constexpr (std::is_same_v<Value, bool>) return word == "true";
            if constexpr (std::is_same_v<Value, int>) return std::stoi(word);
            if constexpr (std::is_convertible_v<std::string, Value>) return Value(word);
        }
    }
}

/** Shows what an output argument holds after the call; other arguments are not shown. */
template <typename Argument>
void showOutput(const std::decay_t<Argument>& value, std::vector<std::string>& answers) {
    if constexpr (std::is_lvalue_reference_v<Argument>) {
        if constexpr (!std::is_const_v<std::remove_reference_t<Argument>>) {
            answers.push_back(show(value));
        }
    }
}

/** Calls `function`, and joins what it returns, what it answers and its output arguments. */
template <typename Result, typename... Arguments, typename Function>
std::string run(Function function, std::string arguments) {
    std::vector<std::string> answers;
    std::tuple<std::decay_t<Arguments>...> values{take<Arguments>(arguments, answers)...};
    std::apply(
            [&](auto&... value) {
                if constexpr (std::is_void_v<Result> || std::is_same_v<Result, Return<void>>) {
                    function(value...);
                } else {
                    answers.push_back(show(function(value...)));
                }
                (showOutput<Arguments>(value, answers), ...);
            },
            values);
    return android::base::Join(answers, ' ');
}

template <typename Result, typename... Arguments>
Call toCall(Result (*function)(Arguments...)) {
    return [function](Fbo&, const std::string& arguments) {
        return run<Result, Arguments...>(function, arguments);
    };
}

template <typename Result, typename... Arguments>
Call toCall(Result (Fbo::*method)(Arguments...)) {
    return [method](Fbo& service, const std::string& arguments) {
        const auto call = [&](auto&... values) { return (service.*method)(values...); };
        return run<Result, Arguments...>(call, arguments);
    };
}

#define FUNCTION(name) \
    { #name, toCall(name) }
#define METHOD(name) \
    { #name, toCall(&Fbo::name) }

// clang-format off
const std::map<std::string, Call> kCalls = {
        METHOD(FBO_isSupport), METHOD(FBO_trigger), METHOD(FBO_stateCtl), METHOD(FBO_GCADisCard),
        METHOD(FBO_VersionCtrl), METHOD(EUA_GetFreeSpaceAPECycle), METHOD(EUA_SendEraseCmd),
        METHOD(EUA_isSupport), METHOD(EUA_SupportSize), METHOD(SnapShot_isSupport),
        METHOD(SnapShot_startBackup), METHOD(SnapShot_startDrop), METHOD(SnapShot_getStatus),
        METHOD(getUFSPEcycleALevelToNum), FUNCTION(FBO_isUFS31), FUNCTION(FBO_Get_MinLBASize),
        FUNCTION(FBO_Get_MaxLBACount), FUNCTION(FBO_Clear), FUNCTION(record_cmd_fail),
        FUNCTION(UFS40_FBO_Imp), FUNCTION(UFS31_FBO_Imp), FUNCTION(FBO2_Support_Linear_Mapping),
        FUNCTION(FBO2_Linear_Mapping), FUNCTION(checkDisableEuaPolicy), FUNCTION(setBootlunInfo),
        FUNCTION(updateSnapshotCloudCtrlPolicy), FUNCTION(setSnapshotFreeBlockThr),
        FUNCTION(getFeatureDevicePath), FUNCTION(readFileToString), FUNCTION(getUFSVendor),
        FUNCTION(get_userdata_mapper), FUNCTION(getUserFreeSpaceInfo), FUNCTION(drop_caches),
        FUNCTION(delay_work_timer),
};
// clang-format on

}  // namespace

std::string callByName(Fbo& service, const std::string& call) {
    const std::string name = call.substr(0, call.find(' '));
    const std::string arguments = name == call ? "" : call.substr(name.size() + 1);
    try {
        return kCalls.at(name)(service, arguments);
    } catch (const std::invalid_argument&) {
        return "invalid_argument";
    } catch (const std::out_of_range&) {
        return "out_of_range";
    } catch (const std::bad_optional_access&) {
        return "bad_optional_access";
    }
}
