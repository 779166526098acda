#pragma once

#include <string>

#include <android-base/properties.h>

namespace vendor::nivora::hardware::fbo::implementation {

/** A system property that the library reads, and what stands for it while it is unset. */
struct Property {
    const char* name;
    const char* unset;

    std::string value() const { return android::base::GetProperty(name, unset); }
};

/** Which driver the UFS host controller has. */
constexpr Property kHardwareProperty = {"ro.hardware", "qcom"};
/** The phone's model, for the table of those that must not use EUA. */
constexpr Property kDeviceProperty = {"ro.product.device", "name"};

// The snapshot policy: a text with a word or part numbers, and three numbers.
constexpr Property kSnapshotControlProperty = {"vendor.snapshot_control", "default"};
constexpr Property kMaxLimitProperty = {"vendor.snapshot_freespace.maxlimit", "20"};
constexpr Property kMinLimitProperty = {"vendor.snapshot_freespace.minlimit", "8"};
constexpr Property kDeviceFreeBlockProperty = {"vendor.snapshot_devicefreeblock", "16"};

}  // namespace vendor::nivora::hardware::fbo::implementation
