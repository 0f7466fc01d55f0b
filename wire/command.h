#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace passbook::wire {

// Every command a printer can be told, whatever the family that spells it.
enum class CommandId {
    // What doesn't fit the command set. `bytes` holds what was received, `note` what was wrong with it.
    kUnknown,
    kMalformedBitmap,
    kMalformedStripe,
    kMalformedConfiguration,

    kText,  // `bytes`: GB18030, whole characters only
    kCarriageReturn,
    kLineFeed,
    kFormFeed,
    kBell,
    kBackspace,
    kCancel,

    kHorizontalPosition,  // `number()`: 1/120 inch
    kVerticalPosition,    // `number()`: 1/240 inch
    kHeadMove,            // `number()`: dots to the right
    kPaperFeed,           // `number()`: 1/120 inch downward
    kLineSpace,           // `number()`: 1/240 inch
    kPitch,               // `number()`: the code byte
    kBoldOn,
    kBoldOff,
    kLatinNormalWidth,
    kLatinDoubleWidth,
    kChineseNormalWidth,
    kChineseDoubleWidth,
    kFontHeight,   // `number()`: the code byte
    kUnderlineOn,  // `number()`: the style digit
    kUnderlineOff,

    kGraphicsMode,
    kBitmapRun,  // `bytes`: three per column

    kFeedIn,  // `number()`: the three digits
    kEject,
    kClearError,
    kClearAll,

    kPrinterStatus,
    kPaperStatus,
    kFirmware,
    kPaperWidth,
    kPaperLength,
    kConfigurationRead,
    kConfigurationWrite,  // `bytes`: the block with its ESC Z

    kStripeSelect,  // `number()`: 0 or 1
    kStripeRead,
    kStripeWrite,  // `bytes`: the data

    // Settings whose effect shows nowhere on the page; the name tells them apart.
    kSetting,
};

// One thing the host said.
struct Command {
    CommandId id = CommandId::kUnknown;
    std::string_view name;  // of static storage
    std::vector<int> numbers;
    std::vector<std::uint8_t> bytes;
    std::string_view note;  // of static storage; empty unless something is wrong
    // How many bytes of the line this stands for. Over a whole session they add up to the bytes received:
    // nothing the host sends is dropped without a word.
    std::size_t wireLength = 0;

    [[nodiscard]] int number() const { return numbers.empty() ? 0 : numbers.front(); }
};

using CommandSink = std::function<void(const Command&)>;

}  // namespace passbook::wire
