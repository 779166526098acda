#pragma once

#include <cstddef>
#include <cstring>

namespace vendor::nivora::hardware::fbo::implementation {

/** What the driver says to have the snapshot dropped: one of the strings of a uevent. */
constexpr char kDropEvent[] = "UFS_SNAPSHOT_DROP_EVENT";

/**
 * Counts the drop requests in a uevent: those of its strings that are the word and nothing else.
 *
 * @param message strings, each with a NUL behind it; an empty one ends the list.
 */
inline size_t countDropEvents(const char* message) {
    size_t count = 0;
    for (const char* text = message; *text != '\0'; text += strlen(text) + 1) {
        if (strcmp(text, kDropEvent) == 0) ++count;
    }
    return count;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
