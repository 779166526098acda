#pragma once

namespace vendor::nivora::hardware::fbo::implementation {

/** The snapshot nodes' directory below the host controller. */
constexpr char kSnapshotDirectory[] = "/ufssnapshot/";

namespace node {

constexpr char kSnapshotCtrl[] = "ctrl";
constexpr char kSnapshotStatus[] = "status";
constexpr char kDropFreeSize[] = "dropfreesize";

}  // namespace node

}  // namespace vendor::nivora::hardware::fbo::implementation
