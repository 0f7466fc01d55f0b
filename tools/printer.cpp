#include "tools/printer.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdlib>

#include "api/passbook.h"

namespace passbook::tool {

namespace {

/// Of a transfer on USB. The port functions of OKI take it.
constexpr int timeoutSeconds = 10;

/// How often a printer that waits for paper is asked.
constexpr long pollNanoseconds = 200'000'000;
constexpr long nanosecondsOfSecond = 1'000'000'000;

struct passbook_outcome outcomeNow() {
    struct passbook_outcome outcome {};
    outcome.size = sizeof outcome;
    (void)passbook_outcome(&outcome);
    return outcome;
}

time_t monotonicSeconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

/// A file that is gone with its owner. Only the user can read it.
class TemporaryFile {
 public:
    TemporaryFile() {
        gchar* path = nullptr;
        if (const int descriptor = g_file_open_tmp("passbook-XXXXXX.bmp", &path, nullptr); descriptor >= 0) {
            (void)::close(descriptor);
            path_ = path;
        }
        g_free(path);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (!path_.empty())
            (void)g_unlink(path_.c_str());
    }
    /// Empty when none can be made.
    [[nodiscard]] const std::string& path() const { return path_; }

 private:
    std::string path_;
};

/// As the driver makes dots of whole millimetres.
int dotsFromWhole(int millimetres) {
    return static_cast<int>(millimetres * 180 / 25.4);
}

/// The driver places pictures in whole millimetres: the largest one that does not lie beyond the dots, and that is a
/// place where the printer's steps, of 1/120 inch across and 1/60 inch down, and dots meet.
int wholeMillimetres(int dots) {
    constexpr int dotsOfSteps = 3;
    int millimetres = static_cast<int>(dots * 25.4 / 180) + 1;
    while (millimetres > 0 && (dotsFromWhole(millimetres) > dots || dotsFromWhole(millimetres) % dotsOfSteps != 0))
        --millimetres;
    return millimetres;
}

}  // namespace

int dotsFrom(double millimetres) {
    return static_cast<int>(std::lround(millimetres * 180 / 25.4));
}

double millimetresFrom(int dots) {
    return dots * 25.4 / 180;
}

bool Condition::isReady(Family family) const {
    return family == Family::oki ? paper > 0 : printer == PASSBOOK_PRINTER_READY;
}

bool Condition::hasDocument(Family family) const {
    return family == Family::oki ? paper == 1 || measured : paper == PASSBOOK_PAPER_IN_PLACE;
}

std::string Condition::text(Family family) const {
    if (family == Family::oki && paper <= 0)
        return "it does not tell its status";
    if (family == Family::oki)
        return "it answers; its paper status is " + std::to_string(paper) +
               (measured ? "; it has measured a document" : "; it has measured no document");
    const char* const status = passbook_status_text(printer);
    const char* const place = passbook_paper_text(paper);
    return std::string(status != nullptr ? status : "the printer does not tell its status") + "; " +
           (place != nullptr ? place : "it does not tell where the document is");
}

Printer::~Printer() {
    if (open_)
        (void)YARDO_PR2_ClosePort();  // a port that will not close says so when it is opened again
}

bool Printer::open(bool keep) {
    if (!tool_.hasPort())
        return false;
    if (!isOli() && !keep)
        return true;
    open_ = took(YARDO_PR2_OpenPort(port()));
    return open_;
}

bool Printer::initialise(int reset, int seconds) {
    const int result = YARDO_PR2_InitPrinter(reset, seconds);
    // A printer that says nothing gives the same result as one that is not ready.
    if (result != PASSBOOK_NOT_READY || outcomeNow().missing_answers == 0)
        return took(result);
    const Condition condition = ask();
    return condition.isTold() ? tool_.report.fail(Exit::refused, "the printer was not ready in time: " +
                                                                     condition.text(tool_.setting.family))
                              : failSilent();
}

bool Printer::insert(int seconds) {
    if (!took(YARDO_PR2_InsertPaper()))
        return false;
    const time_t end = monotonicSeconds() + seconds;
    for (;;) {
        const int paper = YARDO_PR2_GetPaperStatus();
        if (paper == PASSBOOK_PAPER_IN_PLACE)
            return true;
        if (stopAsked())
            return tool_.report.fail(Exit::failed, "stopped while waiting for a document");
        if (monotonicSeconds() >= end) {
            const char* const place = passbook_paper_text(paper);
            return place == nullptr
                       ? took(paper)
                       : tool_.report.fail(Exit::refused, std::string("no document to print on: ") + place);
        }
        timespec until{};
        (void)clock_gettime(CLOCK_MONOTONIC, &until);
        until.tv_nsec += pollNanoseconds;
        until.tv_sec += until.tv_nsec / nanosecondsOfSecond;
        until.tv_nsec %= nanosecondsOfSecond;
        (void)clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    }
}

bool Printer::eject(int seconds) {
    if (!isOli()) {
        if (!ask().isTold())
            return failSilent();
        const bool good = ejected_ = took(PT_Eject(port(), 0));
        paperDots_ = good ? 0 : paperDots_;
        return good;
    }
    if (ask().paper < 0)
        return failSilent();
    ejected_ = took(seconds > 0 ? YARDO_PR2_SPB(seconds) : YARDO_PR2_EjectPaper());
    if (!ejected_ || seconds <= 0)
        return ejected_;
    const int paper = YARDO_PR2_GetPaperStatus();
    // Without an answer nobody knows that it is out.
    ejected_ = paper > 0 && paper != PASSBOOK_PAPER_IN_PLACE;
    if (!ejected_)
        return paper > 0 ? tool_.report.fail(Exit::refused, "the document is still in the printer") : failSilent();
    return paper == PASSBOOK_PAPER_ABSENT ||
           tool_.report.fail(Exit::refused, "the document is out, but nobody has taken it");
}

Condition Printer::condition() {
    Condition condition;
    if (isOli()) {
        condition.printer = YARDO_PR2_GetPrinterStatus();
        // A printer that says nothing is not waited for twice.
        condition.paper = condition.printer < 0 ? condition.printer : YARDO_PR2_GetPaperStatus();
        return condition;
    }
    struct passbook_oki_paper paper {};
    paper.size = sizeof paper;
    const int result = passbook_oki_paper(port(), &paper);
    condition.paper = result == 0 ? paper.status : result;
    condition.measured = paper.width > 0 && paper.length > 0;
    return condition;
}

Condition Printer::ask() {
    constexpr int attempts = 2;
    Condition condition;
    for (int i = 0; i < attempts && !stopAsked(); ++i) {
        condition = this->condition();
        if (condition.isTold())
            break;
    }
    return condition;
}

bool Printer::failSilent() {
    if (stopAsked())
        return tool_.report.fail(Exit::failed, "stopped before the printer has answered");
    const std::string family = nameOf(tool_.setting.family);
    return tool_.report.fail(Exit::failed, "the printer does not answer: see whether it is on, and of the family " +
                                               family + ". Next: passbook --port " + tool_.setting.port + " --family " +
                                               family + " doctor");
}

bool Printer::canPrint() {
    const Condition condition = ask();
    if (!condition.isTold())
        return failSilent();
    if (!condition.isReady(tool_.setting.family))
        return tool_.report.fail(Exit::refused, "the printer is not ready: " + condition.text(tool_.setting.family));
    return condition.hasDocument(tool_.setting.family) ||
           tool_.report.fail(Exit::refused,
                             "there is no document to print on: " + condition.text(tool_.setting.family));
}

bool Printer::hasPrinted() {
    const Condition condition = ask();
    return (condition.isTold() && condition.isReady(tool_.setting.family) &&
            condition.hasDocument(tool_.setting.family)) ||
           tool_.report.fail(Exit::inDoubt, "the printer is not ready after it: " +
                                                condition.text(tool_.setting.family) + "; look at the page");
}

std::string Printer::firmware() {
    constexpr std::size_t identifierBytes = 13;
    std::array<unsigned char, identifierBytes> out{};
    if (!took(YARDO_PR2_GetFWID(out.data())))
        return {};
    std::string identifier(out.begin(), out.end());
    identifier.erase(identifier.find_last_not_of('\0') + 1);
    return identifier;
}

std::optional<int> Printer::feedTo(int yDots) {
    if (yDots >= paperDots_)
        return yDots - paperDots_;
    (void)tool_.report.fail(Exit::badInput, "a place above what is printed: paper in OKI printers only moves down");
    return {};
}

bool Printer::text(double xMm, double yMm, const std::string& utf8) {
    const int xDots = dotsFrom(xMm + tool_.setting.offsetXMm);
    const int yDots = dotsFrom(yMm + tool_.setting.offsetYMm);
    const int length = static_cast<int>(utf8.size());
    if (isOli())
        return took(passbook_print_text(xDots, yDots, utf8.data(), length));
    const std::optional<int> feed = feedTo(yDots);
    if (!feed || !took(passbook_oki_print_text(port(), timeoutSeconds, xDots, *feed, utf8.data(), length)))
        return false;
    paperDots_ += *feed / 3 * 3;
    return true;
}

bool Printer::image(double xMm, double yMm, const Picture& picture) {
    const int xDots = dotsFrom(xMm + tool_.setting.offsetXMm);
    const int yDots = dotsFrom(yMm + tool_.setting.offsetYMm);
    if (xDots < 0 || yDots < 0)
        return tool_.report.fail(Exit::badInput, "the picture begins outside the page");
    const TemporaryFile file;
    if (isOli()) {
        // What whole millimetres cannot say is put before the picture as blank columns and rows.
        const int xWhole = wholeMillimetres(xDots), yWhole = wholeMillimetres(yDots);
        const std::string problem =
            picture.save(file.path(), xDots - dotsFromWhole(xWhole), yDots - dotsFromWhole(yWhole));
        if (!problem.empty())
            return tool_.report.fail(Exit::failed, problem);
        return took(YARDO_PrintBmpOLI(file.path().c_str(), false, xWhole, yWhole));
    }
    const std::optional<int> feed = feedTo(yDots);
    if (!feed)
        return false;
    if (const std::string problem = picture.save(file.path(), xDots, *feed); !problem.empty())
        return tool_.report.fail(Exit::failed, problem);
    if (!took(PT_PrintImageFile(port(), PASSBOOK_PT_MODE_TENTH_MM, timeoutSeconds, 0, 0, 0, file.path().c_str())))
        return false;
    const struct passbook_outcome outcome = outcomeNow();
    if (outcome.ink == PASSBOOK_INK_NONE)
        return true;
    paperDots_ += outcome.y_dots;
    // The head is still behind the picture, and moves of an OKI printer count from where it is. What comes next at this
    // height would be too far right: an empty line brings the head home.
    return took(passbook_oki_print_text(port(), timeoutSeconds, 0, 0, "", 0)) ||
           tool_.report.fail(Exit::inDoubt, "the picture is sent, but the printer has not taken what follows it");
}

}  // namespace passbook::tool
