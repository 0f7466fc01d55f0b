#include "sim/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <iostream>

namespace passbook::sim {

namespace {

constexpr const char* kDescription =
    "A virtual passbook printer on a pseudo-terminal.\n"
    "\n"
    "Prints one line, \"port: pts/N\", when it is ready; a host opens /dev/pts/N like a serial port. What "
    "is\n"
    "printed becomes a picture of 180 dots per inch, what happens a log of JSON lines. Runs until SIGINT,\n"
    "SIGTERM or SIGHUP.\n"
    "\n"
    "With --usb the printer hangs on an emulated USB bus instead. The host program named behind \"--\" is "
    "run\n"
    "under it and opens the port \"USB\"; its exit status is that of passbook-sim.";

constexpr const char* kExample =
    "Example:\n"
    "  passbook-sim --page page.png --events events.jsonl --stripe0 6217000012345678\n"
    "  passbook-sim --page page.png --usb -- ./host USB\n"
    "\n"
    "The picture is written when the document is ejected, at the end, and at SIGUSR1.";

constexpr double kSmallestPageMm = 10;
constexpr double kMaxSeconds = 1e6;

// The whole text as a number, as the "C" locale writes it.
template <typename Number>
std::optional<Number> numberFrom(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

std::optional<std::chrono::milliseconds> delayFrom(const std::string& text) {
    if (text == "never") {
        return kNever;
    }
    const std::optional<double> seconds = numberFrom<double>(text);
    if (!seconds || !(*seconds >= 0 && *seconds <= kMaxSeconds)) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(*seconds * 1000));
}

void addPageSize(CLI::App& app, Scenario& scenario) {
    app.add_option_function<std::string>(
           "--page-size",
           [&scenario](const std::string& text) {
               const std::size_t cross = text.find('x');
               const std::string_view whole(text);
               const auto width = numberFrom<double>(whole.substr(0, cross));
               const auto height = cross == std::string::npos ? std::optional<double>()
                                                              : numberFrom<double>(whole.substr(cross + 1));
               const double widest = dotsToMm(kMaxPageWidthDots);
               const double longest = dotsToMm(kMaxPageHeightDots);
               if (!width || !height ||
                   !(*width >= kSmallestPageMm && *width <= widest && *height >= kSmallestPageMm &&
                     *height <= longest)) {
                   throw CLI::ValidationError(
                       "--page-size", "\"" + text + "\" is no WIDTHxHEIGHT from 10x10 to 211x1072 mm");
               }
               scenario.pageWidthDots = mmToDots(*width);
               scenario.pageHeightDots = mmToDots(*height);
           },
           "Size of a document in millimetres [150x200]")
        ->type_name("WxH");
}

void addDelay(CLI::App& app, const std::string& name, const std::string& help,
              std::function<void(std::chrono::milliseconds)> set) {
    app.add_option_function<std::string>(
           name,
           [name, set = std::move(set)](const std::string& text) {
               const auto delay = delayFrom(text);
               if (!delay) {
                   throw CLI::ValidationError(
                       name, "\"" + text + "\" is neither a number of seconds up to 1000000 nor \"never\"");
               }
               set(*delay);
           },
           help)
        ->type_name("S");
}

void addStripe(CLI::App& app, const std::string& name, std::string& data) {
    app.add_option(name, data, "What is on that magnetic stripe [nothing]")
        ->type_name("TEXT")
        ->check([](const std::string& text) {
            return text.size() > kMaxStripeData ? std::string("a stripe holds 1024 bytes") : std::string();
        });
}

void addScan(CLI::App& app, Options& options) {
    ScanScenario& scan = options.scenario.scan;
    app.add_option("--scan-front", options.scanFiles[0],
                   "Scan this PNG, JPEG or BMP file as the front [the page as printed]")
        ->type_name("FILE");
    app.add_option("--scan-back", options.scanFiles[1], "The same for the back [blank]")->type_name("FILE");
    app.add_option("--scan-block", scan.block, "Bytes of image data at once, at most [4095]")
        ->check(CLI::Range(std::size_t{2}, kPtyBlock).description(""))
        ->type_name("N");
    app.add_option("--scan-break", scan.breakAfter, "Break a scan off after N bytes of image data")
        ->check([](const std::string& text) {
            return numberFrom<std::uint64_t>(text) ? std::string() : "\"" + text + "\" is no number of bytes";
        })
        ->type_name("N");
    app.add_option("--scan-size-error", scan.sizeError,
                   "Announce N more (or -N less) than there are: oki bytes, oli rows")
        ->type_name("N");
    app.add_option("--scan-rows-error", scan.rowsError, "oli: end with a row count that is wrong by N")
        ->type_name("N");
    app.add_flag("--scan-fillers", scan.fillers, "Put eight bytes that are no image between the blocks");
    app.add_flag("--scan-no-end", scan.noEnd, "End no side of a scan");
    app.add_flag("--scan-silent", scan.silent, "Deliver nothing of a scan");
}

void addUsb(CLI::App& app, Options& options) {
    app.add_flag("--usb", options.usb, "Be a USB printer, and run the program behind \"--\" with it");
    app.add_option("--usb-busy", options.device.busyClaims,
                   "So many times a claim of the USB printer finds it busy [0]")
        ->check(CLI::Range(0, 1000).description(""))
        ->type_name("N");
    app.add_option_function<std::string>(
           "--usb-fault",
           [&options](const std::string& text) {
               static const std::map<std::string, UsbFault> faults{{"stall", UsbFault::kStall},
                                                                   {"short", UsbFault::kShort},
                                                                   {"hang", UsbFault::kHang},
                                                                   {"unplug", UsbFault::kUnplug}};
               const std::size_t colon = std::min(text.find(':'), text.size());
               const auto fault = faults.find(text.substr(0, colon));
               const auto at =
                   numberFrom<int>(std::string_view(text).substr(std::min(colon + 1, text.size())));
               if (fault == faults.end() || !at || *at < 1) {
                   throw CLI::ValidationError(
                       "--usb-fault",
                       "\"" + text + "\" is no KIND:N, with stall, short, hang or unplug for KIND");
               }
               options.fault = fault->second;
               options.faultAt = *at;
           },
           "Let the N-th USB transfer go wrong: stall, short, hang\nor unplug")
        ->type_name("KIND:N");
}

}  // namespace

ParsedOptions parseOptions(int argc, const char* const* argv) {
    Options options;
    // What is behind the mark is the host program's, whatever it looks like.
    const char* const* const end = argv + argc;
    const char* const* const mark =
        std::find_if(argv, end, [](const char* each) { return std::string_view(each) == "--"; });
    if (mark != end) {
        options.host.assign(mark + 1, end);
        argc = static_cast<int>(mark - argv);
    }
    Scenario& scenario = options.scenario;
    std::string family = "oli";
    std::string paper = "in";
    CLI::App app(kDescription, "passbook-sim");
    app.footer(kExample);
    app.set_version_flag("--version", "passbook-sim " PASSBOOK_VERSION);

    app.add_option("--family", family, "Command set: oli or oki [oli]")
        ->check(CLI::IsMember({"oli", "oki"}).description(""))
        ->type_name("NAME");
    app.add_option("--page", options.pageFile, "Keep the picture of the page in this PNG file")
        ->type_name("FILE");
    app.add_option("--events", options.eventFile, "Log what happens there, one JSON object a line")
        ->type_name("FILE");
    addPageSize(app, scenario);

    app.add_option("--paper", paper, "Is a document in place at the start: in or out [in]")
        ->check(CLI::IsMember({"in", "out"}).description(""))
        ->type_name("STATE");
    addDelay(app, "--taken-after", "Seconds until an ejected document is taken, or \"never\" [0]",
             [&scenario](std::chrono::milliseconds delay) { scenario.habits.takenAfter = delay; });
    addDelay(app, "--insert-after",
             "Seconds until a document lies at the free entry, or \"never\"\n[at the moment the host feeds "
             "one in; oki: at once]",
             [&scenario](std::chrono::milliseconds delay) { scenario.habits.insertAfter = delay; });

    app.add_option("--printer-status", scenario.printerStatus, "State to report, 1 to 15; 1 is ready [1]")
        ->check(CLI::Range(1, 15).description(""))
        ->type_name("N");
    addStripe(app, "--stripe0", scenario.stripes[0]);
    addStripe(app, "--stripe1", scenario.stripes[1]);

    const std::string unit = " in 1/10 mm, as the host gets it [as --page-size]";
    app.add_option("--paper-width", scenario.paperWidth, "oki: width of the document" + unit)
        ->check(CLI::Range(0, kLargestMeasure).description(""))
        ->type_name("N");
    app.add_option("--paper-length", scenario.paperLength, "oki: length of the document" + unit)
        ->check(CLI::Range(0, kLargestMeasure).description(""))
        ->type_name("N");
    app.add_option("--configuration-result", scenario.configurationResult,
                   "oki: what writing the configuration gives: 0 accepted, 1 or 2 refused [0]")
        ->check(CLI::Range(0, 2).description(""))
        ->type_name("N");

    addScan(app, options);

    app.add_option("--split", scenario.split,
                   "Answer in pieces of N bytes, each when the host has read the last")
        ->check(CLI::Range(std::size_t{1}, std::size_t{4096}).description(""))
        ->type_name("N");
    app.add_flag("--silent", scenario.silent, "Never answer");
    app.add_flag("--garble", scenario.garble, "Answer with wrong bytes, as many as the right ones");

    addUsb(app, options);

    try {
        app.parse(argc, argv);
        if (!options.usb && (options.device.busyClaims != 0 || options.fault != UsbFault::kNone)) {
            throw CLI::ValidationError("--usb-busy and --usb-fault", "they are for --usb");
        }
        if (options.usb == options.host.empty()) {
            throw CLI::ValidationError(options.usb ? "--usb" : "--",
                                       "a host program is run with: --usb -- PROGRAM [ARGUMENT...]");
        }
    } catch (const CLI::Success& success) {
        return {std::nullopt, app.exit(success)};
    } catch (const CLI::ParseError& error) {
        std::cerr << "passbook-sim: " << error.what() << "\nTry 'passbook-sim --help'.\n";
        return {std::nullopt, kExitUsage};
    }
    scenario.family = family == "oki" ? Family::kOki : Family::kOli;
    scenario.paper = paper == "in" ? PaperState::kInPlace : PaperState::kNone;
    return {std::move(options), 0};
}

}  // namespace passbook::sim
