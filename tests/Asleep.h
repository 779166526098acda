#pragma once

#include <unistd.h>

#include <fstream>
#include <string>

/** Whether thread `id` of this process waits for something. */
inline bool isAsleep(pid_t id) {
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string stat;
    std::getline(file, stat);
    return stat.find(") S") != std::string::npos;
}
