#include "sim/answers.h"

#include <algorithm>

namespace passbook::sim {

namespace {

/// What a host may leave unread. A host that only asks and never listens must not eat memory.
constexpr std::size_t maxAnswers = 64 * 1024;

}  // namespace

bool Answers::add(std::vector<std::uint8_t> bytes, std::size_t piece, Clock delay) {
    if (bytes_ + bytes.size() > maxAnswers)
        return false;
    bytes_ += bytes.size();
    waiting_.push_back({std::move(bytes), nullptr, piece, now_ + delay});
    return true;
}

std::vector<std::uint8_t> Answers::take() {
    std::vector<std::uint8_t> taken;
    while (!empty() && scan() == nullptr && (taken.empty() || !standsAlone())) {
        Outgoing& first = waiting_.front();
        const bool inPieces = first.piece > 0;
        const std::size_t size = inPieces ? std::min(first.piece, first.bytes.size()) : first.bytes.size();
        const auto end = first.bytes.begin() + static_cast<std::ptrdiff_t>(size);
        taken.insert(taken.end(), first.bytes.begin(), end);
        first.bytes.erase(first.bytes.begin(), end);
        if (first.bytes.empty())
            waiting_.pop_front();
        if (inPieces)
            break;
    }
    bytes_ -= taken.size();
    return taken;
}

bool Answers::dropScans() {
    return std::erase_if(
               waiting_, [](const Outgoing& each) { return each.scan != nullptr; }) > 0;
}

std::size_t Answers::clear() {
    const std::size_t before = bytes_;
    std::erase_if(waiting_, [this](const Outgoing& each) {
        const bool late = each.due > now_;
        bytes_ -= late ? 0 : each.bytes.size();
        return !late;
    });
    return before - bytes_;
}

}  // namespace passbook::sim
