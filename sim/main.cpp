// passbook-sim: the virtual printer as a program of its own.

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "sim/options.h"
#include "sim/page_file.h"
#include "sim/port.h"
#include "sim/printer.h"

namespace passbook::sim {

namespace {

// How long the program sleeps at most; whatever happens wakes it earlier.
constexpr int kRoundMs = 1000;

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
Descriptor takeSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1}) {
        sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return Descriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
}

// The next signal that has arrived, 0 if none has.
int nextSignal(const Descriptor& signals) {
    signalfd_siginfo info{};
    const ssize_t got = read(signals.get(), &info, sizeof info);
    return got == static_cast<ssize_t>(sizeof info) ? static_cast<int>(info.ssi_signo) : 0;
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
    const Descriptor signals = takeSignals();
    if (!signals.valid()) {
        return fail("signals can't be received");
    }

    const auto keep = [&](const Page& page) {
        if (keepsPage && error.empty()) {
            (void)pageFile.write(page, error);  // the loop below looks at `error`
        }
    };
    Printer printer(
        options.scenario, [&log](const nlohmann::json& event) { log.add(event); }, keep);
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
        for (int signal = nextSignal(signals); signal != 0; signal = nextSignal(signals)) {
            running = running && signal == SIGUSR1;
            if (!running) {
                printer.finish();
            }
            if (const Page* page = printer.page()) {
                keep(*page);
            }
        }
        if (!error.empty()) {
            return fail(error);
        }
        if (!log.good()) {
            return fail(options.eventFile + ": can't be written");
        }
    }
    return 0;
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
