#include "fbo/defrag/Zones.h"

namespace vendor::nivora::hardware::fbo::implementation {

std::optional<std::string_view> ZoneCutter::next() {
    const size_t start = start_;
    int64_t commas = 0;
    for (size_t comma; (comma = request_.find(',', search_)) != std::string_view::npos;) {
        search_ = comma + 1;
        if (++commas == limit_) {
            start_ = search_;
            return request_.substr(start, comma - start);
        }
    }
    if (commas == 0) return std::nullopt;
    // The last character is taken to be the closing comma, whatever it is.
    return request_.substr(start, request_.size() - 1 - start);
}

}  // namespace vendor::nivora::hardware::fbo::implementation
