#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace fboctl {

/**
 * The most characters that one call is given. All calls in progress share the service's Binder
 * buffer of 1,040,384 bytes, which is freed late, and a stop must still find room in it.
 */
constexpr size_t kMaxPart = 256 * 1024;

/**
 * Cuts `text` into parts of at most kMaxPart characters, each for a call of its own. What belongs
 * together, up to every `each`th `separator`, stays together; one part after the other is `text`
 * again. An empty text is one part. Throws UsageError if something is longer than a part.
 */
std::vector<std::string_view> cutIntoParts(std::string_view text, char separator, int each);

}  // namespace fboctl
