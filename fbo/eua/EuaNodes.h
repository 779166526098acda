#pragma once

namespace vendor::nivora::hardware::fbo::implementation {

/** The EUA nodes' directory below the host controller. */
constexpr char kEuaDirectory[] = "/ufseua/";

namespace node {

constexpr char kEuaSupport[] = "eua_support";
constexpr char kEuaSupportSize[] = "eua_support_size";
constexpr char kEuaUnmap[] = "eua_file_lba_unmap";

}  // namespace node

}  // namespace vendor::nivora::hardware::fbo::implementation
