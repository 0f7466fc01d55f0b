#include <string_view>

#include "wire/oki.h"

namespace passbook::wire {

namespace {

using namespace std::string_view_literals;

constexpr Row kRows[] = {
    // Movement, always from where the head and the paper are
    {CommandId::kPaperFeed, "paper-feed", "\033%5"sv, Shape::kCount, 1},
    {CommandId::kHeadMove, "head-move", "\033%3"sv, Shape::kCount, 2},
    {CommandId::kCarriageReturn, "carriage-return", "\x0D"sv},
    {CommandId::kLineFeed, "line-feed", "\x0A"sv},
    {CommandId::kFormFeed, "form-feed", "\x0C"sv},

    {CommandId::kBitmapRun, "bitmap-run", "\033%1"sv, Shape::kColumns, 2},

    // Settings that leave no mark on the page, named by their letters
    {CommandId::kSetting, "setting-}Sl", "\033}Sl"sv, Shape::kCount, 1},
    {CommandId::kSetting, "setting-}SF", "\033}SF"sv, Shape::kCount, 1},

    // Questions
    {CommandId::kPaperStatus, "paper-status", "\033}SS"sv},
    {CommandId::kPaperWidth, "paper-width", "\033}S-"sv},
    {CommandId::kPaperLength, "paper-length", "\033}SL"sv},
    {CommandId::kConfigurationRead, "configuration-read", "\033} a\007"sv},
    {CommandId::kConfigurationWrite, "configuration-write", "\033} ="sv, Shape::kConfiguration},
};

static_assert(prefixFree(kRows));

}  // namespace

std::span<const Row> okiTable() {
    return kRows;
}

}  // namespace passbook::wire
