#include "Parts.h"

#include <string>

#include "Options.h"

namespace fboctl {

namespace {

/** The length of what stands in `text` up to the last separator that ends something. */
size_t lengthOfWhole(std::string_view text, char separator, int each) {
    size_t length = 0;
    int separators = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == separator && ++separators % each == 0) length = i + 1;
    }
    return length;
}

}  // namespace

std::vector<std::string_view> cutIntoParts(std::string_view text, char separator, int each) {
    std::vector<std::string_view> parts;
    while (text.size() > kMaxPart) {
        const size_t length = lengthOfWhole(text.substr(0, kMaxPart), separator, each);
        if (length == 0) {
            throw UsageError("one item has more than " + std::to_string(kMaxPart) +
                             " characters, which no call carries");
        }
        parts.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    parts.push_back(text);
    return parts;
}

}  // namespace fboctl
