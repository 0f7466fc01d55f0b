// page: prints a whole document from its description, step by step, with a journal from which it can go on.

#include <CLI/CLI.hpp>
#include <array>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>

#include "api/passbook.h"
#include "tools/page/description.h"
#include "tools/page/journal.h"
#include "tools/printer.h"
#include "tools/values.h"
#include "tools/verbs.h"

namespace passbook::tool {

namespace {

struct Given {
    std::string file, journal;
    bool resume = false, fromTop = false;
    std::size_t skip = 0, reprint = 0;     // 0: not asked for
    std::optional<std::string> content{};  // of standard input, which can be read only once
};

constexpr std::size_t mostDescriptionBytes = 1 << 20;
constexpr int mostSteps = mostDescriptionBytes;

/// What stands in a file, or on standard input.
std::optional<std::string> contentOf(const std::string& path, Report& report) {
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file) {
            (void)report.fail(Exit::badInput, path + ": cannot be opened");
            return {};
        }
    }
    std::istream& in = path == "-" ? std::cin : file;
    std::string text(mostDescriptionBytes + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (in.bad() || text.size() > mostDescriptionBytes) {
        (void)report.fail(Exit::badInput, path + (in.bad() ? ": cannot be read" : ": is longer than 1 MiB"));
        return {};
    }
    return text;
}

/// Firmware identifiers are any bytes; in the journal they are text.
std::string printable(std::string identifier) {
    std::replace_if(
        identifier.begin(), identifier.end(), [](char c) { return c < 0x20 || c >= 0x7F; }, '?');
    return identifier;
}

struct passbook_outcome outcomeNow() {
    struct passbook_outcome outcome {};
    outcome.size = sizeof outcome;
    (void)passbook_outcome(&outcome);
    return outcome;
}

/// Prints the steps of one page.
class Job {
 public:
    Job(Tool& tool, const Given& given, const Description& page)
        : tool_(tool), report_(tool.report), given_(given), page_(page), printer_(tool) {}

    void run() {
        if (!openJournal() || !findStart())
            return;
        if (next_ > page_.steps.size()) {
            report_.say("the page is complete: nothing is left to do");
            return;
        }
        if (!printer_.open() || !knowPrinter() || !settleDoubt() || (resumes() && !prepare()))
            return;
        for (; next_ <= page_.steps.size(); ++next_) {
            if (stopAsked()) {
                (void)report_.fail(Exit::failed, "stopped before " + nameOf(next_));
                return;
            }
            if (!isSettled(next_) && !doStep(next_))
                return;
        }
        report_.say("the page was handed over: " + std::to_string(page_.steps.size()) + " steps");
    }

    /// What the report says of the page, however it went.
    void bring() {
        report_.brought["steps"] = page_.steps.size();
        if (next_ <= page_.steps.size()) {
            report_.brought["nextStep"] = next_;
            report_.brought["nextStepName"] = page_.steps[next_ - 1].name;
        }
    }

 private:
    [[nodiscard]] bool isOli() const { return page_.family == Family::oli; }
    [[nodiscard]] bool resumes() const { return given_.resume && journal_.isBegun() && touched_; }
    [[nodiscard]] bool isSettled(std::size_t step) const {
        const StepState state = stateOf(step);
        return state == StepState::done || state == StepState::skipped;
    }
    [[nodiscard]] StepState stateOf(std::size_t step) const {
        return journal_.isOpen() ? journal_.records()[step - 1].state : StepState::open;
    }
    [[nodiscard]] std::string nameOf(std::size_t step) const {
        return "step " + std::to_string(step) + " (" + page_.steps[step - 1].name + ")";
    }
    bool fail(Exit exit, const std::string& message) { return report_.fail(exit, message); }

    bool openJournal() {
        if (given_.journal.empty())
            return true;
        const std::string problem = journal_.open(given_.journal, given_.resume, page_.steps.size());
        if (!problem.empty())
            return fail(Exit::badInput, problem);
        if (!journal_.isBegun())
            return true;
        const JournalHead& head = journal_.head();
        const char* other = nullptr;
        if (head.description != page_.digest)
            other = "another description, picture or offset";
        else if (head.family != tool::nameOf(page_.family) || head.port != tool_.setting.port)
            other = "another port or family";
        return other == nullptr || fail(Exit::badInput, given_.journal + ": is the journal of " + other);
    }

