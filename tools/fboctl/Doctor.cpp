/*
 * Looks at everything that the service will reach for, without changing any of it.
 */

#include <cutils/uevent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <json/json.h>

#include "Answers.h"
#include "Commands.h"
#include "Controller.h"
#include "Platform.h"
#include "Session.h"
#include "StatusWords.h"
#include "fbo/defrag/Capability.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/eua/EuaNodes.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/SnapshotNodes.h"
#include "fbo/utils/Makers.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Properties.h"

namespace fboctl {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;
using android::base::unique_fd;

// What is left for a run to show.
constexpr char kUnseen[] = "the nodes take what is written";
constexpr char kWhyUnseen[] = "not looked at, as nothing is written here";

/** The result of a check: what was checked, what is wrong, and what to do about it. */
struct Finding {
    std::string feature;
    std::string what;
    /** What is wrong; empty if nothing is. */
    std::string wrong;
    std::string advice;
};

/** The content of a file, or why it cannot be read. */
struct Content {
    std::string text;
    std::string error;
};

Content readFile(const std::string& path) {
    Content content;
    const unique_fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.ok() || !android::base::ReadFdToString(fd, &content.text)) {
        content.error = strerror(errno);
    }
    return content;
}

/** Whether `text` begins with a number that the service can take; what is wrong if not. */
std::string checkNumber(const std::string& text) {
    try {
        std::stoi(text);
        return {};
    } catch (const std::exception&) {
        return "\"" + text.substr(0, text.find('\n')) + "\" is no number of 32 bits";
    }
}

class Doctor {
  public:
    /**
     * @param session the service, to ask for the wear and the policy; null if there is none.
     * @param no_service why there is none; empty if there is one.
     */
    Doctor(const Session* session, const std::string& no_service, const LogLines& log)
        : session_(session), no_service_(no_service), log_(log) {}

    const std::vector<Finding>& examine() {
        examineService();
        examineController();
        examineFbo();
        examineEua();
        examineSnapshot();
        return findings_;
    }

  private:
    void add(const std::string& what, const std::string& wrong, const std::string& advice) {
        findings_.push_back({feature_, what, wrong, advice});
    }

    /** The name of a node in a finding: its path without the controller's directory. */
    std::string nameOf(const std::string& path) const {
        const bool ours = !controller_.empty() && android::base::StartsWith(path, controller_);
        return ours ? path.substr(controller_.size() + 1) : path;
    }

    /** Checks that a node can be read; true if so. */
    bool readable(const std::string& path, std::string* text = nullptr) {
        Content content = readFile(path);
        add(nameOf(path) + " is readable", content.error,
            "the driver must offer it, and the service be allowed to read it");
        if (text != nullptr) *text = content.text;
        return content.error.empty();
    }

    /** Checks that a node holds a number, and returns it; nothing if it does not. */
    std::optional<int> number(const std::string& path) {
        std::string text;
        if (!readable(path, &text)) return std::nullopt;
        const std::string wrong = checkNumber(text);
        add(nameOf(path) + " holds a number", wrong,
            "the service ends the call with an error otherwise");
        if (!wrong.empty()) return std::nullopt;
        return std::stoi(text);
    }

