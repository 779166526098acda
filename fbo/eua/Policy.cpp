#include "fbo/eua/Policy.h"

#include "fbo/utils/Inquiry.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Properties.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

/** An empty `start` fits every text. */
bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

bool matches(const EuaPolicyRow& row, const std::string& device, const standard_inquiry& info) {
    return startsWith(device, row.device) && startsWith(info.vendor_id, row.vendor) &&
           startsWith(info.product_id, row.part_number) &&
           startsWith(info.product_rev, row.revision);
}

}  // namespace

bool checkDisableEuaPolicy() {
    standard_inquiry info;
    if (getUfsInfo(info) != 0) {
        FBO_LOGE("[EUA-HAL] getUfsInfo fail.");
        return false;
    }
    const std::string device = kDeviceProperty.value();
    int number = 0;
    for (const EuaPolicyRow& row : disableEuaPolicy) {
        if (matches(row, device, info)) {
            FBO_LOGD(
                    "[EUA-HAL] Check Policy match (%d), device (%s), vendor (%s), P/N (%s), "
                    "Rev (%s)",
                    number, row.device.c_str(), row.vendor.c_str(), row.part_number.c_str(),
                    row.revision.c_str());
            return true;
        }
        ++number;
    }
    return false;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
