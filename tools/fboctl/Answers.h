#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <json/json.h>

#include "Session.h"

namespace fboctl {

/** What the service has logged. */
class LogLines {
  public:
    LogReader reader() {
        return [this](char, const std::string& text) {
            const std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(text);
        };
    }

    /** From `text` to the end of the first line that contains it; empty if none does. */
    std::string find(const std::string& text) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& line : lines_) {
            const size_t at = line.find(text);
            if (at != std::string::npos) return line.substr(at);
        }
        return {};
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

/** A feature's answer, with the reason if it is no. */
struct Answer {
    bool supported;
    std::string reason;

    Json::Value json() const;
    void print(const char* feature) const;
};

/** The wear of the flash and whether EUA is supported, as far as they are known. */
struct WearReport {
    std::optional<int> cycles;
    std::optional<bool> eua;
};

WearReport askWear(const Session& session);

/** Asks whether FBO, or EUA, is supported; `log` has to be what `session` was given to read. */
Answer askFbo(const Session& session, const LogLines& log);
Answer askEua(const Session& session, const LogLines& log);

}  // namespace fboctl
