#include "FirstBlock.h"

#include <fcntl.h>
#include <linux/dm-ioctl.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

namespace fboctl {

namespace {

using android::base::ParseUint;
using android::base::ReadFileToString;
using android::base::Trim;

constexpr uint64_t kSectorsOfBlock = 8;

/** What `path` below a device's directory holds; empty if there is no such file. */
std::string read(const std::string& path) {
    std::string text;
    ReadFileToString(path, &text);
    return Trim(text);
}

/** Asks device-mapper for the layout of a volume. */
std::optional<MappedOnto> askDeviceMapper(const std::string& volume) {
    android::base::unique_fd control(open("/dev/device-mapper", O_RDWR | O_CLOEXEC));
    if (!control.ok()) control.reset(open("/dev/mapper/control", O_RDWR | O_CLOEXEC));
    alignas(dm_ioctl) char buffer[16384] = {};
    auto* const request = reinterpret_cast<dm_ioctl*>(buffer);
    request->version[0] = DM_VERSION_MAJOR;
    request->data_size = sizeof(buffer);
    request->data_start = sizeof(dm_ioctl);
    request->flags = DM_STATUS_TABLE_FLAG;
    strncpy(request->name, volume.c_str(), sizeof(request->name) - 1);
    if (ioctl(control.get(), DM_TABLE_STATUS, request) != 0 || request->target_count != 1 ||
        (request->flags & DM_BUFFER_FULL_FLAG) != 0) {
        return std::nullopt;
    }
    const auto* const target = reinterpret_cast<dm_target_spec*>(buffer + request->data_start);
    return parseTarget(target->target_type, reinterpret_cast<const char*>(target + 1));
}

}  // namespace

std::optional<MappedOnto> parseTarget(const std::string& type, const std::string& parameters) {
    const std::vector<std::string> words = android::base::Split(parameters, " ");
    size_t at = 0;
    if (type == "crypt" || type == "default-key") {
        // Cipher, key and perhaps the offset of the initialisation vector come first.
        while (at < words.size() && words[at].find(':') == std::string::npos) ++at;
    } else if (type != "linear") {
        return std::nullopt;
    }
    uint64_t start = 0;
    if (at + 1 >= words.size() || !ParseUint(words[at + 1], &start)) return std::nullopt;
    return MappedOnto{words[at], start};
}

std::optional<uint64_t> firstBlockOf(dev_t device) {
    std::string name = std::to_string(major(device)) + ":" + std::to_string(minor(device));
    uint64_t sectors = 0;
    for (int depth = 0; depth < 8; ++depth) {
        std::string directory;
        if (!android::base::Realpath("/sys/dev/block/" + name, &directory)) return std::nullopt;
        const std::string volume = read(directory + "/dm/name");
        uint64_t start = 0;
        if (!volume.empty()) {
            const auto below = askDeviceMapper(volume);
            if (!below) return std::nullopt;
            sectors += below->start;
            name = below->device;
        } else if (ParseUint(read(directory + "/start"), &start)) {
            sectors += start;
            name = read(directory + "/../dev");
        } else if (directory.find("/devices/virtual/") != std::string::npos ||
                   sectors % kSectorsOfBlock != 0) {
            return std::nullopt;
        } else {
            return sectors / kSectorsOfBlock;
        }
    }
    return std::nullopt;
}

}  // namespace fboctl
