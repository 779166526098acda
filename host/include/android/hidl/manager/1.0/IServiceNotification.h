#pragma once

/*
 * A host's stand-in for the platform's header of this name.
 */

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/RefBase.h>

namespace android::hidl::manager::V1_0 {

/** Is told when a service registers. */
struct IServiceNotification : virtual RefBase {
    /**
     * An instance has registered.
     *
     * @param fqName the interface.
     * @param name the instance.
     * @param preexisting whether it had registered before this recipient asked to be told.
     */
    virtual hardware::Return<void> onRegistration(const hardware::hidl_string& fqName,
                                                  const hardware::hidl_string& name,
                                                  bool preexisting) = 0;
};

}  // namespace android::hidl::manager::V1_0
