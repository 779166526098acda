#pragma once

/*
 * A host's stand-in for the platform's header of this name.
 */

#include <cstddef>

namespace android::hardware {

/**
 * Says how many calls from other processes the service of this process works on at once; more
 * wait. To be called before registerAsService(); without it the number is 1.
 *
 * @param callerWillJoin whether one of the threads is the caller's, by joinRpcThreadpool().
 */
void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin);

/** Gives the calling thread to the service; does not return. */
void joinRpcThreadpool();

}  // namespace android::hardware
