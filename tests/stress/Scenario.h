#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <android-base/strings.h>

#include "sim/Profile.h"
#include "sim/Script.h"

/** The bytes that decide a run. Behind their end all are 0. */
class Bytes {
  public:
    explicit Bytes(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

    /** 0 to `limit` - 1; `limit` is 256 at most. */
    size_t below(size_t limit) { return at_ < bytes_.size() ? bytes_[at_++] % limit : 0; }
    /** 1 to `limit`, small numbers more often than large ones. */
    size_t small(size_t limit) { return 1 + below(1 + below(limit)); }
    /** One of some words. */
    std::string word(const std::string& words, const char* separator = " ") {
        const std::vector<std::string> choices = android::base::Split(words, separator);
        return choices[below(choices.size())];
    }
    /** Any text. */
    std::string text() {
        std::string text(below(64), '\0');
        for (char& letter : text) letter = static_cast<char>(below(256));
        return text;
    }

  private:
    std::vector<uint8_t> bytes_;
    size_t at_ = 0;
};

/** Methods; and those of them that do not wait for the device. */
constexpr char kMethods[] =
        "FBO_trigger FBO_trigger FBO_trigger SnapShot_startBackup SnapShot_startBackup "
        "SnapShot_startDrop EUA_SendEraseCmd";
constexpr char kQueries[] =
        "FBO_isSupport FBO_VersionCtrl FBO_GCADisCard FBO_stateCtl EUA_isSupport EUA_SupportSize "
        "EUA_GetFreeSpaceAPECycle SnapShot_getStatus";

/** Names with blanks between: of every device, and of those that are not alike. */
struct Names {
    const char *all, *ufs40, *ufs31, *slow_snapshot;

    std::string of(const sim::Profile& profile) const {
        std::string names = all;
        names += profile.generation == sim::Generation::kUfs40 ? ufs40 : ufs31;
        return names + (isSlow(profile) ? slow_snapshot : "");
    }
    /** Whether the device takes its time before and after a snapshot. */
    static bool isSlow(const sim::Profile& profile) {
        return profile.vendor == "MICRON" || profile.vendor == "KIOXIA";
    }
};

/** Files, directories and links with what can go wrong with them. */
struct Nodes {
    Names names;
    const char* faults;
    /** The setting for what they answer, and what that may be; null: garbage. */
    const char *script, *answers;
};

constexpr Nodes kNodes[] = {
        {{"fbo_max_lrc is_ufs31 fbo_get_lr_frag_level fbo_get_lr_frag_level hr vendor status "
          "status fbo_support eua_support eua_support_size inquiry",
          " fbo_prog_state fbo_prog_state fbo_prog_state fbo2_linear_map_state "
          "fbo2_linear_mapping_start",
          " fbs_flc_ops fbs_flc_ops fbs_flc_ops fbs_defrag_ops fbs_defrag_ops", ""},
         "missing unreadable read-error",
         "node.",
         nullptr},
        {{"debug fbo_exe_level fbo_wholefile_enable fbo_err_cnt fbo_retry_cnt dropfreesize "
          "dropfreesize gc_urgent",
          "", "", ""},
         "missing unreadable/unwritable read-error write-error",
         "node.",
         nullptr},
        {{"fbo_send_lr_list ctrl ctrl drop_caches eua_file_lba_unmap gsort gsort",
          " fbo_operation_control", " fbs_flc_enable fbs_defrag_enable", ""},
         "missing unwritable write-error",
         "store.",
         "*/!EINVAL/* !EIO/* ~40:* */*/!ENOMEM/*"},
        {{"ufsfbo ufssnapshot ufseua userdata", "", "", ""}, "missing", "fault.", "missing none"},
};

/** What a device is set to that misbehaves. */
constexpr Names kSettings = {
        "analysis=stuck analysis=6/stuck analysis=1201 analysis_end=9/-1 analysis_end=255 "
        "analysis_end=1 optimise=stuck optimise=1201 optimise_end=255/-1 optimise_end=2 report=28 "
        "report=28/4096 clear=31 clear=400 backup=stuck backup=100 backup_end=6 backup_end=5 "
        "drop_end=6 snapshot=6 snapshot=1 snapshot=2 wear=1 eua=0 eua_size=0 gsort_size=9437192 "
        "gsort_size=9437204",
        " mapping=stuck mapping_end=255", " accept=stuck accept=0/stuck accept=90 accept=301",
        " backup_idle=stuck drop=stuck drop=29"};

/** The settings while nothing is wrong: four ranges in a zone, so that a request has several. */
constexpr Names kUsual = {
        "ranges=4,analysis=6,analysis_end=-1,optimise=6,optimise_end=-1,clear=0,report=4096,"
        "backup=2,backup_end=2,drop_end=-1,gsort_size=16777216,bootlun=16909320,eua=1,"
        "eua_size=65536",
        ",mapping=3,mapping_end=-1", ",accept=0", ",backup_idle=1,drop=1"};

/** What a node may say that says nothing; or too much, or what belongs elsewhere. */
const std::string kGarbage =
        "|*|!EIO|~40:!ENODEV|\n|x|1x|-1|0|1|2|3|255|2/3/1|2147483648|-2147483649| "
        "\t1|\xff\xfe|idle|inprogress\n|%s%n|"
        "complete_backup\n|frag_lvl: z, lr_count: 0, optimised: 0\n|"
        "frag_lvl: 0, lr_count: 1, optimised: 0\n/frag_lvl: 9, lr_count: 1, optimised: 0\n|" +
        std::string(5000, '7');

/** A call of a method, and what it is told. */
struct Call {
    std::string method;
    std::string text;
};

/** Something that happens at a moment: the start, or a sleep or log line of the calling thread. */
struct Event {
    /** 0 for the start, then on and on. */
    size_t moment;
    /**
     * A setting of the device, see sim::Simulator::set(); "tell" for a call of FBO_stateCtl();
     * or "uevent" for a drop request.
     */
    std::string key;
    std::string value;
};

inline Event makeEvent(Bytes& bytes, const sim::Profile& profile) {
    const size_t at = bytes.below(4);
    const size_t moment = at < 2 ? 0 : bytes.small(at == 2 ? 40 : 250);
    const size_t kind = bytes.below(16);
    if (kind < 3) return {moment, "tell", bytes.word("stop stop stop continue")};
    if (kind < 4) return {moment, "uevent", ""};
    if (kind < 9) {
        const std::string setting = bytes.word(kSettings.of(profile));
        const size_t end = setting.find('=');
        return {moment, setting.substr(0, end), setting.substr(end + 1)};
    }
    const Nodes& nodes = kNodes[std::stoi(bytes.word("0 0 0 0 1 2 2 3"))];
    const std::string node = bytes.word(nodes.names.of(profile));
    if (kind < 12) return {moment, "fault." + node, bytes.word(nodes.faults)};
    const std::string key = nodes.script + node;
    if (nodes.answers != nullptr) return {moment, key, bytes.word(nodes.answers)};
    const std::string first = kind == 15 ? sim::escape(bytes.text()) : bytes.word(kGarbage, "|");
    return {moment, key, first + (kind < 14 ? "" : "/" + bytes.word(kGarbage, "|"))};
}

inline Call makeCall(Bytes& bytes) {
    Call call{bytes.word(bytes.below(4) > 0 ? kMethods : kQueries), ""};
    const size_t kind = bytes.below(8);
    if (kind == 0) call.text = bytes.text() + "?";
    if (kind == 1) call.text = bytes.word("V V:1.0,>0.9:ON ,ON,1.0:ON V:1.1,ON stop continue");
    for (size_t left = kind < 2 ? 0 : bytes.small(20); left > 0; --left) {
        call.text += std::to_string(1000 * left + bytes.below(256)) + ",8,";
    }
    return call;
}

/** All that happens in a run. */
struct Scenario {
    explicit Scenario(Bytes bytes);

