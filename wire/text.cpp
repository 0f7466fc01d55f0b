#include "wire/text.h"

#include <utility>

namespace passbook::wire {

namespace {

bool isAscii(std::uint8_t byte) {
    return byte >= 0x20 && byte <= 0x7E;
}
bool isLead(std::uint8_t byte) {
    return byte >= 0x81 && byte <= 0xFE;
}
bool isDigit(std::uint8_t byte) {
    return byte >= '0' && byte <= '9';
}
bool isTrail(std::uint8_t byte) {
    return byte >= 0x40 && byte <= 0xFE && byte != 0x7F;
}

}  // namespace

TextRun::Result TextRun::add(std::uint8_t byte) {
    if (partial_.empty()) {
        if (isAscii(byte)) {
            whole_.push_back(byte);
            return Result::taken;
        }
        if (isLead(byte)) {
            partial_.push_back(byte);
            return Result::taken;
        }
        return Result::notText;
    }
    // Lead and trail, or lead and digit twice over.
    const bool fits = partial_.size() == 1   ? isTrail(byte) || isDigit(byte)
                      : partial_.size() == 2 ? isLead(byte)
                                             : isDigit(byte);
    if (!fits)
        return Result::broken;
    const bool last = partial_.size() == 3 || (partial_.size() == 1 && isTrail(byte));
    partial_.push_back(byte);
    if (last) {
        whole_.insert(whole_.end(), partial_.begin(), partial_.end());
        partial_.clear();
    }
    return Result::taken;
}

std::vector<std::uint8_t> TextRun::takeWhole() {
    return std::exchange(whole_, {});
}

std::vector<std::uint8_t> TextRun::takePartial() {
    return std::exchange(partial_, {});
}

std::size_t characterLength(std::span<const std::uint8_t> text) {
    if (text.empty())
        return 0;
    if (!isLead(text[0]) || text.size() < 2)
        return 1;
    if (isDigit(text[1]))
        return text.size() < 4 ? 1 : 4;
    return 2;
}

}  // namespace passbook::wire
