/*
 * A device whose every node answers what the input says, and the calls of a client. An input is up
 * to three calls, when a stop is requested, properties, and the answers; see courseOf().
 */

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <memory>

#include <android-base/properties.h>

#include "fbo/Globals.h"
#include "fbo/defrag/Capability.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/utils/Utils.h"
#include "fuzz/Input.h"
#include "fuzz/Phone.h"
#include "fuzz/Target.h"
#include "sim/Clock.h"

using namespace std::string_literals;
using fuzz::Input;
using fuzz::Phone;
using fuzz::require;
using sim::Answer;

namespace impl = vendor::nivora::hardware::fbo::implementation;

// Each generation has a target of its own.
const char* const fuzz::kDevice = FUZZ_DEVICE;

namespace {

constexpr time_t kNoTime = 0;
constexpr time_t kDropSeconds = 30;
constexpr time_t kBackupSeconds = 33;
constexpr time_t kEraseSeconds = 5;
/** The longest that a stop takes: a list is sent again, a look, clears, and a mapping. */
constexpr time_t kStopSeconds = 300 + 6 + 600 + 900;
constexpr time_t kZoneSeconds = 2 * 60 * 60;
constexpr time_t kMappingSeconds = 900;
/** A UFS 3.1 device can fail for ever. */
constexpr time_t kNoLimit = std::numeric_limits<int32_t>::max();

constexpr size_t kMaxAnswers = 2000;
constexpr size_t kMaxAnswerBytes = 512 * 1024;

/** What a device says often. */
const std::string kWords[] = {
        // States.
        "0\n"s, "1\n"s, "2\n"s, "3\n"s, "5\n"s, "255\n"s,
        // Levels, the last in a report that is too short.
        "frag_lvl: 7, lr_count: 1, optimised: 0\n"s, "frag_lvl: a, lr_count: 128, optimised:"s,
        "frag_lvl: 3, lr_count: 1, op"s,
        // The snapshot.
        "idle\n"s, "inprogress\n"s, "complete_backup\n"s, "drop_by_host\n"s,
        // Makers, the identity of a part, wear and the boot-LUN record.
        "MICRON  \n"s, "KIOXIA  \n"s, "SKhynix \n"s, "SAMSUNG \n"s, "WDC     \n"s,
        "\0\0\6\2\37\0\0\2SKhynix HN8T174EJKX075  X202"s, std::string(1024, '0'),
        "snapshot"s + std::string(99, '\1'),
        // Nothing, white space, and what is no number or too large a one.
        ""s, " \n"s, "-1"s, "x"s, "99999999999"s,
        // A lower level, and a part without a number.
        "frag_lvl: 0, lr_count: 1, optimised: 1\n"s, "\0\0\6\2\37\0\0\2SKhynix "s};

/**
 * The answers that `input` tells. Each begins with a byte: below 0x40 it picks a word; up to 0x4f
 * the reading fails; up to 0x5f an opening to come fails, up to 0x6f a store, after as many that
 * do not as the last four bits say; up to 0x7f the last word comes again, up to 256 times; from
 * 0x80 on the other bits are the length of the text that follows, and 0xff takes it from two more
 * bytes.
 */
std::vector<Answer> courseOf(Input& input) {
    using Operation = Answer::Operation;
    constexpr int kErrors[] = {ENOENT, EACCES, EIO, ENOMEM};
    std::vector<Answer> course;
    std::string last;
    size_t bytes = 0;
    const auto fail = [&](Operation operation, int after) {
        course.insert(course.end(), after, Answer::success(operation));
        course.push_back(Answer::failure(operation, kErrors[after % 4]));
    };
    while (!input.ended() && course.size() < kMaxAnswers && bytes < kMaxAnswerBytes) {
        const uint8_t kind = input.byte();
        size_t times = 1;
        if (kind < 0x40) {
            last = kWords[kind % std::size(kWords)];
        } else if (kind < 0x50) {
            course.push_back(Answer::failure(Operation::kRead, EIO));
            continue;
        } else if (kind < 0x70) {
            fail(kind < 0x60 ? Operation::kOpen : Operation::kStore, kind % 16);
            continue;
        } else if (kind < 0x80) {
            times = size_t{1} << std::min(kind % 16, 8);
        } else if (kind < 0xff) {
            last = input.bytes(kind % 128);
        } else {
            const size_t high = input.byte();
            last = input.bytes(high << 8 | input.byte());
        }

        times = std::min({times, kMaxAnswers - course.size(),
                          (kMaxAnswerBytes - bytes) / std::max(last.size(), size_t{1})});
        bytes += times * last.size();
        course.insert(course.end(), times, Answer::success(Operation::kRead, last));
    }
    return course;
}

/** Takes a number in 32 bits, as it is written in short, off the start of `text`. */
bool takeNumber(std::string_view& text, int32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return false;
    const size_t length = end - text.data();
    const bool is_short = std::to_string(number) == text.substr(0, length);
    text.remove_prefix(length);
    return is_short;
}

bool takeText(std::string_view& text, std::string_view start) {
    if (text.substr(0, start.size()) != start) return false;
    text.remove_prefix(start.size());
    return true;
}

/** The device time of the stop that was requested during a call; 0: none. */
time_t g_stopped = 0;

/** The longest that a run takes. */
time_t limitOf(const std::string& request) {
    if (std::string_view(fuzz::kDevice).substr(0, 5) == "ufs31") return kNoLimit;
    const auto zones = std::count(request.begin(), request.end(), ',') + 1;
    return zones * kZoneSeconds + kMappingSeconds;
}

void trigger(Phone& phone, Input& input) {
    const bool has_callback = input.byte() % 16 != 15;
    const std::string request = input.text();
    const time_t limit = limitOf(request);
    g_stopped = 0;
    const auto answer = phone.answerOf(has_callback, fuzz::kNoNumber, limit, [&](auto callback) {
        phone.service().FBO_trigger(request, callback);
    });
    require(g_stopped == 0 || time(nullptr) - g_stopped <= kStopSeconds, "a stop is heeded");
    if (!answer) return;
    std::string_view text = *answer;
    int32_t before = 0;
    int32_t after = 0;
    require(takeText(text, "Fbo:") && takeNumber(text, before) && takeText(text, ":") &&
                    takeNumber(text, after) && text.empty(),
            "the answer is two numbers: " + *answer);
    require(g_stopped != 0 || before >= after, "no client is told that it got worse");
}

void wear(Phone& phone, Input& input) {
    const bool has_callback = input.byte() % 16 != 15;
    const auto answer = phone.answerOf(has_callback, fuzz::kNoNumber, kNoTime, [&](auto callback) {
        phone.service().EUA_GetFreeSpaceAPECycle(callback);
    });
    if (!answer || answer->empty()) return;
    std::string_view text = *answer;
    int32_t cycles = 0;
    require(takeNumber(text, cycles) && (text == ":0" || text == ":1"),
            "the answer is a number and a flag: " + *answer);
}

void erase(Phone& phone, Input& input) {
    const std::string list = input.text();
    const auto items = std::count(list.begin(), list.end(), ':') + 1;
    phone.run(fuzz::kNone, items * kEraseSeconds, [&] { phone.service().EUA_SendEraseCmd(list); });
}

void version(Phone& phone, Input& input) {
    const std::string text = input.text();
    phone.run(text == "V" ? fuzz::kNoText : fuzz::kNone, kNoTime,
              [&] { phone.service().FBO_VersionCtrl(text); });
}

void collectGarbage(Phone& phone, Input& input) {
    phone.device().set("userdata", input.text());
    phone.run(fuzz::kNone, kNoTime, [&] { phone.service().FBO_GCADisCard(); });
}

void snapshotStatus(Phone& phone, Input&) {
    int32_t status = 0;
    phone.run(fuzz::kNone, kNoTime, [&] { status = phone.service().SnapShot_getStatus(); });
    require(status >= 0 && status <= 6, "the status is one of the seven");
}

void readRanges(Phone& phone, Input&) {
    constexpr int kUntouched = 12345;
    int max_ranges = kUntouched;
    int result = 0;
    phone.run(fuzz::kNoNumber, kNoTime, [&] { result = impl::FBO_Get_MaxLBACount(max_ranges); });
    require(result == 0 || (result == -10 && max_ranges == kUntouched),
            "a failure leaves the number alone");
}

void readPartition(Phone& phone, Input& input) {
    const int count = input.byte();
    const int offset = input.number();
    const std::unique_ptr<char[]> buffer(new char[count + 1]);
    int size = 0;
    phone.run(fuzz::kNone, kNoTime,
              [&] { size = impl::read_from_partition(buffer.get(), count, offset); });
    require(size >= -1 && size <= count, "no more is read than there is room for");
    require(size < 0 || buffer[size] == '\0', "a NUL is behind it");
}

void freeSpace(Phone& phone, Input& input) {
    phone.device().set("userdata_gib", std::to_string(input.number()));
    phone.device().set("userdata_free_gib", std::to_string(input.number()));
    phone.run(fuzz::kNone, kNoTime, [] { impl::getUserFreeSpaceInfo(); });
}

/** A method of no arguments, with the errors that may end it and the seconds that it may take. */
template <unsigned kEscapes, time_t kLimit, typename Result, Result (impl::Fbo::*kMethod)()>
void plain(Phone& phone, Input&) {
    phone.run(kEscapes, kLimit, [&] { (phone.service().*kMethod)(); });
}

using impl::Fbo;
using impl::Return;

constexpr void (*kCalls[])(Phone&, Input&) = {
        trigger,
        plain<fuzz::kNone, kNoTime, Return<bool>, &Fbo::FBO_isSupport>,
        version,
        wear,
        plain<fuzz::kNoNumber, kNoTime, Return<bool>, &Fbo::EUA_isSupport>,
        plain<fuzz::kNoNumber, kNoTime, Return<int32_t>, &Fbo::EUA_SupportSize>,
        erase,
        plain<fuzz::kNoNumber, kBackupSeconds, Return<bool>, &Fbo::SnapShot_startBackup>,
        plain<fuzz::kNone, kDropSeconds, Return<bool>, &Fbo::SnapShot_startDrop>,
        snapshotStatus,
        collectGarbage,
        readRanges,
        [](Phone& phone, Input&) {
            phone.run(fuzz::kNoNumber, kNoTime, [] { impl::FBO_Get_MinLBASize(); });
        },
        readPartition,
        freeSpace,
        plain<fuzz::kNone, kNoTime, Return<bool>, &Fbo::SnapShot_isSupport>,
};

/** Has a stop be requested at the sleep that a byte tells; 0: never. */
void takeStop(Phone& phone, Input& input) {
    const int sleep = input.byte();
    sim::onSleep([&phone, sleep, count = 0]() mutable {
        if (++count != sleep) return;
        g_stopped = time(nullptr);
        phone.service().FBO_stateCtl("stop", [](const auto&) {});
    });
}

/** Sets the properties that a byte tells one by one, and has the others unset. */
void takeProperties(Input& input) {
    constexpr const char* kProperties[] = {
            "vendor.snapshot_control", "vendor.snapshot_devicefreeblock",
            "vendor.snapshot_freespace.minlimit", "vendor.snapshot_freespace.maxlimit"};
    int set = input.byte();
    for (const char* property : kProperties) {
        // One that is too long is refused, and unset then.
        if (set % 2 == 0 || !android::base::SetProperty(property, input.text())) {
            android::base::SetProperty(property, "");
        }
        set /= 2;
    }
}

std::string withLength(const std::string& text) {
    return static_cast<char>(text.size()) + text;
}

/** An input: the calls with their arguments, the sleep at which they are stopped, the answers. */
std::string inputOf(const std::vector<std::pair<char, std::string>>& calls, char stop,
                    const std::string& answers) {
    std::string input(1, static_cast<char>(calls.size() - 1));
    for (const auto& [call, arguments] : calls) input += call + withLength(arguments);
    return input + stop + '\0' + answers;
}

std::string triggerOf(char stop, const std::string& answers) {
    return inputOf({{0, '\0' + withLength("1,8,64,8,")}}, stop, answers);
}

}  // namespace

