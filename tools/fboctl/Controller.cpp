#include "Controller.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "fbo/defrag/FboNodes.h"
#include "fbo/defrag/Zones.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Properties.h"

namespace fboctl {

using namespace vendor::nivora::hardware::fbo::implementation;

Controller findController() {
    Controller controller;
    controller.driver = kHardwareProperty.value() == "qcom" ? kQcomDriver : kMtkDriver;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(controller.driver.c_str()),
                                                        closedir);
    controller.wrong = directory == nullptr ? strerror(errno) : "no entry has \"ufs\" in its name";
    while (directory != nullptr) {
        const dirent* const entry = readdir(directory.get());
        if (entry == nullptr) break;
        if (strstr(entry->d_name, "ufs") == nullptr) continue;
        controller.directory = controller.driver + entry->d_name;
        controller.wrong.clear();
        break;
    }
    return controller;
}

std::optional<size_t> readZoneLimit() {
    std::string text;
    int limit = 0;
    const std::string node = findController().directory + kFboDirectory + node::kMaxLbaCount;
    if (!android::base::ReadFileToString(node, &text) ||
        !android::base::ParseInt(android::base::Trim(text), &limit)) {
        return std::nullopt;
    }
    return std::clamp(limit, 0, kMaxRanges);
}

}  // namespace fboctl
