// run: a host program, with a trace of its calls.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "tools/tool.h"
#include "tools/trace_file.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

/// As a shell tells that a program is not there, or is none.
constexpr int noProgram = 127, notExecutable = 126, signalled = 128;

/// The host that runs; the handler below needs it.
volatile pid_t g_host = 0;

void passOn(int number, siginfo_t* info, void* /*context*/) {
    // What a terminal sends, the host has got itself.
    if (info->si_code != SI_KERNEL && g_host > 0)
        (void)kill(g_host, number);
}

/// Has the host get the signals that are sent to the tool.
class SignalsForHost {
 public:
    SignalsForHost() {
        struct sigaction pass {};
        pass.sa_sigaction = passOn;
        pass.sa_flags = SA_SIGINFO | SA_RESTART;
        for (std::size_t i = 0; i < numbers.size(); ++i)
            (void)sigaction(numbers[i], &pass, &before_[i]);
    }
    SignalsForHost(const SignalsForHost&) = delete;
    SignalsForHost& operator=(const SignalsForHost&) = delete;
    ~SignalsForHost() {
        for (std::size_t i = 0; i < numbers.size(); ++i)
            (void)sigaction(numbers[i], &before_[i], nullptr);
        g_host = 0;
    }

 private:
    static constexpr std::array numbers{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2};
    std::array<struct sigaction, numbers.size()> before_{};
};

/// The object that writes the trace inside the host: where it was installed or built, seen from this program.
std::string preloadedObject() {
    std::error_code error;
    const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const std::filesystem::path& each : {own / PASSBOOK_PRELOAD_NAME, own / PASSBOOK_PRELOAD_FROM_BIN,
                                              std::filesystem::path(PASSBOOK_PRELOAD_INSTALLED)})
        if (std::filesystem::is_regular_file(each, error))
            return std::filesystem::canonical(each, error);
    return {};
}

/// Has the host, and what it starts, write the trace.
bool prepareTrace(Tool& tool) {
    const std::string object = preloadedObject();
    // The system takes a space or a colon for the end of a name.
    if (object.empty() || object.find_first_of(" :") != std::string::npos)
        return tool.report.fail(Exit::failed, "run: " + std::string(PASSBOOK_PRELOAD_NAME) +
                                                  (object.empty() ? " is not installed beside this program"
                                                                  : " cannot be loaded from a place with such a name"));
    const char* const others = std::getenv("LD_PRELOAD");
    const std::string preload = others != nullptr && *others != '\0' ? object + ':' + others : object;
    std::error_code error;
    const std::string trace = std::filesystem::absolute(tool.setting.trace, error);
    (void)setenv("LD_PRELOAD", preload.c_str(), 1);
    (void)setenv(traceVariable, trace.c_str(), 1);
    (void)setenv(familyVariable, nameOf(tool.setting.family), 1);
    if (tool.setting.traceUnmasked)
        (void)setenv(unmaskedVariable, "1", 1);
    else
        (void)unsetenv(unmaskedVariable);
    return true;
}

/// In the child. Only returns to tell in `result` why the host cannot be started.
void becomeHost(const std::vector<std::string>& host, int output, int result) {
    std::vector<char*> arguments;
    for (const std::string& each : host)
        arguments.push_back(const_cast<char*>(each.c_str()));
    arguments.push_back(nullptr);
    (void)dup2(output, STDOUT_FILENO);
    (void)signal(SIGPIPE, SIG_DFL);
    (void)execvp(arguments[0], arguments.data());
    const int error = errno;
    (void)!write(result, &error, sizeof error);
}

/// The exit status of the host as a shell has it; -1 with a failure in the report.
int runHost(Tool& tool, const std::vector<std::string>& host) {
    std::array<int, 2> result{};
    if (pipe2(result.data(), O_CLOEXEC) != 0) {
        (void)tool.report.fail(Exit::failed, std::string("run: ") + std::strerror(errno));
        return -1;
    }
    const SignalsForHost signals;
    // A signal that comes before the host's number is known waits for it.
    sigset_t all, before;
    (void)sigfillset(&all);
    (void)sigprocmask(SIG_SETMASK, &all, &before);
    const pid_t child = fork();
    if (child == 0) {
        (void)sigprocmask(SIG_SETMASK, &before, nullptr);
        becomeHost(host, tool.setting.json ? STDERR_FILENO : standardOutput(), result[1]);
        _exit(noProgram);
    }
    g_host = child;
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    (void)close(result[1]);
    int problem = child < 0 ? errno : 0;
    if (child > 0 && read(result[0], &problem, sizeof problem) < 0)
        problem = errno;
    (void)close(result[0]);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (problem != 0) {
        (void)tool.report.fail(static_cast<Exit>(problem == ENOENT ? noProgram : notExecutable),
                               host.front() + ": " + std::strerror(problem));
        return -1;
    }
    return WIFSIGNALED(status) ? signalled + WTERMSIG(status) : WEXITSTATUS(status);
}

/// The size of the trace, which grows when the host is traced.
off_t sizeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_size : 0;
}

void runTraced(Tool& tool, const std::vector<std::string>& host) {
    const std::string& trace = tool.setting.trace;
    const off_t before = sizeOf(trace);
    if (trace.empty())
        tool.report.warn("run: nothing is traced: there is no --trace FILE");
    else if (!prepareTrace(tool))
        return;
    const int status = runHost(tool, host);
    if (status < 0)
        return;
    tool.report.brought["status"] = status;
    if (!trace.empty() && sizeOf(trace) == before)
        tool.report.warn("nothing was traced: " + host.front() +
                         " made no call of libpassbook, or is not linked with the shared library");
    if (status != 0)
        (void)tool.report.fail(static_cast<Exit>(status), {});
}

}  // namespace

void addRun(CLI::App& parent, Tool& tool) {
    CLI::App* const app = parent.add_subcommand("run", "Runs a host program, and writes the trace of its calls.");
    app->footer(
        "The exit status is that of the host: 128 and the number of a signal that ended it; 127 if there is no such\n"
        "program; 126 if it cannot be run.\n"
        "Example:\n  passbook run --trace today.trace -- ./teller --counter 3");
    const auto host = std::make_shared<std::vector<std::string>>();
    app->add_option("HOST", *host, "the program and its arguments, behind --")->required()->expected(1, -1);
    app->callback([&tool, host] { tool.job = [host](Tool& with) { runTraced(with, *host); }; });
}

}  // namespace passbook::tool
