// The two ends that the driver talks to: the virtual printer, and a script of what a line brings.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device/device.h"
#include "sim/printer.h"
#include "sim/script_json.h"
#include "tests/support.h"

namespace passbook::fuzz {

/// The bytes that the driver sends for a day's work.
[[nodiscard]] const std::string& dayOf(sim::Family family);

/// All that bytes bring on the printer of a scenario: sent in such pieces, `parts` times, with time going by.
[[nodiscard]] std::string lifeOf(const sim::ScenarioFile& file, std::string_view bytes, std::size_t piece, int parts,
                                 bool seen);

/// The virtual printer with the driver's open port on it. One at a time.
class Desk {
 public:
    explicit Desk(const sim::Scenario& scenario);
    ~Desk();
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    std::string sent;     // all that the driver has written
    std::string mistake;  // the first thing that the printer could not understand
    std::vector<sim::event::Text> texts;
    sim::Printer printer;

    /// The document with what is on it, also when it has been ejected; null without one.
    [[nodiscard]] const sim::Page* page() const { return ejected_ ? &*ejected_ : printer.page(); }
    /// A port of an OKI function is closed when it returns.
    void connect();

 private:
    std::optional<sim::Page> ejected_;
};

/// Pieces as an input spells them: a byte N below 240 is followed by N bytes, 0 is a read that brings nothing; 240 + H and a
/// byte L by 256 H + L bytes, of which 240 and 0 let two minutes go by.
[[nodiscard]] std::vector<std::string> piecesOf(std::string_view input);

/// The driver's open port while this exists: it brings a piece a read and takes everything.
class Script {
 public:
    /// What is endless here ends all the same, when any host has waited too long.
    static constexpr int mostRepeats = 12'000, pieceMs = 1000;

    /// `endless`: the last piece comes again and again.
    Script(std::string_view input, bool endless);
    ~Script();
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    void connect();

    std::deque<std::string> pieces;
    bool endless;
    std::string sent;
    /// How long the host may be held: a time for each piece that comes, and what the longest call takes by itself.
    [[nodiscard]] long long patience() const { return 1500 + 125 * static_cast<long long>(count_); }

 private:
    std::size_t count_;
};

}  // namespace passbook::fuzz
