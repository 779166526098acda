#pragma once

#include <cstdint>

#include "fbo/Fbo.h"

namespace vendor::nivora::hardware::fbo::implementation {

/*
 * The wear and the level table that a service remembers. Calls that coincide may use these at the
 * same time; nothing else looks at `pe_cycle` and `level_to_num`.
 */

/**
 * Has the wear read, by Fbo::getUFSPEcycleALevelToNum(), unless that has worked before.
 *
 * @return false if it cannot be read. True also for a vendor without a level table, whose wear
 *     stays unknown and is read again on the next call.
 */
bool readWear(Fbo& service);

/** Program/erase cycles of the flash; -2 while they are unknown. */
int32_t wearOf(const Fbo& service);

/**
 * Replaces two fragmentation levels by the numbers that stand for them on flash of this maker. A
 * level that the table does not have is entered with 0.
 *
 * @return false, with both levels untouched, if there is no table.
 */
bool mapLevels(Fbo& service, int32_t& before, int32_t& after);

}  // namespace vendor::nivora::hardware::fbo::implementation
