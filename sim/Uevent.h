#pragma once

#include <sys/types.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace sim {

/** A uevent's message: `strings`, each with a NUL behind it. */
std::string uevent(std::initializer_list<std::string_view> strings);

/** The uevent by which the driver asks for a drop of the snapshot. */
std::string dropEvent();

/**
 * Has the kernel send a uevent to all who listen in this network namespace. A process needs
 * CAP_SYS_ADMIN in the namespace for it, as a Simulator's has.
 *
 * @param message see uevent(). The kernel adds "SEQNUM=…".
 * @throws std::system_error if the kernel does not take it.
 */
void sendKernelUevent(std::string_view message);

/** Sends it in the network namespace of the process `pid`, which this process enters for good. */
void sendKernelUeventTo(pid_t pid, std::string_view message);

/** Sends a uevent from this process itself; a listener must not take it for the kernel's. */
void sendUserUevent(std::string_view message);

/**
 * Waits until this process has `count` uevent sockets, which keep events from then on, and as many
 * epoll instances, the last that their owners open. Throws std::runtime_error after 10 seconds.
 */
void awaitListeners(size_t count);

}  // namespace sim
