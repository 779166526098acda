#include "ExplainReport.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <system_error>

#include <android-base/strings.h>

#include "ExplainPage.h"
#include "Options.h"

namespace fboctl {

namespace {

namespace fs = std::filesystem;

using android::base::StringReplace;

/** More days are counted together: a log that is none may seem to have any number of them. */
constexpr size_t kMostDays = 4000;

/** What is told in text of a call, a zone or a day, in this order and in these words. */
constexpr const char* kTold[][2] = {
        {"day", "%"},
        {"runs", "runs: %"},
        {"time", "%"},
        {"kind", "%"},
        {"process", "process %"},
        {"thread", "thread %"},
        {"ranges", "%"},
        {"result", "%"},
        {"cause", "because %"},
        {"items", "requests: %"},
        {"sent", "sent: %"},
        {"zone_count", "zones: %"},
        {"failed_zones", "failed: %"},
        {"unmeasured_zones", "not measured: %"},
        {"level_before", "level % before"},
        {"level_after", "% after"},
        {"before", "fragmentation % before"},
        {"after", "% after"},
        {"maker", "as it counts for %"},
        {"counted_fails", "failures counted: %"},
        {"counted_retries", "repeated commands and looks: %"},
        {"retries", "retries: %"},
        {"seconds", "took %"},
};

std::string compact(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, value);
}

std::string duration(double seconds) {
    char text[48];
    const auto whole = static_cast<int64_t>(seconds);
    if (whole < 60) {
        snprintf(text, sizeof(text), "%.1f s", seconds);
    } else {
        snprintf(text, sizeof(text), "%" PRId64 " min %" PRId64 " s", whole / 60, whole % 60);
    }
    return text;
}

std::string describe(const Json::Value& value) {
    std::string text;
    for (const auto& [key, words] : kTold) {
        if (!value.isMember(key)) continue;
        const Json::Value& told = value[key];
        const bool is_time = told.type() == Json::realValue;
        text += (text.empty() ? "" : ", ") +
                StringReplace(words, "%", is_time ? duration(told.asDouble()) : told.asString(),
                              false);
    }
    return text + "\n";
}

std::string wrong(const std::string& cause, const Json::Value& times) {
    return "    wrong" + (times.asInt64() == 1 ? "" : ", " + times.asString() + " times") + ": " +
           cause;
}

std::string describeEvent(const Json::Value& event) {
    std::string text = describe(event);
    int number = 0;
    for (const Json::Value& zone : event["zones"]) {
        text += "    zone " + std::to_string(++number) + ": " + describe(zone);
    }
    for (const Json::Value& error : event["errors"]) text += "    " + error.asString() + "\n";
    for (const Json::Value& problem : event["problems"]) {
        text += wrong(problem["cause"].asString(), problem["times"]) + ". " +
                problem["look"].asString() + "\n";
    }
    return text;
}

std::string dayOf(const Json::Value& event) {
    constexpr double kEarliestDate = 1e9;
    const std::string time = event["time"].asString();
    if (time.find('-') != std::string::npos) return time.substr(0, time.find(' '));
    if (time.empty()) return "no date";
    const double seconds = event["seconds_since"].asDouble();
    if (seconds < kEarliestDate) return "since boot";
    const auto date = static_cast<time_t>(seconds);
    char text[32];
    std::tm day{};
    gmtime_r(&date, &day);
    strftime(text, sizeof(text), "%Y-%m-%d", &day);
    return text;
}

void add(Json::Value& sum, const Json::Value& number) {
    sum = Json::Int64(sum.asInt64() + number.asInt64());
}

}  // namespace

ExplainReport::ExplainReport(bool json, const std::string& html) : json_(json) {
    if (!html.empty()) {
        std::error_code error;
        // Where a link points, so that the link stays.
        html_ = fs::weakly_canonical(html, error);
        if (html_.empty()) html_ = html;
        written_ = html_;
        if (!fs::exists(html_, error) || fs::is_regular_file(html_, error)) written_ += ".new";
        page_.open(written_);
        if (!page_) throw UsageError(html + " cannot be written");
        if (written_ != html_ && fs::exists(html_, error)) {
            fs::permissions(written_, fs::status(html_, error).permissions(), error);
        }
        page_ << kPageBegin;
    }
    show("", "{\"events\": [");
}

ExplainReport::~ExplainReport() {
    std::error_code error;
    // What is still there is not whole.
    if (written_ != html_) fs::remove(written_, error);
}

void ExplainReport::show(const std::string& text, const std::string& data) {
    fputs((json_ ? data : text).c_str(), stdout);
    // Nothing in the data may end the script that they stand in.
    if (page_.is_open()) page_ << StringReplace(data, "<", "\\u003c", true);
}

void ExplainReport::take(const Json::Value& event) {
    show(describeEvent(event), (events_ == 0 ? "\n" : ",\n") + compact(event));
    ++events_;
    if (!event["ok"].asBool()) ++failures_;
    count(event);
}

void ExplainReport::count(const Json::Value& event) {
    std::string name = dayOf(event);
    if (days_.size() >= kMostDays && days_.count(name) == 0) name = "other days";
    Json::Value& day = days_[name];
    day["day"] = name;
    for (const Json::Value& problem : event["problems"]) {
        add(day["causes"][problem["cause"].asString()], problem["times"]);
    }
    add(day["runs"], Json::Value(event["kind"] == "run" ? 1 : 0));
    for (const char* key : {"zone_count", "failed_zones", "unmeasured_zones", "before", "after"}) {
        if (event.isMember(key)) add(day[key], event[key]);
    }
}

bool ExplainReport::finish() {
    std::string text = "\n";
    Json::Value days = Json::arrayValue;
    for (const auto& [name, day] : days_) {
        days.append(day);
        text += describe(day);
        for (const std::string& cause : day["causes"].getMemberNames()) {
            text += wrong(cause, day["causes"][cause]) + "\n";
        }
    }
    show(text, "\n],\n\"days\": " + compact(days) + "}");
    if (json_) printf("\n");
    if (events_ == 0) {
        fprintf(stderr, "fboctl: no call of the service is in there%s\n",
                html_.empty() ? "" : "; no page is written");
        return false;
    }
    return finishPage() && failures_ == 0;
}

void ExplainReport::breakOff(const std::string& reason) {
    if (json_) printf("\n],\n\"error\": %s}\n", compact(reason).c_str());
}

bool ExplainReport::finishPage() {
    if (html_.empty()) return true;
    page_ << kPageEnd;
    page_.close();
    std::error_code error;
    if (page_ && written_ != html_) fs::rename(written_, html_, error);
    if (page_ && !error) return true;
    fprintf(stderr, "fboctl: %s cannot be written\n", html_.c_str());
    return false;
}

}  // namespace fboctl
