// The printer as the verbs use it: the calls of both families behind one face, in millimetres and dots.
#pragma once

#include <optional>
#include <string>

#include "tools/picture.h"
#include "tools/tool.h"

namespace passbook::tool {

/// 1/180 inch.
[[nodiscard]] int dotsFrom(double millimetres);
[[nodiscard]] double millimetresFrom(int dots);

/// What a printer tells of itself.
struct Condition {
    int printer = 0;  // OLI: see enum passbook_printer_status; 0 not asked, below 0 a result
    int paper = 0;    // OLI: see enum passbook_paper_status; OKI: 1 or 2, whose meaning is not known; below 0 a result
    bool measured = true;  // OKI: the printer tells width and length of a document
    /// Whether all questions were answered.
    [[nodiscard]] bool isTold() const { return printer >= 0 && paper > 0; }
    /// Whether there is a document to print on. A printer that says 2 and measures nothing has none.
    [[nodiscard]] bool hasDocument(Family family) const;
    /// Whether the printer takes the next step.
    [[nodiscard]] bool isReady(Family family) const;
    /// For people: "ready, document in place".
    [[nodiscard]] std::string text(Family family) const;
};

/// Every call's result goes into the report of the tool, see Report::take.
class Printer {
 public:
    explicit Printer(Tool& tool) : tool_(tool) {}
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;
    ~Printer();

    /// Opens the port. On OKI printers it is only opened when `keep` is set, for scans and raw bytes; each of the other
    /// calls opens it by itself.
    [[nodiscard]] bool open(bool keep = false);

    /// OLI. `reset`: see enum passbook_reset.
    [[nodiscard]] bool initialise(int reset, int seconds);
    /// OLI. Draws a document in and waits until it is in place.
    [[nodiscard]] bool insert(int seconds);
    /// Ejects the document. With `seconds` above 0 an OLI printer waits until somebody takes it.
    [[nodiscard]] bool eject(int seconds);

    /// Asks the printer. A result below 0 is in the condition, not in the report.
    [[nodiscard]] Condition condition();
    /// The same until it answers, a few times: a lost question costs nothing but time.
    [[nodiscard]] Condition ask();
    /// Whether a printer answers, is ready, and has a document to print on; else the report says what is missing.
    [[nodiscard]] bool canPrint();
    /// Whether it is ready after it has got something to print; else the report says that it is in doubt.
    [[nodiscard]] bool hasPrinted();
    /// Tells in the report that the printer does not answer. Returns false.
    bool failSilent();
    /// Whether eject() has sent the document out, be it taken or not.
    [[nodiscard]] bool hasEjected() const { return ejected_; }
    /// OLI: 13 characters; empty when the printer does not tell.
    [[nodiscard]] std::string firmware();

    /// Prints a line with its upper left corner at a place on the page. The offset of the setting is added.
    [[nodiscard]] bool text(double xMm, double yMm, const std::string& utf8);
    /// Prints a picture in the same way.
    [[nodiscard]] bool image(double xMm, double yMm, const Picture& picture);

    /// OKI: how far the paper has been fed from its top, in dots. Places on the page are fed to from there.
    [[nodiscard]] int paperDots() const { return paperDots_; }
    void setPaperDots(int dots) { paperDots_ = dots; }

 private:
    [[nodiscard]] bool took(int result) { return tool_.report.take(result); }
    [[nodiscard]] const char* port() const { return tool_.setting.port.c_str(); }
    [[nodiscard]] bool isOli() const { return tool_.setting.family == Family::oli; }
    /// OKI: the dots from where the paper is to a place. Nothing, with a failure in the report, if it lies above.
    [[nodiscard]] std::optional<int> feedTo(int yDots);

    Tool& tool_;
    bool open_ = false;
    int paperDots_ = 0;
    bool ejected_ = false;
};

}  // namespace passbook::tool
