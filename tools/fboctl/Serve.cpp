#include "Commands.h"
#include "Platform.h"

namespace fboctl {

ExitStatus run(const Options& options) {
    return ExitStatus{servePhone(options.sim, {options.arguments, options.restart, options.log})};
}

ExitStatus serve(const Options& options) {
    return run(options);
}

}  // namespace fboctl
