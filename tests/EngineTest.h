#pragma once

#include <string>
#include <vector>

#include "Phone.h"
#include "fbo/Globals.h"

/** A level that an engine was to leave alone. */
constexpr int32_t kNone = -77;

/** A run of one zone, "1,1,2,1,4,1,8,1", through an engine. */
struct EngineCase {
    const char* name;
    /** What the device is set to. */
    const char* settings;

    struct {
        int result;
        int before;
        int after;
        int retries;
        int fails;
        /** Seconds slept. */
        int seconds;
    } figures;
    /** The stores in their order: L for the list, else what is written, A1 for analysis, D1 for
     * defragmentation where there are two control nodes. */
    const char* writes;
    /** What the engine's story ends with. */
    std::vector<std::string> tail;

    /** When the engine logs this, the device is set to that. */
    const char* moment = nullptr;
    std::vector<std::string> change = {};

    static std::string nameOf(const testing::TestParamInfo<EngineCase>& info) {
        return info.param.name;
    }
};

inline void PrintTo(const EngineCase& row, std::ostream* out) {
    *out << row.settings;
}

class EngineTest : public Phone, public testing::WithParamInterface<EngineCase> {
  protected:
    template <typename Engine>
    void check(const std::string& name, const std::string& profile, Engine engine) {
        const EngineCase& row = GetParam();
        start(profile + (*row.settings == '\0' ? "" : ",") + row.settings);
        if (row.moment != nullptr) {
            onLog(row.moment, [this, &row] {
                for (const std::string& change : row.change) {
                    const size_t equals = change.find('=');
                    set(change.substr(0, equals), change.substr(equals + 1));
                }
            });
        }
        int32_t before = kNone;
        int32_t after = kNone;
        EXPECT_EQ(engine("1,1,2,1,4,1,8,1", before, after), row.figures.result);
        EXPECT_EQ(before, row.figures.before);
        EXPECT_EQ(after, row.figures.after);
        EXPECT_EQ(cmd_retry_count, row.figures.retries);
        EXPECT_EQ(cmd_fail_count, row.figures.fails);

        const std::vector<std::string> story = this->story(name);
        EXPECT_EQ(tail(story, row.tail.size()), row.tail);
        EXPECT_EQ(stores(story), row.writes);
        EXPECT_EQ(secondsSlept(story), row.figures.seconds);
    }

  private:
    static std::string stores(const std::vector<std::string>& story) {
        std::string stores;
        for (const std::string& event : story) {
            if (event.compare(0, 6, "write ") != 0) continue;
            const size_t quote = event.find('"');
            const std::string node = event.substr(6, quote - 7);
            std::string text = event.substr(quote + 1, event.find('"', quote + 1) - quote - 1);
            if (text.size() > 2 && text.substr(text.size() - 2) == "\\n") {
                text.erase(text.size() - 2);
            } else {
                text += "-";
            }
            if (text == "1,1,2,1,4,1,8,1") text = "L";
            if (node == "fbs_flc_enable") text = "A" + text;
            if (node == "fbs_defrag_enable") text = "D" + text;
            stores += (stores.empty() ? "" : " ") + text;
        }
        return stores;
    }

    static int secondsSlept(const std::vector<std::string>& story) {
        int seconds = 0;
        for (const std::string& event : story) {
            if (event.compare(0, 6, "sleep ") == 0) seconds += std::stoi(event.substr(6));
        }
        return seconds;
    }
};
