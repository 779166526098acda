#include "sim/Script.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

#include <android-base/parseint.h>
#include <android-base/strings.h>

namespace sim {

namespace {

using android::base::ConsumePrefix;

/** Far from where the device's clock ends. */
constexpr int64_t kLongestWait = std::numeric_limits<int32_t>::max();

int parseErrno(std::string_view name) {
    constexpr int kMaxErrno = 133;
    for (int error = 1; error <= kMaxErrno; ++error) {
        const char* const known = strerrorname_np(error);
        if (known != nullptr && name == known) return error;
    }
    throw std::invalid_argument("\"" + std::string(name) + "\" is no errno; EIO is one");
}

std::string unescape(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const char c = text.front();
        text.remove_prefix(1);
        if (c != '\\') {
            plain += c;
        } else if (ConsumePrefix(&text, "n")) {
            plain += '\n';
        } else if (ConsumePrefix(&text, "\\")) {
            plain += '\\';
        } else if (text.size() >= 3 && text[0] == 'x' && isxdigit(text[1]) && isxdigit(text[2])) {
            plain += static_cast<char>(strtol(std::string(text.substr(1, 2)).c_str(), nullptr, 16));
            text.remove_prefix(3);
        } else {
            throw std::invalid_argument("behind a \\ comes n, \\, or x and two hexadecimal digits");
        }
    }
    return plain;
}

Answer parseAnswer(std::string_view text) {
    Answer answer;
    if (ConsumePrefix(&text, "~")) {
        const std::string seconds(text.substr(0, text.find(':')));
        if (seconds.size() == text.size() ||
            !android::base::ParseInt(seconds, &answer.wait, int64_t{0}, kLongestWait)) {
            throw std::invalid_argument("a wait is ~SECONDS:, with an answer behind it");
        }
        text.remove_prefix(seconds.size() + 1);
    }
    if (text == "*") return answer;
    answer.is_own = false;
    if (ConsumePrefix(&text, "!")) {
        answer.error = parseErrno(text);
    } else {
        answer.text = unescape(text);
    }
    return answer;
}

}  // namespace

Script Script::parse(std::string_view text, bool texts) {
    Script script;
    for (const std::string& part : android::base::Split(std::string(text), "/")) {
        script.answers_.push_back(parseAnswer(part));
        const Answer& answer = script.answers_.back();
        if (!texts && !answer.is_own && answer.error == 0) {
            throw std::invalid_argument("\"" + part + "\" is neither * nor an errno such as !EIO");
        }
    }
    return script;
}

const Answer& Script::take() {
    const Answer& answer = answers_[next_];
    if (next_ + 1 < answers_.size()) ++next_;
    return answer;
}

std::string escape(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        char code[5];
        snprintf(code, sizeof(code), "\\x%02x", static_cast<unsigned char>(c));
        escaped += isalnum(static_cast<unsigned char>(c)) ? std::string(1, c) : code;
    }
    return escaped;
}

}  // namespace sim
