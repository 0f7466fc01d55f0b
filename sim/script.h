// What can be made to happen to a printer, and when: the rules of a scenario.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "sim/paper.h"

namespace passbook::sim {

/// What goes wrong with answers. `delay` is of late ones, `size` of those in pieces.
struct AnswerTrouble {
    enum class How { right, late, pieces, garbled, doubled, missing };

    How how = How::right;
    std::string to{};            // the command whose answers are meant; empty: all
    std::optional<int> count{};  // so many answers; none: from now on
    std::chrono::milliseconds delay{0};
    std::size_t size = 0;
};

/// What goes wrong with scans.
struct ScanTrouble {
    std::optional<std::uint64_t> breakAfter{};  // bytes of image data; nothing more comes then
    int sizeError = 0;     // what is announced too much: OKI bytes of data, OLI rows of the picture
    int rowsError = 0;     // what the end message says too much: OLI rows
    bool fillers = false;  // eight bytes that belong to no picture between every two blocks
    bool noEnd = false;    // neither end byte nor end message
    bool silent = false;   // nothing of a scan comes
};

/// What ends something that the printer tells, besides an action that takes it back.
struct Until {
    std::optional<std::chrono::milliseconds> time{};
    std::optional<int> answers{};
    bool clearError = false;  // the host's command
};

/// A status that stands for any trouble: hosts know only that 1 is ready.
inline constexpr int jamStatus = 2;

enum class UsbFault {
    none,
    stall,     // refused, and so is every later one on its endpoint until the host clears that
    cutShort,  // half of the bytes are taken; of an answer half comes, and no more
    hang,      // never ends
    unplug,    // the printer is gone in the middle of it
};

namespace action {

struct Insert {};
struct Take {};
struct Jam {
    int status = jamStatus;
    Until until{};
};
struct ClearJam {};
struct Status {
    int value = 1;
    Until until{};
};
/// Without a time: until it is back.
struct Line {
    enum class What { stall, drop, back };
    What what = What::back;
    std::optional<std::chrono::milliseconds> time{};
};
struct Usb {
    UsbFault fault = UsbFault::none;
};

}  // namespace action

using Action = std::variant<action::Insert, action::Take, action::Jam, action::ClearJam, action::Status, AnswerTrouble,
                            ScanTrouble, action::Line, action::Usb>;

/// A part of the page in dots; what is at right and bottom lies outside.
struct DotBox {
    int left = 0, top = 0, right = 0, bottom = 0;
};

/// When a rule fires: at the n-th time that something happens, and with `each` at every later time.
struct Trigger {
    enum class Kind { command, text, matching, dots, byte, transfer, paper, hostOpened, hostClosed, time, event };

    Kind kind = Kind::command;
    std::string name{};  // command: its name; text: a part of it; matching: an expression; time: the rule since
    DotBox dots{};
    PaperChange paper = PaperChange::inserted;
    std::chrono::milliseconds after{0};
    nlohmann::json event{};  // some keys of an event, with their values
    std::uint64_t nth = 1;
    bool each = false;
};

struct Rule {
    std::string name{};  // for the log, and for other rules
    Trigger when{};
    std::vector<Action> then{};
};

}  // namespace passbook::sim
