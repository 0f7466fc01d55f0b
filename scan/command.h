// Building commands for pb2Prt.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "scan/scan.h"

namespace passbook {

/// Sends `bytes`, expecting the reply of that index. Returns pb2Prt's flags.
template <std::size_t N>
int exchange(unsigned char expectedReply, const std::array<unsigned char, N>& bytes) {
    std::array<unsigned char, N + 2> command{expectedReply, 0};
    std::copy(bytes.begin(), bytes.end(), command.begin() + 2);
    return pb2Prt(command.data(), static_cast<int>(command.size()));
}

/// The arrays one behind the other.
template <std::size_t... N>
constexpr auto joined(const std::array<unsigned char, N>&... parts) {
    std::array<unsigned char, (N + ...)> whole{};
    auto to = whole.begin();
    ((to = std::copy(parts.begin(), parts.end(), to)), ...);
    return whole;
}

}  // namespace passbook
