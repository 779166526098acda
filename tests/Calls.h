#pragma once

#include <string>

#include "fbo/Fbo.h"

using namespace vendor::nivora::hardware::fbo::implementation;

/**
 * Calls a function of the library, or a method of `service`: "NAME ARGUMENT|ARGUMENT…", less the
 * output arguments. Returns what it returns, what it answers and its output arguments, "-" for one
 * that it left alone; or the name of the error that it raises.
 */
std::string callByName(Fbo& service, const std::string& call);
