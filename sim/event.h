// What happens to a printer. This is the list of all events; event_json.cpp shows them as the log has them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "sim/page.h"
#include "sim/paper.h"

namespace passbook::sim {

/// The names of commands and the notes are of static storage.
namespace event {

using Bytes = std::vector<std::uint8_t>;

/// A place on the page, in dots from its upper left corner.
struct Place {
    int xDots = 0;
    int yDots = 0;
};

struct Command {
    std::string_view name;
    std::vector<int> numbers;
    std::optional<Place> at{};  // the place that it leads to, if it moves something
};

/// A part of the page, in dots; what is at right and bottom lies outside.
struct Box {
    int left, top, right, bottom;
};

/// How a text looks. `page` counts those on which something was printed, from 1; it is 0 if there is no paper.
struct Look {
    int page = 0;
    int perInch = 10;
    bool bold = false;
    int width = 1;  // of Latin characters, and of Chinese ones
    int chineseWidth = 1;
    int height = 1;
    Underline underline = Underline::none;
};

/// Printed text, and where it begins. `ink` are the cells from the first character that is no space to the last one.
struct Text {
    Bytes bytes;
    Place at;
    std::optional<Box> ink{};
    Look look{};
};

/// A run of columns, and where it begins.
struct Bitmap {
    std::size_t bytes;
    Place at;
    int page = 0;
};

/// `status` is the number that the host gets for the new state: OLI 1 to 4; OKI 1 with a document in place, 2 without.
struct Paper {
    PaperChange what;
    int status;
};

enum class Access { read, written, refused };

/// `block` is what the printer holds afterwards.
struct Configuration {
    Access what;
    std::string block;
};

struct StripeSelected {
    std::size_t stripe;
};

/// `data` is what the stripe holds afterwards. It refuses more than it can hold.
struct Stripe {
    Access what;
    std::size_t stripe;
    std::string data;
};

struct ScanStarted {
    std::array<int, 2> bits;  // a pixel, of front and back; 0 is a side that is not wanted
    int dotsPerInch;
    bool fromBottom;
};

/// The host has taken all of a scan, or what there was of it.
struct ScanDelivered {
    bool brokenOff;
    std::uint64_t bytes;  // of image data
};

/// The document of a scan was ejected, or the host has closed the port.
struct ScanEnded {};

/// An answer, or one that is not given: the note says why.
struct Answer {
    std::string_view to;  // the command's name
    Bytes bytes;
    std::string_view lost;
};

/// The host had not read so many bytes of answers when it closed the port.
struct Unread {
    std::size_t bytes;
};

/// A command needs a document, and none is in place. `text` or `columns` is what could not be printed.
struct NoPaper {
    std::string_view name;
    std::optional<Text> text{};
    std::optional<std::size_t> columns{};
};

/// The document is jammed, or no longer.
struct Jam {
    bool jammed;
};

/// What could not be printed or moved since the document is jammed.
struct Jammed {
    std::string_view name;
    std::optional<Text> text{};
    std::optional<std::size_t> columns{};
};

/// A rule of the scenario has fired.
struct RuleFired {
    std::string name;
};

/// A host has opened the port, or the last one has closed it.
struct Host {
    bool opened;
};

/// The line holds everything back, is cut, or is as it should be. `port` is what hosts open then.
struct Line {
    enum class What { stalled, dropped, back };
    What what;
    std::string port;
};

/// Characters, or a number of dots, that lie farther out than ink can.
struct OffPage {
    std::string_view name;
    std::string utf8;
    std::size_t dots = 0;
};

/// The printer does not follow a command: its value means nothing.
struct BadValue {
    std::string_view name;
    std::vector<int> numbers;
};

/// A bitmap run, a stripe or a configuration block that was broken off, is too long or has half a column. The whole
/// columns of a run, which has a place, are printed all the same.
struct Malformed {
    std::string_view name;
    std::string_view note;
    std::size_t bytes;
    std::optional<Place> at{};
};

/// Bytes that are neither a command nor text.
struct Unknown {
    Bytes bytes;
    std::string_view note;
};

}  // namespace event

using Event =
    std::variant<event::Command, event::Text, event::Bitmap, event::Paper, event::Configuration, event::StripeSelected,
                 event::Stripe, event::ScanStarted, event::ScanDelivered, event::ScanEnded, event::Answer,
                 event::Unread, event::NoPaper, event::OffPage, event::BadValue, event::Malformed, event::Unknown,
                 event::Jam, event::Jammed, event::RuleFired, event::Host, event::Line>;

template <typename... Kinds>
[[nodiscard]] bool isAny(const Event& event) {
    return (std::holds_alternative<Kinds>(event) || ...);
}

/// The host has made a mistake: bytes without a meaning, ink beside the page, printing without paper.
[[nodiscard]] inline bool isMistake(const Event& event) {
    return isAny<event::Unknown, event::Malformed, event::NoPaper, event::OffPage, event::BadValue>(event);
}

using EventSink = std::function<void(const Event&)>;

}  // namespace passbook::sim
