#pragma once

#include <memory>
#include <string>

namespace passbook::sim {

/// A symbolic link that leads to a port as long as this object lives.
class PortLink {
 public:
    /// Null if it can't be made; `error` then says why. What is there stays, unless it is a link to a port that isn't
    /// there any more: what a run leaves that was killed.
    [[nodiscard]] static std::unique_ptr<PortLink> make(const std::string& path, const std::string& port,
                                                        std::string& error);
    /// What has taken the link's place meanwhile stays.
    ~PortLink();
    PortLink(const PortLink&) = delete;
    PortLink& operator=(const PortLink&) = delete;

 private:
    PortLink(std::string path, std::string port) : path_(std::move(path)), port_(std::move(port)) {}

    std::string path_;
    std::string port_;
};

}  // namespace passbook::sim
