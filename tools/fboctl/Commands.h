#pragma once

#include "Options.h"

namespace fboctl {

// Exercise.cpp
ExitStatus exercise(const Options& options);

// Options.cpp
ExitStatus completion(const Options& options);
ExitStatus manual(const Options& options);

// Serve.cpp
ExitStatus run(const Options& options);
ExitStatus serve(const Options& options);

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

// Explain.cpp
ExitStatus explain(const Options& options);

// SnapshotCommands.cpp
ExitStatus snapshotBackup(const Options& options);
ExitStatus snapshotDrop(const Options& options);
ExitStatus snapshotStatus(const Options& options);
ExitStatus snapshotWatch(const Options& options);
ExitStatus snapshotEvent(const Options& options);

/** Something that the program can be told to do. */
struct Command {
    const char* name;
    /** What follows the name: in brackets if it may be left out, with "…" if it may be several. */
    const char* arguments;
    /** What the command is for, as the help says it; its lines have at most 76 characters. */
    const char* help;
    ExitStatus (*run)(const Options& options);
};

/** All commands, in the order of the help. Add a row, and the function's declaration above. */
constexpr Command kCommands[] = {
        {"support", "",
         "Are defragmentation inside the flash (FBO) and erase requests (EUA)\n"
         "supported, and if not, why? The exit status asks for both.",
         support},
        {"defrag", "FILE|DIR…", "Find where the files lie and defragment them.", defrag},
        {"trigger", "RANGES",
         "Defragment ranges: START,COUNT,START,COUNT,…  With \"-\" they are read from\n"
         "standard input, where line ends and blanks do not count.",
         trigger},
        {"stop", "", "Stop the run that is under way, from another terminal.", control},
        {"continue", "", "Take back a stop that has not been noticed yet.", control},
        {"version-ctrl", "TEXT", "Is FBO to be on under these rules, such as V:1.0,>0.9:ON?",
         versionControl},
        {"gc", "", "Ask the file system of the user data for urgent garbage collection.",
         collectGarbage},
        {"wear", "", "Show the program/erase cycles of the flash.", wear},
        {"eua support", "", "Is EUA supported, and if not, why?", euaSupport},
        {"eua size", "", "Show the size that the device offers for EUA.", euaSize},
        {"eua erase", "LBAS", "Send erase requests, with \":\" between them; each takes 5 seconds.",
         euaErase},
        {"snapshot backup", "", "Take a snapshot of the boot logical unit; takes up to 35 seconds.",
         snapshotBackup},
        {"snapshot drop", "", "Drop the snapshot; takes up to 30 seconds.", snapshotDrop},
        {"snapshot status", "", "Show the state of the snapshot.", snapshotStatus},
        {"snapshot watch", "",
         "Show each drop event that comes, and what came of it, until Ctrl-C; with\n"
         "--sim, keep a service up for it.",
         snapshotWatch},
        {"snapshot event", "[PID]",
         "Have the kernel send the drop event: with --sim to a service of its own,\n"
         "otherwise to the one that runs, or to the watch with this process id.",
         snapshotEvent},
        {"doctor", "[FEATURE]",
         "Check, step by step and without changing anything, that all is there\n"
         "that the service needs; for fbo, eua or snapshot alone, or for all.",
         doctor},
        {"exercise", "[FEATURE] [FILE]",
         "Drive the driver's nodes as the service would, for whoever brings them up, and\n"
         "hold each answer against what the service needs: fbo and eua on the blocks of\n"
         "FILE, or snapshot; without a FEATURE all three. No run may be under way.",
         exercise},
        {"explain", "[FILE]",
         "Tell in plain words what a phone's log says of each call of the service:\n"
         "logcat in any of its forms, a bug report, or what --log shows; without a\n"
         "FILE, or with \"-\", from standard input. The exit status is 1 if something\n"
         "went wrong, is not known to its end, or if no call is in there.",
         explain},
        {"run", "COMMAND…",
         "With --sim: run a command of this host beside a service on the simulated\n"
         "device. It finds the service as on a phone, and so does fboctl without --sim.\n"
         "The exit status is the command's.",
         run},
        {"serve", "",
         "With --sim: keep such a service up until Ctrl-C, for all programs that this\n"
         "user starts.",
         serve},
        {"completion", "", "Print a completion for bash: eval \"$(fboctl completion)\"",
         completion},
        {"manual", "", "Print this as a page for man: fboctl manual | man -l -", manual},
};

}  // namespace fboctl
