/*
 * Properties that are this process's alone, as in Debian's libbase, for a build that cannot use
 * that: it passes texts of libstdc++.
 */

#include <android-base/properties.h>

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

}  // namespace android::base
