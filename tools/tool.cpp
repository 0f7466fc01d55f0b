#include "tools/tool.h"

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string_view>

#include "api/passbook.h"
#include "tools/trace.h"
#include "tools/values.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

// The process-wide state of the tool.

std::atomic<bool> g_stop{false};
int g_standardOutput = STDOUT_FILENO;

void onSignal(int /*number*/) {
    g_stop = true;
    (void)passbook_cancel();
}

constexpr std::array inkNames = {"none", "possible", "sent"};

/// Which exit status a call has that did not do all that it should.
Exit exitOf(const struct passbook_outcome& outcome) {
    const std::string_view function = outcome.function;
    if (outcome.ink != PASSBOOK_INK_NONE)
        return Exit::inDoubt;
    const bool opens = function.starts_with("PT_") || function.starts_with("passbook_oki");
    if (opens && outcome.result == PASSBOOK_PT_NOT_OPENED && outcome.transfers == 0)
        return Exit::notOpened;
    if (function == "YARDO_PR2_OpenPort")
        return Exit::notOpened;
    switch (outcome.result) {
        case PASSBOOK_BAD_ARGUMENT:
        case PASSBOOK_PT_NO_IMAGE:
        case PASSBOOK_NO_FILE:
        case PASSBOOK_SHORT_FILE:
        case PASSBOOK_MISSING_ROWS:
        case PASSBOOK_NO_TEXT:
            return Exit::badInput;
        case PASSBOOK_NOT_READY:
        case PASSBOOK_SCAN_NOT_READY:
            return Exit::refused;
        default:
            return Exit::failed;
    }
}

int showProgress(long long done, long long total, void* user) {
    const auto& tool = *static_cast<const Tool*>(user);
    if (tool.setting.progress && total > 0)
        (void)std::fprintf(stderr, "Progress: %.1f%%%c", 100.0 * static_cast<double>(done) / static_cast<double>(total),
                           done == total || isatty(STDERR_FILENO) == 0 ? '\n' : '\r');
    return stopAsked() ? 1 : 0;
}

