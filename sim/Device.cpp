#include "sim/Device.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "fbo/defrag/FboNodes.h"
#include "fbo/eua/EuaNodes.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/SnapshotNodes.h"
#include "fbo/utils/Makers.h"
#include "fbo/utils/Paths.h"
#include "sim/DeviceData.h"

namespace sim {

namespace {

/*
 * The names of all nodes are the library's. The Docs test holds what is served against the table in
 * docs/nodes.md, so a wrong name shows there; UtilsTest does so for the drivers' directories.
 */
using namespace vendor::nivora::hardware::fbo::implementation;

// fbo_prog_state of a UFS 4.0 device.
constexpr int kIdle = 0;
constexpr int kOngoing = 1;
constexpr int kAnalysed = 2;
constexpr int kOptimised = 3;
constexpr int kMapped = 5;

// fbs_flc_ops and fbs_defrag_ops of a UFS 3.1 device.
constexpr int kListAccepted31 = 1;
constexpr int kOngoing31 = 2;
constexpr int kAnalysed31 = 3;
constexpr int kDefragmented31 = 0;

// The states of the snapshot, and the driver's words for them. Held apart from the library's own
// table, which is no header; SnapshotTest has both in its rows.
constexpr int kSnapshotIdle = 0;
constexpr int kInProgress = 1;
constexpr int kBackupComplete = 2;
constexpr int kDroppedByHost = 4;
constexpr const char* kSnapshotWords[] = {
        "idle",         "inprogress",     "complete_backup", "complete_restore",
        "drop_by_host", "drop_by_device", "internal_error"};

std::string line(int64_t number) {
    return std::to_string(number) + "\n";
}

/**
 * The number that a store holds, as the kernel's kstrtoint() takes it: base 10, with a sign or
 * none, up to a NUL or the end, and a line feed before that at most. Returns 0, or a negative errno
 * if it is none.
 */
int parseNumber(std::string_view text, int& number) {
    text = text.substr(0, text.find('\0'));
    android::base::ConsumeSuffix(&text, "\n");
    const bool is_negative = android::base::ConsumePrefix(&text, "-");
    if (!is_negative) android::base::ConsumePrefix(&text, "+");
    const bool is_number = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
    if (!is_number) return -EINVAL;
    const std::string digits = (is_negative ? "-" : "") + std::string(text);
    return android::base::ParseInt(digits, &number) ? 0 : -ERANGE;
}

}  // namespace

void Operation::start(int64_t now, int64_t seconds, int end_state) {
    phase_ = Phase::kOngoing;
    ends_ = now + seconds;
    clears_ = kStuck;
    end_state_ = end_state;
    settle(now);
}

void Operation::clear(int64_t now, int64_t seconds) {
    clears_ = now + seconds;
    settle(now);
}

void Operation::settle(int64_t now) {
    if (phase_ == Phase::kOngoing && now >= ends_) phase_ = Phase::kEnded;
    if (now >= clears_) {
        phase_ = Phase::kIdle;
        clears_ = kStuck;
    }
}

int Operation::state(int idle, int ongoing) const {
    switch (phase_) {
        case Phase::kOngoing:
            return ongoing;
        case Phase::kEnded:
            return end_state_;
        default:
            return idle;
    }
}

Device::Device(const Profile& profile, bool mtk, Tree& tree)
    : profile_(profile),
      product_(profile.product),
      revision_(profile.revision),
      tree_(tree),
      settings_(profile) {
    const std::string driver = mtk ? kMtkDriver : kQcomDriver;
    const std::string controller = mtk ? "112b0000.ufshci" : "1d84000.ufshc";
    const std::string device = "/sys/devices/platform/soc/" + controller;
    addSysfsEntries(driver.substr(0, driver.size() - 1), device);
    addFboNodes(device + kFboDirectory);
    addEuaNodes(device + kEuaDirectory);
    addSnapshotNodes(device + kSnapshotDirectory);
    tree_.addFile(device + kScsiDirectory + node::kInquiry,
                  {[this] { return inquiryData(profile_.vendor, product_, revision_); }, nullptr});
    addPhone();
}

void Device::addSysfsEntries(const std::string& driver, const std::string& device) {
    // Driver and device stand four directories below this one.
    const std::string sys = "../../../..";
    for (const char* own : {"bind", "unbind", "uevent"}) {
        tree_.addFile(driver + "/" + own, {nullptr, [](std::string_view) { return -ENODEV; }});
    }
    tree_.addLink(driver + "/module", sys + "/module/ufshcd");
    tree_.addLink(driver + "/" + nameOf(device), sys + device.substr(strlen("/sys")));
    tree_.addLink(device + "/driver", sys + driver.substr(strlen("/sys")));
    tree_.addLink(device + "/subsystem", sys + "/bus/platform");
    tree_.addDirectory(device + "/power");
    tree_.addFile(device + "/uevent", {[name = nameOf(driver)] { return "DRIVER=" + name + "\n"; },
                                       [](std::string_view) { return 0; }});
}

void Device::addPhone() {
    tree_.addFile(kVendorNode, {[this] {
                                    std::string vendor = profile_.vendor;
                                    vendor.resize(8, ' ');
                                    return vendor + "\n";
                                },
                                nullptr});
    tree_.addFile(kHealthReportNode, {[this] {
                                          return healthReport(
                                                  profile_.vendor,
                                                  static_cast<uint32_t>(settings_.take("wear")),
                                                  static_cast<uint32_t>(settings_.take("tbw")));
                                      },
                                      nullptr});
    linkUserdata("/dev/block/dm-5");
    addPlainNode(std::string(kF2fsDirectory) + "dm-5" + kUrgentGcNode, line(0));
    tree_.addFile(kGsortPartition, {nullptr, nullptr,
                                    [this](char* bytes, size_t count, off_t offset) {
                                        return partition_.read(bytes, count, offset);
                                    },
                                    [this](const char* bytes, size_t count, off_t offset) {
                                        return partition_.write(bytes, count, offset);
                                    }});
    tree_.addFile(kDropCachesNode, {nullptr, [](std::string_view) { return 0; }});
    tree_.setSpace(kUserData, [this] {
        constexpr fsblkcnt_t kBlocksPerGib = (1 << 30) / 4096;
        struct statvfs space {};
        space.f_bsize = space.f_frsize = 4096;
        space.f_blocks = static_cast<fsblkcnt_t>(settings_.take("userdata_gib")) * kBlocksPerGib;
        space.f_bfree =
                static_cast<fsblkcnt_t>(settings_.take("userdata_free_gib")) * kBlocksPerGib;
        // What is kept back for the superuser.
        space.f_bavail = space.f_bfree - space.f_bfree / 20;
        return space;
    });
}

void Device::setProduct(std::string product) {
    if (product.size() > kProductLength)
        throw std::invalid_argument("it has 16 characters at most");
    product_ = std::move(product);
}

void Device::setRevision(std::string revision) {
    if (revision.size() > kRevisionLength) {
        throw std::invalid_argument("it has 4 characters at most");
    }
    revision_ = std::move(revision);
}

void Device::linkUserdata(std::string target) {
    tree_.addLink(kUserdataLink, std::move(target));
}

void Device::addPlainNode(const std::string& path, std::string value) {
    plain_[path] = std::move(value);
    tree_.addFile(path, {[this, path] { return plain_[path]; },
                         [this, path](std::string_view text) {
                             int number;
                             if (const int refused = parseNumber(text, number); refused != 0)
                                 return refused;
                             plain_[path] = line(number);
                             return 0;
                         }});
}

void Device::addFboNodes(const std::string& directory) {
    const auto add = [&](const char* name, std::function<std::string()> show) {
        tree_.addFile(directory + name, {std::move(show), nullptr});
    };
    add(node::kSupport, [] { return line(1); });
    add(node::kIsUfs31, [this] { return line(is31_ ? 1 : 0); });
    add(node::kMinLbaSize, [] { return line(1); });
    add(node::kMaxLbaCount, [this] {
        const int64_t ranges = settings_.take("ranges");
        return line(ranges > 0 ? ranges : profile_.max_ranges);
    });
    add(node::kFragLevel, [this] { return report(); });
    for (const char* name : {node::kDebug, node::kExeLevel, node::kWholefileEnable,
                             node::kErrorCount, node::kRetryCount}) {
        addPlainNode(directory + name, line(0));
    }
    tree_.addFile(directory + node::kSendLrList,
                  {nullptr, [this](std::string_view text) { return storeList(text); }});
    if (is31_) {
        addUfs31Nodes(directory);
    } else {
        addUfs40Nodes(directory);
    }
}

void Device::addUfs40Nodes(const std::string& directory) {
    tree_.addFile(directory + node::kOperationControl,
                  {nullptr, [this](std::string_view text) { return control40(text); }});
    tree_.addFile(directory + node::kProgState, {[this] {
                                                     settle();
                                                     return line(operation_.state(kIdle, kOngoing));
                                                 },
                                                 nullptr});
    tree_.addFile(directory + node::kLinearMapState,
                  {[this] { return line(settings_.take("linear")); }, nullptr});
    tree_.addFile(directory + node::kLinearMappingStart, {[] { return line(0); }, nullptr});
    tree_.addFile(directory + node::kLinearMappingEnd, {[] { return line(262144); }, nullptr});
}

void Device::addUfs31Nodes(const std::string& directory) {
    tree_.addFile(directory + node::kFlcEnable,
                  {nullptr, [this](std::string_view text) { return enableAnalysis31(text); }});
    tree_.addFile(directory + node::kFlcOps,
                  {[this] {
                       settle();
                       const int state = operation_.state(kIdle, kOngoing31);
                       return line(state == kIdle ? acceptance_.state(kIdle, kIdle) : state);
                   },
                   nullptr});
    tree_.addFile(directory + node::kDefragEnable,
                  {nullptr, [this](std::string_view text) { return enableDefrag31(text); }});
    tree_.addFile(directory + node::kDefragOps, {[this] {
                                                     settle();
                                                     return line(defrag_.state(kIdle, kOngoing31));
                                                 },
                                                 nullptr});
}

void Device::addEuaNodes(const std::string& directory) {
    tree_.addFile(directory + node::kEuaSupport,
                  {[this] { return line(settings_.take("eua")); }, nullptr});
    tree_.addFile(directory + node::kEuaSupportSize,
                  {[this] { return line(settings_.take("eua_size")); }, nullptr});
    tree_.addFile(directory + node::kEuaUnmap,
                  {nullptr, [this](std::string_view text) { return unmap(text); }});
}

void Device::addSnapshotNodes(const std::string& directory) {
    applySettings("bootlun");
    applySettings("snapbootlun");
    tree_.addFile(directory + node::kSnapshotCtrl,
                  {nullptr, [this](std::string_view text) { return controlSnapshot(text); }});
    tree_.addFile(
            directory + node::kSnapshotStatus,
            {[this] { return std::string(kSnapshotWords[snapshotState()]) + "\n"; }, nullptr});
    addPlainNode(directory + node::kDropFreeSize, line(0));
}

bool Device::isSlowMaker() const {
    return hasSlowSnapshot(profile_.vendor);
}

int Device::snapshotState() const {
    int state = kSnapshotIdle;
    for (const auto& [since, next] : snapshot_) {
        if (now_ >= since) state = next;
    }
    return std::clamp(state, 0, static_cast<int>(std::size(kSnapshotWords)) - 1);
}

int Device::controlSnapshot(std::string_view text) {
    const int state = snapshotState();
    if (text == "start\n") {
        if (state == kInProgress || state == kBackupComplete) return -EBUSY;
        const int64_t begin = now_ + (isSlowMaker() ? settings_.take("backup_idle") : 0);
        snapshot_ = {
                {now_, kSnapshotIdle},
                {begin, kInProgress},
                {begin + settings_.take("backup"), static_cast<int>(settings_.take("backup_end"))}};
        return 0;
    }
    if (text == "stop\n") {
        const int64_t end = settings_.take("drop_end");
        const int dropped = isSlowMaker() ? kSnapshotIdle : kDroppedByHost;
        snapshot_ = {{now_, state},
                     {now_ + (isSlowMaker() ? settings_.take("drop") : 0),
                      end < 0 ? dropped : static_cast<int>(end)}};
        return 0;
    }
    return -EINVAL;
}

void Device::applySettings(std::string_view key) {
    if (key == "snapshot") {
        snapshot_ = {{now_, static_cast<int>(settings_.take("snapshot"))}};
    } else if (key == "bootlun") {
        partition_.setBootLun(static_cast<int32_t>(settings_.take("bootlun")));
    } else if (key == "snapbootlun") {
        partition_.setSnapshotBootLun(static_cast<int32_t>(settings_.take("snapbootlun")));
    }
}

int Device::unmap(std::string_view text) {
    std::vector<Range> ranges;
    // Without a line feed it is only the beginning.
    if (!android::base::ConsumeSuffix(&text, "\n") || !parseRanges(text, ranges)) return -EINVAL;
    flash_.unmap(ranges);
    return 0;
}

int Device::storeList(std::string_view text) {
    const bool is_page = text.size() == kPageSize;
    const bool is_line = android::base::ConsumeSuffix(&text, "\n");
    // What is sent to a UFS 3.1 device again is no line; only where it is cut, that shows.
    const bool is_whole = is_line || (is31_ && !is_page);
    std::vector<Range> ranges;
    if (!is_whole || !parseRanges(text, ranges)) {
        // On UFS 3.1 copies that are sent again in one store may be no list: the first one counts.
        if (is_line || !is_whole) dropList();
        return -EINVAL;
    }
    list_ = std::move(ranges);
    acceptance_.start(now_, settings_.take("accept"), kListAccepted31);
    return 0;
}

void Device::dropList() {
    list_.clear();
    acceptance_.clear(now_, 0);
}

int Device::control40(std::string_view text) {
    int number;
    if (const int refused = parseNumber(text, number); refused != 0) return refused;
    settle();
    const bool idle = operation_.state(kIdle, kOngoing) == kIdle;
    switch (number) {
        case 0:
            startClear(operation_);
            dropList();
            return 0;
        case 1:
            if (!idle || list_.empty()) return -EINVAL;
            startAnalysis(kAnalysed);
            return 0;
        case 2:
            if (command_ != Command::kAnalysis || operation_.state(kIdle, kOngoing) != kAnalysed) {
                return -EINVAL;
            }
            startOptimisation(operation_, kOptimised);
            return 0;
        case 4: {
            if (!idle || list_.empty()) return -EINVAL;
            command_ = Command::kMapping;
            const int64_t end = settings_.take("mapping_end");
            operation_.start(now_, settings_.take("mapping"),
                             end < 0 ? kMapped : static_cast<int>(end));
            return 0;
        }
        default:
            return -EINVAL;
    }
}

int Device::enableAnalysis31(std::string_view text) {
    int number;
    if (const int refused = parseNumber(text, number); refused != 0) return refused;
    settle();
    if (number == 0) {
        startClear(operation_);
        dropList();
        return 0;
    }
    if (number != 1 || acceptance_.state(kIdle, kIdle) != kListAccepted31) return -EINVAL;
    // The analysis uses the list up.
    acceptance_.clear(now_, 0);
    startAnalysis(kAnalysed31);
    return 0;
}

int Device::enableDefrag31(std::string_view text) {
    int number;
    if (const int refused = parseNumber(text, number); refused != 0) return refused;
    settle();
    if (number == 0) {
        startClear(defrag_);
        return 0;
    }
    if (number != 1 || operation_.state(kIdle, kOngoing31) != kAnalysed31) return -EINVAL;
    startOptimisation(defrag_, kDefragmented31);
    return 0;
}

void Device::startAnalysis(int success) {
    command_ = Command::kAnalysis;
    const int64_t end = settings_.take("analysis_end");
    operation_.start(now_, settings_.take("analysis"), end < 0 ? success : static_cast<int>(end));
}

void Device::startOptimisation(Operation& operation, int success) {
    command_ = Command::kOptimisation;
    const int64_t end = settings_.take("optimise_end");
    operation.start(now_, settings_.take("optimise"), end < 0 ? success : static_cast<int>(end));
    pending_ = &operation;
    pending_list_ = list_;
    pending_success_ = success;
    settle();
}

void Device::startClear(Operation& operation) {
    if (!operation.isClearable()) return;
    operation.clear(now_, settings_.take("clear"));
    if (pending_ == &operation) pending_ = nullptr;
}

void Device::settle() {
    operation_.settle(now_);
    defrag_.settle(now_);
    acceptance_.settle(now_);
    if (pending_ == nullptr || pending_->phase() != Operation::Phase::kEnded) return;
    if (pending_->state(-1, -1) == pending_success_) flash_.optimise(pending_list_);
    pending_ = nullptr;
}

std::string Device::report() {
    settle();
    const int level = flash_.level(list_);
    std::string text = "frag_lvl: ";
    text += level == 10 ? 'a' : static_cast<char>('0' + level);
    text += ", lr_count: " + std::to_string(list_.size()) +
            ", optimised: " + std::to_string(flash_.countOptimised(list_)) + "\n";
    return text.substr(0, static_cast<size_t>(settings_.take("report")));
}

}  // namespace sim
