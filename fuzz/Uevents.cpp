/*
 * Kernel uevents. An input is messages, each with what happens around it: whether the kernel sends
 * it or somebody else, whether the drop succeeds, the seconds since the last one, and its bytes.
 */

#include <cutils/uevent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

#include "fbo/snapshot/DropEvent.h"
#include "fuzz/Input.h"
#include "fuzz/Phone.h"
#include "fuzz/Target.h"
#include "sim/Uevent.h"

using namespace std::string_literals;
using fuzz::Phone;
using fuzz::require;

namespace impl = vendor::nivora::hardware::fbo::implementation;

const char* const fuzz::kDevice = "ufs40:samsung";

const std::vector<std::string> fuzz::kRegressions = {
        "\3\x1aUFS_SNAPSHOT_DROP_EVENT\0\0\0"s,
        "\3\x18UFS_SNAPSHOT_DROP_EVENT\0\x0f\x18UFS_SNAPSHOT_DROP_EVENT\0\x1f\x18UFS_SNAPSHOT_DROP_EVENT\0"s,
        // Without an end: the kernel's own string follows at once.
        "\3\x17UFS_SNAPSHOT_DROP_EVENT"s,
        "\2\x18UFS_SNAPSHOT_DROP_EVENT\0"s,
};

namespace {

constexpr time_t kDropInterval = 4;
constexpr time_t kDropSeconds = 30;

/** Bytes of a message that are heeded for sure, and that are not. */
constexpr size_t kSafeLength = 2000;
constexpr size_t kTooLong = 2048;

/** The drop requests in `message`, up to a string that is empty or has no end. */
int requestsIn(const std::string& message) {
    int requests = 0;
    size_t start = 0;
    for (size_t end; (end = message.find('\0', start)) != std::string::npos; start = end + 1) {
        if (end == start) break;
        if (message.substr(start, end - start) == "UFS_SNAPSHOT_DROP_EVENT") ++requests;
    }
    return requests;
}

/** A service that counts its drops, which succeed as they are told. */
struct Service : fuzz::Fbo {
    impl::Return<bool> SnapShot_startDrop() override {
        ++drops;
        return succeeds;
    }

    int drops = 0;
    bool succeeds = true;
};

Service& service() {
    static const android::sp<Service> service = [] {
        const android::sp<Service> made = Phone::serve<Service>();
        // That which the service's thread would have opened, see Phone.cpp.
        const auto open = reinterpret_cast<decltype(&uevent_open_socket)>(
                dlsym(RTLD_NEXT, "uevent_open_socket"));
        require(open != nullptr, "there is a way to open the socket");
        made->uevent_fd = open(64 * 1024, true);
        require(made->uevent_fd >= 0, "uevents can be listened to");
        fcntl(made->uevent_fd, F_SETFL, O_NONBLOCK);
        return made;
    }();
    return *service;
}

/**
 * Sends `message`. One that the kernel does not send begins as udev's do: else it could be a
 * request to the kernel to send the rest of it.
 */
void send(const std::string& message, bool by_kernel) {
    by_kernel ? sim::sendKernelUevent(message) : sim::sendUserUevent("libudev\0"s + message);
}

bool isReadable(int fd) {
    pollfd readable = {fd, POLLIN, 0};
    return poll(&readable, 1, 0) > 0;
}

/** What the service makes of a message that it may or may not have got. */
void receive(Phone& phone, int requests) {
    Service& target = service();
    // The first request drops, unless that was done not long ago, and if it fails the next one.
    int drops = 0;
    if (requests > 0 && time(nullptr) - target.last_drop_time >= kDropInterval) {
        drops = target.succeeds ? 1 : requests;
    }
    const time_t dropped = drops > 0 && target.succeeds ? time(nullptr) : target.last_drop_time;
    target.drops = 0;
    // The kernel may have told this phone of the machine's own devices, too.
    do {
        phone.run(fuzz::kNone, kDropSeconds, [&] { target.UEventEvent(); });
    } while (isReadable(target.uevent_fd));
    require(target.drops == drops, "each request drops the snapshot, but none soon after another");
    require(target.last_drop_time == dropped, "only a drop that succeeds counts");
}

/** The list of strings ends where it ends, also if its bytes are anything. */
void count(const std::string& message) {
    std::vector<char> strings(message.begin(), message.end());
    strings.insert(strings.end(), 2, '\0');
    const size_t requests = impl::countDropEvents(strings.data());
    require(requests ==
                    static_cast<size_t>(requestsIn(std::string(strings.begin(), strings.end()))),
            "each request counts once");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Phone& phone = Phone::get();
    phone.restart();
    service().last_drop_time = 0;
    fuzz::Input input(data, size);
    count(std::string(data, data + size));
    while (!input.ended()) {
        const int circumstances = input.byte();
        const bool by_kernel = circumstances % 2 == 1;
        service().succeeds = circumstances / 2 % 2 == 1;
        sleep(circumstances / 4 % 8);
        // A long one is what a length of 255 stands for.
        size_t length = input.byte();
        if (length == 255) length = static_cast<size_t>(input.byte()) << 8;
        std::string message = input.bytes(length);
        // The kernel adds a string of its own, and gets no further than the service.
        const bool is_short = message.size() <= kSafeLength;
        if (!is_short) message.resize(kTooLong);
        send(message, by_kernel);
        receive(phone, by_kernel && is_short ? requestsIn(message) : 0);
    }
    return 0;
}