    /** Checks that a node can be opened for writing, without truncating or writing it. */
    void writable(const std::string& path) {
        const unique_fd fd(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        add(nameOf(path) + " is writable", fd.ok() ? "" : strerror(errno),
            "the driver must offer it, and the service be allowed to write it");
    }

    /** Looks at a state of the device, which is at work in the states `busy`. */
    void atRest(const std::string& path, std::initializer_list<int> busy) {
        constexpr int kFailed = 255;
        const std::optional<int> state = number(path);
        if (!state) return;
        const bool is_busy = std::find(busy.begin(), busy.end(), *state) != busy.end();
        add(nameOf(path) + " is at rest",
            is_busy             ? "state " + std::to_string(*state) + ", the device is at work"
            : *state == kFailed ? "state 255, the last operation has failed"
                                : "",
            "a run clears the device first, which takes up to 5 minutes");
    }

    void numberProperty(const Property& property) {
        add(std::string("property ") + property.name + " is a number",
            checkNumber(property.value()), "unset it, or set a number");
    }

    void examineService();
    void examineController();
    void examineVendor();
    void examineFbo();
    void examineHealth();
    void examineWear();
    void examineUserdata();
    void examineEua();
    void examinePolicy();
    void examineSnapshot();
    void examineRecord();
    void examineSwitch();
    void examineStatus(const std::string& path);

    const Session* const session_;
    const std::string no_service_;
    const LogLines& log_;
    std::string feature_;
    std::string controller_;
    std::string vendor_;
    bool maker_known_ = false;
    std::vector<Finding> findings_;
};

void Doctor::examineService() {
    feature_ = "all";
    add("the service can be asked", no_service_,
        "start it; neither wear nor EUA policy is looked at without it");
}

void Doctor::examineController() {
    feature_ = "all";
    const Controller found = findController();
    controller_ = found.directory;
    add("the host controller is " + (controller_.empty() ? "in " + found.driver : controller_),
        found.wrong,
        "check the driver, and the property ro.hardware (qcom or not picks the directory)");
    examineVendor();
}

void Doctor::examineVendor() {
    if (!readable(kVendorNode, &vendor_)) return;
    vendor_.resize(std::min<size_t>(vendor_.size(), 10));
    maker_known_ = findMaker(vendor_) != nullptr;
    add("the maker of the flash is known",
        maker_known_ ? "" : "\"" + vendor_.substr(0, vendor_.find('\n')) + "\" has no table",
        "without one the wear stays unknown and fragmentation levels count as they are");
}

void Doctor::examineFbo() {
    feature_ = "fbo";
    examineHealth();
    examineUserdata();
    if (controller_.empty()) return;
    const std::string nodes = controller_ + kFboDirectory;
    std::string support;
    if (readable(nodes + node::kSupport, &support)) {
        add("the driver offers FBO", support[0] == '1' ? "" : "fbo_support does not begin with 1",
            "FBO_isSupport answers false");
    }
    const std::optional<int> ufs31 = number(nodes + node::kIsUfs31);
    if (ufs31) {
        add("the UFS generation makes sense",
            *ufs31 == 0 || *ufs31 == 1 ? "" : "is_ufs31 is " + std::to_string(*ufs31),
            "anything but 1 is taken for UFS 4.0");
    }
    number(nodes + node::kMinLbaSize);
    if (const auto ranges = number(nodes + node::kMaxLbaCount)) {
        add("the range limit makes sense",
            *ranges > 0 ? "" : "fbo_max_lrc is " + std::to_string(*ranges),
            "with a limit below 1 a whole request is sent as one list");
    }
    readable(nodes + node::kFragLevel);
    for (const char* name : {node::kDebug, node::kExeLevel, node::kWholefileEnable,
                             node::kSendLrList, node::kErrorCount, node::kRetryCount}) {
        writable(nodes + name);
    }
    if (ufs31 == 1) {
        writable(nodes + node::kFlcEnable);
        atRest(nodes + node::kFlcOps, {2});
        writable(nodes + node::kDefragEnable);
        atRest(nodes + node::kDefragOps, {2, 3});
        return;
    }
    writable(nodes + node::kOperationControl);
    atRest(nodes + node::kProgState, {1});
    if (number(nodes + node::kLinearMapState) != 1) return;
    readable(nodes + node::kLinearMappingStart);
    readable(nodes + node::kLinearMappingEnd);
}

void Doctor::examineHealth() {
    std::string report;
    if (!readable(kHealthReportNode, &report)) return;
    add("the health report is complete",
        report.size() >= 1024 ? "" : std::to_string(report.size()) + " of 1024 characters",
        "what is missing repeats the last byte, and the wear may be wrong");
    if (report.size() >= 1024 && maker_known_) examineWear();
}

void Doctor::examineWear() {
    if (session_ == nullptr) return;
    std::string wrong;
    try {
        const std::optional<int> cycles = askWear(*session_).cycles;
        if (!cycles) {
            wrong = "it is not known";
        } else if (*cycles >= kWornOut) {
            wrong = std::to_string(*cycles) + " program/erase cycles";
        }
    } catch (const CallError& error) {
        wrong = error.what();
    }
    add("the wear is below " + std::to_string(kWornOut) + " cycles", wrong,
        "FBO_isSupport answers false on worn flash");
}

void Doctor::examineUserdata() {
    const std::string link = kUserdataLink;
    std::string path;
    const bool is_link = android::base::Readlink(link, &path);
    add(link + " is a link", is_link ? "" : strerror(errno),
        "without it urgent garbage collection finds no volume");
    if (!is_link) return;
    writable(kF2fsDirectory + path.substr(path.rfind('/') + 1) + kUrgentGcNode);
}

void Doctor::examineEua() {
    feature_ = "eua";
    if (controller_.empty()) return;
    const std::string nodes = controller_ + kEuaDirectory;
    const std::optional<int> support = number(nodes + node::kEuaSupport);
    if (support) {
        add("the driver offers EUA", support == 1 ? "" : "eua_support is not 1",
            "EUA_isSupport answers false");
    }
    if (const auto size = number(nodes + node::kEuaSupportSize)) {
        add("the EUA size is above 0", *size > 0 ? "" : "it is " + std::to_string(*size),
            "a client has nothing to ask for");
    }
    writable(nodes + node::kEuaUnmap);
    std::string inquiry;
    if (!readable(controller_ + kScsiDirectory + node::kInquiry, &inquiry)) return;
    add("the INQUIRY data is long enough",
        inquiry.size() >= 36 ? "" : std::to_string(inquiry.size()) + " of 36 bytes",
        "the part cannot be identified");
    if (support == 1) examinePolicy();
}

void Doctor::examinePolicy() {
    if (session_ == nullptr) return;
    std::string wrong;
    try {
        wrong = askEua(*session_, log_).reason;
    } catch (const CallError& error) {
        wrong = error.what();
    }
    add("no policy row excludes phone and part from EUA", wrong, "EUA_isSupport answers false");
}

void Doctor::examineSnapshot() {
    feature_ = "snapshot";
    writable(kDropCachesNode);
    examineRecord();
    examineSwitch();
    numberProperty(kMaxLimitProperty);
    numberProperty(kMinLimitProperty);
    numberProperty(kDeviceFreeBlockProperty);
    const unique_fd socket(uevent_open_socket(64 * 1024, true));
    add("the uevent socket opens", socket.ok() ? "" : strerror(errno),
        "the service must be allowed netlink_kobject_uevent_socket");
    if (controller_.empty()) return;
    const std::string nodes = controller_ + kSnapshotDirectory;
    writable(nodes + node::kSnapshotCtrl);
    examineStatus(nodes + node::kSnapshotStatus);
    if (hasSlowSnapshot(vendor_)) {
        number(nodes + node::kDropFreeSize);
        writable(nodes + node::kDropFreeSize);
    }
}

/** The words of the property as the service looks for them, one after the other. */
void Doctor::examineSwitch() {
    const std::string control = kSnapshotControlProperty.value();
    const auto says = [&](const std::string& word) { return control.find(word) != control.npos; };
    std::string wrong;
    if (!says("default") && says("false")) {
        wrong = "it says \"false\"";
    } else if (!says("default") && !says("true")) {
        const std::string inquiry = readFile(controller_ + kScsiDirectory + node::kInquiry).text;
        if (inquiry.size() < 36) {
            wrong = "the part is not known";
        } else if (says(inquiry.substr(16, 16))) {
            wrong = "it names this part, " + inquiry.substr(16, 16);
        }
    }
    add(std::string("property ") + kSnapshotControlProperty.name + " leaves snapshots on", wrong,
        "SnapShot_startBackup answers false");
}

void Doctor::examineStatus(const std::string& path) {
    std::string word;
    if (!readable(path, &word)) return;
    word = word.substr(0, word.find_first_of(" \t\n"));
    const char* const* const known =
            std::find(std::begin(kStatusWords), std::end(kStatusWords), word);
    std::string wrong;
    if (known == std::end(kStatusWords)) {
        wrong = "\"" + word + "\" is no word that the service knows; it takes it for idle";
    } else if (word == "inprogress" || word == "internal_error") {
        wrong = "it is " + word;
    }
    add("the snapshot status is a quiet one", wrong, "a backup or a drop may not end well now");
}

void Doctor::examineRecord() {
    const std::string path = kGsortPartition;
    const unique_fd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    add(path + " opens for reading and writing", fd.ok() ? "" : strerror(errno),
        "without it no backup is taken");
    if (!fd.ok()) return;
    char magic[sizeof(kSnapshotMagic)] = {};
    const bool read =
            android::base::ReadFullyAtOffset(fd, magic, sizeof(magic), kBootLunRecordOffset);
    const bool good = read && memcmp(magic, kSnapshotMagic, sizeof(magic)) == 0;
    add("the boot-LUN record has its magic",
        good ? "" : "no \"snapshot\" at " + std::to_string(kBootLunRecordOffset),
        "the record is then written back as it is, and protects no boot LUN");
}

/** Prints the findings, a line each, with what to do about the bad ones. */
void print(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        const bool well = finding.wrong.empty();
        printf("%s %-8s %s%s%s\n", well ? "\u2713" : "\u2717", finding.feature.c_str(),
               finding.what.c_str(), well ? "" : ": ", finding.wrong.c_str());
        if (!well) printf("           -> %s\n", finding.advice.c_str());
    }
    printf("? %-8s %s: %s\n", "all", kUnseen, kWhyUnseen);
}

