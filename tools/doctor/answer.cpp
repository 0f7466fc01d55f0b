// Whether a printer answers, of which family, and in what state. Nothing of this leaves a mark on the paper.
//
// What printers of one family make of the other one's questions:
//   - ESC j, the question for an OLI printer's status: OKI printers have no such command and drop it.
//   - ESC space B, for where the document is: OKI printers drop ESC and the space, and print the B. So it is only asked
//     when the first question was answered.
//   - ESC } S S, the question for an OKI printer's paper: OLI printers with a scanner have other commands that begin like
//     it, and drop it. Nobody knows of one without a scanner: it could print "SS". So that is only asked when the user says
//     that the printer is empty (--ask-other).

#include <array>
#include <cstdio>

#include "api/passbook.h"
#include "tools/doctor/findings.h"
#include "tools/tool.h"

namespace passbook::tool::doctor {

namespace {

constexpr std::size_t mostHeard = 16;  // bytes that are shown

/// What comes from the printer meanwhile. A trace that the user has asked for has it instead.
class Ear {
 public:
    explicit Ear(const Tool& tool) : free_(tool.setting.trace.empty()) {
        if (free_)
            (void)passbook_set_trace(hear, this);
    }
    Ear(const Ear&) = delete;
    Ear& operator=(const Ear&) = delete;
    ~Ear() {
        if (free_)
            (void)passbook_set_trace(nullptr, nullptr);
    }
    [[nodiscard]] const std::string& bytes() const { return bytes_; }
    [[nodiscard]] std::string text() const {
        std::string text;
        for (const char byte : bytes_) {
            std::array<char, 4> hex{};
            (void)std::snprintf(hex.data(), hex.size(), " %02X", static_cast<unsigned char>(byte));
            text += hex.data();
        }
        return text + (bytes_.size() == mostHeard ? " ..." : "");
    }

