#include "bench/PlainPhone.h"

#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "sim/Clock.h"

namespace bench {

namespace {

constexpr char kController[] = "sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc";

void add(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path);
    if (!(file << text).flush()) throw std::runtime_error(path.string() + " cannot be written");
}

/** INQUIRY data of a part that may use EUA. */
std::string inquiry() {
    return std::string("\0\0\6\2\37\0\0\2", 8) + "SAMSUNG " + "SIMUFS40-S256   " + "0800";
}

/** A health report in which every field tells of little wear. */
std::string healthReport() {
    return std::string(1024, '0');
}

/** In memory if there is such a place: a disk's cost is not the library's. */
std::filesystem::path temporaryDirectory() {
    const std::filesystem::path in_memory = "/dev/shm";
    return access(in_memory.c_str(), W_OK) == 0 ? in_memory
                                                : std::filesystem::temp_directory_path();
}

}  // namespace

PlainPhone::PlainPhone() {
    std::string name = temporaryDirectory() / "fbo_benchXXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name + " cannot be made");
    root_ = name;
    const std::filesystem::path controller = root_ / kController;
    add(controller / "ufsfbo/fbo_support", "1\n");
    add(controller / "ufseua/eua_support", "1\n");
    add(controller / "ufseua/eua_file_lba_unmap", "");
    add(controller / "ufssnapshot/status", "complete_backup\n");
    add(controller / "host0/target0:0:0/0:0:0:0/inquiry", inquiry());
    add(root_ / "sys/class/block/sda/device/vendor", "SAMSUNG \n");
    add(root_ / "sys/class/qe_memory/qe_memory_device/ufshcd0/hr", healthReport());
    // So that a path below the phone means the same within.
    std::filesystem::create_directories(root_ / root_.relative_path());
}

PlainPhone::~PlainPhone() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

void PlainPhone::enter(const std::filesystem::path& root) {
    // No uevent that is sent to others is to wake the service.
    if (unshare(CLONE_NEWNET) != 0 || chdir(root.c_str()) != 0 || chroot(".") != 0) {
        throw std::system_error(errno, std::generic_category(), "the phone cannot be entered");
    }
    sim::startClock([](unsigned) {});
}

}  // namespace bench
