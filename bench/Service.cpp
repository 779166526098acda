#include "bench/Service.h"

#include "host/LogSink.h"
#include "sim/Uevent.h"

namespace bench {

Fbo& startService() {
    host::setLogSink(nullptr);
    auto* const service = new Fbo;
    service->incStrong(nullptr);
    sim::awaitListener(service->uevent_fd);
    return *service;
}

}  // namespace bench
