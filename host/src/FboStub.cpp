/*
 * The service's end of calls from other processes. Each connection has a thread of its own, so
 * that nobody waits for a client that stalls; as many of them as the pool has threads are in the
 * service at once.
 */

#include "FboStub.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <android/log.h>
#include <hidl/HidlTransportSupport.h>

#include "Wire.h"
#include "host/LogSink.h"
#include "host/Runtime.h"

namespace host {

namespace {

using android::DEAD_OBJECT;
using android::FAILED_TRANSACTION;
using android::OK;
using android::sp;
using android::UNKNOWN_ERROR;
using android::UNKNOWN_TRANSACTION;
using android::base::unique_fd;
using android::hardware::hidl_string;
using android::hardware::Return;
using vendor::nivora::hardware::fbo::V1_0::IFbo;

/** So many connections at once at the most, which is more than one client can make. */
constexpr rlim_t kConnections = 4096;

/**
 * Has the process open more files than usual, so that clients who stall leave enough to others and
 * to what the service opens itself. Returns how many connections there may be.
 */
int makeRoom() {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    return static_cast<int>(std::min(files.rlim_cur / 2, kConnections));
}

/** Tells the log's readers whose call the lines of this thread are from here on. */
void logClient(int client) {
    ucred other{};
    socklen_t size = sizeof(other);
    getsockopt(client, SOL_SOCKET, SO_PEERCRED, &other, &size);
    __android_log_print(ANDROID_LOG_DEBUG, kClientTag, "%d", other.pid);
}

/** What the calls in progress share: the threads of the pool and the buffer of the requests. */
class Pool {
  public:
    void addThreads(size_t count) {
        const std::lock_guard<std::mutex> lock(mutex_);
        free_threads_ += count;
        changed_.notify_all();
    }

    /** Whether there is place in the buffer, which is taken then. */
    bool takePlace(size_t size) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (size > free_bytes_) return false;
        free_bytes_ -= size;
        return true;
    }

    /** Waits for a thread. */
    void takeThread() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return free_threads_ > 0; });
        --free_threads_;
    }

    /** Gives back a thread and a place of that size. */
    void giveBack(size_t size) {
        const std::lock_guard<std::mutex> lock(mutex_);
        free_bytes_ += size;
        ++free_threads_;
        changed_.notify_one();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t free_threads_ = 0;
    size_t free_bytes_ = kBufferSize;
};

/** The runtime of this process; never destroyed, as its threads run until the very end. */
struct Runtime {
    Pool pool;
    int socket = -1;
    uint64_t number = 0;
    sp<IFbo> service;
    std::atomic<int> connections = 0;
};

Runtime& runtime() {
    static auto* runtime = new Runtime;
    return *runtime;
}

struct Answer {
    Reply reply;
    std::string text;
};

Answer failure(int32_t error) {
    Answer answer;
    answer.reply.error = error;
    return answer;
}

template <typename Value>
Answer answerOf(const Return<Value>& result) {
    if (!result.isOk()) return failure(UNKNOWN_ERROR);
    Answer answer;
    if constexpr (!std::is_void_v<Value>) {
        answer.reply.value = static_cast<uint64_t>(static_cast<Value>(result));
    }
    return answer;
}

/** Of a method that answers with a text, by `call`, which is handed the callback. */
template <typename Call>
Answer textOf(Call call) {
    int answers = 0;
    std::string text;
    Answer answer = answerOf(call([&](const hidl_string& given) {
        ++answers;
        text = given;
    }));
    if (answers != 1) {
        fprintf(stderr, "a method has answered %d times instead of once\n", answers);
        abort();
    }
    answer.text = std::move(text);
    return answer;
}

