// passbook-sim: the virtual printer as a program of its own.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <functional>
#include <iostream>
#include <optional>

#include "sim/printer.h"
#include "sim/program/control.h"
#include "sim/program/desk.h"
#include "sim/program/document_file.h"
#include "sim/program/event_log.h"
#include "sim/program/host.h"
#include "sim/program/link.h"
#include "sim/program/options.h"
#include "sim/program/pty_port.h"
#include "sim/program/replay.h"
#include "sim/program/scratch.h"
#include "sim/usb/usb_port.h"

namespace passbook::sim {

namespace {

/// How long the program sleeps at most; whatever happens wakes it earlier.
constexpr int roundMs = 1000;

/// The same with a host on USB, whose doings don't wake it.
constexpr int usbRoundMs = 50;

/// The picture of an ejected page is written when nothing has happened for so long.
constexpr int quietMs = 5;

int fail(const std::string& message) {
    std::cerr << "passbook-sim: " << message << '\n';
    return exitFailure;
}

/// The signals the program answers to, blocked and readable from a descriptor instead.
Descriptor takeSignals(std::initializer_list<int> numbers) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : numbers) {
        // nohup(1) says so: who is started by it is to go on when the terminal closes.
        struct sigaction now {};
        const bool unwanted = signal == SIGHUP && sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
        if (!unwanted)
            sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return Descriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
}

/// The next signal that has arrived, number 0 if none has.
signalfd_siginfo nextSignal(const Descriptor& signals) {
    signalfd_siginfo info{};
    const ssize_t got = read(signals.get(), &info, sizeof info);
    return got == static_cast<ssize_t>(sizeof info) ? info : signalfd_siginfo{};
}

/// Where hosts find the printer.
class Connection {
 public:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    virtual ~Connection() = default;

    // What a host opens.
    [[nodiscard]] virtual std::string portName() const = 0;
    // What a host program needs in its environment, "NAME=value"; empty: nothing.
    [[nodiscard]] virtual std::string hostSetting() const { return {}; }
    // Serves hosts for so long at most, or until there is something to read at `wake`. False if the connection has failed.
    [[nodiscard]] virtual bool serve(int timeoutMs, int wake) = 0;
    // Has the printer take in what hosts have sent until now.
    [[nodiscard]] virtual bool takeIn() = 0;
    // Calls `use` while the printer isn't being served.
    virtual void with(const std::function<void()>& use) = 0;
};

class SerialLine : public Connection {
 public:
    explicit SerialLine(std::unique_ptr<PtyPort> port) : port_(std::move(port)) {}
    [[nodiscard]] std::string portName() const override { return port_->name(); }
    [[nodiscard]] bool serve(int timeoutMs, int wake) override { return port_->serve(timeoutMs, wake); }
    [[nodiscard]] bool takeIn() override { return port_->takeIn(); }
    void with(const std::function<void()>& use) override { use(); }

 private:
    std::unique_ptr<PtyPort> port_;
};

class UsbBus : public Connection {
 public:
    explicit UsbBus(std::unique_ptr<UsbPort> port) : port_(std::move(port)) {}
    [[nodiscard]] std::string portName() const override { return "USB"; }
    [[nodiscard]] std::string hostSetting() const override { return UsbPort::hostEnvironment(); }
    [[nodiscard]] bool serve(int timeoutMs, int wake) override {
        pollfd watched{wake, POLLIN, 0};
        (void)poll(&watched, 1, std::min(timeoutMs, usbRoundMs));
        return true;
    }
    [[nodiscard]] bool takeIn() override { return true; }  // a transfer that was begun has been taken
    void with(const std::function<void()>& use) override { port_->with(use); }

 private:
    std::unique_ptr<UsbPort> port_;
};

std::unique_ptr<Connection> connect(const Options& options, Printer& printer, std::string& error) {
    if (!options.usb) {
        std::unique_ptr<PtyPort> port = PtyPort::open(printer, error);
        if (port && options.baud > 0)
            port->setPace(options.baud, options.buffer);
        return port ? std::make_unique<SerialLine>(std::move(port)) : nullptr;
    }
    std::unique_ptr<UsbPort> port = UsbPort::open(printer, options.device, error);
    if (!port)
        return nullptr;
    return std::make_unique<UsbBus>(std::move(port));
}

/// The link to the port, if there is to be one.
class Link {
 public:
    explicit Link(std::string path) : path_(std::move(path)) {}

    // Leads to that port from now on. What is wrong, or an empty text. Without a port there is no link: the system gives
    // the number of a pseudo-terminal that is gone to the next who asks, and a host would print at another printer.
    [[nodiscard]] std::string follow(const std::string& port) {
        std::string error;
        if (path_.empty() || port == port_)
            return error;
        port_ = port;
        link_.reset();
        if (!port.empty())
            link_ = PortLink::make(path_, "/dev/" + port, error);
        return error;
    }

