/*
 * The texts that clients hand over, on a device that does all that it is told. An input is the
 * method, which of kRanges the device takes, and the text.
 */

#include <algorithm>
#include <iterator>

#include "fbo/Globals.h"
#include "fuzz/Input.h"
#include "fuzz/Phone.h"
#include "fuzz/Pieces.h"
#include "fuzz/Target.h"

using namespace std::string_literals;
using fuzz::Phone;
using fuzz::require;
using sim::Answer;

namespace impl = vendor::nivora::hardware::fbo::implementation;

const char* const fuzz::kDevice = "ufs40:samsung,record=1";

const std::vector<std::string> fuzz::kRegressions = {
        "\0\1"
        "81920,64,204800,128,300000,8,"s,
        "\0\0"
        "1,1,2,1,3,1,4,1,5,1,6"s,
        "\0\0,1,2,,"s,
        "\0\7,"s,
        "\1\0"
        "100,8:200,16:"s,
        "\1\0::"s,
        "\1\0"s,
        "\2\0V"s,
        "\2\0V:1.0,>0.9:ON"s,
        "\2\0,ON,1.0:ON"s,
        "\3\0stop,continue"s,
};

namespace {

// The levels that the device reports before and after, and what they count for.
constexpr char kBefore[] = "frag_lvl: 7, lr_count: 1, optimised: 0\n";
constexpr char kAfter[] = "frag_lvl: 2, lr_count: 1, optimised: 1\n";
constexpr int kNumberBefore = 70;
constexpr int kNumberAfter = 20;
constexpr int kScale = 256;

/** What the device may say that a zone holds. */
constexpr int kRanges[] = {1, 2, 3, 4, 8, 64, 127, 128, 1000, 0, -1};

/** Zones that an input may ask for at most, for the sake of speed. */
constexpr int kMaxZones = 16;

constexpr time_t kNoTime = 0;
constexpr time_t kEraseSeconds = 5;

/** Has the device answer with `texts`. */
void answer(Phone& phone, const std::vector<std::string>& texts) {
    std::vector<Answer> answers;
    answers.reserve(texts.size());
    for (const std::string& text : texts) {
        answers.push_back(Answer::success(Answer::Operation::kRead, text));
    }
    phone.device().answer(answers);
}

/** The device gets each zone twice, once in each pass, and all of the request. */
void trigger(Phone& phone, int max_ranges, const std::string& request) {
    const auto commas = static_cast<int>(std::count(request.begin(), request.end(), ','));
    if (max_ranges > 0) max_ranges = std::max(max_ranges, commas / (2 * kMaxZones) + 1);
    std::vector<std::string> answers = {std::to_string(max_ranges) + "\n"};
    for (int zone = 0; zone <= kMaxZones; ++zone) {
        // UFS 4.0; idle, analysed, its level, optimised; idle, analysed, its level.
        for (const char* text : {"0", "0", "2", kBefore, "3", "0", "2", kAfter}) {
            answers.emplace_back(text);
        }
    }
    answer(phone, answers);
    const auto result = phone.answerOf(true, fuzz::kNone, kNoTime, [&](auto callback) {
        phone.service().FBO_trigger(request, callback);
    });

    std::vector<std::string> zones;
    const std::vector<std::string> lists = phone.stores("fbo_send_lr_list");
    require(lists.size() % 2 == 0, "there are two passes");
    for (size_t i = 0; i < lists.size(); i += 2) {
        require(lists[i] == lists[i + 1], "both passes are of the same zone");
        require(!lists[i].empty() && lists[i].back() == '\n', "a list ends in a line feed");
        zones.push_back(lists[i].substr(0, lists[i].size() - 1));
    }
    if (request.size() > 1) fuzz::requireZonesOf(request, zones, std::min(max_ranges, 127));
    const auto figure = [&](int number) { return std::to_string(zones.size() * number * kScale); };
    require(result == "Fbo:" + figure(kNumberBefore) + ":" + figure(kNumberAfter),
            "every zone counts once");
}

/** The device gets every item of the list, and time for each. */
void erase(Phone& phone, const std::string& list) {
    answer(phone, {});
    const auto items = std::count(list.begin(), list.end(), ':') + 1;
    const time_t start = time(nullptr);
    bool sent = false;
    phone.run(fuzz::kNone, items * kEraseSeconds,
              [&] { sent = phone.service().EUA_SendEraseCmd(list); });
    require(sent, "a device that takes requests gets them");

    std::vector<std::string> stores = phone.stores("eua_file_lba_unmap");
    require(time(nullptr) - start == static_cast<time_t>(stores.size()) * kEraseSeconds,
            "the device gets its time for each item");
    for (std::string& store : stores) {
        require(!store.empty() && store.back() == '\n', "an item ends in a line feed");
        store.pop_back();
    }
    // A colon at the end begins no item.
    const std::string joined = fuzz::join(stores, ':');
    require(list == (!list.empty() && list.back() == ':' ? joined + ":" : joined),
            "the items are the list");
}

/** Each item of the rules is looked at, until one switches on. */
void version(Phone& phone, const std::string& text) {
    constexpr size_t kLogged = 900;
    answer(phone, {"1"});
    bool enabled = false;
    // The one text that is too short for what it begins with.
    const unsigned escapes = text == "V" ? fuzz::kNoText : fuzz::kNone;
    const bool ended =
            phone.run(escapes, kNoTime, [&] { enabled = phone.service().FBO_VersionCtrl(text); });
    require(ended == (text != "V"), "\"V\" alone is an error");
    // The log shows the items, unless it is cut.
    if (!ended || text.empty() || text.size() > kLogged || text.find('\0') != std::string::npos) {
        return;
    }
    const std::string start = "[FBO-HAL] FBO fbo_version_ctrl ";
    std::vector<std::string> items;
    for (const std::string& line : phone.logOf("FBO_VersionCtrl")) {
        if (line.compare(0, start.size(), start) != 0) continue;
        items.push_back(line.substr(start.size(), line.size() - start.size() - 1));
    }
    // The first line is for the whole text.
    items.erase(items.begin());
    if (items.empty()) {
        require(!enabled && text[0] == 'V', "only rules of another version are not looked at");
        return;
    }
    const std::string joined = fuzz::join(items, ',');
    require(enabled ? (text + ",").compare(0, joined.size() + 1, joined + ",") == 0
                    : joined == text,
            "the items are the text");
    require(!enabled || items.back().find("ON") != std::string::npos, "the last one says ON");
}

/** The command comes back, and the flags say what it asks for. */
void control(Phone& phone, const std::string& command) {
    const auto answer = phone.answerOf(true, fuzz::kNone, kNoTime, [&](auto callback) {
        phone.service().FBO_stateCtl(command, callback);
    });
    require(answer == command, "the command comes back");
    const bool stop = command.find("stop") != std::string::npos;
    require(impl::is_stop == stop && impl::hal_status_flag == (stop ? 1 : 0),
            "a stop is requested, or is not");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Phone& phone = Phone::get();
    phone.restart();
    // The wear is known.
    phone.service().pe_cycle = 1;
    phone.service().level_to_num = {{7, kNumberBefore}, {2, kNumberAfter}};

    fuzz::Input input(data, size);
    const int method = input.byte() % 4;
    const int max_ranges = kRanges[input.byte() % std::size(kRanges)];
    const std::string text = input.rest();
    switch (method) {
        case 0:
            trigger(phone, max_ranges, text);
            break;
        case 1:
            erase(phone, text);
            break;
        case 2:
            version(phone, text);
            break;
        default:
            control(phone, text);
    }
    return 0;
}
