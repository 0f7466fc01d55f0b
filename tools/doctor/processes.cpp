#include "tools/doctor/processes.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>

#include "tools/doctor/findings.h"

namespace passbook::tool::doctor {

namespace {

namespace fs = std::filesystem;

constexpr unsigned firstPtsMajor = 136, lastPtsMajor = 143;  // of the other end of pseudo-terminals
constexpr unsigned ttyMajor = 5, ptmxMinor = 2;

std::string directoryOf(pid_t id) {
    return "/proc/" + std::to_string(id);
}

Process processOf(pid_t id) {
    return {id, firstLineOf(directoryOf(id) + "/comm")};
}

std::vector<pid_t> processes() {
    std::vector<pid_t> list;
    for (const std::string& name : namesIn("/proc")) {
        pid_t id = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
        if (error == std::errc{} && end == name.data() + name.size())
            list.push_back(id);
    }
    return list;
}

/// This process, and those that have started it: their command lines name the port because ours does.
std::set<pid_t> ancestors() {
    std::set<pid_t> line;
    for (pid_t id = getpid(); id > 0 && line.insert(id).second;) {
        std::ifstream status(directoryOf(id) + "/status");
        id = 0;
        for (std::string text; std::getline(status, text);)
            if (std::sscanf(text.c_str(), "PPid: %d", &id) == 1)
                break;
    }
    return line;
}

bool isPseudoTerminal(const struct stat& device) {
    return S_ISCHR(device.st_mode) && major(device.st_rdev) >= firstPtsMajor && major(device.st_rdev) <= lastPtsMajor;
}

bool isSame(const struct stat& open, const struct stat& device) {
    if (open.st_dev == device.st_dev && open.st_ino == device.st_ino)
        return true;
    // Another node of the same device counts. Pseudo-terminals have the same numbers in every container.
    return S_ISCHR(open.st_mode) && S_ISCHR(device.st_mode) && open.st_rdev == device.st_rdev &&
           !isPseudoTerminal(device);
}

/// Whether an open file is the printer's end of a pseudo-terminal.
bool isOtherEnd(const struct stat& open, const std::string& information, const struct stat& device) {
    if (!isPseudoTerminal(device) || !S_ISCHR(open.st_mode) || open.st_rdev != makedev(ttyMajor, ptmxMinor))
        return false;
    std::ifstream file(information);
    unsigned index = 0;
    for (std::string text; std::getline(file, text);)
        if (std::sscanf(text.c_str(), "tty-index: %u", &index) == 1)
            return index == minor(device.st_rdev) + (major(device.st_rdev) - firstPtsMajor) * 256;
    return false;
}

bool hasArgument(pid_t id, const std::string& path) {
    std::ifstream file(directoryOf(id) + "/cmdline", std::ios::binary);
    constexpr std::size_t devices = std::string_view("/dev/").size();
    for (std::string argument; std::getline(file, argument, '\0');)
        if (argument == path || argument == path.substr(std::min(devices, path.size())))
            return true;
    return false;
}

/// Adds who has locked the device, whoever's processes they are.
void findLocks(const struct stat& device, std::vector<Process>& locked) {
    std::ifstream file("/proc/locks");
    for (std::string text; std::getline(file, text);) {
        int id = 0;
        unsigned majorNumber = 0, minorNumber = 0;
        unsigned long long inode = 0;
        if (std::sscanf(text.c_str(), "%*s FLOCK %*s %*s %d %x:%x:%llu", &id, &majorNumber, &minorNumber, &inode) ==
                4 &&
            makedev(majorNumber, minorNumber) == device.st_dev && inode == device.st_ino && id != getpid())
            locked.push_back(processOf(id));
    }
}

}  // namespace

std::string Process::text() const {
    return (name.empty() ? "a program" : name) + " (process " + std::to_string(id) + ")";
}

Holders holdersOf(const std::string& path, const struct stat& device) {
    Holders holders;
    const std::set<pid_t> own = ancestors();
    for (const pid_t id : processes()) {
        if (id == getpid())
            continue;
        std::error_code error;
        fs::directory_iterator files(directoryOf(id) + "/fd", error);
        if (error) {
            const bool hidden = error == std::errc::permission_denied;
            holders.allSeen = holders.allSeen && !hidden;
            if (hidden && !own.contains(id) && hasArgument(id, path))
                holders.named.push_back(processOf(id));
            continue;
        }
        bool open = false, otherEnd = false;
        for (; files != fs::directory_iterator(); files.increment(error)) {
            struct stat status {};
            if (stat(files->path().c_str(), &status) != 0)
                continue;
            const std::string information = directoryOf(id) + "/fdinfo/" + files->path().filename().string();
            open = open || isSame(status, device);
            otherEnd = otherEnd || isOtherEnd(status, information, device);
        }
        if (otherEnd)
            holders.otherEnd.push_back(processOf(id));
        else if (open)
            holders.open.push_back(processOf(id));
    }
    findLocks(device, holders.locked);
    return holders;
}

bool isRunning(const std::string& name) {
    const std::vector<pid_t> all = processes();
    return std::any_of(all.begin(), all.end(), [&](pid_t id) { return processOf(id).name == name; });
}

}  // namespace passbook::tool::doctor