    /// The step to go on with. The user has to decide on a step that is in doubt.
    bool findStart() {
        while (next_ <= page_.steps.size() && isSettled(next_)) {
            takePaper(next_);
            ++next_;
            touched_ = true;
        }
        const std::size_t asked = given_.skip != 0 ? given_.skip : given_.reprint;
        const StepState state = next_ <= page_.steps.size() ? stateOf(next_) : StepState::done;
        touched_ = touched_ || state != StepState::open;
        const bool half = state == StepState::begun || state == StepState::doubtful;
        doubt_ = half && page_.steps[next_ - 1].leavesInk();
        if (asked != 0 && (!doubt_ || asked != next_))
            return fail(Exit::badInput, "step " + std::to_string(asked) + " is not in doubt");
        const bool lost = !isOli() && (half || (state != StepState::open && state != StepState::done &&
                                                !journal_.records()[next_ - 1].paperKnown));
        const bool fromTop = lost && !given_.fromTop;
        const std::string number = std::to_string(next_);
        const std::string again =
            fromTop ? "switch the printer off and on, put the document in again, then --resume with --from-top"
                    : "--resume";
        if (doubt_ && asked == 0)
            return fail(Exit::inDoubt,
                        "it is in doubt whether " + nameOf(next_) + " is on the paper: look at the page, then " +
                            again + (fromTop ? " and" : " with") + " --skip " + number +
                            " if it is there whole, or --reprint " + number +
                            " if nothing of it is there. If a part is there, take the page out and begin a new one; " +
                            "--reprint " + number + " prints over it");
        if (fromTop)
            return fail(Exit::refused, "nobody knows how far the printer has fed the paper: " + again);
        if (given_.fromTop)
            printer_.setPaperDots(0);
        return true;
    }

    void takePaper(std::size_t step) {
        if (const StepRecord& record = journal_.records()[step - 1]; record.paperKnown)
            printer_.setPaperDots(record.paperDots);
    }

    /// Whether it is the printer that the journal has begun with; begins a new one.
    bool knowPrinter() {
        // An OLI printer is asked when it is initialised, and need not have the document yet.
        const bool needsDocument = !isOli() && page_.steps[next_ - 1].as<step::Eject>() == nullptr;
        if (needsDocument && !printer_.canPrint())
            return false;
        if (!journal_.isOpen())
            return true;
        if (!printer_.ask().isTold())
            return printer_.failSilent();
        const std::string firmware = isOli() ? printable(printer_.firmware()) : "";
        if (isOli() && firmware.empty())
            return fail(Exit::failed, "the printer does not tell its firmware identifier, which the journal needs");
        if (journal_.isBegun())
            return journal_.head().firmware == firmware ||
                   fail(Exit::badInput, given_.journal + ": is the journal of another printer: of \"" +
                                            journal_.head().firmware + "\", not \"" + firmware + "\"");
        const std::string problem =
            journal_.begin({page_.digest, tool::nameOf(page_.family), tool_.setting.port, firmware});
        return problem.empty() || fail(Exit::failed, problem);
    }

    /// Writes down what the user has decided.
    bool settleDoubt() {
        if (!doubt_)
            return true;
        const bool skip = given_.skip != 0;
        return note(next_, skip ? StepState::skipped : StepState::again);
    }

    /// Brings an OLI printer, which may have been in the middle of a command, and its document back to where the next
    /// step finds all as it was.
    bool prepare() {
        if (!isOli() || stateOf(1) != StepState::done)
            return true;
        const auto& initialise = *page_.steps.front().as<step::Initialise>();
        if (!printer_.initialise(PASSBOOK_RESET_ERROR, initialise.waitSeconds))
            return false;
        const Condition condition = printer_.ask();
        const bool onlyEject = next_ == page_.steps.size() && page_.steps.back().as<step::Eject>() != nullptr;
        if (onlyEject && condition.paper == PASSBOOK_PAPER_ABSENT)
            return note(next_, StepState::done);
        if (onlyEject || stateOf(2) != StepState::done)
            return true;
        if (condition.paper != PASSBOOK_PAPER_IN_PLACE) {
            report_.warn("the page is not in the printer: put the same page in again");
            if (!printer_.insert(page_.steps[1].as<step::Insert>()->waitSeconds))
                return false;
        }
        for (std::size_t i = 0; i + 1 < next_; ++i)
            if (!resend(page_.steps[i]))
                return false;
        return true;
    }

