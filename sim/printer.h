#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/answers.h"
#include "sim/event.h"
#include "sim/family.h"
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

using PageSink = std::function<void(Page)>;

/// A passbook printer without a device: bytes in, answers, a picture and events out. It has no descriptor, no thread
/// and no clock of its own, and does the same again for the same calls. One thread at a time.
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
        return answerPending() && (scenario_.split > 0 || answers_.scan() != nullptr);
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

    void obey(const wire::Command& command);
    /// Of the head, and of the paper; as far as they reach.
    void move(const wire::Command& command, double headDots, int line);
    void startScan(const wire::Command& command);
    [[nodiscard]] ScanScenario scanOfDocument() const;
    void endScan();
    void printText(const wire::Command& command);
    void printBitmap(const wire::Command& command);
    void obeyConfiguration(const wire::Command& command);
    void obeyStripe(const wire::Command& command);
    void eject(const wire::Command& command);
    void paperChanged(PaperChange what);
    void layPage();
    [[nodiscard]] std::string measure(std::optional<int> given, int dots) const;
    void answer(const wire::Command& command, std::vector<std::uint8_t> bytes);
    void answer(const wire::Command& command, std::string_view text) {
        answer(command, std::vector<std::uint8_t>(text.begin(), text.end()));
    }
    void emit(const Event& event) const;
    [[nodiscard]] event::Place place() const;

    Scenario scenario_;
    const FamilyRules& rules_;
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
    Answers answers_;
};

}  // namespace passbook::sim
