#pragma once

#include <cstddef>
#include <fstream>
#include <map>
#include <string>

#include <json/json.h>

namespace fboctl {

/** Shows what is found in a log, one thing after the other, and at the end a summary over days. */
class ExplainReport {
  public:
    /**
     * @param html where to write a page with plots; empty: nowhere. Throws UsageError if it cannot
     *     be written.
     */
    ExplainReport(bool json, const std::string& html);

    /** Shows a call, or a start or a death of the service. */
    void take(const Json::Value& event);
    /** Shows the summary; whether anything was found, and all of it went well. */
    bool finish();

  private:
    void count(const Json::Value& event);
    /** Prints `text`, where text is wanted, and the data, where those are. */
    void show(const std::string& text, const std::string& data);

    const bool json_;
    std::ofstream page_;
    std::map<std::string, Json::Value> days_;
    size_t events_ = 0;
    size_t failures_ = 0;
};

}  // namespace fboctl