Json::Value describe(const std::vector<Finding>& findings) {
    Json::Value list(Json::arrayValue);
    for (const Finding& finding : findings) {
        Json::Value entry;
        entry["feature"] = finding.feature;
        entry["check"] = finding.what;
        entry["ok"] = finding.wrong.empty();
        if (!finding.wrong.empty()) {
            entry["wrong"] = finding.wrong;
            entry["advice"] = finding.advice;
        }
        list.append(entry);
    }
    Json::Value unseen;
    unseen["feature"] = "all";
    unseen["check"] = kUnseen;
    unseen["ok"] = Json::Value::null;
    unseen["wrong"] = kWhyUnseen;
    list.append(unseen);
    return list;
}

}  // namespace

ExitStatus doctor(const Options& options) {
    const std::string wanted = options.arguments.empty() ? "" : options.arguments[0];
    if (!wanted.empty() && wanted != "fbo" && wanted != "eua" && wanted != "snapshot") {
        throw UsageError("doctor takes fbo, eua or snapshot, not \"" + wanted + "\"");
    }
    LogLines log;
    std::unique_ptr<Session> session;
    std::string no_service;
    try {
        session = std::make_unique<Session>(options, log.reader());
        if (const char* why = session->platform().whyNoNodes()) throw UsageError(why);
    } catch (const NoService& missing) {
        // On a phone the service need not run yet; everything else can still be checked.
        no_service = missing.what();
    }
    Doctor doctor(session.get(), no_service, log);
    std::vector<Finding> findings;
    for (const Finding& finding : doctor.examine()) {
        if (wanted.empty() || finding.feature == wanted || finding.feature == "all") {
            findings.push_back(finding);
        }
    }
    if (options.json) {
        printJson(describe(findings));
    } else {
        print(findings);
    }
    if (session == nullptr) return kNoAnswer;
    const bool well = std::all_of(findings.begin(), findings.end(),
                                  [](const Finding& finding) { return finding.wrong.empty(); });
    return well ? kDone : kNo;
}

}  // namespace fboctl
