#include "fbo/utils/Utils.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string_view>

#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Properties.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr size_t kVendorLength = 10;
constexpr size_t kLinkLength = 511;

/** Guards the two below: calls that come while the first one searches wait for its outcome. */
std::mutex search_lock;
std::optional<std::string> device_directory;
bool search_done = false;

/** The name of the first entry of `directory` that contains "ufs", or an empty text. */
std::string findUfsEntry(DIR* directory) {
    while (const dirent* entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name.find("ufs") != std::string_view::npos) return std::string(name);
    }
    return {};
}

/** The size under which flash is sold that shows `gib` GiB to the user; 0 if there is none. */
int32_t nominalSize(int32_t gib) {
    for (int32_t size = 64; size <= 1024; size *= 2) {
        if (gib >= size / 2 && gib < size) return size;
    }
    return 0;
}

}  // namespace

std::optional<std::string> getFeatureDevicePath(std::string suffix) {
    const std::string hardware = kHardwareProperty.value();
    const std::lock_guard<std::mutex> lock(search_lock);
    // A search that failed is not repeated: value() then raises for every later caller.
    if (search_done) return device_directory.value() + suffix;
    search_done = true;

    const std::string driver = hardware == "qcom" ? kQcomDriver : kMtkDriver;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(driver.c_str()), closedir);
    if (!directory) {
        FBO_LOGE("[FBO-HAL] Cannot open %s, not an UFS device?", driver.c_str());
        return std::nullopt;
    }
    const std::string entry = findUfsEntry(directory.get());
    if (entry.empty()) {
        FBO_LOGE("[FBO-HAL] Cannot find UFS platform device, not an UFS device?");
        return std::nullopt;
    }
    device_directory = driver + entry;
    return *device_directory + suffix;
}

bool readFileToString(const std::string& path, std::string& out) {
    NodeReader node;
    if (!node.open(path)) {
        FBO_LOGE("Open %s Fail", path.c_str());
        return false;
    }
    node.readToken(out);
    return true;
}

int getUFSVendor(std::string& out) {
    const unique_fd node = openFile(kVendorNode, O_RDONLY);
    if (!node.ok()) {
        FBO_LOGE("[FBO-HAL] UFS Vendor node open fail");
        return -1;
    }
    char vendor[kVendorLength + 1] = {};
    const ssize_t size = readFile(node.get(), vendor, kVendorLength);
    if (size < 0) {
        FBO_LOGE("[FBO-HAL] UFS Vendor node read fail");
        return -1;
    }
    out = vendor;
    return static_cast<int>(size);
}

std::string get_userdata_mapper() {
    char link[kLinkLength + 1];
    const ssize_t length = readlink(kUserdataLink, link, kLinkLength);
    // Compared unsigned, so that the -1 of a failure is too long as well.
    if (static_cast<size_t>(length) >= kLinkLength) {
        FBO_LOGE("[FBO-HAL] readlink fail.");
        return {};
    }
    link[length] = '\0';
    FBO_LOGI("[FBO-HAL] userdata: %s.", link);
    const std::string target = link;
    return target.substr(target.rfind('/') + 1);
}

int getUserFreeSpaceInfo() {
    struct statfs space;
    if (statfs(kUserData, &space) != 0) {
        FBO_LOGE("[UTILS-HAL] getUserSpaceInfo fail.");
        return 0;
    }
    const uint64_t block_kib = static_cast<uint64_t>(space.f_bsize) >> 10;
    const auto total_gib = static_cast<int32_t>((space.f_blocks * block_kib) >> 20);
    const auto free_gib = static_cast<int32_t>((space.f_bfree * block_kib) >> 20);
    const int32_t nominal = nominalSize(total_gib);
    const auto free_hundredfold = static_cast<int32_t>(static_cast<uint32_t>(free_gib) * 100u);
    const int32_t ratio = nominal == 0 ? 0 : free_hundredfold / nominal;
    FBO_LOGI("[UTILS-HAL] freeSizeG:%d, totalSizeG:%d, ufssize:%d, ratio:%d", free_gib, total_gib,
             nominal, ratio);
    return ratio;
}

int drop_caches(int count) {
    const unique_fd node = openFile(kDropCachesNode, O_WRONLY);
    if (!node.ok()) {
        FBO_LOGE("[UTILS-HAL] drop_caches fail");
        return -1;
    }
    for (int i = 0; i < count; ++i) {
        // Dropping caches is an aid, not a condition: a failed write is passed over.
        (void)!write(node.get(), "3\n", 2);
        sync();
        sleep(1);
    }
    return 0;
}

void delay_work_timer(int seconds) {
    const time_t start = time(nullptr);
    FBO_LOGI("[FBO-HAL] start time: %ld, delay time is %d", static_cast<long>(start), seconds);
    time_t now;
    // No sleep in here: the core is to stay awake.
    do {
        now = time(nullptr);
    } while (now - start < seconds);
    FBO_LOGI("[FBO-HAL] current time is %ld.", static_cast<long>(now));
    FBO_LOGI("[FBO-HAL] delay work exit");
}

}  // namespace vendor::nivora::hardware::fbo::implementation
