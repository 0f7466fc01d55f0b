#include "sim/program/scratch.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace passbook::sim {

namespace {

constexpr const char* setting = "TMPDIR";

/// The helper makes the directory, too: so there is no moment at which nobody would remove it.
constexpr const char* removerScript =
    R"(d=$(mktemp -d) && echo "$d" 2>/dev/null; exec >&- 2>&-; read -r _; rm -rf -- "$d")";

bool makePipe(Descriptor& from, Descriptor& to) {
    std::array<int, 2> ends{};
    const bool made = pipe2(ends.data(), O_CLOEXEC) == 0;
    from = Descriptor(made ? ends[0] : -1);
    to = Descriptor(made ? ends[1] : -1);
    return made;
}

/// Runs the script with these as its standard input and output, out of reach of the signals that end us: those of a
/// terminal go to a session, and others only to us. Its number, -1 if there is none; errno then says why.
pid_t spawnHelper(const Descriptor& input, const Descriptor& output) {
    pid_t helper = -1;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t files;
    sigset_t blocked;
    sigfillset(&blocked);
    sigdelset(&blocked, SIGCHLD);  // the shell waits for its own children
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &blocked);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, output.get(), STDOUT_FILENO);
    std::string shell = "sh";
    std::string option = "-c";
    std::string script = removerScript;
    const std::array<char*, 4> arguments{shell.data(), option.data(), script.data(), nullptr};
    const int problem = posix_spawn(&helper, "/bin/sh", &files, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    errno = problem;
    return problem == 0 ? helper : -1;
}

/// The first line that comes; empty if none does.
std::string lineFrom(const Descriptor& input) {
    std::string line;
    char next = 0;
    ssize_t got = 0;
    do {
        got = read(input.get(), &next, 1);
        if (got == 1 && next != '\n')
            line += next;
    } while ((got == 1 && next != '\n') || (got < 0 && errno == EINTR));
    return got == 1 ? line : std::string();
}

}  // namespace

std::unique_ptr<ScratchDirectory> ScratchDirectory::make(std::string& error) {
    std::unique_ptr<ScratchDirectory> scratch(new ScratchDirectory);
    Descriptor name;
    {
        Descriptor untilTheEnd;
        Descriptor said;
        if (!makePipe(untilTheEnd, scratch->alive_) || !makePipe(name, said) ||
            (scratch->helper_ = spawnHelper(untilTheEnd, said)) < 0) {
            error = std::string("no helper process: ") + std::strerror(errno);
            return nullptr;
        }
    }
    const std::string path = lineFrom(name);
    if (path.empty()) {
        error = "no directory for temporary files";  // mktemp has said why
        return nullptr;
    }
    if (const char* former = std::getenv(setting))
        scratch->former_ = former;
    setenv(setting, path.c_str(), 1);
    return scratch;
}

ScratchDirectory::~ScratchDirectory() {
    alive_ = Descriptor();
    while (helper_ > 0 && waitpid(helper_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void ScratchDirectory::restoreSetting() const {
    if (former_)
        setenv(setting, former_->c_str(), 1);
    else
        unsetenv(setting);
}

}  // namespace passbook::sim
