// Who works with a device: what /proc tells, as far as this user may see it.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace passbook::tool::doctor {

struct Process {
    pid_t id = 0;
    std::string name;
    /// "agetty (process 812)"
    [[nodiscard]] std::string text() const;
};

struct Holders {
    std::vector<Process> open;      // have the device open
    std::vector<Process> locked;    // have locked it, as this library does
    std::vector<Process> named;     // of other users: have it on their command line
    std::vector<Process> otherEnd;  // are the printer: have the other end of a pseudo-terminal
    bool allSeen = true;            // else there are processes of other users, which can have it open too
};
/// This process does not count.
[[nodiscard]] Holders holdersOf(const std::string& path, const struct stat& device);

/// Whether a program of that name runs.
[[nodiscard]] bool isRunning(const std::string& name);

}  // namespace passbook::tool::doctor
