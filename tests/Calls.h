#pragma once

#include <string>

#include "fbo/Fbo.h"

/** Calls a function of the library, or a method of `service`, by its name; see Phone::call(). */
std::string callByName(vendor::nivora::hardware::fbo::implementation::Fbo& service,
                       const std::string& call);
