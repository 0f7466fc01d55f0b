#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace passbook::sim {

/// The command with each "{}" in its arguments replaced.
[[nodiscard]] std::vector<std::string> withPort(std::vector<std::string> command, const std::string& port);

/// A program that is run as a child of this one.
class HostProcess {
 public:
    /// Starts `command`, looked for on the PATH, with `setting` ("NAME=value", or empty) in its environment and no
    /// signal blocked. 0, or the exit status a shell would have for it (126, 127); `error` then says why.
    [[nodiscard]] int start(const std::vector<std::string>& command, const std::string& setting, std::string& error);

    /// Its exit status, 128 and the signal's number if a signal ended it; nothing while it runs.
    [[nodiscard]] std::optional<int> exitStatus();

    void send(int signal) const;

 private:
    pid_t pid_ = -1;
};

}  // namespace passbook::sim
