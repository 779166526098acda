#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/Flash.h"
#include "sim/Partition.h"
#include "sim/Profile.h"
#include "sim/Settings.h"
#include "sim/Tree.h"

namespace sim {

/**
 * One operation of the device, such as an analysis: it is started, runs for some time, ends in a
 * state and keeps that state until it is cleared.
 */
class Operation {
  public:
    enum class Phase { kIdle, kOngoing, kEnded };

    void start(int64_t now, int64_t seconds, int end_state);
    /** Goes idle after `seconds`. */
    void clear(int64_t now, int64_t seconds);
    /** Whether the operation has run or runs, and is not being cleared yet. */
    bool isClearable() const { return phase_ != Phase::kIdle && clears_ == kStuck; }
    /** Brings the phase up to `now`. */
    void settle(int64_t now);

    Phase phase() const { return phase_; }
    /** The state to show: `idle`, `ongoing`, or the one that the operation ended in. */
    int state(int idle, int ongoing) const;

  private:
    Phase phase_ = Phase::kIdle;
    int64_t ends_ = kStuck;
    int64_t clears_ = kStuck;
    int end_state_ = 0;
};

/**
 * The UFS device, its host-controller driver and the phone around them: the texts of their nodes,
 * and how these change with the stores and with time.
 */
class Device {
  public:
    /** @param mtk whether the host controller is MediaTek's instead of Qualcomm's. */
    Device(const Profile& profile, bool mtk, Tree& tree);

    Settings& settings() { return settings_; }
    Flash& flash() { return flash_; }
    Partition& partition() { return partition_; }

    /** Applies the setting `key`, if it is one that takes effect when it is set. */
    void applySettings(std::string_view key);

    // Part number and revision in the INQUIRY data, without the blanks that fill them up. Throw
    // std::invalid_argument if they do not fit there.
    void setProduct(std::string product);
    void setRevision(std::string revision);

    /** Sets where the link to the userdata volume points. */
    void linkUserdata(std::string target);

    /** Lets `seconds` pass. */
    void advance(int64_t seconds) { now_ += seconds; }
    int64_t now() const { return now_; }

  private:
    /** What stands in the directories of each driver and each device. */
    void addSysfsEntries(const std::string& driver, const std::string& device);
    void addPhone();
    void addFboNodes(const std::string& directory);
    void addUfs40Nodes(const std::string& directory);
    void addUfs31Nodes(const std::string& directory);
    void addEuaNodes(const std::string& directory);
    void addSnapshotNodes(const std::string& directory);
    /** Adds a node whose number can be written and read back, and has no effect. */
    void addPlainNode(const std::string& path, std::string value);

    int storeList(std::string_view text);
    /** Leaves no list to start on. */
    void dropList();
    int unmap(std::string_view text);
    int controlSnapshot(std::string_view text);
    /** The snapshot's state now. */
    int snapshotState() const;
    /** Whether this maker's devices take some seconds to start a backup and to drop it. */
    bool isSlowMaker() const;
    int control40(std::string_view text);
    int enableAnalysis31(std::string_view text);
    int enableDefrag31(std::string_view text);

    void startAnalysis(int success);
    void startOptimisation(Operation& operation, int success);
    void startClear(Operation& operation);
    /** Brings all operations up to now and lets a finished optimisation take effect. */
    void settle();
    std::string report();

    const Profile& profile_;
    const bool is31_ = profile_.generation == Generation::kUfs31;
    std::string product_;
    std::string revision_;
    Tree& tree_;
    Settings settings_;
    Flash flash_;
    Partition partition_;
    int64_t now_ = 0;

    /** The states of the snapshot, each with the time at which it begins. */
    std::vector<std::pair<int64_t, int>> snapshot_ = {{0, 0}};

    std::vector<Range> list_;
    std::map<std::string, std::string> plain_;

    /** UFS 4.0: every operation. UFS 3.1: the analysis. */
    Operation operation_;
    /** UFS 3.1: the defragmentation. */
    Operation defrag_;
    /** UFS 3.1: the acceptance of the list. */
    Operation acceptance_;
    /** The command that operation_ runs; on UFS 4.0 an optimisation has to follow an analysis. */
    enum class Command { kNone, kAnalysis, kOptimisation, kMapping } command_ = Command::kNone;
    /** The optimisation that has not taken effect yet, its list, and the state that it has to
     * reach. */
    Operation* pending_ = nullptr;
    std::vector<Range> pending_list_;
    int pending_success_ = 0;
};

}  // namespace sim
