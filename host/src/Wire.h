#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <android-base/unique_fd.h>

/*
 * How a client and the service speak over a unix socket. Each call is a connection of its own: a
 * Request and its text go there, a Reply and its text come back.
 */

namespace host {

/** What is asked for: a method, in the order of their slots, or what every interface offers. */
enum class Code : uint32_t {
    /** Answers nothing, ever: the end of the connection is the end of the service. */
    kLink,
    /** The value is the number of the service, which may be asked for with the number 0. */
    kPing,
    /** The value is the service's process id. */
    kGetDebugInfo,
    kFboIsSupport,
    kFboTrigger,
    kFboStateCtl,
    kFboGcaDisCard,
    kFboVersionCtrl,
    kEuaGetFreeSpaceAPECycle,
    kEuaSendEraseCmd,
    kEuaIsSupport,
    kEuaSupportSize,
    kSnapShotIsSupport,
    kSnapShotStartBackup,
    kSnapShotStartDrop,
    kSnapShotGetStatus,
};

constexpr uint32_t kMagic = 0x6f626621;

struct Request {
    uint32_t magic = kMagic;
    Code code = Code::kPing;
    /** Tells one life of the service from the next: what is asked of a dead one stays unanswered.
     */
    uint64_t service = 0;
    uint64_t size = 0;
};

struct Reply {
    uint32_t magic = kMagic;
    /** As ::android::hardware::Status has them. */
    int32_t exception = 0;
    int32_t error = 0;
    /** Truth values and numbers. */
    uint64_t value = 0;
    /** Of the text that is the answer, or the message of an exception. */
    uint64_t size = 0;
};

/** The buffer that the requests of all calls in progress share, in bytes. */
constexpr size_t kBufferSize = 1'040'384;

/** What a request takes of the buffer: its text, aligned, and what describes it. */
constexpr size_t costOf(size_t text_size) {
    constexpr size_t kDescription = 256;
    return kDescription + (text_size + 7) / 8 * 8;
}

/** A connection to the service that the user's programs find now; -1 if there is none. */
android::base::unique_fd connectToService();

// Each returns whether all could be sent or received.
bool sendRequest(int fd, Request request, const std::string& text = {});
bool receiveRequest(int fd, Request& request, std::string& text);
bool sendReply(int fd, Reply reply, const std::string& text = {});
bool receiveReply(int fd, Reply& reply, std::string& text);

/** Returns when the other end is gone. */
void awaitEnd(int fd);

}  // namespace host
