#include "fbo/snapshot/DropEvent.h"

#include <cstring>

namespace vendor::nivora::hardware::fbo::implementation {

size_t countDropEvents(const char* message) {
    size_t count = 0;
    for (const char* text = message; *text != '\0'; text += strlen(text) + 1) {
        if (strcmp(text, kDropEvent) == 0) ++count;
    }
    return count;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