 private:
    static void hear(const struct passbook_trace_event* event, void* user) {
        std::string& bytes = static_cast<Ear*>(user)->bytes_;
        if (event->kind == PASSBOOK_TRACE_READ && event->data != nullptr && event->length > 0)
            bytes.append(reinterpret_cast<const char*>(event->data), static_cast<std::size_t>(event->length));
        if (bytes.size() > mostHeard)
            bytes.resize(mostHeard);
    }
    bool free_;
    std::string bytes_;
};

constexpr const char* settings =
    "The printer's own settings must be 9600 bits per second, 8 data bits, no parity, one stop bit.";

std::string call(const Tool& tool, Family family, const char* rest) {
    return "passbook --port " + tool.setting.port + " --family " + nameOf(family) + " doctor" + rest;
}

constexpr Family otherThan(Family family) {
    return family == Family::oli ? Family::oki : Family::oli;
}

std::string nameFor(Family family) {
    return family == Family::oli ? "OLI (PR2)" : "OKI";
}

int askOki(const Tool& tool, struct passbook_oki_paper& paper) {
    paper = {};
    paper.size = sizeof paper;
    return passbook_oki_paper(tool.setting.port.c_str(), &paper);
}

/// Asks in the way of a family, with the question that leaves no mark. Whether a printer of that family answers.
bool answersAs(const Tool& tool, Family family) {
    struct passbook_oki_paper paper {};
    if (family == Family::oki)
        return askOki(tool, paper) == 0;
    // A port that is still open is of no harm: it is the same one.
    const bool opened = YARDO_PR2_OpenPort(tool.setting.port.c_str()) == 0;
    const bool answers = YARDO_PR2_GetPrinterStatus() > 0;
    if (opened)
        (void)YARDO_PR2_ClosePort();
    return answers;
}

void tellNoAnswer(const Tool& tool, bool askOther, const Ear& ear, Findings& findings) {
    const Family family = tool.setting.family, other = otherThan(family);
    const bool usb = tool.setting.port == "USB";
    const std::string sent = ear.text();  // as the answer to the first question
    if (askOther && answersAs(tool, other)) {
        findings.problem(
            "family",
            "A printer of the family " + nameFor(other) + " answers, and none of the family " + nameFor(family) + ".",
            std::string("Use --family ") + nameOf(other) + ", or set PASSBOOK_FAMILY=" + nameOf(other) +
                ". Hosts must use the functions of that family.");
        return;
    }
    const std::string either = askOther ? ", and none of the family " + nameFor(other) + " either" : "";
    if (!sent.empty())
        findings.problem(
            "answer",
            "The printer sends something, but no answer of the family " + nameFor(family) + either + ":" + sent,
            usb ? "Switch the printer off and on again." : std::string(settings) + " If they are, try another cable.");
    else
        findings.problem("answer", "No printer of the family " + nameFor(family) + " answers" + either + ".",
                         std::string("See whether the printer is on, ready (online), and at this port.") +
                             (usb ? "" : std::string("\n") + settings + "\n" + whatThereIs()));
    if (!askOther)
        findings.warning("family",
                         "Whether it is one of the family " + nameFor(other) +
                             " was not asked: the question could leave ink on a document.",
                         "Take the document out of the printer, then:\n  " + call(tool, family, " --ask-other"));
}

/// The question did not even go out.
void tellNotTaken(Findings& findings) {
    findings.problem("answer", "The printer takes no bytes.",
                     "See whether it is on, ready (online), and its cable is in. Switch it off and on again.");
}

void askOli(Tool& tool, bool askOther, Findings& findings) {
    const Ear ear(tool);
    const int status = YARDO_PR2_GetPrinterStatus();
    // Several conditions at once have no value of their own. The printer answers all the same.
    const bool several =
        status == PASSBOOK_PRINTER_UNKNOWN && ear.bytes().size() == 3 && ear.bytes().starts_with("\x1Br");
    const bool took = !several && tool.report.take(status);
    if (stopAsked())
        return;
    if (!took && !several) {
        if (status == PASSBOOK_NOT_SENT)
            tellNotTaken(findings);
        else
            tellNoAnswer(tool, askOther, ear, findings);
        return;
    }
    const std::string state = several ? "not ready: a status byte that stands for several conditions:" + ear.text()
                                      : passbook_status_text(status);
    std::array<unsigned char, 13> identifier{};
    const int paper = YARDO_PR2_GetPaperStatus();
    const bool identified = !several && YARDO_PR2_GetFWID(identifier.data()) == 0;
    std::string firmware(identifier.begin(), identifier.end());
    firmware.erase(firmware.find_last_not_of('\0') + 1);
    findings.ok("answer", "A printer of the family " + nameFor(Family::oli) + " answers" +
                              (identified ? ": " + firmware + "." : "."));
    if (status == PASSBOOK_PRINTER_READY)
        findings.ok("status", "The printer is ready.");
    else
        findings.problem(
            "status", "The printer is " + state + ".",
            "Look at its display and its lamps: cover, paper, an error. The printer's manual has the byte.\n"
            "When that is mended, and no document is in it:\n  passbook --port " +
                tool.setting.port + " init");
    if (const char* const place = passbook_paper_text(paper); place != nullptr)
        findings.ok("paper", std::string("The printer says: ") + place + ".");
    else
        findings.warning("paper", "The printer does not tell where the document is.",
                         "Take the document out, switch the printer off and on, and call the doctor again.");
    if (status != PASSBOOK_PRINTER_READY)
        (void)tool.report.fail(Exit::refused, "the printer is " + state);
}

void askOkiPrinter(Tool& tool, bool askOther, Findings& findings) {
    const Ear ear(tool);
    struct passbook_oki_paper paper {};
    const int result = askOki(tool, paper);
    const bool took = tool.report.take(result);
    if (stopAsked())
        return;
    if (took && result == 0) {
        findings.ok("answer", "A printer of the family OKI answers.");
        findings.ok("paper",
                    "Its paper status is " + std::to_string(paper.status) + ". The document: " +
                        (paper.width == 0 ? "width not told"
                                          : std::to_string(paper.width) + " wide, " + std::to_string(paper.length) +
                                                " long, in the printer's units") +
                        ".");
    } else if (tool.report.exit() == Exit::notOpened) {
        return;
    } else if (result == PASSBOOK_NOT_SENT) {
        tellNotTaken(findings);
    } else {
        tellNoAnswer(tool, askOther, ear, findings);
    }
}

}  // namespace

void examineAnswer(Tool& tool, Way way, bool askOther, Findings& findings) {
    if (!way.open)
        return;
    const bool problems = findings.has(Level::problem);
    // Also for an OKI printer: whether the port opens is one thing, what answers there another.
    if (!tool.report.take(YARDO_PR2_OpenPort(tool.setting.port.c_str()))) {
        if (!problems)
            findings.problem(
                "open", "The driver cannot open the port: " + tool.report.message() + ".",
                "This shows programs of other users too:\n  sudo passbook --port " + tool.setting.port + " doctor");
        return;
    }
    findings.ok("open", "The driver opens the port.");
    if (way.ask) {
        if (tool.setting.family == Family::oli)
            askOli(tool, askOther, findings);
        else
            askOkiPrinter(tool, askOther, findings);
    }
    (void)YARDO_PR2_ClosePort();  // one that will not close says so when it is opened again
}

}  // namespace passbook::tool::doctor
