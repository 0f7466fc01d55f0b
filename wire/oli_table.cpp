#include <string_view>

#include "wire/oli.h"

namespace passbook::wire {

namespace {

using namespace std::string_view_literals;

// ESC is written in octal: a hexadecimal escape would take in a command letter from A to F.
constexpr Row kRows[] = {
    // Position and line ends
    {CommandId::kHorizontalPosition, "horizontal-position", "\033|A"sv, Shape::kDigits, 3},
    {CommandId::kVerticalPosition, "vertical-position", "\033/1"sv, Shape::kDigits, 4},
    {CommandId::kLineSpace, "line-space", "\033&"sv, Shape::kDigits, 2},
    {CommandId::kCarriageReturn, "carriage-return", "\x0D"sv},
    {CommandId::kLineFeed, "line-feed", "\x0A"sv},
    {CommandId::kFormFeed, "form-feed", "\x0C"sv},

    // How text looks
    {CommandId::kPitch, "pitch", "\033a"sv, Shape::kChoice, 1, "12348\0"sv},
    {CommandId::kBoldOn, "bold-on", "\033("sv},
    {CommandId::kBoldOff, "bold-off", "\033)"sv},
    {CommandId::kLatinNormalWidth, "latin-normal-width", "\0333"sv},
    {CommandId::kLatinDoubleWidth, "latin-double-width", "\0334"sv},
    {CommandId::kChineseNormalWidth, "chinese-normal-width", "\x1Cj"sv},
    {CommandId::kChineseDoubleWidth, "chinese-double-width", "\x1Ch"sv},
    {CommandId::kFontHeight, "font-height", "\033w"sv, Shape::kByte, 1},
    {CommandId::kUnderlineOn, "underline-on", "\033*"sv, Shape::kChoice, 1, "034"sv},
    {CommandId::kUnderlineOff, "underline-off", "\033+"sv},

    // Bitmaps. The head is closed by ESC 2, which is no command by itself.
    {CommandId::kGraphicsMode, "graphics-mode", "\033!G1"sv},
    {CommandId::kBitmapRun, "bitmap-run", "\0331A000"sv, Shape::kBitmap},

    // Document and errors
    {CommandId::kFeedIn, "feed-in", "\033L"sv, Shape::kDigits, 3},
    {CommandId::kEject, "eject", "\033O"sv},
    {CommandId::kClearError, "clear-error", "\033l"sv},
    {CommandId::kClearAll, "clear-all", "\0330"sv},
    {CommandId::kBell, "bell", "\007"sv},

    // Questions
    {CommandId::kPrinterStatus, "printer-status", "\033j"sv},
    {CommandId::kPaperStatus, "paper-status", "\033 B"sv},
    {CommandId::kFirmware, "firmware", "\033 b"sv},

    // Magnetic stripe
    {CommandId::kStripeSelect, "stripe-select", "\033YE@@"sv, Shape::kNone, 0, {}, 0},
    {CommandId::kStripeSelect, "stripe-select", "\033YEA@"sv, Shape::kNone, 0, {}, 1},
    {CommandId::kStripeRead, "stripe-read", "\033]"sv},
    {CommandId::kStripeWrite, "stripe-write", "\033t"sv, Shape::kStripe},

    // Sent when the printer is set up; named by their letters, since they leave no mark on the page.
    {CommandId::kCancel, "cancel", "\x18"sv},
    {CommandId::kBackspace, "backspace", "\x08"sv},
    {CommandId::kSetting, "setting-BEL-E", "\033\007E"sv},
    {CommandId::kSetting, "setting-n", "\033n"sv},
    {CommandId::kSetting, "setting-.", "\033."sv},
    {CommandId::kSetting, "setting-Q", "\033Q"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-Z", "\033Z"sv},
    {CommandId::kSetting, "setting-J", "\033J"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-T", "\033T"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-#", "\033#"sv, Shape::kDigits, 1},
    {CommandId::kSetting, "setting-R", "\033R"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-S", "\033S"sv, Shape::kDigits, 1},
    {CommandId::kSetting, "setting-[", "\033["sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-}0P", "\033}0P"sv},
    {CommandId::kSetting, "setting-FS-&", "\x1C&"sv},
    {CommandId::kSetting, "setting-FS-g", "\x1Cg"sv, Shape::kDigits, 1},
};

static_assert(prefixFree(kRows));

}  // namespace

std::span<const Row> oliTable() {
    return kRows;
}

}  // namespace passbook::wire
