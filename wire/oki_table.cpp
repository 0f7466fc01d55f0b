#include <string_view>

#include "wire/oki.h"

namespace passbook::wire {

namespace {

using namespace std::string_view_literals;

constexpr Row rows[] = {
    // Movement, always from where the head and the paper are
    {CommandId::paperFeed, "paper-feed", "\033%5"sv, Shape::count, 1},
    {CommandId::headMove, "head-move", "\033%3"sv, Shape::count, 2},
    {CommandId::carriageReturn, "carriage-return", "\x0D"sv},
    {CommandId::lineFeed, "line-feed", "\x0A"sv},
    {CommandId::formFeed, "form-feed", "\x0C"sv},

    {CommandId::bitmapRun, "bitmap-run", "\033%1"sv, Shape::columns, 2},

    // Settings that leave no mark on the page, named by their letters
    {CommandId::setting, "setting-}Sl", "\033}Sl"sv, Shape::count, 1},
    {CommandId::setting, "setting-}SF", "\033}SF"sv, Shape::count, 1},

    // Questions
    {CommandId::paperStatus, "paper-status", "\033}SS"sv},
    {CommandId::paperWidth, "paper-width", "\033}S-"sv},
    {CommandId::paperLength, "paper-length", "\033}SL"sv},
    {CommandId::configurationRead, "configuration-read", "\033} a\007"sv},
    {CommandId::configurationWrite, "configuration-write", "\033} ="sv, Shape::configuration},

    // Scanning
    {CommandId::noOperation, "no-operation", "\0"sv},
    {CommandId::scanMode, "scan-mode", "\033}SM"sv, Shape::numbers, 2},
    {CommandId::scanSides, "scan-sides", "\033}SD"sv, Shape::numbers, 6},
    {CommandId::scanStart, "scan-start", "\033}D"sv},
};

static_assert(prefixFree(rows));

}  // namespace

std::span<const Row> okiTable() {
    return rows;
}

}  // namespace passbook::wire