/// Has Ctrl-C end the running call at a place where the printer understands the next one.
class Signals {
 public:
    Signals() {
        struct sigaction stop {};
        stop.sa_handler = onSignal;
        stop.sa_flags = SA_RESTART;
        (void)sigaction(SIGINT, &stop, &interrupt_);
        (void)sigaction(SIGTERM, &stop, &terminate_);
        (void)sigaction(SIGHUP, &stop, &hangUp_);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals() {
        (void)sigaction(SIGINT, &interrupt_, nullptr);
        (void)sigaction(SIGTERM, &terminate_, nullptr);
        (void)sigaction(SIGHUP, &hangUp_, nullptr);
    }

 private:
    struct sigaction interrupt_ {};
    struct sigaction terminate_ {};
    struct sigaction hangUp_ {};
};

/// A printer that takes nothing for so long has stopped. Longer than a page takes out of a full buffer.
constexpr int writeLimitMs = 60'000;

constexpr const char* statuses =
    "Exit status: 0 done; 1 the driver reported an error; 2 wrong usage or input; 3 the port cannot be\n"
    "opened; 4 the printer says no; 5 it is in doubt whether something was printed: look at the page.";

void addShared(CLI::App& app, Setting& setting, std::string& offset) {
    app.add_option("--port", setting.port, "the printer's port: ttyS0, ttyUSB0, LPT, USB, pts/3")
        ->type_name("NAME")
        ->envname("PASSBOOK_PORT");
    app.add_option("--family", setting.family, "the printer's command set: oli (PR2) or oki")
        ->type_name("oli|oki")
        ->transform(oneOf({{"oli", static_cast<int>(Family::oli)}, {"oki", static_cast<int>(Family::oki)}}))
        ->envname("PASSBOOK_FAMILY");
    app.add_flag("--json", setting.json, "one JSON object on standard output");
    app.add_flag("--progress", setting.progress, "tell progress on standard error");
    app.add_option("--offset", offset, "added to every place, in tenths of a millimetre: the printer's own error")
        ->type_name("X,Y")
        ->envname("PASSBOOK_OFFSET");
    app.add_option_function<int>(
           "--offset-x", [&setting](int tenths) { setting.offsetXMm = tenths / 10.0; }, "the same, X alone")
        ->type_name("N");
    app.add_option_function<int>(
           "--offset-y", [&setting](int tenths) { setting.offsetYMm = tenths / 10.0; }, "the same, Y alone")
        ->type_name("N");
    app.add_option("--trace", setting.trace, "write all that goes to the printer and comes from it into FILE, masked")
        ->type_name("FILE");
    app.add_flag("--trace-unmasked", setting.traceUnmasked, "write texts and stripe data into the trace as they are");
}

bool isVerb(const CLI::App& app, const std::string& word) {
    const std::vector<const CLI::App*> verbs = app.get_subcommands([](const CLI::App*) { return true; });
    return std::any_of(verbs.begin(), verbs.end(), [&](const CLI::App* each) { return each->get_name() == word; });
}

/// "12,-3" as millimetres, for what --offset-x and --offset-y leave open.
bool readOffset(std::string_view text, const CLI::App& app, Setting& setting) {
    std::array<int, 2> tenths{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < tenths.size(); ++i) {
        const auto [after, error] = std::from_chars(at, end, tenths[i]);
        const bool last = i + 1 == tenths.size();
        if (error != std::errc{} || (last ? after != end : after == end || *after != ','))
            return false;
        at = after + 1;
    }
    setting.offsetXMm = app.count("--offset-x") > 0 ? setting.offsetXMm : tenths[0] / 10.0;
    setting.offsetYMm = app.count("--offset-y") > 0 ? setting.offsetYMm : tenths[1] / 10.0;
    return true;
}

/// Does the job of the verb, with what is around every one.
void work(Tool& tool) {
    constexpr std::string_view devices = "/dev/";
    if (tool.setting.port.starts_with(devices))
        tool.setting.port.erase(0, devices.size());
    tool.setting.progress = tool.setting.progress || isatty(STDERR_FILENO) != 0;
    if (const std::string problem = startTrace(tool.setting); !problem.empty()) {
        (void)tool.report.fail(Exit::badInput, problem);
        return;
    }
    g_stop = false;
    const Signals signals;
    (void)passbook_set_write_limit(writeLimitMs);
    (void)passbook_set_progress(showProgress, &tool);
    tool.job(tool);
    (void)passbook_set_progress(nullptr, nullptr);
    // Only told: a script that repeats what failed would print it twice.
    if (const std::string problem = stopTrace(); !problem.empty())
        tool.report.warn(problem);
}

}  // namespace

bool Report::fail(Exit exit, const std::string& message) {
    if (exit_ == Exit::done || (exit == Exit::inDoubt && exit_ != Exit::inDoubt)) {
        exit_ = exit;
        message_ = message;
    } else {
        warnings_.push_back(message);
    }
    return false;
}

bool Report::take(int result) {
    struct passbook_outcome outcome {};
    outcome.size = sizeof outcome;
    (void)passbook_outcome(&outcome);
    const bool printed = outcome.ink == PASSBOOK_INK_SENT && outcome.in_place == 1;
    const bool good = result >= 0 && (printed || (outcome.ink == PASSBOOK_INK_NONE && outcome.failed_transfers == 0));
    // What was sent whole, and what was not sent at all, is only possibly all of it.
    const bool mixed = ink_ != outcome.ink && ink_ != PASSBOOK_INK_NONE && outcome.ink != PASSBOOK_INK_NONE;
    ink_ = mixed ? int{PASSBOOK_INK_POSSIBLE} : std::max(ink_, outcome.ink);
    inPlace_ = inPlace_ && (outcome.ink == PASSBOOK_INK_NONE || outcome.in_place == 1);
    if (exit_ == Exit::done)
        result_ = result;
    const passbook_meaning* const meaning = passbook_explain(outcome.function, result);
    if (good) {
        if (exit_ == Exit::done && meaning != nullptr)
            name_ = meaning->name;
        if (outcome.failed_transfers > 0)
            warn(std::string(outcome.function) + ": all is printed in its place, but " + outcome.message);
        return true;
    }
    if (exit_ == Exit::done && meaning != nullptr) {
        name_ = meaning->name;
        remedies_ = {std::string("on the paper: ") + meaning->paper, std::string("what to do: ") + meaning->remedy};
    }
    std::string message = outcome.message;
    if (result == PASSBOOK_CANCELLED) {
        message = outcome.ink == PASSBOOK_INK_NONE ? "stopped; nothing of this call is on the paper"
                                                   : "stopped; a part of this call is on the paper: look at the page";
        remedies_.clear();
    } else if (message.empty())
        message = "result " + std::to_string(result);
    return fail(exitOf(outcome), std::string(outcome.function) + ": " + message);
}

