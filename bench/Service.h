#pragma once

#include "fbo/Fbo.h"

namespace bench {

using namespace vendor::nivora::hardware::fbo::implementation;

/**
 * Starts a service in this process, whose log goes nowhere, and waits until it listens. It stays
 * for good, so the process has to end by _exit().
 */
Fbo& startService();

}  // namespace bench