const std::vector<std::string> fuzz::kRegressions = {
        // A UFS 4.0 zone in two passes, and the mapping; then with a stop.
        triggerOf(0, "\2\x0d\x13\0\0\2\6\3\0\2\6\1\0\4\0\4"s),
        triggerOf(3, "\2\x0d\x13\0\0\1\x78"s),
        // One whose optimisation fails at its start.
        triggerOf(0, "\2\x0d\x13\0\0\2\6\5"s),
        // A UFS 3.1 zone that fails over and over; then one that takes its time.
        triggerOf(0, "\2\x0d\x13\1\0\0\1\3\6\5\5\0\0\1\3\6\5\5\0\0\1\3\6\0"s),
        triggerOf(0, "\2\x0d\x13\1\0\0\0\1\2\2\3\6\2\3\0\0\0\1\3\6"s),
        // A device that cannot be cleared, and one that stays in an operation.
        triggerOf(0, "\2\x0d\x13\0\1\x78"s),
        triggerOf(0, "\2\x0d\x13\0\0\1\x78\x78"s),
        // A zone that gets worse.
        triggerOf(0, "\2\x0d\x13\0\0\2\x1a\3\0\2\6"s),
        // A backup of a slow device, and its drop; then one whose record cannot be read.
        inputOf({{7, ""}, {8, ""}}, 0, "\x14\x0d\0\x09\x09\x0a\x0a\x0b\x0b\x0b\x0d\x0b\x09\x09"s),
        inputOf({{7, ""}}, 0, "\x40\x0b\x0d\x0a\x78"s),
        // A part that is identified, and one that is not.
        inputOf({{3, ""}, {4, ""}, {5, ""}}, 0, "\1\x12\x0d\x13\1\x12\1\x1b"s),
        // More than fits a message to the device, if it were all said.
        triggerOf(0, "\xff\x0f\xf5"s + std::string(4085, '1') + "\x78"),
        // The volume that there is, and a place before the start of the partition.
        inputOf({{10, withLength("/dev/block/dm-5")}, {13, "\x10\xff\xff\xff\xff"}}, 0, ""),
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Phone& phone = Phone::get();
    phone.restart();
    Input input(data, size);
    // The calls take their arguments from what is theirs, as answers follow.
    std::vector<std::pair<uint8_t, std::string>> calls(1 + input.byte() % 3);
    for (auto& [call, arguments] : calls) {
        call = input.byte() % std::size(kCalls);
        arguments = input.text();
    }
    takeStop(phone, input);
    takeProperties(input);
    phone.device().answer(courseOf(input));
    for (const auto& [call, arguments] : calls) {
        Input own(reinterpret_cast<const uint8_t*>(arguments.data()), arguments.size());
        kCalls[call](phone, own);
    }
    return 0;
}
