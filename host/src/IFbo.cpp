/*
 * The part of the generated interface library that a host needs: the interface's own answers to
 * the base operations, and what there is of a service manager. A service is found in this process
 * or, if none has registered here, in another one.
 */

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <hidl/ServiceManagement.h>
#include <hidl/Status.h>
#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

#include "FboProxy.h"
#include "FboStub.h"
#include "Hashes.h"

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
using ::android::hidl::manager::V1_0::IServiceNotification;

namespace {

/** The one instance that the phone's manifest declares. */
constexpr char kDeclared[] = "default";

struct ServiceManager {
    std::mutex mutex;
    std::condition_variable registered;
    sp<IFbo> service;
    std::vector<sp<IServiceNotification>> notifications;
};

ServiceManager& serviceManager() {
    // Never destroyed: a service outlives every client of the process.
    static auto* manager = new ServiceManager;
    return *manager;
}

void notify(const sp<IServiceNotification>& notification, bool preexisting) {
    // Its answer is of no use to anybody, and may be a failure.
    (void)notification->onRegistration(IFbo::descriptor, kDeclared, preexisting).isOk();
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
    _hidl_cb({kFboHash, kBaseHash});
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
    {
        ServiceManager& manager = serviceManager();
        const std::lock_guard<std::mutex> lock(manager.mutex);
        if (manager.service != nullptr) return manager.service;
    }
    return host::findRemoteService();
}

sp<IFbo> IFbo::getService(const std::string& serviceName, bool) {
    if (serviceName != kDeclared) return nullptr;
    ServiceManager& manager = serviceManager();
    // For ever, if nobody registers: so does a phone.
    for (;;) {
        if (const sp<IFbo> service = tryGetService(serviceName); service != nullptr) return service;
        std::unique_lock<std::mutex> lock(manager.mutex);
        manager.registered.wait_for(lock, std::chrono::milliseconds(50));
    }
}

::android::status_t IFbo::registerAsService(const std::string& serviceName) {
    if (serviceName != kDeclared) return ::android::UNKNOWN_ERROR;
    if (host::isOfferedToOthers()) return host::offer(this);
    ServiceManager& manager = serviceManager();
    std::vector<sp<IServiceNotification>> notifications;
    {
        const std::lock_guard<std::mutex> lock(manager.mutex);
        manager.service = this;
        manager.registered.notify_all();
        notifications = manager.notifications;
    }
    for (const sp<IServiceNotification>& notification : notifications) notify(notification, false);
    return ::android::OK;
}

bool IFbo::registerForNotifications(const std::string& serviceName,
                                    const sp<IServiceNotification>& notification) {
    if (notification == nullptr || (!serviceName.empty() && serviceName != kDeclared)) return false;
    ServiceManager& manager = serviceManager();
    bool preexisting;
    {
        const std::lock_guard<std::mutex> lock(manager.mutex);
        manager.notifications.push_back(notification);
        preexisting = manager.service != nullptr;
    }
    if (preexisting) notify(notification, true);
    host::watchRemoteServices(notification);
    return true;
}

}  // namespace vendor::nivora::hardware::fbo::V1_0

namespace android::hardware {

std::vector<std::string> getAllHalInstanceNames(const std::string& descriptor) {
    using vendor::nivora::hardware::fbo::V1_0::IFbo;
    if (descriptor != IFbo::descriptor) return {};
    return {vendor::nivora::hardware::fbo::V1_0::kDeclared};
}

}  // namespace android::hardware
