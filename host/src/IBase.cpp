#include <unistd.h>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/Status.h>

#include "Hashes.h"

namespace android::hidl::base::V1_0 {

using ::android::hardware::hidl_array;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;

const char* IBase::descriptor = "android.hidl.base@1.0::IBase";

Return<void> IBase::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb({IBase::descriptor});
    return Void();
}

Return<void> IBase::debug(const hidl_handle&, const hidl_vec<hidl_string>&) {
    return Void();
}

Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(IBase::descriptor);
    return Void();
}

Return<void> IBase::getHashChain(getHashChain_cb _hidl_cb) {
    _hidl_cb({kBaseHash});
    return Void();
}

Return<void> IBase::setHALInstrumentation() {
    return Void();
}

Return<bool> IBase::linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t) {
    // The service cannot die before its client: both are this process.
    return recipient != nullptr;
}

Return<void> IBase::ping() {
    return Void();
}

Return<void> IBase::getDebugInfo(getDebugInfo_cb _hidl_cb) {
    DebugInfo info{};
    info.pid = getpid();
    info.ptr = reinterpret_cast<uintptr_t>(this);
    info.arch = sizeof(void*) == 8 ? DebugInfo::Architecture::IS_64BIT
                                   : DebugInfo::Architecture::IS_32BIT;
    _hidl_cb(info);
    return Void();
}

Return<void> IBase::notifySyspropsChanged() {
    return Void();
}

Return<bool> IBase::unlinkToDeath(const sp<hidl_death_recipient>& recipient) {
    return recipient != nullptr;
}

Return<sp<IBase>> IBase::castFrom(const sp<IBase>& parent, bool) {
    return parent;
}

}  // namespace android::hidl::base::V1_0
