#include "tools/fboctl/LogLine.h"

#include <gtest/gtest.h>

namespace fboctl {

TEST(LogLine, IsOfOneFunctionOnly) {
    const struct {
        const char *line, *message;
    } kRows[] = {
            {"FBO_trigger:49: [FBO-HAL] lba is: 1,2 .", "lba is: 1,2 ."},
            {"FBO_trigger:49: get ufs frag level", "get ufs frag level"},
            {"FBO_trigger:49: [FBO2-HAL]Is", "Is"},
            {"FBO_trigger:49: [FBO-HAL] ", ""},
            {"FBO_trigger2:49: [FBO-HAL] lba is: 1", nullptr},
            {"xFBO_trigger:49: [FBO-HAL] lba is: 1", nullptr},
            {"EUA_SendEraseCmd:9: [EUA-HAL] FBO_trigger:49: [FBO-HAL] lba is: 1", nullptr},
            {"FBO_trigger:", nullptr},
            {"", nullptr},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(messageOf(row.line, "FBO_trigger").value_or("none"),
                  row.message == nullptr ? "none" : row.message)
                << row.line;
    }
}

TEST(LogLine, IsTakenByWhatItBeginsWith) {
    constexpr char kLine[] = "F:1: [EUA-HAL] send erase lba 1] send erase lba 2 ";
    EXPECT_EQ(messageAfter(kLine, "F", "send erase lba "), "1] send erase lba 2 ");
    EXPECT_EQ(messageAfter(kLine, "F", "erase"), std::nullopt);
}

}  // namespace fboctl
