#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/page.h"
#include "sim/paper.h"
#include "sim/scan.h"
#include "wire/decoder.h"

namespace passbook::sim {

using Family = wire::Family;

/// How the printer is equipped and how it behaves. The values here are a printer in good order with a document in
/// place, whose user takes an ejected document at once and lays in a new one when the host asks for it.
struct Scenario {
    Family family = Family::oli;
    PaperState paper = PaperState::inPlace;
    Paper::Habits habits{};
    int pageWidthDots = mmToDots(150);
    int pageHeightDots = mmToDots(200);

    int printerStatus = 1;                   // 1 to 15, as the host gets it; 1 is ready
    std::string firmware = "PASSBOOKSIM10";  // filled up or cut to 13 characters
    /// What is on the magnetic stripes; longer than maxStripeData is cut.
    std::array<std::string, 2> stripes{};

    /// OKI only. The document's measures as the host gets them; if not given, its size in 1/10 mm.
    std::optional<int> paperWidth{};
    std::optional<int> paperLength{};
    std::string configuration = "\033a8F010003224000901" + std::string(11, '\x7F');  // less its final ESC Z
    int configurationResult = 0;  // what the host gets for writing one: 0 accepted, 1 or 2 refused

    ScanScenario scan{};

    std::size_t split = 0;  // answers come in pieces of that many bytes; 0: whole
    bool silent = false;    // no answer ever comes
    bool garble = false;    // answers have the right length and wrong bytes
};

inline constexpr std::size_t maxStripeData = 1024;
inline constexpr int largestMeasure = 9999;  // of a document, as it fits into the answer

using EventSink = std::function<void(const nlohmann::json&)>;
using PageSink = std::function<void(Page)>;

/// A passbook printer without a device: bytes in, answers, a picture and events out. It has no descriptor, no thread
/// and no clock of its own, and does the same again for the same calls. One thread at a time.
///
/// Events are JSON objects; "event" names the kind. Positions are "xDots", "yDots", "xMm", "yMm"; bytes are hexadecimal
/// and cut short when there are many.
///
/// - "command": name; value, if it has a number, or values, if it has several; the position it leads to, if it
/// moves something
/// - "text": text (UTF-8), bytes, position
/// - "bitmap": columns, bytes (their count), position
/// - "paper": what ("inserted", "fed-in", "ejected", "taken", "waiting", "waiting-ended"), status (the number
/// the
///   host gets for it: OLI 1 to 4; OKI 1 with a document in place, 2 without)
/// - "configuration": what ("read", "written", "refused"), bytes of the block as it is now
/// - "stripe": what ("selected", "read", "written", or "refused" if there is more than a stripe holds), stripe
///   (0 or 1), bytes and text of what is on it now
/// - "scan": what ("started", with bits of the front and the back, 0 for a side that isn't wanted, dpi and
///   fromBottom; "delivered" or "broken-off", with bytes of image data; "ended" by an ejection or because the
///   host has closed the port)
/// - "answer": to (the command's name), bytes
/// - "answer-lost": the same of an answer that is not given; note
/// - "unread": bytes (their count) of answers that the host had not read when it closed the port
/// - "no-paper": name, and the text or columns that could not be printed for want of a document in place
/// - "off-page": name, and the text or number of dots that lie farther out than ink can
/// - "bad-value": name, value of a command whose value means nothing to the printer; it is not followed
/// - "malformed": name, note, bytes (their count) of a bitmap run, a stripe or a configuration block that was
///   broken off, cut or ill-sized; of a run its whole columns, which are printed all the same, and their
///   position
/// - "unknown": bytes that are neither a command nor text, note
class Printer {
 public:
    explicit Printer(Scenario scenario = {}, EventSink events = {}, PageSink ejected = {});
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    /// Bytes from the host, in whatever pieces.
    void receive(std::span<const std::uint8_t> bytes);

    /// Prints what has come of a text that has not ended; what comes next goes on behind it.
    void printWaitingText();

    /// Takes what the host left unfinished as it stands: a text without an end is printed, half a command reported.
    void finish();

