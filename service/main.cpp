/*
 * The service process: one object, reached through the HIDL runtime until the process ends.
 */

#include <unistd.h>

#include <cstdlib>

#include <hidl/HidlTransportSupport.h>

#include "fbo/Fbo.h"

using vendor::nivora::hardware::fbo::implementation::Fbo;

int main() {
    // Four threads, this one included: a running trigger holds one, its stop needs another.
    android::hardware::configureRpcThreadpool(4, true /* callerWillJoin */);
    const android::sp<Fbo> service = new Fbo;
    // By _exit(), as destroying the object while its worker runs aborts the process.
    if (service->registerAsService() != android::OK) _exit(EXIT_FAILURE);
    android::hardware::joinRpcThreadpool();
    _exit(EXIT_FAILURE);
}
