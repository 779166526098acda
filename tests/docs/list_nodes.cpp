/*
 * Prints what a phone with a simulated device serves, a line each: its mode and its path. Links and
 * empty directories are called that instead of having a mode.
 */

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "sim/Simulator.h"

namespace fs = std::filesystem;

int main(int, char** argv) {
    const sim::Simulator phone(argv[1]);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator("/")) {
        struct stat attributes;
        if (lstat(entry.path().c_str(), &attributes) != 0) return 1;
        if (S_ISLNK(attributes.st_mode)) {
            printf("link %s\n", entry.path().c_str());
        } else if (!S_ISDIR(attributes.st_mode)) {
            printf("%04o %s\n", attributes.st_mode & 07777u, entry.path().c_str());
        } else if (fs::is_empty(entry.path())) {
            printf("directory %s\n", entry.path().c_str());
        }
    }
    return 0;
}