    /// What the printer has to say, oldest first: all of it, or at most Scenario::split bytes of one answer, or one
    /// piece of a scan; nothing if there is no answer.
    [[nodiscard]] std::vector<std::uint8_t> takeAnswer();
    [[nodiscard]] bool answerPending() const { return !answers_.empty(); }
    /// The host must get what takeAnswer() brings next with a read of its own.
    [[nodiscard]] bool answerStandsAlone() const {
        return answerPending() && (scenario_.split > 0 || answers_.front().scan != nullptr);
    }

    /// The host has gone. What it has not read is lost, and so are `unread` bytes that were taken for it.
    void forgetAnswers(std::size_t unread = 0);

    /// Lets time go by up to `now`, counted from the printer's start; what is due by then happens.
    void advance(std::chrono::milliseconds now) { paper_.advance(now); }
    [[nodiscard]] std::chrono::milliseconds nextChange() const { return paper_.nextChange(); }

    /// The person at the slot. False if that can't be done now.
    bool insertDocument() { return paper_.insert(); }
    bool takeDocument() { return paper_.take(); }
    [[nodiscard]] PaperState paperState() const { return paper_.state(); }

    /// The document in place, null if there is none.
    [[nodiscard]] const Page* page() const { return page_ ? &*page_ : nullptr; }

    [[nodiscard]] const std::string& stripe(std::size_t index) const { return scenario_.stripes.at(index); }
    [[nodiscard]] const Scenario& scenario() const { return scenario_; }

 private:
    struct Format {
        double cellDots = dotsPerInch / 10.0;
        int lineSpace = 40;  // 1/240 inch: six lines an inch
        int heightFactor = 1;
        bool wideLatin = false;
        bool wideChinese = false;
        bool bold = false;
        Underline underline = Underline::none;
    };

    /// Something for the host: an answer, or a scan that is made while it is taken.
    struct Outgoing {
        std::vector<std::uint8_t> bytes;
        std::unique_ptr<ScanDelivery> scan;
    };

    void obey(const wire::Command& command);
    bool obeyMove(const wire::Command& command);
    bool obeyFormat(const wire::Command& command);
    bool obeyDevice(const wire::Command& command);
    bool obeyScan(const wire::Command& command);
    void startScan(const wire::Command& command);
    [[nodiscard]] ScanScenario scanOfDocument() const;
    [[nodiscard]] std::vector<std::uint8_t> takeScanPiece();
    bool dropScan();
    void endScan();
    void printText(const wire::Command& command);
    void printBitmap(const wire::Command& command);
    void obeyConfiguration(const wire::Command& command);
    void obeyStripe(const wire::Command& command);
    void eject(const wire::Command& command);
    void paperChanged(std::string_view what);
    void layPage();
    [[nodiscard]] int paperStatus() const;
    [[nodiscard]] std::string measure(std::optional<int> given, int dots) const;
    void answer(const wire::Command& command, std::vector<std::uint8_t> bytes);
    void emit(const nlohmann::json& event) const;
    [[nodiscard]] nlohmann::json commandEvent(const wire::Command& command) const;
    /// Tells of a command, and if its value meant nothing, that it was not followed.
    void report(const wire::Command& command, bool followed) const;
    [[nodiscard]] int xDots() const;
    [[nodiscard]] int yDots() const;
    void addPosition(nlohmann::json& event) const;

    Scenario scenario_;
    EventSink events_;
    PageSink ejected_;
    std::unique_ptr<wire::Decoder> decoder_;
    Paper paper_;
    std::shared_ptr<GlyphPainter> painter_;
    std::optional<Page> page_;
    Format format_;
    double headDots_ = 0;  // of the print head from the left margin
    int line_ = 0;         // of the paper, in 1/240 inch
    std::size_t stripe_ = 0;
    ScanRequest scanRequest_;
    std::deque<Outgoing> answers_;
    std::size_t answerBytes_ = 0;  // of all of them, without a scan
};

}  // namespace passbook::sim
