#pragma once

#include <functional>

namespace host {

/** Takes a line of the log: its priority (android_LogPriority), tag and text. */
using LogSink = std::function<void(int priority, const char* tag, const char* text)>;

/**
 * Hands every line that this process logs, of every priority, to `sink` instead of printing it;
 * an empty sink drops them. One line is handed over at a time, on the thread that logs it. The
 * platform's library cuts a line at about 1 KiB.
 */
void setLogSink(LogSink sink);

/**
 * Has every line that this process logs written to `file`, where a service's clients look for it,
 * as logcat's form threadtime shows it; if `show`, also to the standard error.
 */
void logTo(int file, bool show);

/**
 * The tag of the line that a service logs when a thread of its own begins with a call from another
 * process: the process id of the client. What the thread logs from there on is of that call.
 */
constexpr char kClientTag[] = "nivora_client";

}  // namespace host
