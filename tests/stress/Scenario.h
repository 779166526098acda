#pragma once

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "sim/Profile.h"

namespace stress {

/** Ends a run with `what`, which is told to the user, unless `holds`. */
inline void require(bool holds, const std::string& what) {
    if (!holds) throw std::runtime_error(what);
}

inline bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

inline std::vector<std::string> split(const std::string& text, char separator) {
    std::istringstream stream(text);
    std::vector<std::string> parts;
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

/** The bytes that decide a run. Behind their end all are 0. */
class Bytes {
  public:
    explicit Bytes(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    /** 0 to `limit` - 1; `limit` is 256 at most. */
    int below(int limit) { return at_ < bytes_.size() ? bytes_[at_++] % limit : 0; }
    /** 1 to `limit`, small numbers more often than large ones. */
    int small(int limit) { return 1 + below(1 + below(limit)); }
    /** One of some words. */
    std::string word(const std::string& words, char separator = ' ') {
        const std::vector<std::string> choices = split(words, separator);
        return choices[static_cast<size_t>(below(static_cast<int>(choices.size())))];
    }
    /** Any text. */
    std::string text() {
        std::string text;
        for (int left = below(64); left > 0; --left) text += static_cast<char>(below(256));
        return text;
    }

  private:
    std::vector<uint8_t> bytes_;
    size_t at_ = 0;
};

/** What some methods use: nodes, directories and links; settings of a device that misbehaves. */
struct Feature {
    const char* nodes;
    const char* settings;
};

constexpr int kSnapshot = 1;
constexpr Feature kFeatures[] = {
        {"fbo_max_lrc is_ufs31 fbo_get_lr_frag_level fbo_get_lr_frag_level fbo_send_lr_list debug "
         "fbo_exe_level fbo_wholefile_enable fbo_err_cnt fbo_retry_cnt fbo_operation_control hr "
         "vendor fbo_prog_state fbo_prog_state fbo2_linear_map_state fbo2_linear_mapping_start "
         "fbs_flc_enable fbs_flc_ops fbs_flc_ops fbs_defrag_enable fbs_defrag_ops ufsfbo",
         "analysis=stuck analysis=6/stuck analysis=1199 analysis=1201 analysis_end=9 "
         "analysis_end=9/-1 analysis_end=255 analysis_end=0/-1 analysis_end=1 optimise=stuck "
         "optimise=1201 optimise_end=255 optimise_end=255/-1 optimise_end=3 optimise_end=2 "
         "report=28 report=28/4096 report=11/11/4096 clear=31 clear=200 clear=400 mapping=stuck "
         "mapping=601 mapping_end=255 accept=stuck accept=0/stuck accept=90 accept=301"},
        {"ctrl ctrl status status dropfreesize gsort gsort drop_caches vendor ufssnapshot",
         "backup=stuck backup=100 backup_idle=stuck backup_idle=20 backup_end=6 backup_end=0 "
         "backup_end=5 backup_end=1 drop=stuck drop=29 drop=60 drop_end=6 drop_end=1 drop_end=2 "
         "snapshot=6 snapshot=1 snapshot=2 gsort_size=0 gsort_size=9437185 gsort_size=9437191 "
         "gsort_size=9437192 gsort_size=9437219 gsort_size=9437222 gsort_size=9437225"},
        {"eua_support eua_support_size eua_file_lba_unmap inquiry hr vendor ufseua",
         "eua=0 eua_size=0"},
        {"fbo_support fbo_support hr vendor gc_urgent userdata ufsfbo", "wear=1"},
};

/** The settings while nothing is wrong: four ranges in a zone, so that a request has several. */
constexpr char kUsual[] =
        "ranges=4,analysis=6,analysis_end=-1,optimise=6,optimise_end=-1,mapping=3,mapping_end=-1,"
        "accept=0,clear=0,report=4096,backup=2,backup_end=2,backup_idle=1,drop=1,drop_end=-1,"
        "gsort_size=16777216,eua=1,eua_size=65536";

/** What a node may say that says nothing; or too much, or what belongs elsewhere. */
const std::string kGarbage =
        "|\n|x|1x|-1|0|1|2|3|255|2/3/1|2147483648|-2147483649| \t1|\xff\xfe|idle|inprogress\n|%s%n|"
        "complete_backup\n|frag_lvl: z, lr_count: 0, optimised: 0\n|"
        "frag_lvl: 0, lr_count: 1, optimised: 0\n/frag_lvl: 9, lr_count: 1, optimised: 0\n|" +
        std::string(5000, '7');

/** A method of the service, by its place in Workload's table, and the text that it is told. */
struct Call {
    int method;
    std::string text;
};

/** Something that happens at the start, or at a sleep or log line of the calling thread. */
struct Event {
    enum When { kStart, kSleep, kLine } when;
    /** 1 for the first one. */
    int number;
    /**
     * A setting of the device (sim::Simulator::set()); "tell", for a call of FBO_stateCtl(); or
     * "uevent", for a drop request that the calling thread waits for if the value says so.
     */
    std::string key;
    std::string value;
};

/** All that happens in a run. */
struct Scenario {
    explicit Scenario(Bytes bytes);

    bool has(const std::string& key) const {
        const auto is_it = [&key](const Event& event) { return event.key == key; };
        return std::any_of(events.begin(), events.end(), is_it);
    }

    const sim::Profile* profile;
    int wear;
    /** What the simulated device is made from, see sim::Simulator. */
    std::string device;
    std::vector<Call> calls;
    std::vector<Event> events;
    /** The calls that a second thread makes meanwhile; 0: there is no such thread. */
    int calls_beside = 0;
    /** How often the calling thread enters or leaves the kernel before it is killed; 0: never. */
    int kill_at = 0;
    /** They decide what the service is asked in the end. */
    Bytes rest;
};

inline Event makeEvent(Bytes& bytes, int used) {
    const Feature& feature = kFeatures[used];
    const int at = bytes.below(20);
    Event event{at < 9 ? Event::kStart : at < 14 ? Event::kSleep : Event::kLine, 1, "tell", ""};
    if (event.when != Event::kStart) event.number = bytes.small(at == 13 ? 150 : at < 13 ? 8 : 100);
    const int kind = bytes.below(16);
    if (kind < 3) {
        event.value = bytes.word("stop stop stop continue");
    } else if (kind < 5 && used == kSnapshot) {
        event = {Event::kSleep, bytes.small(8), "uevent", bytes.word("wait no")};
    } else if (kind < 7) {
        const std::vector<std::string> setting = split(bytes.word(feature.settings), '=');
        event.key = setting[0];
        event.value = setting[1];
    } else if (kind < 11) {
        event.key = "fault." + bytes.word(feature.nodes);
        event.value = bytes.word("missing unreadable/unwritable read-error write-error");
    } else {
        event.key = "node." + bytes.word(feature.nodes);
        event.value = kind == 15 ? bytes.text() : bytes.word(kGarbage, '|');
        if (kind >= 13) event.value += "/" + bytes.word(kGarbage, '|');
    }
    return event;
}

inline Call makeCall(Bytes& bytes) {
    // Most are triggers and backups.
    const int at = bytes.below(24);
    Call call{at < 12 ? at : at < 20 ? 0 : 1, ""};
    const int kind = bytes.below(8);
    if (kind == 0) call.text = bytes.text() + "?";
    if (kind == 1) call.text = bytes.word("V V:1.0,>0.9:ON ,ON,1.0:ON V:1.1,ON stop continue");
    for (int left = kind < 2 ? 0 : bytes.small(20); left > 0; --left) {
        call.text += std::to_string(1000 * left + bytes.below(256)) + ",8,";
    }
    if (at == 3) std::replace(call.text.begin(), call.text.end(), ',', ':');
    return call;
}

inline Scenario::Scenario(Bytes bytes)
    : profile(&sim::profiles()[bytes.below(static_cast<int>(sim::profiles().size()))]),
      wear(std::stoi(bytes.word("120 2399 2400 65535"))),
      device(profile->name + ",platform=" + bytes.word("qcom mtk") +
             ",tbw=" + bytes.word("0 1 65536") + ",wear=" + std::to_string(wear) +
             ",linear=" + bytes.word("1 0") + ",snapshot=" + bytes.word("0 2") + ",bootlun=" +
             bytes.word("1 16909320") + ",snapbootlun=" + bytes.word("0 67305985") + "," + kUsual),
      rest({}) {
    for (int left = 1 + bytes.below(6); left > 0; --left) calls.push_back(makeCall(bytes));
    // By the methods in their order.
    constexpr int kFeatureOf[] = {0, 1, 1, 2, 3, 1, 2, 2, 2, 3, 3, 3};
    for (int left = bytes.below(8); left > 0; --left) {
        const Call& call = calls[static_cast<size_t>(bytes.below(static_cast<int>(calls.size())))];
        events.push_back(makeEvent(bytes, kFeatureOf[call.method]));
    }
    const int special = bytes.below(64);
    if (special < 4) calls_beside = bytes.small(60);
    if (special >= 4 && special < 16) kill_at = bytes.small(256) << bytes.below(5);
    rest = bytes;
}

}  // namespace stress
