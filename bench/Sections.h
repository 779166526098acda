#pragma once

#include <filesystem>

#include "bench/Table.h"

namespace bench {

/*
 * The parts of the run. Each measures on a phone that it enters, so each needs a process of its
 * own. `plain` is where the files of a PlainPhone are.
 */

/** FBO_isSupport, EUA_isSupport and SnapShot_getStatus on plain files. */
void measureQueries(const std::filesystem::path& plain, Table& table);
/** A zone of a UFS 4.0 run on a simulated device that is done at once. */
void measureZone40(const std::filesystem::path& plain, Table& table);
/** The same of a UFS 3.1 run. */
void measureZone31(const std::filesystem::path& plain, Table& table);
/** Requests of 1 KiB to 1 MiB: the cutting alone, and whole runs. */
void measureRequests(const std::filesystem::path& plain, Table& table);
/** Erase lists and rule texts of 1 KiB to 1 MiB. */
void measureTexts(const std::filesystem::path& plain, Table& table);
/** Loading, starting and resting. */
void measureStartUp(const std::filesystem::path& plain, Table& table);

/** The queries' instructions, counted by valgrind in runs of this program. */
void measureInstructions(const std::filesystem::path& plain, Table& table);
/** One of those runs: query number `query` on the phone at `plain`, by library or floor. */
void runCollected(const std::filesystem::path& plain, int query, bool by_floor);

}  // namespace bench
