#pragma once

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The least that a client of the driver's nodes can do: straight C that makes the system calls
 * that the nodes demand, and no others. It knows where the nodes are, logs nothing and keeps
 * nothing. Its functions are for a device without faults and give up on any other.
 */

/** Whether the driver offers FBO; the wear is taken to be known. */
bool floor_query(void);

/**
 * Runs the `length` bytes of `request` through a device of either generation that offers no linear
 * mapping, zone by zone, and adds the zones' levels to `before` and `after`. False if a zone does
 * not get through.
 */
bool floor_request(const char* request, size_t length, long* before, long* after);

#ifdef __cplusplus
}
#endif
