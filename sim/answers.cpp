#include "sim/answers.h"

#include <algorithm>
#include <utility>

namespace passbook::sim {

namespace {

/// What a host may leave unread. A host that only asks and never listens must not eat memory.
constexpr std::size_t maxAnswers = 64 * 1024;

}  // namespace

bool Answers::add(std::vector<std::uint8_t> bytes) {
    if (bytes_ + bytes.size() > maxAnswers)
        return false;
    bytes_ += bytes.size();
    waiting_.push_back({std::move(bytes), nullptr});
    return true;
}

std::vector<std::uint8_t> Answers::take(std::size_t split) {
    std::vector<std::uint8_t> taken;
    while (!empty() && scan() == nullptr) {
        std::vector<std::uint8_t>& first = waiting_.front().bytes;
        const std::size_t size = split > 0 ? std::min(split, first.size()) : first.size();
        const auto end = first.begin() + static_cast<std::ptrdiff_t>(size);
        taken.insert(taken.end(), first.begin(), end);
        first.erase(first.begin(), end);
        if (first.empty())
            waiting_.pop_front();
        if (split > 0)
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
    waiting_.clear();
    return std::exchange(bytes_, 0);
}

}  // namespace passbook::sim
