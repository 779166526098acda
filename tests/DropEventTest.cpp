#include "fbo/snapshot/DropEvent.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

using namespace vendor::nivora::hardware::fbo::implementation;

TEST(DropEvent, IsAStringOfItsOwn) {
    // The strings of an event, "|" behind each, and how many of them ask for a drop.
    const std::pair<const char*, size_t> kRows[] = {
            {"||", 0},
            {"UFS_SNAPSHOT_DROP_EVENT||", 1},
            {"a|UFS_SNAPSHOT_DROP_EVENT|b|UFS_SNAPSHOT_DROP_EVENT||", 2},
            {"UFS_SNAPSHOT_DROP_EVEN||", 0},
            {"UFS_SNAPSHOT_DROP_EVENT2||", 0},
            {"EVENT=UFS_SNAPSHOT_DROP_EVENT||", 0},
            {"ufs_snapshot_drop_event| UFS_SNAPSHOT_DROP_EVENT||", 0},
            // An empty string ends the list.
            {"a||UFS_SNAPSHOT_DROP_EVENT||", 0},
            {"\xff\x01=|UFS_SNAPSHOT_DROP_EVENT||", 1},
    };
    for (const auto& [strings, count] : kRows) {
        std::string message = strings;
        std::replace(message.begin(), message.end(), '|', '\0');
        EXPECT_EQ(countDropEvents(message.c_str()), count) << strings;
    }
}
