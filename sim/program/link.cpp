#include "sim/program/link.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace passbook::sim {

namespace {

/// Where a symbolic link leads; empty if it is none.
std::string goalOf(const std::string& path) {
    std::error_code none;
    return std::filesystem::read_symlink(path, none).string();
}

}  // namespace

std::unique_ptr<PortLink> PortLink::make(const std::string& path, const std::string& port, std::string& error) {
    const std::string there = goalOf(path);
    // A link to our own port is older than that: the system gives a free number to the next who asks.
    if (there == port || (there.starts_with("/dev/pts/") && access(there.c_str(), F_OK) != 0))
        (void)unlink(path.c_str());  // if it stays, the next call says why
    if (symlink(port.c_str(), path.c_str()) != 0) {
        error = path + ": " + std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<PortLink>(new PortLink(path, port));
}

PortLink::~PortLink() {
    if (goalOf(path_) == port_)
        (void)unlink(path_.c_str());
}

}  // namespace passbook::sim
