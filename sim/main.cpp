// passbook-sim: the virtual printer as a program of its own.

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "sim/host.h"
#include "sim/options.h"
#include "sim/page_file.h"
#include "sim/port.h"
#include "sim/printer.h"
#include "sim/usb.h"

namespace passbook::sim {

namespace {

// How long the program sleeps at most; whatever happens wakes it earlier.
constexpr int kRoundMs = 1000;

// The same with a host on USB, whose doings don't wake it.
constexpr int kUsbRoundMs = 50;

int fail(const std::string& message) {
    std::cerr << "passbook-sim: " << message << '\n';
    return kExitFailure;
}

// One JSON object a line, each in the file as soon as it has happened.
class EventLog {
 public:
    [[nodiscard]] bool open(const std::string& path) {
        file_.open(path);
        return file_.is_open();
    }

    void add(const nlohmann::json& event) {
        if (!file_.is_open()) {
            return;
        }
        const auto sinceStart =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_);
        // What is read first stands first, for someone who follows the log on a screen.
        nlohmann::ordered_json stamped{{"ms", sinceStart.count()}, {"event", event.at("event")}};
        stamped.update(nlohmann::ordered_json(event));
        // Bytes that are no text must not end the log: they become replacement characters.
        file_ << stamped.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << std::endl;
    }

    [[nodiscard]] bool good() const { return !file_.is_open() || file_.good(); }

 private:
    std::ofstream file_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// The signals the program answers to, blocked and readable from a descriptor instead.
Descriptor takeSignals(std::initializer_list<int> numbers) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : numbers) {
        // nohup(1) says so: who is started by it is to go on when the terminal closes.
        struct sigaction now {};
        const bool unwanted =
            signal == SIGHUP && sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
        if (!unwanted) {
            sigaddset(&signals, signal);
        }
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return Descriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
}

// The next signal that has arrived, number 0 if none has.
signalfd_siginfo nextSignal(const Descriptor& signals) {
    signalfd_siginfo info{};
    const ssize_t got = read(signals.get(), &info, sizeof info);
    return got == static_cast<ssize_t>(sizeof info) ? info : signalfd_siginfo{};
}

// Serves hosts on a pseudo-terminal until a signal ends it. `keepPage` is called when the page is to be kept,
// `trouble` says what has gone wrong with that.
int serveLine(Printer& printer, const std::function<void()>& keepPage,
              const std::function<std::string()>& trouble) {
    const Descriptor signals = takeSignals({SIGINT, SIGTERM, SIGHUP, SIGUSR1});
    if (!signals.valid()) {
        return fail("signals can't be received");
    }
    std::string error;
    const std::unique_ptr<PtyPort> port = PtyPort::open(printer, error);
    if (!port) {
        return fail(error);
    }
    std::cout << "port: " << port->name() << std::endl;

    bool running = true;
    while (running) {
        if (!port->serve(kRoundMs, signals.get())) {
            return fail(port->name() + ": the pseudo-terminal has failed");
        }
        for (auto signal = nextSignal(signals); signal.ssi_signo != 0; signal = nextSignal(signals)) {
            running = running && signal.ssi_signo == SIGUSR1;
            if (!running) {
                printer.finish();
            }
            keepPage();
        }
        if (const std::string problem = trouble(); !problem.empty()) {
            return fail(problem);
        }
    }
    return 0;
}

// Runs the host program with the printer on its USB. Standard output is the host's alone.
int serveHost(const Options& options, Printer& printer, const std::function<void()>& keepPage,
              const std::function<std::string()>& trouble) {
    const Descriptor signals = takeSignals({SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD});
    if (!signals.valid()) {
        return fail("signals can't be received");
    }
    std::string error;
    const std::unique_ptr<UsbPort> port = UsbPort::open(printer, options.device, error);
    if (!port) {
        return fail(error);
    }
    port->setFault(options.fault, options.faultAt);
    HostProcess host;
    if (const int status = host.start(options.host, UsbPort::hostEnvironment(), error); status != 0) {
        (void)fail(error);
        return status;
    }
    std::optional<int> status;
    while (!status) {
        pollfd wake{signals.get(), POLLIN, 0};
        (void)poll(&wake, 1, kUsbRoundMs);
        port->with([] {});  // time goes by at the slot, also while the host is idle
        for (auto signal = nextSignal(signals); signal.ssi_signo != 0; signal = nextSignal(signals)) {
            if (signal.ssi_signo == SIGUSR1) {
                port->with(keepPage);
            } else if (signal.ssi_signo != SIGCHLD && signal.ssi_code != SI_KERNEL) {
                // What a terminal sends, the host has got itself.
                host.send(static_cast<int>(signal.ssi_signo));
            }
        }
        status = host.exitStatus();
    }
    std::string problem;
    port->with([&] {
        printer.finish();
        keepPage();
        problem = trouble();
    });
    return problem.empty() || *status != 0 ? *status : fail(problem);
}

int run(Options options) {
    EventLog log;
    if (!options.eventFile.empty() && !log.open(options.eventFile)) {
        return fail(options.eventFile + ": can't be written");
    }
    for (std::size_t side = 0; side < options.scanFiles.size(); ++side) {
        std::string error;
        const std::string& file = options.scanFiles[side];
        if (!file.empty()) {
            options.scenario.scan.sides[side] = documentFromFile(file, error);
        }
        if (!error.empty()) {
            return fail(error);
        }
    }
    const bool keepsPage = !options.pageFile.empty();
    PageFile pageFile(options.pageFile);
    std::string error;
    if (keepsPage && !pageFile.canBeWritten(error)) {
        return fail(error);
    }
    const auto keep = [&](const Page& page) {
        if (keepsPage && error.empty()) {
            (void)pageFile.write(page, error);  // `trouble` below looks at `error`
        }
    };
    Printer printer(
        options.scenario, [&log](const nlohmann::json& event) { log.add(event); }, keep);
    const auto keepPage = [&] {
        printer.printWaitingText();
        if (const Page* page = printer.page()) {
            keep(*page);
        }
    };
    const auto trouble = [&] {
        return !error.empty() || log.good() ? error : options.eventFile + ": can't be written";
    };
    return options.usb ? serveHost(options, printer, keepPage, trouble)
                       : serveLine(printer, keepPage, trouble);
}

}  // namespace

}  // namespace passbook::sim

int main(int argc, char** argv) {
    try {
        const passbook::sim::ParsedOptions parsed = passbook::sim::parseOptions(argc, argv);
        return parsed.options ? passbook::sim::run(*parsed.options) : parsed.exitStatus;
    } catch (const std::exception& error) {
        std::cerr << "passbook-sim: " << error.what() << '\n';
        return passbook::sim::kExitFailure;
    }
}
