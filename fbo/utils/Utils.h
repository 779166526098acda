#pragma once

#include <optional>
#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Finds the sysfs directory of the UFS host controller and joins it with `suffix`.
 *
 * The property "ro.hardware" picks the driver: "qcom" (also when it is unset) the one of
 * Qualcomm, any other value the one of MediaTek. The directory is searched once in the life of
 * the process; later calls answer from memory, and calls during the search wait for its outcome.
 *
 * @param suffix a path below the controller that begins with a slash, such as "/ufsfbo/".
 * @return directory + suffix; nothing if the first search fails.
 * @throws std::bad_optional_access on every call after a first search that failed.
 */
std::optional<std::string> getFeatureDevicePath(std::string suffix);

/**
 * Reads the first word of the file at `path` into `out`, which keeps its value if the file holds
 * no word. False, with a log line, if the file cannot be opened.
 */
bool readFileToString(const std::string& path, std::string& out);

/**
 * Reads the maker of the UFS device from /sys/class/block/sda/device/vendor: at most 10 bytes,
 * with the blanks and line feed among them.
 *
 * @return bytes read, or -1, with `out` untouched, if the node cannot be opened or read.
 */
int getUFSVendor(std::string& out);

/**
 * Finds the device-mapper name of the userdata volume: where the link
 * /dev/block/mapper/userdata points to, less its directory. Empty if the link cannot be read or
 * is longer than 510 characters.
 */
std::string get_userdata_mapper();

/**
 * Measures the free space of /data/user/0, the superuser's reserve included, in percent of the
 * nominal size of the flash (64 GiB to 1 TiB).
 *
 * @return the percentage; 0 if the file system cannot be asked or is of no nominal size.
 */
int getUserFreeSpaceInfo();

/**
 * Drops the page cache `count` times through /proc/sys/vm/drop_caches, each time followed by a
 * sync and a second of sleep. What the writes report is not looked at.
 *
 * @return 0, or -1 if the control file cannot be opened.
 */
int drop_caches(int count);

/** Keeps a core busy until `seconds` of wall-clock time have passed. */
void delay_work_timer(int seconds);

}  // namespace vendor::nivora::hardware::fbo::implementation
