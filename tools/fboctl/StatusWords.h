#pragma once

namespace fboctl {

/** The words of the snapshot's status, by their numbers in the interface. */
constexpr const char* kStatusWords[] = {
        "idle",         "inprogress",     "complete_backup", "complete_restore",
        "drop_by_host", "drop_by_device", "internal_error"};

}  // namespace fboctl
