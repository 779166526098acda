#pragma once

#include <cstddef>

namespace vendor::nivora::hardware::fbo::implementation {

/** What the driver says to have the snapshot dropped: one of the strings of a uevent. */
constexpr char kDropEvent[] = "UFS_SNAPSHOT_DROP_EVENT";

/**
 * Counts the drop requests in a uevent: those of its strings that are the word and nothing else.
 *
 * @param message strings, each with a NUL behind it; an empty one ends the list.
 */
size_t countDropEvents(const char* message);

}  // namespace vendor::nivora::hardware::fbo::implementation
