// The command set of the OKI family.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "wire/decoder.h"

namespace passbook::wire {

/// Every command of the OKI family.
[[nodiscard]] std::span<const Row> okiTable();

/// A bitmap run of this family begins with the number of its columns: its data may hold any byte. A configuration block
/// ends with ESC Z.
class OkiDecoder : public Decoder {
 public:
    /// A longer configuration block is handed on as malformed.
    static constexpr std::size_t maxConfiguration = 4096;

    OkiDecoder() : Decoder(okiTable()) {}

 private:
    bool beginData(const Row& row, std::span<const std::uint8_t> head) override;
    void feedData(std::uint8_t byte, const CommandSink& sink) override;
    void finishData(const CommandSink& sink) override;

    bool inBitmap_ = false;
    std::size_t wanted_ = 0;  // bytes of a bitmap run
};

}  // namespace passbook::wire