 private:
    std::string path_;
    std::string port_;
    std::unique_ptr<PortLink> link_;
};

/// Serves hosts until a signal ends that, or until `host` ends if one is run. The exit status.
int serve(Desk& desk, Connection& connection, const Descriptor& signals, HostProcess* host, Link& link,
          Control* control) {
    std::string problem;
    const Descriptor wake(epoll_create1(EPOLL_CLOEXEC));
    for (const int each : {signals.get(), control != nullptr ? control->descriptor() : -1}) {
        epoll_event readable{};
        readable.events = EPOLLIN;
        if (each >= 0 && epoll_ctl(wake.get(), EPOLL_CTL_ADD, each, &readable) != 0)
            return fail(std::string("signals can't be received: ") + std::strerror(errno));
    }
    std::optional<int> status;
    int timeoutMs = roundMs;
    for (bool running = true; running;) {
        if (!connection.serve(timeoutMs, wake.get())) {
            problem = connection.portName() + ": the pseudo-terminal has failed";
            break;
        }
        for (auto signal = nextSignal(signals); signal.ssi_signo != 0; signal = nextSignal(signals)) {
            if (signal.ssi_signo == SIGUSR1) {
                (void)connection.takeIn();  // if it fails, so will the next round
                connection.with([&] { desk.keepPage(); });
            } else if (host == nullptr) {
                running = false;
            } else if (signal.ssi_signo != SIGCHLD && signal.ssi_code != SI_KERNEL) {
                // What a terminal sends, the host has got itself.
                host->send(static_cast<int>(signal.ssi_signo));
            }
        }
        connection.with([&] {
            timeoutMs = desk.lookAfter() ? quietMs : roundMs;
            if (control != nullptr) {
                control->serve(desk, connection.portName());
                timeoutMs = control->untilNextDeed(timeoutMs);
            }
            problem = desk.problem();
        });
        if (control != nullptr && control->ended()) {
            running = false;
            if (host != nullptr)
                host->send(SIGTERM);
        }
        if (problem.empty())
            problem = link.follow(connection.portName());
        status = host != nullptr ? host->exitStatus() : std::nullopt;
        running = running && !status && (host != nullptr || problem.empty());
    }
    if (problem.empty() && !connection.takeIn())
        problem = connection.portName() + ": the pseudo-terminal has failed";
    bool met = true;
    connection.with([&] {
        desk.printer().finish();
        if (host != nullptr)
            desk.endScenario();
        desk.end();
        problem = problem.empty() ? desk.problem() : problem;
        met = desk.meetsExpectations();
    });
    const int failure = problem.empty() ? (met ? 0 : exitFailure) : fail(problem);
    return status.value_or(0) != 0 ? *status : failure;
}

/// Prints what a trace tells, and ends.
int print(Desk& desk, const std::string& trace) {
    std::string error;
    const bool whole = replay(trace, desk.printer(), error);
    desk.printer().finish();
    desk.endScenario();
    desk.end();
    const bool met = desk.meetsExpectations();
    if (!whole)
        return fail(error);
    return !desk.problem().empty() ? fail(desk.problem()) : met ? 0 : exitFailure;
}

int run(Options options) {
    // Before anybody asks GLib for a place for temporary files.
    std::string error;
    std::unique_ptr<ScratchDirectory> scratch;
    if (options.usb) {
        scratch = ScratchDirectory::make(error);
        if (!scratch)
            return fail(error);
    }
    EventLog log;
    if (options.eventFile == standardOutput)
        log.toStandardOutput();
    else if (!options.eventFile.empty() && !log.open(options.eventFile, error))
        return fail(error);
    for (std::size_t side = 0; side < options.scanFiles.size(); ++side) {
        const std::string& file = options.scanFiles[side];
        if (!file.empty())
            options.scenario.scan.sides[side] = documentFromFile(file, error);
        if (!error.empty())
            return fail(error);
    }
    for (Expectation& each : options.expectations) {
        if (each.kind == Expectation::Kind::picture)
            each.picture = documentFromFile(each.name, error);
        if (!error.empty())
            return fail(error);
    }
    if (!options.trace.empty() && !options.familyGiven) {
        const std::optional<Family> family = familyOfTrace(options.trace, error);
        if (!family)
            return fail(error);
        options.scenario.family = *family;
    }
    Desk desk(options, log);
    if (!options.control.empty())
        log.keepEvents();
    if (!desk.canKeepPages(options))
        return fail(desk.problem());
    if (!options.trace.empty())
        return print(desk, options.trace);
    const Descriptor signals = takeSignals({SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD});
    if (!signals.valid())
        return fail("signals can't be received");
    const std::unique_ptr<Connection> connection = connect(options, desk.printer(), error);
    if (!connection)
        return fail(error);
    Link link(options.link);
    error = link.follow(connection->portName());
    if (!error.empty())
        return fail(error);
    std::unique_ptr<Control> control;
    if (!options.control.empty()) {
        control = Control::open(options.control, error);
        if (!control)
            return fail(error);
    }
    if (options.runsHost) {
        // Standard output is the host's.
        if (scratch)
            scratch->restoreSetting();
        HostProcess host;
        const int status = host.start(withPort(options.host, connection->portName()), connection->hostSetting(), error);
        if (status != 0) {
            (void)fail(error);
            return status;
        }
        return serve(desk, *connection, signals, &host, link, control.get());
    }
    if (!writeAll(STDOUT_FILENO, "port: " + connection->portName() + '\n'))
        return fail(std::string("standard output: ") + std::strerror(errno));
    return serve(desk, *connection, signals, nullptr, link, control.get());
}

/// What is not open would be the next file's number, and its reader would get what is meant for the user.
void openStandardFiles() {
    int file = -1;
    do {
        file = open("/dev/null", O_RDWR);
    } while (file >= 0 && file <= STDERR_FILENO);
    (void)Descriptor(file);
}

}  // namespace

}  // namespace passbook::sim

int main(int argc, char** argv) {
    using namespace passbook::sim;
    try {
        openStandardFiles();
        // A reader of the log that goes is told as what it is, with the page kept.
        (void)signal(SIGPIPE, SIG_IGN);
        const ParsedOptions parsed = parseOptions(argc, argv);
        return parsed.options ? run(*parsed.options) : parsed.exitStatus;
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
