#include "sim/Trace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <android-base/parseint.h>
#include <android-base/strings.h>

namespace sim {

namespace {

/** Takes the first word off `text`, and the blank behind it. */
std::string takeWord(std::string_view& text) {
    const std::string word(text.substr(0, text.find(' ')));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    return word;
}

/** Takes a text in quotes off `line`. */
std::string takeQuoted(std::string_view& line) {
    std::string text;
    size_t i = 1;
    for (; i < line.size() && line[i] != '"'; ++i) {
        if (line[i] != '\\') {
            text += line[i];
        } else if (line[++i] == 'n') {
            text += '\n';
        } else if (line[i] == 'x') {
            text += static_cast<char>(strtol(std::string(line.substr(i + 1, 2)).c_str(), {}, 16));
            i += 2;
        } else {
            text += line[i];
        }
    }
    line.remove_prefix(std::min(i + 1, line.size()));
    return text;
}

/** What is behind the node of a read or write. */
void parseTransfer(std::string_view line, Event& event) {
    if (line.empty()) return;
    if (line.front() == '"') {
        event.text = takeQuoted(line);
        if (!line.empty()) event.error = line.substr(1);
        return;
    }
    long count;
    long offset;
    int length = 0;
    if (sscanf(std::string(line).c_str(), "%ld at %ld: %n", &count, &offset, &length) != 2) {
        event.error = line;
        return;
    }
    event.text = std::to_string(count);
    event.offset = offset;
    const std::string outcome(line.substr(length));
    if (!android::base::ParseInt(outcome, &event.moved)) event.error = outcome;
}

Event parseLine(std::string_view line) {
    std::string_view rest = line;
    const std::string word = takeWord(rest);
    Event event;
    if (word == "read" || word == "write") {
        event.kind = word == "read" ? Event::kRead : Event::kWrite;
        event.node = takeWord(rest);
        parseTransfer(rest, event);
    } else if (word == "sleep") {
        event.kind = Event::kSleep;
        event.seconds = strtoul(std::string(rest).c_str(), nullptr, 10);
    } else if (word == "log") {
        event.kind = Event::kLog;
        event.priority = takeWord(rest).front();
        event.function = takeWord(rest);
        event.text = takeQuoted(rest);
    } else {
        event.text = line;
    }
    return event;
}

}  // namespace

Trace parseTrace(std::string_view lines) {
    Trace trace;
    for (const std::string& line : android::base::Split(std::string(lines), "\n")) {
        if (!line.empty()) trace.push_back(parseLine(line));
    }
    return trace;
}

std::string quote(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '\n') {
            quoted += "\\n";
        } else if (c == '"' || c == '\\') {
            quoted += {'\\', c};
        } else if (static_cast<unsigned char>(c) < ' ' || c == 127) {
            char escape[5];
            snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned char>(c));
            quoted += escape;
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

}  // namespace sim
