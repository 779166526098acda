/*
 * What this project uses of libbase, for a build that cannot use Debian's: that passes texts of
 * libstdc++. Properties are this process's alone, as in Debian's.
 */

#include <android-base/properties.h>
#include <android-base/strings.h>

#include <cstring>
#include <map>
#include <mutex>

namespace android::base {

namespace {

/** A longer value is refused, except for a read-only property. */
constexpr size_t kValueLimit = 91;

struct Properties {
    std::mutex mutex;
    std::map<std::string, std::string> values;
};

/** Never destroyed: the service's thread may ask until the very end of the process. */
Properties& properties() {
    static auto* properties = new Properties;
    return *properties;
}

bool isReadOnly(const std::string& key) {
    return key.compare(0, strlen("ro."), "ro.") == 0;
}

}  // namespace

std::string GetProperty(const std::string& key, const std::string& default_value) {
    const std::lock_guard<std::mutex> lock(properties().mutex);
    const auto property = properties().values.find(key);
    if (property == properties().values.end() || property->second.empty()) return default_value;
    return property->second;
}

bool SetProperty(const std::string& key, const std::string& value) {
    if (key.empty()) return false;
    // As on a phone, a value ends at its first NUL.
    const std::string text = value.c_str();
    const std::lock_guard<std::mutex> lock(properties().mutex);
    // A read-only property is set once.
    if (isReadOnly(key)) return properties().values.emplace(key, text).second;
    if (text.size() > kValueLimit) return false;
    properties().values[key] = text;
    return true;
}

std::vector<std::string> Split(const std::string& s, const std::string& delimiters) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t end; (end = s.find_first_of(delimiters, start)) != std::string::npos;) {
        parts.push_back(s.substr(start, end - start));
        start = end + 1;
    }
    parts.push_back(s.substr(start));
    return parts;
}

bool StartsWith(std::string_view s, std::string_view prefix) {
    return s.substr(0, prefix.size()) == prefix;
}

bool EndsWith(std::string_view s, std::string_view suffix) {
    return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

template std::string Join(const std::vector<std::string>&, char);

}  // namespace android::base
