#include <string_view>

#include "wire/oli.h"

namespace passbook::wire {

namespace {

using namespace std::string_view_literals;

// Hex escapes take in any hex digit that follows, so a command letter in that range stands in a literal of
// its own.
constexpr Row kRows[] = {
    // Position and line ends
    {CommandId::kHorizontalPosition, "horizontal-position", "\x1B|A"sv, Shape::kDigits, 3},
    {CommandId::kVerticalPosition, "vertical-position", "\x1B/1"sv, Shape::kDigits, 4},
    {CommandId::kLineSpace, "line-space", "\x1B&"sv, Shape::kDigits, 2},
    {CommandId::kCarriageReturn, "carriage-return", "\x0D"sv},
    {CommandId::kLineFeed, "line-feed", "\x0A"sv},
    {CommandId::kFormFeed, "form-feed", "\x0C"sv},

    // How text looks
    {CommandId::kPitch, "pitch",
     "\x1B"
     "a"sv,
     Shape::kChoice, 1, "12348\0"sv},
    {CommandId::kBoldOn, "bold-on", "\x1B("sv},
    {CommandId::kBoldOff, "bold-off", "\x1B)"sv},
    {CommandId::kLatinNormalWidth, "latin-normal-width",
     "\x1B"
     "3"sv},
    {CommandId::kLatinDoubleWidth, "latin-double-width",
     "\x1B"
     "4"sv},
    {CommandId::kChineseNormalWidth, "chinese-normal-width", "\x1Cj"sv},
    {CommandId::kChineseDoubleWidth, "chinese-double-width", "\x1Ch"sv},
    {CommandId::kFontHeight, "font-height", "\x1Bw"sv, Shape::kByte, 1},
    {CommandId::kUnderlineOn, "underline-on", "\x1B*"sv, Shape::kChoice, 1, "034"sv},
    {CommandId::kUnderlineOff, "underline-off", "\x1B+"sv},

    // Bitmaps. The head is closed by ESC 2, which is no command by itself.
    {CommandId::kGraphicsMode, "graphics-mode", "\x1B!G1"sv},
    {CommandId::kBitmapRun, "bitmap-run",
     "\x1B"
     "1A000"sv,
     Shape::kBitmap},

    // Document and errors
    {CommandId::kFeedIn, "feed-in", "\x1BL"sv, Shape::kDigits, 3},
    {CommandId::kEject, "eject", "\x1BO"sv},
    {CommandId::kClearError, "clear-error", "\x1Bl"sv},
    {CommandId::kClearAll, "clear-all",
     "\x1B"
     "0"sv},
    {CommandId::kBell, "bell", "\x07"sv},

    // Questions
    {CommandId::kPrinterStatus, "printer-status", "\x1Bj"sv},
    {CommandId::kPaperStatus, "paper-status", "\x1B B"sv},
    {CommandId::kFirmware, "firmware", "\x1B b"sv},

    // Magnetic stripe
    {CommandId::kStripeSelect, "stripe-select", "\x1BYE@@"sv, Shape::kNone, 0, {}, 0},
    {CommandId::kStripeSelect, "stripe-select", "\x1BYEA@"sv, Shape::kNone, 0, {}, 1},
    {CommandId::kStripeRead, "stripe-read", "\x1B]"sv},
    {CommandId::kStripeWrite, "stripe-write", "\x1Bt"sv, Shape::kStripe},

    // Sent when the printer is set up; named by their letters, since they leave no mark on the page.
    {CommandId::kCancel, "cancel", "\x18"sv},
    {CommandId::kBackspace, "backspace", "\x08"sv},
    {CommandId::kSetting, "setting-BEL-E",
     "\x1B\x07"
     "E"sv},
    {CommandId::kSetting, "setting-n", "\x1Bn"sv},
    {CommandId::kSetting, "setting-.", "\x1B."sv},
    {CommandId::kSetting, "setting-Q", "\x1BQ"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-Z", "\x1BZ"sv},
    {CommandId::kSetting, "setting-J", "\x1BJ"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-T", "\x1BT"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-#", "\x1B#"sv, Shape::kDigits, 1},
    {CommandId::kSetting, "setting-R", "\x1BR"sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-S", "\x1BS"sv, Shape::kDigits, 1},
    {CommandId::kSetting, "setting-[", "\x1B["sv, Shape::kDigits, 3},
    {CommandId::kSetting, "setting-}0P", "\x1B}0P"sv},
    {CommandId::kSetting, "setting-FS-&", "\x1C&"sv},
    {CommandId::kSetting, "setting-FS-g", "\x1Cg"sv, Shape::kDigits, 1},
};

static_assert(prefixFree(kRows));

}  // namespace

std::span<const Row> oliTable() {
    return kRows;
}

}  // namespace passbook::wire
