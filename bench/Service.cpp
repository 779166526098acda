#include "bench/Service.h"

#include <sched.h>

#include "host/LogSink.h"
#include "sim/Uevent.h"

namespace bench {

Fbo& startService() {
    host::setLogSink(nullptr);
    auto* const service = new Fbo;
    service->incStrong(nullptr);
    while (!sim::isAwaited(service->uevent_fd)) sched_yield();
    return *service;
}

}  // namespace bench
