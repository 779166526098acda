#include "fbo/utils/Inquiry.h"

#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr size_t kInquiryLength = 36;

constexpr int kDone = 0;
constexpr int kTooShort = 5;
constexpr int kNotRead = 10;

}  // namespace

int getUfsInfo(standard_inquiry& info) {
    const auto directory = getFeatureDevicePath(kScsiDirectory);
    if (!directory) return kNotRead;

    NodeReader node;
    if (!node.open(*directory + node::kInquiry)) {
        FBO_LOGE("[EUA-HAL] Open inquiryNode file failure");
        return kNotRead;
    }
    const std::string data = node.readAll();
    if (data.size() < kInquiryLength) {
        FBO_LOGD("[EUA-HAL] inquiryResult size %d", static_cast<int>(data.size()));
        return kTooShort;
    }
    info.vendor_id = data.substr(8, 8);
    info.product_id = data.substr(16, 16);
    info.product_rev = data.substr(32, 4);
    FBO_LOGD("[EUA-HAL] vendor_id %s, product_id %s, product_rev %s", info.vendor_id.c_str(),
             info.product_id.c_str(), info.product_rev.c_str());
    return kDone;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