    /// A setting of a step that is done: the printer has forgotten it.
    bool resend(const Step& each) {
        const bool setting = each.as<step::Format>() != nullptr || each.as<step::LineSpace>() != nullptr ||
                             each.as<step::Underline>() != nullptr;
        return !setting || send(each);
    }

    bool doStep(std::size_t number) {
        const Step& each = page_.steps[number - 1];
        if (tool_.setting.progress)
            std::cerr << nameOf(number) << " of " << page_.steps.size() << '\n';
        if (!note(number, StepState::begun))
            return false;
        if (send(each) && isReadyAfter(each, number))
            return note(number, StepState::done);
        if (each.as<step::Eject>() != nullptr && printer_.hasEjected()) {
            ++next_;
            report_.warn("the page is complete");
            return note(number, StepState::done) && false;
        }
        const struct passbook_outcome outcome = outcomeNow();
        const bool ink = each.leavesInk() && report_.exit() == Exit::inDoubt;
        const bool placed = isOli() || (!ink && outcome.failed_transfers == 0);
        (void)note(number, ink ? StepState::doubtful : StepState::notSent, placed);
        report_.warn(nameOf(number) +
                     (ink                ? ": it is in doubt whether it is on the paper; look at the page"
                      : each.leavesInk() ? ": nothing of it is on the paper"
                                         : ": not done") +
                     (journal_.isOpen() ? "; --resume goes on from here" : ""));
        return false;
    }

    bool note(std::size_t number, StepState state, bool paperKnown = true) {
        if (!journal_.isOpen())
            return true;
        const std::string problem = journal_.note(number, {state, printer_.paperDots(), paperKnown});
        return problem.empty() ||
               fail(Exit::failed, "the journal cannot be written, so nothing more is sent: " + problem);
    }

    bool took(int result) { return report_.take(result); }

    bool send(const Step& each) {
        struct Sender {
            Job& job;
            bool operator()(const step::Initialise& it) const {
                return job.printer_.initialise(it.reset, it.waitSeconds);
            }
            bool operator()(const step::Insert& it) const { return job.printer_.insert(it.waitSeconds); }
            bool operator()(const step::Format& it) const {
                const TextFormat& format = it.format;
                return job.took(YARDO_PR2_SetFormat(format.pitch, format.bold ? 1 : 0, format.width, format.height));
            }
            bool operator()(const step::LineSpace& it) const {
                return job.took(YARDO_PR2_SetLineSpace(PASSBOOK_MILLIMETRES, it.millimetres));
            }
            bool operator()(const step::Underline& it) const { return job.took(YARDO_PR2_SetUnderLine(it.mode)); }
            bool operator()(const step::Text& it) const { return job.printer_.text(it.xMm, it.yMm, it.utf8); }
            bool operator()(const step::Image& it) const { return job.printer_.image(it.xMm, it.yMm, it.picture); }
            bool operator()(const step::Stripe& it) const { return job.sendStripe(it); }
            bool operator()(const step::Eject& it) const { return job.printer_.eject(it.waitSeconds); }
        };
        return std::visit(Sender{*this}, each.what);
    }

    bool sendStripe(const step::Stripe& stripe) {
        if (!took(YARDO_PR2_MSW(stripe.track, stripe.data.data(), static_cast<int>(stripe.data.size()))))
            return false;
        // The printer does not confirm it.
        if (const Condition condition = printer_.ask(); !condition.isReady(page_.family))
            return fail(Exit::refused,
                        "the printer is not ready after writing the stripe: " + condition.text(page_.family));
        std::array<char, 512> buffer{};
        if (!took(YARDO_PR2_MSR(stripe.track, buffer.data(), static_cast<int>(buffer.size()))))
            return false;
        return stripe.data == buffer.data() || fail(Exit::refused, "the stripe does not hold what was written");
    }

