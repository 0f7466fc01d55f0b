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
#include <variant>
#include <vector>

#include "sim/answers.h"
#include "sim/event.h"
#include "sim/family.h"
#include "sim/page.h"
#include "sim/paper.h"
#include "sim/rules.h"
#include "sim/scan.h"
#include "sim/script.h"
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

    std::vector<AnswerTrouble> answers{};  // from the start
    std::vector<Rule> rules{};             // what happens later
    /// Whether a host that opens or closes the port is an event. A line tells of it a moment later than it happens, so
    /// that two logs of the same may differ.
    bool hostEvents = false;
};

inline constexpr std::size_t maxStripeData = 1024;
inline constexpr int largestMeasure = 9999;  // of a document, as it fits into the answer

using PageSink = std::function<void(Page)>;

/// Told what is to happen to the line that the printer hangs on. False if that line cannot do it.
using LineAction = std::variant<action::Line, action::Usb>;
using LineSink = std::function<bool(const LineAction&)>;

/// A passbook printer without a device: bytes in, answers, a picture and events out. It has no descriptor, no thread
/// and no clock of its own, and does the same again for the same calls. One thread at a time.
class Printer {
 public:
    explicit Printer(Scenario scenario = {}, EventSink events = {}, PageSink ejected = {});
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;

    /// Bytes from the host, in whatever pieces. How many of them were taken: fewer if something has happened to the
    /// line in the middle of them. The others are still on the line.
    std::size_t receive(std::span<const std::uint8_t> bytes);

    /// The line tells of itself: a transfer begins, a host has opened the port or the last one has closed it.
    void transferBegins();
    void hostChanged(bool opened);
    /// Who sees to it that it happens, and then says so; null: nobody.
    void setLine(LineSink line) { lineSink_ = std::move(line); }
    void lineChanged(event::Line::What what, const std::string& port) { emit(event::Line{what, port}); }

    /// Prints what has come of a text that has not ended; what comes next goes on behind it.
    void printWaitingText();

    /// Takes what the host left unfinished as it stands: a text without an end is printed, half a command reported.
    void finish();

    /// What the printer has to say, oldest first: all of it, or at most Scenario::split bytes of one answer, or one
    /// piece of a scan; nothing if there is no answer.
    [[nodiscard]] std::vector<std::uint8_t> takeAnswer();
    [[nodiscard]] bool answerPending() const { return !answers_.empty(); }
    /// The host must get what takeAnswer() brings next with a read of its own.
    [[nodiscard]] bool answerStandsAlone() const { return answers_.standsAlone(); }

    /// The host has gone. What it has not read is lost, and so are `unread` bytes that were taken for it. What is late
    /// comes all the same, whoever listens then.
    void forgetAnswers(std::size_t unread = 0);

    /// Lets time go by up to `now`, counted from the printer's start; what is due by then happens.
    void advance(std::chrono::milliseconds now);
    [[nodiscard]] std::chrono::milliseconds nextChange() const;
    /// The same, of what the rules bring alone.
    [[nodiscard]] std::chrono::milliseconds nextOfRules() const;

    /// The person at the slot. False if that can't be done now.
    bool insertDocument() { return act(action::Insert{}); }
    bool takeDocument() { return act(action::Take{}); }
    [[nodiscard]] PaperState paperState() const { return paper_.state(); }

    /// Does what a rule could do. False if that can't be done now.
    bool act(const Action& action);
    /// Counts from now on. False if there are too many.
    [[nodiscard]] bool addRule(Rule rule);
    [[nodiscard]] const Rules& rules() const { return rulesOfScenario_; }

    [[nodiscard]] bool jammed() const { return jam_.has_value(); }
    /// As the host gets it.
    [[nodiscard]] int printerStatus() const;
    /// On how many documents something was printed.
    [[nodiscard]] int pages() const { return pages_; }

    /// The document in place, null if there is none.
    [[nodiscard]] const Page* page() const { return page_ ? &*page_ : nullptr; }

    [[nodiscard]] const std::string& stripe(std::size_t index) const { return scenario_.stripes.at(index); }
    [[nodiscard]] const Scenario& scenario() const { return scenario_; }

 private:
    struct Format {
        int perInch = 10;
        int lineSpace = 40;  // 1/240 inch: six lines an inch
        int heightFactor = 1;
        bool wideLatin = false;
        bool wideChinese = false;
        bool bold = false;
        Underline underline = Underline::none;
    };

    /// What lasts until something ends it.
    struct Lasting {
        int status = 1;
        Until until{};
        std::chrono::milliseconds due = never;
    };
    /// How an answer goes out.
    struct Delivery {
        bool missing = false, doubled = false, garbled = false;
        std::size_t piece = 0;
        std::chrono::milliseconds delay{0};
    };

    void obey(const wire::Command& command);
    void follow(const wire::Command& command);
    /// What the rules that have fired bring. Never in the middle of a command.
    void runRules();
    void endWhatIsOver();
    [[nodiscard]] Lasting lasting(int status, const Until& until) const;
    void clearError();
    void endJam();
    bool tellLine(const LineAction& action);
    [[nodiscard]] Delivery deliveryOf(std::string_view name);
    void pageEnds();
    void countPage();
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
    void emit(const Event& event);
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

    std::chrono::milliseconds now_{0};
    Rules rulesOfScenario_;
    LineSink lineSink_;
    bool lineTouched_ = false;
    bool inRules_ = false;
    std::optional<Lasting> jam_;
    std::optional<Lasting> status_;  // besides scenario_.printerStatus
    int pages_ = 0;
};

}  // namespace passbook::sim
