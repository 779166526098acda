#include "bench/Service.h"

#include "host/LogSink.h"
#include "sim/Uevent.h"

namespace bench {

Fbo& startService() {
    host::setLogSink(nullptr);
    auto* const service = new Fbo;
    service->incStrong(nullptr);
    sim::awaitListeners(1);
    return *service;
}

}  // namespace bench
