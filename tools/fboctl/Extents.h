#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Options.h"

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
    /** Its length in bytes. */
    uint64_t size = 0;
    /** Why the pieces are not known; empty if they are. */
    std::string error;
};

/**
 * Finds where the files at `paths` lie, and the files below the directories among them, by FIEMAP.
 * What cannot be looked at is in the result with the reason. Where a file system begins on the unit
 * the user has said, or it is found out; a simulated unit holds nothing but the file system.
 */
std::vector<FileExtents> collectExtents(const std::vector<std::filesystem::path>& paths,
                                        const Options& options);

/** The ranges of all files in the order of the unit; what overlaps or touches is one range. */
std::vector<BlockRange> joinRanges(const std::vector<FileExtents>& files);

/** Appends `ranges` to `request` in the form that FBO_trigger takes. */
void appendRanges(std::string& request, const std::vector<BlockRange>& ranges);

}  // namespace fboctl
