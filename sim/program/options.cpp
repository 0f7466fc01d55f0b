#include "sim/program/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>

#include "sim/program/pty_port.h"
#include "sim/script_json.h"

namespace passbook::sim {

namespace {

constexpr const char* description =
    "A virtual passbook printer on a pseudo-terminal.\n"
    "\n"
    "Prints one line, \"port: pts/N\", when it is ready; a host opens /dev/pts/N like a serial port. What "
    "is\n"
    "printed becomes a picture of 180 dots per inch, what happens a log of JSON lines. Runs until SIGINT,\n"
    "SIGTERM or SIGHUP.\n"
    "\n"
    "A host program named behind \"--\" is run with the printer instead, until it ends; its exit status is\n"
    "that of passbook-sim. \"{}\" in its arguments stands for the port's name. With --usb the printer hangs\n"
    "on an emulated USB bus, which only the host program sees; its port is \"USB\".";

constexpr const char* example =
    "Example:\n"
    "  passbook-sim --page page.png --events events.jsonl --stripe0 6217000012345678\n"
    "  passbook-sim --page page.png -- ./host {}\n"
    "  passbook-sim --page page.png --usb -- ./host {}\n"
    "  passbook-sim --scenario jam.json --pages pages -- ./host {}\n"
    "\n"
    "The picture is written when the document is ejected, at the end, and at SIGUSR1.";

constexpr double smallestPageMm = 10;
constexpr double maxSeconds = 1e6;

/// The whole text as a number, as the "C" locale writes it.
template <typename Number>
std::optional<Number> numberFrom(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// Takes a whole number in decimal digits. What another base would make of them is nobody's meaning.
template <typename Number, typename Target>
void addNumber(CLI::App& app, const std::string& name, Target& target, Number lowest, Number highest,
               const std::string& help) {
    app.add_option_function<std::string>(
           name,
           [name, &target, lowest, highest](const std::string& text) {
               const std::optional<Number> number = numberFrom<Number>(text);
               if (!number || *number < lowest || *number > highest)
                   throw CLI::ValidationError(name, "\"" + text + "\" is no whole number from " +
                                                        std::to_string(lowest) + " to " + std::to_string(highest));
               target = *number;
           },
           help)
        ->type_name("N");
}

void addFile(CLI::App& app, const std::string& name, std::string& path, const std::string& help,
             const char* kind = "FILE") {
    app.add_option(name, path, help)->type_name(kind)->check([](const std::string& text) {
        return text.empty() ? std::string("the name of the file is empty") : std::string();
    });
}

std::optional<std::chrono::milliseconds> delayFrom(const std::string& text) {
    if (text == "never")
        return never;
    const std::optional<double> seconds = numberFrom<double>(text);
    if (!seconds || !(*seconds >= 0 && *seconds <= maxSeconds))
        return std::nullopt;
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(*seconds * 1000));
}

/// What stands in a scenario file is there as if it were options; those on the command line come later, and win.
void readScenarioFile(const std::string& path, Options& options) {
    constexpr std::size_t largest = 1024 * 1024;
    std::ifstream in(path, std::ios::binary);
    std::string text(largest + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (in.bad() || (text.empty() && !in.eof()))
        throw CLI::ValidationError("--scenario", path + ": can't be read");
    if (text.size() > largest)
        throw CLI::ValidationError("--scenario", path + ": is larger than 1 MiB");
    ScenarioFile file;
    std::vector<std::string> problems;
    readScenario(text, path, file, problems);
    if (!problems.empty()) {
        std::string all;
        for (const std::string& problem : problems)
            all += (all.empty() ? "" : "\npassbook-sim: --scenario: ") + problem;
        throw CLI::ValidationError("--scenario", all);
    }
    options.scenario = std::move(file.scenario);
    options.familyGiven = file.familyGiven;
    options.expectations = std::move(file.expectations);
    const auto beside = [&path](std::string& name) {
        if (!name.empty())
            name = (std::filesystem::path(path).parent_path() / name).string();
    };
    for (std::size_t side = 0; side < file.scanFiles.size(); ++side) {
        beside(file.scanFiles.at(side));
        options.scanFiles.at(side) = file.scanFiles.at(side);
    }
    for (Expectation& each : options.expectations)
        if (each.kind == Expectation::Kind::picture)
            beside(each.name);
}

void addScenario(CLI::App& app, Options& options) {
    app.add_option_function<std::string>(
           "--scenario", [&options](const std::string& path) { readScenarioFile(path, options); },
           "What is there at the start, what happens when, and what is\nexpected: see passbook-scenario(5)")
        ->type_name("FILE");
}

void addPageSize(CLI::App& app, Scenario& scenario) {
    app.add_option_function<std::string>(
           "--page-size",
           [&scenario](const std::string& text) {
               const std::size_t cross = text.find('x');
               const std::string_view whole(text);
               const auto width = numberFrom<double>(whole.substr(0, cross));
               const auto height =
                   cross == std::string::npos ? std::optional<double>() : numberFrom<double>(whole.substr(cross + 1));
               const double widest = dotsToMm(maxPageWidthDots);
               const double longest = dotsToMm(maxPageHeightDots);
               if (!width || !height ||
                   !(*width >= smallestPageMm && *width <= widest && *height >= smallestPageMm && *height <= longest))
                   throw CLI::ValidationError("--page-size",
                                              "\"" + text + "\" is no WIDTHxHEIGHT from 10x10 to 211x1072 mm");
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
               if (!delay)
                   throw CLI::ValidationError(
                       name, "\"" + text + "\" is neither a number of seconds up to 1000000 nor \"never\"");
               set(*delay);
           },
           help)
        ->type_name("S");
}

void addStripe(CLI::App& app, const std::string& name, std::string& data) {
    app.add_option(name, data, "oli: what is on that magnetic stripe [nothing]")
        ->type_name("TEXT")
        ->check([](const std::string& text) {
            return text.size() > maxStripeData ? std::string("a stripe holds 1024 bytes") : std::string();
        });
}

void addScan(CLI::App& app, Options& options) {
    ScanScenario& scan = options.scenario.scan;
    addFile(app, "--scan-front", options.scanFiles[0],
            "Scan this PNG, JPEG or BMP file as the front [the page as printed]");
    addFile(app, "--scan-back", options.scanFiles[1], "The same for the back [blank]");
    addNumber(app, "--scan-block", scan.block, std::size_t{2}, ptyBlock, "Bytes of image data at once, at most [4095]");
    ScanTrouble& trouble = scan.trouble;
    addNumber(app, "--scan-break", trouble.breakAfter, std::uint64_t{0}, std::numeric_limits<std::uint64_t>::max(),
              "Break a scan off after N bytes of image data");
    constexpr int most = std::numeric_limits<int>::max();
    addNumber(app, "--scan-size-error", trouble.sizeError, -most, most,
              "Announce N more (or -N less) than there are: oki bytes, oli rows");
    addNumber(app, "--scan-rows-error", trouble.rowsError, -most, most, "oli: end with a row count that is wrong by N");
    app.add_flag("--scan-fillers", trouble.fillers, "Put eight bytes that are no image between the blocks");
    app.add_flag("--scan-no-end", trouble.noEnd, "End no side of a scan");
    app.add_flag("--scan-silent", trouble.silent, "Deliver nothing of a scan");
}

void addTroubles(CLI::App& app, Options& options) {
    using How = AnswerTrouble::How;
    const auto add = [&options](How how, std::size_t size = 0) {
        options.scenario.answers.push_back({.how = how, .size = size});
    };
    app.add_option_function<std::string>(
           "--split",
           [add](const std::string& text) {
               constexpr std::size_t most = 4096;
               const auto size = numberFrom<std::size_t>(text);
               if (!size || *size < 1 || *size > most)
                   throw CLI::ValidationError("--split", "\"" + text + "\" is no whole number from 1 to 4096");
               add(How::pieces, *size);
           },
           "Answer in pieces of N bytes, each when the host has read the last")
        ->type_name("N");
    const auto flag = [&app, add](const char* name, How how, const char* help) {
        app.add_flag_function(
            name, [add, how](std::int64_t) { add(how); }, help);
    };
    flag("--silent", How::missing, "Never answer");
    flag("--garble", How::garbled, "Answer with wrong bytes, as many as the right ones");
}

void addUsb(CLI::App& app, Options& options) {
    app.add_flag("--usb", options.usb, "Be a USB printer, and run the program behind \"--\" with it");
    addNumber(app, "--usb-busy", options.device.busyClaims, 0, 1000,
              "So many times a claim of the USB printer finds it busy [0]");
    app.add_option_function<std::string>(
           "--usb-fault",
           [&options](const std::string& text) {
               static const std::map<std::string, UsbFault> faults{{"stall", UsbFault::stall},
                                                                   {"short", UsbFault::cutShort},
                                                                   {"hang", UsbFault::hang},
                                                                   {"unplug", UsbFault::unplug}};
               const std::size_t colon = std::min(text.find(':'), text.size());
               const auto fault = faults.find(text.substr(0, colon));
               const auto at = numberFrom<int>(std::string_view(text).substr(std::min(colon + 1, text.size())));
               if (fault == faults.end() || !at || *at < 1) {
                   throw CLI::ValidationError(
                       "--usb-fault", "\"" + text + "\" is no KIND:N, with stall, short, hang or unplug for KIND");
               }
               Rule rule;
               rule.when.kind = Trigger::Kind::transfer;
               rule.when.nth = static_cast<std::uint64_t>(*at);
               rule.then.emplace_back(action::Usb{fault->second});
               options.scenario.rules.push_back(std::move(rule));
           },
           "Let the N-th USB transfer go wrong: stall, short, hang\nor unplug")
        ->type_name("KIND:N");
}

std::string_view nameOf(Family family) {
    return wire::familyNames.at(static_cast<std::size_t>(family));
}

/// What the printers of one family don't have, and the other's do.
struct FamilyOption {
    const char* name;
    Family family;
};
constexpr FamilyOption familyOptions[] = {
    {"--printer-status", Family::oli},       {"--stripe0", Family::oli},     {"--stripe1", Family::oli},
    {"--scan-rows-error", Family::oli},      {"--paper-width", Family::oki}, {"--paper-length", Family::oki},
    {"--configuration-result", Family::oki},
};

/// The file that a name stands for, also if that is yet to be made.
std::filesystem::path fileMeant(std::filesystem::path path) {
    constexpr int mostLinks = 40;
    std::error_code ignored;
    for (int i = 0; i < mostLinks && is_symlink(path, ignored); ++i)
        path = path.parent_path() / read_symlink(path, ignored);
    return weakly_canonical(absolute(path, ignored), ignored);
}

bool sameFile(const std::string& one, const std::string& other) {
    std::error_code missing;
    const std::filesystem::path meant = fileMeant(one);  // empty if that can't be told
    return std::filesystem::equivalent(one, other, missing) || (!meant.empty() && meant == fileMeant(other));
}

/// What is written would end what was written or is to be read there.
void checkFiles(const Options& options) {
    const std::pair<const char*, std::string> files[] = {
        {"--page", options.pageFile},
        {"--events", options.eventFile == standardOutput ? "/dev/stdout" : options.eventFile},
        {"--link", options.link},
        {"--control", options.control},
        {"--replay", options.trace},
        {"--scan-front", options.scanFiles[0]},
        {"--scan-back", options.scanFiles[1]},
    };
    constexpr std::size_t written = 4;
    for (std::size_t i = 0; i < written; ++i) {
        for (std::size_t j = i + 1; j < std::size(files); ++j) {
            // To scan the page that a run before has left is no mistake: it is read first.
            const bool clash = i > 0 || j <= written;
            if (clash && !files[i].second.empty() && !files[j].second.empty() &&
                sameFile(files[i].second, files[j].second)) {
                throw CLI::ValidationError(std::string(files[i].first) + " and " + files[j].first,
                                           "they are the same file");
            }
        }
    }
}

void check(const CLI::App& app, const Options& options) {
    for (const FamilyOption& option : familyOptions)
        if (app.count(option.name) > 0 && option.family != options.scenario.family)
            throw CLI::ValidationError(option.name, std::string("it is for --family ").append(nameOf(option.family)));
    for (const char* const option : {"--usb-busy", "--usb-fault"})
        if (app.count(option) > 0 && !options.usb)
            throw CLI::ValidationError(option, "it is for --usb");
    if (!options.trace.empty() && (options.runsHost || options.usb || !options.link.empty()))
        throw CLI::ValidationError("--replay", "there is no port, and no program is run");
    if (!options.trace.empty() && (!options.control.empty() || options.baud > 0))
        throw CLI::ValidationError("--replay", "there is no port, and nobody to be served");
    if (options.usb && options.baud > 0)
        throw CLI::ValidationError("--baud", "it is for a serial line");
    if (app.count("--buffer") > 0 && options.baud == 0)
        throw CLI::ValidationError("--buffer", "it is for --baud");
    if (options.usb && !options.link.empty())
        throw CLI::ValidationError("--link", "with --usb there is no port to link to");
    if (options.runsHost && options.host.empty()) {
        throw CLI::ValidationError(options.usb ? "--usb" : "--",
                                   "a host program is run with: -- PROGRAM [ARGUMENT...]");
    }
    if (options.pageFile == standardOutput)
        throw CLI::ValidationError("--page", "the picture is written again and again and needs a file");
    checkFiles(options);
}

}  // namespace

ParsedOptions parseOptions(int argc, const char* const* argv) {
    Options options;
    // What is behind the mark is the host program's, whatever it looks like.
    const char* const* const end = argv + argc;
    const char* const* const mark =
        std::find_if(argv, end, [](const char* each) { return std::string_view(each) == "--"; });
    if (mark != end) {
        options.runsHost = true;
        options.host.assign(mark + 1, end);
        argc = static_cast<int>(mark - argv);
    }
    Scenario& scenario = options.scenario;
    std::string family;
    std::string paper;
    CLI::App app(description, "passbook-sim");
    app.footer(example);
    app.set_version_flag("--version", "passbook-sim " PASSBOOK_VERSION);

    addScenario(app, options);  // first: what comes behind it is set later
    app.add_option("--family", family, "Command set: oli or oki [oli]")
        ->check(
            CLI::IsMember(std::vector<std::string>(wire::familyNames.begin(), wire::familyNames.end())).description(""))
        ->type_name("NAME");
    addFile(app, "--page", options.pageFile, "Keep the picture of the page in this PNG file");
    addFile(app, "--pages", options.pageFolder, "Keep every page there, with what happened until its end", "DIR");
    addFile(app, "--control", options.control, "Let the user's own programs steer the printer on this unix socket",
            "SOCKET");
    addFile(app, "--events", options.eventFile,
            "Log what happens there, one JSON object a line; \"-\" is\nstandard output");
    addFile(app, "--replay", options.trace,
            "Print what a trace of passbook(1) tells, and end; the family is\nthe trace's if not given");
    addFile(app, "--link", options.link, "Make a symbolic link to the port, removed at the end");
    addPageSize(app, scenario);

    app.add_option("--paper", paper, "Is a document in place at the start: in or out [in]")
        ->check(CLI::IsMember({"in", "out"}).description(""))
        ->type_name("STATE");
    addDelay(
        app, "--taken-after", "Seconds until an ejected document is taken, or \"never\" [0]",
        [&scenario](std::chrono::milliseconds delay) { scenario.habits.takenAfter = delay; });
    addDelay(app, "--insert-after",
             "Seconds until a document lies at the free entry, or \"never\"\n[at the moment the host feeds "
             "one in; oki: at once]",
             [&scenario](std::chrono::milliseconds delay) { scenario.habits.insertAfter = delay; });

    addNumber(app, "--printer-status", scenario.printerStatus, 1, 15, "oli: state to report, 1 to 15; 1 is ready [1]");
    addStripe(app, "--stripe0", scenario.stripes[0]);
    addStripe(app, "--stripe1", scenario.stripes[1]);

    const std::string unit = " in 1/10 mm, as the host gets it [as --page-size]";
    addNumber(app, "--paper-width", scenario.paperWidth, 0, largestMeasure, "oki: width of the document" + unit);
    addNumber(app, "--paper-length", scenario.paperLength, 0, largestMeasure, "oki: length of the document" + unit);
    addNumber(app, "--configuration-result", scenario.configurationResult, 0, 2,
              "oki: what writing the configuration gives: 0 accepted, 1 or 2 refused [0]");

    addScan(app, options);

    addTroubles(app, options);

    addNumber(app, "--baud", options.baud, 50, 4'000'000,
              "Carry so many bits a second, ten a byte [as fast as it goes]");
    addNumber(app, "--buffer", options.buffer, std::size_t{1}, std::size_t{1024 * 1024},
              "With --baud: bytes that the printer keeps of what it has not\ncome to yet [1024]");

    addUsb(app, options);

    try {
        app.parse(argc, argv);
        options.runsHost = options.runsHost || options.usb;
        if (!family.empty()) {
            const auto asked = static_cast<Family>(
                std::find(wire::familyNames.begin(), wire::familyNames.end(), family) - wire::familyNames.begin());
            // Its rules name the commands of its family.
            if (app.count("--scenario") > 0 && asked != scenario.family)
                throw CLI::ValidationError("--family", "the scenario is for the other family");
            options.familyGiven = true;
            scenario.family = asked;
        }
        if (!paper.empty())
            scenario.paper = paper == "in" ? PaperState::inPlace : PaperState::none;
        scenario.hostEvents = app.count("--scenario") + app.count("--control") > 0;
        check(app, options);
    } catch (const CLI::Success& success) {
        return {std::nullopt, app.exit(success)};
    } catch (const CLI::ParseError& error) {
        std::cerr << "passbook-sim: " << error.what() << "\nTry 'passbook-sim --help'.\n";
        return {std::nullopt, exitUsage};
    }
    return {std::move(options), 0};
}

}  // namespace passbook::sim
