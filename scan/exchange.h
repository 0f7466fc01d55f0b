// Building commands for pb2Prt.
#pragma once

#include <algorithm>
#include <cstddef>

#include "command/bytes.h"
#include "scan/scan.h"

namespace passbook {

/// Sends `bytes`, expecting the reply of that index. Returns pb2Prt's flags.
template <std::size_t N>
int exchange(unsigned char expectedReply, const Bytes<N>& bytes) {
    Bytes<N + 2> command{expectedReply, 0};
    std::copy(bytes.begin(), bytes.end(), command.begin() + 2);
    return pb2Prt(command.data(), static_cast<int>(command.size()));
}

}  // namespace passbook