Answer call(IFbo& service, Code code, const std::string& text) {
    Answer answer;
    switch (code) {
        case Code::kLink:
            break;
        case Code::kPing:
            answer.reply.value = runtime().number;
            return answer;
        case Code::kGetDebugInfo:
            answer.reply.value = static_cast<uint64_t>(getpid());
            return answer;
        case Code::kFboIsSupport:
            return answerOf(service.FBO_isSupport());
        case Code::kFboTrigger:
            return textOf([&](auto take) { return service.FBO_trigger(text, take); });
        case Code::kFboStateCtl:
            return textOf([&](auto take) { return service.FBO_stateCtl(text, take); });
        case Code::kFboGcaDisCard:
            return answerOf(service.FBO_GCADisCard());
        case Code::kFboVersionCtrl:
            return answerOf(service.FBO_VersionCtrl(text));
        case Code::kEuaGetFreeSpaceAPECycle:
            return textOf([&](auto take) { return service.EUA_GetFreeSpaceAPECycle(take); });
        case Code::kEuaSendEraseCmd:
            return answerOf(service.EUA_SendEraseCmd(text));
        case Code::kEuaIsSupport:
            return answerOf(service.EUA_isSupport());
        case Code::kEuaSupportSize:
            return answerOf(service.EUA_SupportSize());
        case Code::kSnapShotIsSupport:
            return answerOf(service.SnapShot_isSupport());
        case Code::kSnapShotStartBackup:
            return answerOf(service.SnapShot_startBackup());
        case Code::kSnapShotStartDrop:
            return answerOf(service.SnapShot_startDrop());
        case Code::kSnapShotGetStatus:
            return answerOf(service.SnapShot_getStatus());
    }
    return failure(UNKNOWN_TRANSACTION);
}

/** An error that escapes the call ends the process, as nobody catches it. */
Answer work(const Request& request, const std::string& text) {
    Pool& pool = runtime().pool;
    const size_t place = costOf(text.size());
    if (!pool.takePlace(place)) return failure(FAILED_TRANSACTION);
    pool.takeThread();
    Answer answer = call(*runtime().service, request.code, text);
    pool.giveBack(place);
    return answer;
}

/** What comes in such a connection, once. What makes no request is refused. */
void serve(const unique_fd& client) {
    Request request;
    std::string text;
    if (!receiveRequest(client.get(), request, text)) {
        sendReply(client.get(), failure(UNKNOWN_TRANSACTION).reply);
        return;
    }
    const bool is_any =
            request.service == 0 && (request.code == Code::kPing || request.code == Code::kLink);
    if (!is_any && request.service != runtime().number) {
        sendReply(client.get(), failure(DEAD_OBJECT).reply);
    } else if (request.code == Code::kLink) {
        sendReply(client.get(), Reply());
        awaitEnd(client.get());
    } else {
        if (request.code > Code::kGetDebugInfo) logClient(client.get());
        const Answer answer = work(request, text);
        sendReply(client.get(), answer.reply, answer.text);
    }
}

void acceptClients() {
    std::atomic<int>& connections = runtime().connections;
    const int limit = makeRoom();
    for (;;) {
        unique_fd client(accept4(runtime().socket, nullptr, nullptr, SOCK_CLOEXEC));
        if (!client.ok()) {
            // For want of something that may be there later.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        if (connections >= limit) continue;
        ++connections;
        try {
            std::thread([client = std::move(client), &connections]() mutable {
                serve(client);
                client.reset();
                --connections;
            }).detach();
        } catch (const std::system_error&) {
            // No thread to be had: that client is turned away.
            --connections;
        }
    }
}

}  // namespace

void offerServiceAt(int socket) {
    runtime().socket = socket;
}

bool isOfferedToOthers() {
    return runtime().socket >= 0;
}

android::status_t offer(const sp<IFbo>& service) {
    std::random_device random;
    runtime().number = (static_cast<uint64_t>(random()) << 32 | random()) | 1;
    runtime().service = service;
    if (listen(runtime().socket, SOMAXCONN) != 0) return -errno;
    std::thread(acceptClients).detach();
    return OK;
}

}  // namespace host

namespace android::hardware {

void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin) {
    host::runtime().pool.addThreads(maxThreads - (callerWillJoin ? 1 : 0));
}

void joinRpcThreadpool() {
    host::runtime().pool.addThreads(1);
    for (;;) pause();
}

}  // namespace android::hardware