    bool isReadyAfter(const Step& each, std::size_t number) {
        if (each.as<step::Initialise>() != nullptr || each.as<step::Insert>() != nullptr ||
            each.as<step::Eject>() != nullptr)
            return true;  // the step itself has waited for what comes after it
        const Condition condition = printer_.ask();
        if (condition.isReady(page_.family) && condition.hasDocument(page_.family))
            return true;
        return fail(each.leavesInk() ? Exit::inDoubt : Exit::refused,
                    "the printer is not ready after " + nameOf(number) + ": " + condition.text(page_.family));
    }

    Tool& tool_;
    Report& report_;
    const Given& given_;
    const Description& page_;
    Printer printer_;
    Journal journal_;
    std::size_t next_ = 1;
    bool touched_ = false;  // a former process has sent something of the page
    bool doubt_ = false;    // the next step may be on the paper
};

/// What the description says of printer and document. What is wrong with it is told later.
Wish wishOf(Given& given) {
    Report unheard;
    Wish wish;
    given.content = contentOf(given.file, unheard);
    if (!given.content)
        return wish;
    const auto page = nlohmann::json::parse(*given.content, nullptr, false);
    const auto text = [](const nlohmann::json& value) { return value.is_string() ? value.get<std::string>() : ""; };
    const auto number = [](const nlohmann::json& value) { return value.is_number() ? value.get<double>() : 0; };
    if (!page.is_object())
        return wish;
    if (const std::string family = text(page.value("family", nlohmann::json())); !family.empty())
        wish.family = family == nameOf(Family::oki) ? Family::oki : Family::oli;
    const auto paper = page.value("paper", nlohmann::json());
    if (paper.is_object()) {
        wish.widthMm = number(paper.value("width", nlohmann::json()));
        wish.heightMm = number(paper.value("height", nlohmann::json()));
    }
    return wish;
}

void printPage(Tool& tool, const Given& given) {
    const std::optional<std::string> text = given.content ? given.content : contentOf(given.file, tool.report);
    if (!text)
        return;
    Setting& setting = tool.setting;
    std::vector<std::string> problems;
    const std::optional<Description> page =
        Description::read(*text, given.file, setting.familyAsked ? std::optional(setting.family) : std::nullopt,
                          setting.offsetXMm, setting.offsetYMm, problems);
    if (!page) {
        for (std::size_t i = 0; i + 1 < problems.size(); ++i)
            tool.report.warn(problems[i]);
        (void)tool.report.fail(Exit::badInput, problems.back());
        return;
    }
    setting.family = page->family;
    Job job(tool, given, *page);
    job.run();
    job.bring();
}

}  // namespace

void addPage(CLI::App& parent, Tool& tool) {
    CLI::App* const app =
        parent.add_subcommand("page", "Prints a whole document from its description, see passbook-page(5).");
    app->footer(
        "Example:\n"
        "  passbook --port ttyS0 page --journal today.journal page.json\n"
        "and after a failure:\n"
        "  passbook --port ttyS0 page --journal today.journal --resume page.json");
    const auto given = std::make_shared<Given>();
    app->add_option("FILE", given->file, "the description, in JSON; - is standard input")->required();
    CLI::Option* const journal =
        app->add_option("--journal", given->journal, "write down every step before and after it is sent")
            ->type_name("FILE");
    CLI::Option* const resume =
        app->add_flag("--resume", given->resume, "go on behind the last step that is done")->needs(journal);
    CLI::Option* const skip =
        app->add_option("--skip", given->skip, "the step N that is in doubt is on the page, whole")
            ->type_name("N")
            ->check(wholeNumber(1, mostSteps))
            ->needs(resume);
    app->add_option("--reprint", given->reprint, "nothing of the step N that is in doubt is on the page: print it")
        ->type_name("N")
        ->check(wholeNumber(1, mostSteps))
        ->needs(resume)
        ->excludes(skip);
    app->add_flag("--from-top", given->fromTop, "OKI: the document has been put in again, it stands at its top")
        ->needs(resume);
    app->callback([&tool, given] {
        tool.wish = [given] { return wishOf(*given); };
        tool.job = [given](Tool& with) { printPage(with, *given); };
    });
}

}  // namespace passbook::tool
