#pragma once

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The least that a client of the driver's nodes can do: straight C that makes the system calls
 * that the nodes demand, and no others. It logs nothing and looks nothing up twice. The device has
 * to answer as one that is well; where it does not, the functions give up.
 */

/** Finds the host controller, once for the process. False if there is none. */
bool floor_find_controller(void);

/** Whether the driver offers FBO; the wear is taken to be known. */
bool floor_fbo_support(void);
/** Whether the driver offers EUA, and the part's identity can be read. */
bool floor_eua_support(void);
/** The number of the snapshot's state; -1 if it cannot be read. */
int floor_snapshot_status(void);

/** What became of a zone, or of a run of zones. */
struct floor_levels {
    long before;
    long after;
};

/** Runs the `length` bytes of `list` through a UFS 4.0 device. False if it does not get through. */
bool floor_zone40(const char* list, size_t length, struct floor_levels* levels);
/** The same through a UFS 3.1 device. */
bool floor_zone31(const char* list, size_t length, struct floor_levels* levels);

/** Takes a zone of `length` bytes. False ends the cutting. */
typedef bool (*floor_zone)(void* context, const char* zone, size_t length);
/** Cuts a request into zones of `ranges` ranges and hands them to `take`. */
bool floor_cut(const char* request, size_t length, int ranges, floor_zone take, void* context);

/**
 * Runs a request through a device that offers no linear mapping, zone by zone, and adds up the
 * levels. False if a zone does not get through.
 */
bool floor_trigger(const char* request, size_t length, struct floor_levels* sums);

/** Sends the items of an erase list, each with the pause that the device is given. */
bool floor_erase(const char* list, size_t length);

/** Whether an item of a rule text, which names no version of its own, switches FBO on. */
bool floor_version(const char* text, size_t length);

/** Starts a thread that waits for ever, as the service's does. */
bool floor_start_thread(void);

#ifdef __cplusplus
}
#endif
