#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <json/json.h>

namespace fboctl {

/** Shows what is found in a log, one thing after the other, and at the end a summary over days. */
class ExplainReport {
  public:
    /**
     * @param html where to write a page with plots; empty: nowhere. A file that is there stays
     *     until the page is whole and has something to show. Throws UsageError if it cannot be
     * written.
     */
    ExplainReport(bool json, const std::string& html);
    ~ExplainReport();

    /** Shows a call, or a start or a death of the service. */
    void take(const Json::Value& event);
    /** Shows the summary; whether anything was found, all of it went well, and is written. */
    bool finish();
    /** Ends the data early, with the reason. */
    void breakOff(const std::string& reason);

  private:
    /** Has the page take its place; whether that was done, or no page was wanted. */
    bool finishPage();
    void count(const Json::Value& event);
    /** Prints `text`, where text is wanted, and the data, where those are. */
    void show(const std::string& text, const std::string& data);

    const bool json_;
    std::filesystem::path html_;
    /** Where the page is written at first; `html_` itself if that is no regular file. */
    std::filesystem::path written_;
    std::ofstream page_;
    std::map<std::string, Json::Value> days_;
    size_t events_ = 0;
    size_t failures_ = 0;
};

}  // namespace fboctl
