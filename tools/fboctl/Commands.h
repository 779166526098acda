#pragma once

#include "Options.h"

namespace fboctl {

// What the program can be told to do; kHelp says what each command is for.

// Queries.cpp
ExitStatus support(const Options& options);
ExitStatus euaSupport(const Options& options);
ExitStatus euaSize(const Options& options);
ExitStatus versionControl(const Options& options);
ExitStatus collectGarbage(const Options& options);
ExitStatus wear(const Options& options);
ExitStatus control(const Options& options);

// Defrag.cpp
ExitStatus defrag(const Options& options);
ExitStatus trigger(const Options& options);

// Erase.cpp
ExitStatus euaErase(const Options& options);

// Doctor.cpp
ExitStatus doctor(const Options& options);

// Snapshot.cpp
ExitStatus snapshotBackup(const Options& options);
ExitStatus snapshotDrop(const Options& options);
ExitStatus snapshotStatus(const Options& options);
ExitStatus snapshotWatch(const Options& options);
ExitStatus snapshotEvent(const Options& options);

}  // namespace fboctl
