#include "Extents.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <system_error>

#include <android-base/unique_fd.h>

#include "FirstBlock.h"

namespace fboctl {

namespace fs = std::filesystem;

namespace {

/** Tells at which block of the unit a file system begins, by its device; nothing: not known. */
using FirstBlock = std::function<std::optional<uint64_t>(dev_t device)>;

constexpr uint64_t kBlockSize = 4096;
constexpr uint32_t kExtentsAtOnce = 256;

/** Why an extent with these flags has no blocks to name; null if it has. */
const char* whyNoBlocks(uint32_t flags) {
    if (flags & FIEMAP_EXTENT_DELALLOC) return "not on the device yet";
    if (flags & FIEMAP_EXTENT_DATA_TAIL) return "shares a block with other files";
    if (flags & FIEMAP_EXTENT_ENCODED) return "compressed or encrypted by the file system";
    if (flags & FIEMAP_EXTENT_UNKNOWN) return "the file system does not say where it lies";
    return nullptr;
}

std::string describeError(int error) {
    if (error == EOPNOTSUPP || error == ENOTTY) {
        return "its file system does not tell where files lie (no FIEMAP)";
    }
    return strerror(error);
}

/** Whether the extent has room behind `first_block`; if so, it is added. */
bool addExtent(const fiemap_extent& extent, uint64_t first_block, std::vector<BlockRange>& ranges) {
    // An extent that does not cover whole blocks counts with all blocks that it touches.
    const uint64_t count =
            (extent.fe_physical % kBlockSize + extent.fe_length + kBlockSize - 1) / kBlockSize;
    uint64_t start = 0;
    uint64_t end = 0;
    if (__builtin_add_overflow(extent.fe_physical / kBlockSize, first_block, &start) ||
        __builtin_add_overflow(start, count, &end)) {
        return false;
    }
    if (!ranges.empty() && start == ranges.back().start + ranges.back().count) {
        ranges.back().count += count;
    } else {
        ranges.push_back({start, count});
    }
    return true;
}

/** Asks for all extents of `fd`. Returns why that cannot be done; an empty text if it can. */
std::string readFiemap(int fd, uint64_t first_block, std::vector<BlockRange>& ranges) {
    const auto buffer =
            std::make_unique<char[]>(sizeof(fiemap) + kExtentsAtOnce * sizeof(fiemap_extent));
    auto* map = reinterpret_cast<fiemap*>(buffer.get());
    for (uint64_t start = 0;;) {
        memset(map, 0, sizeof(*map));
        map->fm_start = start;
        map->fm_length = FIEMAP_MAX_OFFSET - start;
        map->fm_flags = FIEMAP_FLAG_SYNC;
        map->fm_extent_count = kExtentsAtOnce;
        if (ioctl(fd, FS_IOC_FIEMAP, map) != 0) return describeError(errno);
        for (uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
            const fiemap_extent& extent = map->fm_extents[i];
            if (const char* why = whyNoBlocks(extent.fe_flags)) return why;
            // Space that is reserved but never written holds no data to optimise, and what is kept
            // in the inode has no blocks.
            const bool has_blocks =
                    !(extent.fe_flags & (FIEMAP_EXTENT_UNWRITTEN | FIEMAP_EXTENT_DATA_INLINE));
            if (has_blocks && !addExtent(extent, first_block, ranges)) {
                return "does not fit on a unit behind --first-block";
            }
            if (extent.fe_flags & FIEMAP_EXTENT_LAST) return {};
            start = extent.fe_logical + extent.fe_length;
        }
        if (map->fm_mapped_extents == 0) return {};
    }
}

/** Finds where the file at `path` lies. */
FileExtents readExtents(const fs::path& path, const FirstBlock& first_block) {
    FileExtents file{path, {}, 0, {}};
    // Not blocking: a pipe must not hold the others up.
    const android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.ok()) {
        file.error = strerror(errno);
        return file;
    }
    struct stat attributes;
    if (fstat(fd.get(), &attributes) != 0 || !S_ISREG(attributes.st_mode)) {
        file.error = "not a regular file";
    } else if (const auto first = first_block(attributes.st_dev); !first) {
        file.error = "where its file system begins on the unit is not known; give --first-block";
    } else {
        file.size = static_cast<uint64_t>(attributes.st_size);
        file.error = readFiemap(fd.get(), *first, file.ranges);
        if (!file.error.empty()) file.ranges.clear();
    }
    return file;
}

/** Adds the regular files below `directory`, in the order of their names. */
void addDirectory(const fs::path& directory, const FirstBlock& first_block,
                  std::vector<FileExtents>& files) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        entries.push_back(*entry);
    }
    if (error) {
        files.push_back({directory, {}, 0, error.message()});
        return;
    }
    std::sort(entries.begin(), entries.end());
    for (const fs::directory_entry& entry : entries) {
        const fs::file_type type = entry.symlink_status(error).type();
        if (type == fs::file_type::directory) {
            addDirectory(entry.path(), first_block, files);
        } else if (type == fs::file_type::regular) {
            files.push_back(readExtents(entry.path(), first_block));
        }
    }
}

}  // namespace

std::vector<FileExtents> collectExtents(const std::vector<fs::path>& paths,
                                        const Options& options) {
    std::map<dev_t, std::optional<uint64_t>> known;
    const FirstBlock first_block = [&](dev_t device) {
        if (options.first_block) return options.first_block;
        auto [found, is_new] = known.try_emplace(device);
        if (is_new) found->second = firstBlockOf(device);
        if (!found->second && !options.sim.device.empty()) found->second = 0;
        return found->second;
    };
    std::vector<FileExtents> files;
    for (const fs::path& path : paths) {
        std::error_code error;
        if (fs::is_directory(path, error)) {
            addDirectory(path, first_block, files);
        } else {
            files.push_back(readExtents(path, first_block));
        }
    }
    return files;
}

std::vector<BlockRange> joinRanges(const std::vector<FileExtents>& files) {
    std::vector<BlockRange> all;
    for (const FileExtents& file : files) {
        all.insert(all.end(), file.ranges.begin(), file.ranges.end());
    }
    std::sort(all.begin(), all.end(), [](const BlockRange& one, const BlockRange& other) {
        return one.start < other.start;
    });
    std::vector<BlockRange> joined;
    for (const BlockRange& range : all) {
        if (joined.empty() || range.start > joined.back().start + joined.back().count) {
            joined.push_back(range);
        } else {
            BlockRange& last = joined.back();
            last.count = std::max(last.count, range.start + range.count - last.start);
        }
    }
    return joined;
}

void appendRanges(std::string& request, const std::vector<BlockRange>& ranges) {
    for (const BlockRange& range : ranges) {
        request += std::to_string(range.start) + "," + std::to_string(range.count) + ",";
    }
}

}  // namespace fboctl
