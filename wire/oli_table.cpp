#include <string_view>

#include "wire/oli.h"

namespace passbook::wire {

namespace {

using namespace std::string_view_literals;

/// ESC is written in octal: a hexadecimal escape would take in a command letter from A to F.
constexpr Row rows[] = {
    // Position and line ends
    {CommandId::horizontalPosition, "horizontal-position", "\033|A"sv, Shape::digits, 3},
    {CommandId::verticalPosition, "vertical-position", "\033/1"sv, Shape::digits, 4},
    {CommandId::lineSpace, "line-space", "\033&"sv, Shape::digits, 2},
    {CommandId::carriageReturn, "carriage-return", "\x0D"sv},
    {CommandId::lineFeed, "line-feed", "\x0A"sv},
    {CommandId::formFeed, "form-feed", "\x0C"sv},

    // How text looks
    {CommandId::pitch, "pitch", "\033a"sv, Shape::choice, 1, "12348\0"sv},
    {CommandId::boldOn, "bold-on", "\033("sv},
    {CommandId::boldOff, "bold-off", "\033)"sv},
    {CommandId::latinNormalWidth, "latin-normal-width", "\0333"sv},
    {CommandId::latinDoubleWidth, "latin-double-width", "\0334"sv},
    {CommandId::chineseNormalWidth, "chinese-normal-width", "\x1Cj"sv},
    {CommandId::chineseDoubleWidth, "chinese-double-width", "\x1Ch"sv},
    {CommandId::fontHeight, "font-height", "\033w"sv, Shape::byte, 1},
    {CommandId::underlineOn, "underline-on", "\033*"sv, Shape::choice, 1, "034"sv},
    {CommandId::underlineOff, "underline-off", "\033+"sv},

    // Bitmaps. The head is closed by ESC 2, which is no command by itself.
    {CommandId::graphicsMode, "graphics-mode", "\033!G1"sv},
    {CommandId::bitmapRun, "bitmap-run", "\0331A000"sv, Shape::bitmap},

    // Document and errors
    {CommandId::feedIn, "feed-in", "\033L"sv, Shape::digits, 3},
    {CommandId::eject, "eject", "\033O"sv},
    {CommandId::clearError, "clear-error", "\033l"sv},
    {CommandId::clearAll, "clear-all", "\0330"sv},
    {CommandId::bell, "bell", "\007"sv},

    // Questions
    {CommandId::printerStatus, "printer-status", "\033j"sv},
    {CommandId::paperStatus, "paper-status", "\033 B"sv},
    {CommandId::firmware, "firmware", "\033 b"sv},

    // Magnetic stripe
    {CommandId::stripeSelect, "stripe-select", "\033YE@@"sv, Shape::none, 0, {}, 0},
    {CommandId::stripeSelect, "stripe-select", "\033YEA@"sv, Shape::none, 0, {}, 1},
    {CommandId::stripeRead, "stripe-read", "\033]"sv},
    {CommandId::stripeWrite, "stripe-write", "\033t"sv, Shape::stripe},

    // Scanning
    {CommandId::scanAnnounce, "scan-announcement", "\033}SE\0"sv},
    {CommandId::scanPrepare, "scan-preparation", "\033}-"sv, Shape::none, 0, {}, 0},
    {CommandId::scanPrepare, "scan-preparation", "\033-"sv, Shape::none, 0, {}, 1},
    {CommandId::scanMode, "scan-mode", "\033YP"sv, Shape::numbers, 2},
    {CommandId::scanSides, "scan-sides", "\033}P"sv, Shape::numbers, 6, {}, -1, "\033Z"sv},

    // Sent when the printer is set up; named by their letters, since they leave no mark on the page.
    {CommandId::cancel, "cancel", "\x18"sv},
    {CommandId::backspace, "backspace", "\x08"sv},
    {CommandId::setting, "setting-BEL-E", "\033\007E"sv},
    {CommandId::setting, "setting-n", "\033n"sv},
    {CommandId::setting, "setting-.", "\033."sv},
    {CommandId::setting, "setting-Q", "\033Q"sv, Shape::digits, 3},
    {CommandId::setting, "setting-Z", "\033Z"sv},
    {CommandId::setting, "setting-J", "\033J"sv, Shape::digits, 3},
    {CommandId::setting, "setting-T", "\033T"sv, Shape::digits, 3},
    {CommandId::setting, "setting-#", "\033#"sv, Shape::digits, 1},
    {CommandId::setting, "setting-R", "\033R"sv, Shape::digits, 3},
    {CommandId::setting, "setting-S", "\033S"sv, Shape::digits, 1},
    {CommandId::setting, "setting-[", "\033["sv, Shape::digits, 3},
    {CommandId::setting, "setting-}0P", "\033}0P"sv},
    {CommandId::setting, "setting-FS-&", "\x1C&"sv},
    {CommandId::setting, "setting-FS-g", "\x1Cg"sv, Shape::digits, 1},
};

static_assert(prefixFree(rows));

}  // namespace

std::span<const Row> oliTable() {
    return rows;
}

}  // namespace passbook::wire