    const sim::Profile& profile;
    std::string wear;
    /** The settings while nothing is wrong. */
    std::string usual;
    /** What the simulated device is made from, see sim::Simulator. */
    std::string device;
    /** Whether the partition has a boot-LUN record, or zeros in its place. */
    bool has_record;
    /** How often a recovered device is looked at until it is done. */
    int looks;
    std::vector<Call> calls;
    /** Those that a second thread makes meanwhile. */
    std::vector<Call> calls_beside;
    std::vector<Event> events;
    /** Where a system call of the calling thread begins or ends with which the service is killed.
     */
    size_t last_stop = 0;
};

inline Scenario::Scenario(Bytes bytes)
    : profile(sim::profiles()[bytes.below(sim::profiles().size())]),
      wear(bytes.word("120 2399 2400 65535")),
      usual(kUsual.of(profile) + ",wear=" + wear),
      device(profile.name + ",platform=" + bytes.word("qcom mtk") +
             (profile.vendor == "SKhynix" ? ",tbw=" + bytes.word("0 1 65536") : "") +
             ",snapshot=" + bytes.word("0 2") + "," + usual),
      has_record(bytes.below(8) > 0),
      looks(std::stoi(bytes.word("1 1 2 2 3 3 3 200"))) {
    for (size_t left = 1 + bytes.below(6); left > 0; --left) calls.push_back(makeCall(bytes));
    for (size_t left = bytes.below(16); left > 0; --left)
        events.push_back(makeEvent(bytes, profile));
    const size_t special = bytes.below(16);
    if (special < 3) last_stop = bytes.small(256) * bytes.small(256);
    for (size_t left = special == 3 ? bytes.small(60) : 0; left > 0; --left) {
        calls_beside.push_back({bytes.word(kQueries), bytes.word("stop continue")});
    }
}
