#include "fuzz/line.h"

#include <algorithm>
#include <chrono>
#include <memory>

#include "api/passbook.h"
#include "fuzz/target.h"
#include "sim/event_json.h"
#include "status/status.h"

namespace passbook::fuzz {

namespace {

constexpr int longPiece = 240;

using tests::virtualClock;

/// What both ends have in common.
class Line : public Protocol {
 public:
    int OpenDevice() override { return 0; }
    int CloseDevice() override { return 0; }
    int ReadPipe(unsigned char* buffer) override {
        if (coming_.empty())
            coming_ = nextPiece();
        if (coming_.empty()) {
            virtualClock.microseconds += 1'000'000;
            return -1;
        }
        virtualClock.microseconds += 10'000;  // or a line that never falls silent would have no end
        const std::size_t count = std::min(coming_.size(), static_cast<std::size_t>(readLength));
        std::copy_n(coming_.begin(), count, buffer);
        coming_.erase(0, count);
        readLength = static_cast<int>(count);
        return 0;
    }
    int WritePipe(const unsigned char* data) override {
        taken = writeLength;
        write({reinterpret_cast<const char*>(data), static_cast<std::size_t>(writeLength)});
        return 0;
    }

 protected:
    virtual std::string nextPiece() = 0;
    virtual void write(std::string_view data) = 0;

 private:
    std::string coming_;
};

class DeskLine : public Line {
 public:
    explicit DeskLine(Desk& desk) : desk_(desk) {}

 private:
    std::string nextPiece() override {
        desk_.printer.advance(
            std::chrono::milliseconds((virtualClock.microseconds - tests::VirtualClock{}.microseconds) / 1000));
        const auto answer = desk_.printer.takeAnswer();
        return {answer.begin(), answer.end()};
    }
    void write(std::string_view data) override {
        desk_.sent += data;
        desk_.printer.receive({reinterpret_cast<const std::uint8_t*>(data.data()), data.size()});
    }
    Desk& desk_;
};

class ScriptLine : public Line {
 public:
    explicit ScriptLine(Script& script) : script_(script) {}

 private:
    std::string nextPiece() override {
        if (script_.pieces.empty())
            return {};
        std::string piece = script_.pieces.front();
        if (script_.pieces.size() > 1 || !script_.endless)
            script_.pieces.pop_front();
        else if (++repeated_ > Script::mostRepeats)
            script_.pieces.clear();
        virtualClock.microseconds += 1000 * Script::pieceMs;
        if (piece == "late") {
            virtualClock.microseconds += 120'000'000;
            piece.clear();
        }
        return piece;
    }
    void write(std::string_view data) override { script_.sent += data; }
    Script& script_;
    int repeated_ = 0;
};

void connectTo(Protocol* line) {
    tests::installPort(line);
    (void)YARDO_PR2_OpenPort("what is open");
}

}  // namespace

const std::string& dayOf(sim::Family family) {
    const std::string folder = PASSBOOK_SOURCE_DIR "/fuzz/seeds/wire/";
    static const std::string oli = tests::readFile(folder + "day-oli").substr(1),
                             oki = tests::readFile(folder + "day-oki").substr(1);
    return family == sim::Family::oli ? oli : oki;
}

std::string lifeOf(const sim::ScenarioFile& file, std::string_view bytes, std::size_t piece, int parts, bool seen) {
    std::string life;
    sim::History history;
    const auto note = [&](const sim::Event& event) {
        history.note(event);
        life += sim::toJson(event).dump() + '\n';
    };
    sim::Printer printer(file.scenario, note, [&](sim::Page page) {
        history.pageEnded(std::make_shared<const sim::Page>(std::move(page)));
    });
    for (int part = 1; part <= parts; ++part) {
        printer.transferBegins();
        for (std::size_t at = 0; at < bytes.size();) {
            const Exact next(bytes.substr(at, piece));
            const std::size_t taken = printer.receive({next.octets(), next.view().size()});
            require(taken > 0, "a printer takes what comes, sooner or later");
            at += taken;
        }
        printer.advance(std::chrono::milliseconds(700 * part));
        for (int i = 0; i < 20 && printer.nextChange() < std::chrono::hours(24); ++i)
            printer.advance(printer.nextChange());
        for (int reads = 0; printer.answerPending() && reads < 2000; ++reads)
            life += std::to_string(printer.takeAnswer().size()) + ' ';
        printer.hostChanged(part % 2 != 0);
    }
    printer.finish();
    for (const sim::Expectation& each : file.expectations) {
        const std::string unmet = history.unmet(each, printer.page(), printer.pages());
        require(unmet.empty() || unmet.starts_with(each.where), "what is not met is told with its place");
        life += unmet + '\n';
    }
    require(!seen || printer.page() == nullptr || !printer.page()->render().empty(), "there is a page to look at");
    return life;
}

Desk::Desk(const sim::Scenario& scenario)
    : printer(
          scenario,
          [this](const sim::Event& event) {
              if (sim::isMistake(event) && !sim::isAny<sim::event::OffPage>(event) && mistake.empty())
                  mistake = sim::toJson(event).dump();
              if (const auto* const text = std::get_if<sim::event::Text>(&event))
                  texts.push_back(*text);
          },
          [this](sim::Page page) { ejected_.emplace(std::move(page)); }) {
    connect();
}

Desk::~Desk() {
    (void)YARDO_PR2_ClosePort();
    (void)PRSexit();
}

void Desk::connect() {
    connectTo(new DeskLine(*this));
}

std::vector<std::string> piecesOf(std::string_view input) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at < input.size();) {
        std::size_t length = static_cast<unsigned char>(input[at++]);
        const bool isLong = length >= longPiece;
        if (isLong && at < input.size())
            length = (length - longPiece) * 256 + static_cast<unsigned char>(input[at++]);
        pieces.emplace_back(isLong && length == 0 ? "late" : input.substr(at, length));
        at += std::min(length, input.size() - at);
    }
    return pieces;
}

Script::Script(std::string_view input, bool repeats) {
    const std::vector<std::string> all = piecesOf(input);
    pieces.assign(all.begin(), all.end());
    count_ = pieces.size();
    endless = repeats && count_ > 0 && pieces.back() != "late";
    connect();
}

Script::~Script() {
    // An answer that could not be decoded is remembered beyond the port; the next input must not depend on it.
    pieces = {"", "...C.."};
    endless = false;
    connect();
    (void)GetPaperStatus_OLI();
    (void)YARDO_PR2_ClosePort();
    (void)PRSexit();
}

void Script::connect() {
    connectTo(new ScriptLine(*this));
}

}  // namespace passbook::fuzz
