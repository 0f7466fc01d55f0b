// passbook-sim: the virtual printer as a program of its own.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
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
#include "sim/program/document_file.h"
#include "sim/program/event_log.h"
#include "sim/program/host.h"
#include "sim/program/link.h"
#include "sim/program/options.h"
#include "sim/program/page_file.h"
#include "sim/program/pty_port.h"
#include "sim/program/replay.h"
#include "sim/program/scratch.h"
#include "sim/usb/usb_port.h"

namespace passbook::sim {

namespace {

using std::chrono::steady_clock;

/// How long the program sleeps at most; whatever happens wakes it earlier.
constexpr int roundMs = 1000;

/// The same with a host on USB, whose doings don't wake it.
constexpr int usbRoundMs = 50;

/// The picture of an ejected page is written when nothing has happened for so long, and after a while also if the host
/// never pauses.
constexpr int quietMs = 5;
constexpr std::chrono::seconds longestBusy(1);

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

/// The printer with what is kept of its doings.
class Desk {
 public:
    explicit Desk(const Options& options, EventLog& log)
        : log_(log),
          pageFile_(options.pageFile),
          printer_(
              options.scenario, [this](const Event& event) { note(event); },
              [this](Page page) { keep(std::move(page)); }) {}

    [[nodiscard]] Printer& printer() { return printer_; }
    [[nodiscard]] PageFile& pageFile() { return pageFile_; }

    // What is to be done now and then. True if a page still waits to be written.
    bool lookAfter() {
        const bool quiet = events_ == log_.count();
        events_ = log_.count();
        if (pageFile_.pending() && (quiet || steady_clock::now() - pendingSince_ > longestBusy))
            pageFile_.writeEjected();
        return pageFile_.pending();
    }

    // Writes the picture of the document in place.
    void keepPage() {
        printer_.printWaitingText();
        pageFile_.writeEjected();
        if (const Page* page = printer_.page())
            pageFile_.write(*page);
    }

    [[nodiscard]] std::string problem() const {
        return pageFile_.problem().empty() ? log_.problem() : pageFile_.problem();
    }

 private:
    void note(const Event& event) {
        if (pageFile_.pending() && isAny<event::Answer>(event)) {
            // A host that learns that its page is out finds its picture.
            pageFile_.writeEjected();
        }
        log_.add(event);
    }

    void keep(Page page) {
        if (!pageFile_.pending())
            pendingSince_ = steady_clock::now();
        pageFile_.take(std::move(page));
    }

    EventLog& log_;
    PageFile pageFile_;
    steady_clock::time_point pendingSince_;
    std::uint64_t events_ = 0;  // that had happened at the last look
    Printer printer_;
};

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
    // Serves hosts for so long at most, or until a signal comes. False if the connection has failed.
    [[nodiscard]] virtual bool serve(int timeoutMs, const Descriptor& signals) = 0;
    // Has the printer take in what hosts have sent until now.
    [[nodiscard]] virtual bool takeIn() = 0;
    // Calls `use` while the printer isn't being served.
    virtual void with(const std::function<void()>& use) = 0;
};

class SerialLine : public Connection {
 public:
    explicit SerialLine(std::unique_ptr<PtyPort> port) : port_(std::move(port)) {}
    [[nodiscard]] std::string portName() const override { return port_->name(); }
    [[nodiscard]] bool serve(int timeoutMs, const Descriptor& signals) override {
        return port_->serve(timeoutMs, signals.get());
    }
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
    [[nodiscard]] bool serve(int timeoutMs, const Descriptor& signals) override {
        pollfd wake{signals.get(), POLLIN, 0};
        (void)poll(&wake, 1, std::min(timeoutMs, usbRoundMs));
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
        return port ? std::make_unique<SerialLine>(std::move(port)) : nullptr;
    }
    std::unique_ptr<UsbPort> port = UsbPort::open(printer, options.device, error);
    if (!port)
        return nullptr;
    port->setFault(options.fault, options.faultAt);
    return std::make_unique<UsbBus>(std::move(port));
}

/// Serves hosts until a signal ends that, or until `host` ends if one is run. The exit status.
int serve(Desk& desk, Connection& connection, const Descriptor& signals, HostProcess* host) {
    std::string problem;
    std::optional<int> status;
    int timeoutMs = roundMs;
    for (bool running = true; running;) {
        if (!connection.serve(timeoutMs, signals)) {
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
            problem = desk.problem();
        });
        status = host != nullptr ? host->exitStatus() : std::nullopt;
        running = running && !status && (host != nullptr || problem.empty());
    }
    if (problem.empty() && !connection.takeIn())
        problem = connection.portName() + ": the pseudo-terminal has failed";
    connection.with([&] {
        desk.printer().finish();
        desk.keepPage();
        problem = problem.empty() ? desk.problem() : problem;
    });
    const int failure = problem.empty() ? 0 : fail(problem);
    return status.value_or(0) != 0 ? *status : failure;
}

/// Prints what a trace tells, and ends.
int print(Desk& desk, const std::string& trace) {
    std::string error;
    const bool whole = replay(trace, desk.printer(), error);
    desk.printer().finish();
    desk.keepPage();
    if (!whole)
        return fail(error);
    return desk.problem().empty() ? 0 : fail(desk.problem());
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
    if (!options.trace.empty() && !options.familyGiven) {
        const std::optional<Family> family = familyOfTrace(options.trace, error);
        if (!family)
            return fail(error);
        options.scenario.family = *family;
    }
    Desk desk(options, log);
    if (!desk.pageFile().canBeWritten())
        return fail(desk.problem());
    if (!options.trace.empty())
        return print(desk, options.trace);
    const Descriptor signals = takeSignals({SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD});
    if (!signals.valid())
        return fail("signals can't be received");
    const std::unique_ptr<Connection> connection = connect(options, desk.printer(), error);
    if (!connection)
        return fail(error);
    std::unique_ptr<PortLink> link;
    if (!options.link.empty()) {
        link = PortLink::make(options.link, "/dev/" + connection->portName(), error);
        if (!link)
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
        return serve(desk, *connection, signals, &host);
    }
    if (!writeAll(STDOUT_FILENO, "port: " + connection->portName() + '\n'))
        return fail(std::string("standard output: ") + std::strerror(errno));
    return serve(desk, *connection, signals, nullptr);
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
