#pragma once

#include <functional>
#include <vector>

#include "fbo/Fbo.h"
#include "soak/Record.h"

namespace soak {

/** The library's service in this process. It is never taken down: the process ends first. */
class Service {
  public:
    using Fbo = vendor::nivora::hardware::fbo::implementation::Fbo;

    /**
     * Makes it and waits until its worker listens. From then on the log is watched: `record` is
     * told what the worker does and of stops, and `line_logged` is called for each line that the
     * thread logs which has made the service.
     *
     * @param print whether to print the log on standard error too.
     */
    Service(Record& record, bool print, std::function<void()> line_logged);

    Fbo& fbo() { return *fbo_; }

    /** Waits until the worker has dealt with all drop events that were sent. */
    void awaitWorker() const;

    /**
     * @throws Violation if other descriptors are open than when the worker began to listen.
     * @param when says when this is, for the violation.
     */
    void checkDescriptors(const char* when) const;

  private:
    void watchLog(bool print, std::function<void()> line_logged);

    Record& record_;
    Fbo* fbo_ = nullptr;
    std::vector<int> descriptors_;
};

}  // namespace soak