void Report::write(std::ostream& out, std::ostream& err, bool json) const {
    for (const std::string& line : warnings_)
        err << "passbook: " << line << '\n';
    if (!message_.empty())
        err << "passbook: " << message_ << '\n';
    for (const std::string& line : remedies_)
        err << "  " << line << '\n';
    if (!json) {
        for (const std::string& line : lines_)
            out << line << '\n';
        return;
    }
    // The tool can have a reason of its own, of which the driver knows nothing.
    constexpr std::array exitNames = {"done", "failed", "badInput", "notOpened", "refused", "inDoubt"};
    const auto exit = static_cast<std::size_t>(exit_);
    const bool own = exit_ != Exit::done && result_ >= 0 && exit < exitNames.size();
    const int ink = exit_ == Exit::inDoubt && ink_ == PASSBOOK_INK_NONE ? int{PASSBOOK_INK_POSSIBLE} : ink_;
    nlohmann::ordered_json object = {{"verb", verb},
                                     {"result", result_},
                                     {"name", own ? exitNames[exit] : name_},
                                     {"ink", inkNames[static_cast<std::size_t>(ink)]},
                                     {"inPlace", inPlace_},
                                     {"message", message_},
                                     {"exit", static_cast<int>(exit_)}};
    object.update(brought);
    if (!warnings_.empty())
        object["warnings"] = warnings_;
    // What a file or a printer brought need not be UTF-8.
    out << object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

bool Tool::hasPort() {
    return !setting.port.empty() || report.fail(Exit::badInput, "no port: give --port NAME, or set PASSBOOK_PORT");
}

bool Tool::isFamily(Family only) {
    return setting.family == only || report.fail(Exit::badInput, report.verb + ": printers of the family " +
                                                                     nameOf(setting.family) + " cannot do this");
}

bool stopAsked() {
    return g_stop;
}

int standardOutput() {
    return g_standardOutput;
}

void setStandardOutput(int descriptor) {
    g_standardOutput = descriptor;
}

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    Tool tool;
    std::string offset;
    CLI::App app("Works with a bank passbook printer: prints, scans, asks, and helps when something is wrong.",
                 "passbook");
    app.set_version_flag("--version", std::string("passbook ") + passbook_version());
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(statuses);
    addShared(app, tool.setting, offset);
    for (AddVerb* const add : {addDoctor, addPage, addText, addImage, addPreview, addGrid, addInit, addInsert, addEject,
                               addStatus, addFirmware, addStripe, addScan, addRaw, addExplain, addDecode, addRun})
        add(app, tool);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        tool.report.verb = app.get_subcommands().front()->get_name();
        tool.setting.familyAsked = app.count("--family") > 0;
        if (!offset.empty() && !readOffset(offset, app, tool.setting))
            throw CLI::ValidationError("--offset", "\"" + offset + "\" is not X,Y in tenths of a millimetre");
    } catch (const CLI::Success& asked) {  // --help, --version
        return app.exit(asked, out, err);
    } catch (const CLI::ParseError& problem) {
        tool.setting.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
        const auto verb = std::find_if(arguments.begin(), arguments.end(),
                                       [&app](const std::string& each) { return isVerb(app, each); });
        if (verb != arguments.end())
            tool.report.verb = *verb;
        const std::string hint = verb != arguments.end() ? "passbook " + *verb + " --help" : "passbook --help";
        const bool noVerb = verb == arguments.end() && dynamic_cast<const CLI::RequiredError*>(&problem) != nullptr;
        (void)tool.report.fail(Exit::badInput, (noVerb ? "there is no verb that is known" : problem.what()) +
                                                   std::string("; see ") + hint);
    }
    if (tool.report.exit() == Exit::done)
        work(tool);
    tool.report.write(out, err, tool.setting.json);
    return static_cast<int>(tool.report.exit());
}

}  // namespace passbook::tool
