#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace fboctl {

/** `count` blocks of 4 KiB from block `start` of the unit on. */
struct BlockRange {
    uint64_t start;
    uint64_t count;
};

/** Where a file lies. */
struct FileExtents {
    std::filesystem::path path;
    /** Its pieces in the order of the file; those that lie end to end are one. */
    std::vector<BlockRange> ranges;
    /** Why the pieces are not known; empty if they are. */
    std::string error;
};

/**
 * Finds where the file at `path` lies, by FIEMAP.
 *
 * @param first_block the block of the unit at which the file system begins.
 */
FileExtents readExtents(const std::filesystem::path& path, uint64_t first_block);

/**
 * Finds where the files at `paths` lie, and the files below the directories among them. What
 * cannot be looked at is in the result with the reason.
 */
std::vector<FileExtents> collectExtents(const std::vector<std::filesystem::path>& paths,
                                        uint64_t first_block);

/** Appends `ranges` to `request` in the form that FBO_trigger takes. */
void appendRanges(std::string& request, const std::vector<BlockRange>& ranges);

}  // namespace fboctl
