#include "sim/program/host.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace passbook::sim {

namespace {

constexpr int notFound = 127;
constexpr int notRunnable = 126;
constexpr int endedBySignal = 128;

/// What a program that is started finds as if nobody had been here.
class SpawnAttributes {
 public:
    SpawnAttributes() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
    posix_spawnattr_t attributes_{};
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

std::vector<std::string> withPort(std::vector<std::string> command, const std::string& port) {
    constexpr std::string_view mark = "{}";
    for (std::size_t i = 1; i < command.size(); ++i) {
        std::string& argument = command[i];
        for (std::size_t at = argument.find(mark); at != std::string::npos; at = argument.find(mark, at + port.size()))
            argument.replace(at, mark.size(), port);
    }
    return command;
}

int HostProcess::start(const std::vector<std::string>& command, const std::string& setting, std::string& error) {
    const std::string name = setting.substr(0, setting.find('=') + 1);
    std::vector<std::string> environment;
    if (!setting.empty())
        environment.push_back(setting);
    for (char** each = environ; *each != nullptr; ++each)
        if (setting.empty() || std::strncmp(*each, name.c_str(), name.size()) != 0)
            environment.emplace_back(*each);
    std::vector<std::string> arguments = command;
    const SpawnAttributes attributes;
    const int problem = posix_spawnp(&pid_, arguments.front().c_str(), nullptr, attributes.get(),
                                     pointersTo(arguments).data(), pointersTo(environment).data());
    if (problem == 0)
        return 0;
    pid_ = -1;
    error = arguments.front() + ": " + std::strerror(problem);
    return problem == ENOENT ? notFound : notRunnable;
}

std::optional<int> HostProcess::exitStatus() {
    int status = 0;
    const pid_t ended = waitpid(pid_, &status, WNOHANG);
    if (ended == 0 || (ended < 0 && errno == EINTR))
        return std::nullopt;
    pid_ = -1;
    if (ended < 0)
        return notRunnable;
    return WIFSIGNALED(status) ? endedBySignal + WTERMSIG(status) : WEXITSTATUS(status);
}

void HostProcess::send(int signal) const {
    if (pid_ > 0)
        kill(pid_, signal);
}

}  // namespace passbook::sim
