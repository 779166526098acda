/*
 * The part of the generated interface library that a host needs: the interface's own answers to
 * the base operations, and a service manager whose phone is this process.
 */

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>

#include <hidl/Status.h>
#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

namespace vendor::nivora::hardware::fbo::V1_0 {

using ::android::sp;
using ::android::hardware::hidl_array;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;

namespace {

/** The one instance that the phone's manifest declares. */
constexpr char kDeclared[] = "default";

struct ServiceManager {
    std::mutex mutex;
    std::condition_variable registered;
    sp<IFbo> service;
};

ServiceManager& serviceManager() {
    // Never destroyed: a service outlives every client of the process.
    static auto* manager = new ServiceManager;
    return *manager;
}

}  // namespace

const char* IFbo::descriptor = "vendor.nivora.hardware.fbo@1.0::IFbo";

Return<void> IFbo::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb({IFbo::descriptor, IBase::descriptor});
    return Void();
}

Return<void> IFbo::debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) {
    return IBase::debug(fd, options);
}

Return<void> IFbo::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(IFbo::descriptor);
    return Void();
}

Return<void> IFbo::getHashChain(getHashChain_cb _hidl_cb) {
    _hidl_cb(hidl_vec<hidl_array<uint8_t, 32>>(2));
    return Void();
}

Return<void> IFbo::setHALInstrumentation() {
    return IBase::setHALInstrumentation();
}

Return<bool> IFbo::linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) {
    return IBase::linkToDeath(recipient, cookie);
}

Return<void> IFbo::ping() {
    return IBase::ping();
}

Return<void> IFbo::getDebugInfo(getDebugInfo_cb _hidl_cb) {
    return IBase::getDebugInfo(_hidl_cb);
}

Return<void> IFbo::notifySyspropsChanged() {
    return IBase::notifySyspropsChanged();
}

Return<bool> IFbo::unlinkToDeath(const sp<hidl_death_recipient>& recipient) {
    return IBase::unlinkToDeath(recipient);
}

Return<sp<IFbo>> IFbo::castFrom(const sp<IFbo>& parent, bool) {
    return parent;
}

Return<sp<IFbo>> IFbo::castFrom(const sp<IBase>& parent, bool) {
    if (parent == nullptr) return sp<IFbo>();
    // The object says itself what it is: device code has no RTTI.
    bool is_fbo = false;
    const Return<void> asked =
            parent->interfaceChain([&is_fbo](const hidl_vec<hidl_string>& chain) {
                is_fbo = std::find(chain.begin(), chain.end(), IFbo::descriptor) != chain.end();
            });
    return sp<IFbo>(asked.isOk() && is_fbo ? static_cast<IFbo*>(parent.get()) : nullptr);
}

sp<IFbo> IFbo::tryGetService(const std::string& serviceName, bool) {
    if (serviceName != kDeclared) return nullptr;
    ServiceManager& manager = serviceManager();
    const std::lock_guard<std::mutex> lock(manager.mutex);
    return manager.service;
}

sp<IFbo> IFbo::getService(const std::string& serviceName, bool) {
    if (serviceName != kDeclared) return nullptr;
    ServiceManager& manager = serviceManager();
    std::unique_lock<std::mutex> lock(manager.mutex);
    // For ever, if nobody registers: so does a phone.
    manager.registered.wait(lock, [&] { return manager.service != nullptr; });
    return manager.service;
}

::android::status_t IFbo::registerAsService(const std::string& serviceName) {
    if (serviceName != kDeclared) return ::android::UNKNOWN_ERROR;
    ServiceManager& manager = serviceManager();
    const std::lock_guard<std::mutex> lock(manager.mutex);
    manager.service = this;
    manager.registered.notify_all();
    return ::android::OK;
}

}  // namespace vendor::nivora::hardware::fbo::V1_0
