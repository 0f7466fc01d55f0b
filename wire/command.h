// What a host says to a printer, once it is decoded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace passbook::wire {

/// Every command of a printer, whichever family it belongs to.
enum class CommandId {
    // These do not fit the command set. `bytes` holds what came, `note` says what is wrong with it.
    unknown,
    malformedBitmap,
    malformedStripe,
    malformedConfiguration,

    text,  // `bytes`: GB18030, whole characters only
    carriageReturn,
    lineFeed,
    formFeed,
    bell,
    backspace,
    cancel,

    horizontalPosition,  // `number()`: 1/120 inch
    verticalPosition,    // `number()`: 1/240 inch
    headMove,            // `number()`: dots to the right
    paperFeed,           // `number()`: 1/120 inch downward
    lineSpace,           // `number()`: 1/240 inch
    pitch,               // `number()`: the code byte
    boldOn,
    boldOff,
    latinNormalWidth,
    latinDoubleWidth,
    chineseNormalWidth,
    chineseDoubleWidth,
    fontHeight,   // `number()`: the code byte
    underlineOn,  // `number()`: the style digit
    underlineOff,

    graphicsMode,
    bitmapRun,  // `bytes`: three per column

    feedIn,  // `number()`: its three digits
    eject,
    clearError,
    clearAll,

    printerStatus,
    paperStatus,
    firmware,
    paperWidth,
    paperLength,
    configurationRead,
    configurationWrite,  // `bytes`: the block with its ESC Z

    stripeSelect,  // `number()`: the stripe, 0 or 1
    stripeRead,
    stripeWrite,  // `bytes`: the data

    noOperation,
    scanAnnounce,
    scanPrepare,  // `number()`: 0 for the first of the two, 1 for the second
    scanMode,     // `numbers`: mode byte, colour byte
    scanSides,    // `numbers`: front and back letter, first parameter of both, second parameter of both
    scanStart,

    /// A setting that leaves no mark on the page. The name tells which one it is.
    setting,
};

/// One thing the host said.
struct Command {
    CommandId id = CommandId::unknown;
    std::string_view name;  // of static storage
    std::vector<int> numbers;
    std::vector<std::uint8_t> bytes;
    std::string_view note;  // of static storage; empty when nothing is wrong
    /// The bytes on the line that this command stands for. Over a whole session they add up to all bytes that came:
    /// nothing is dropped silently.
    std::size_t wireLength = 0;

    [[nodiscard]] int number() const { return numbers.empty() ? 0 : numbers.front(); }
};

using CommandSink = std::function<void(const Command&)>;

}  // namespace passbook::wire
