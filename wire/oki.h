#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "wire/decoder.h"

namespace passbook::wire {

// Every command of the OKI family.
[[nodiscard]] std::span<const Row> okiTable();

// Bitmap runs of this family begin with the number of their columns, so that any byte may occur in them; a
// configuration block ends with ESC Z.
class OkiDecoder : public Decoder {
 public:
    // The longest configuration block that is kept before it is handed on as malformed.
    static constexpr std::size_t kMaxConfiguration = 4096;

    OkiDecoder() : Decoder(okiTable()) {}

 private:
    bool beginData(const Row& row, std::span<const std::uint8_t> head) override;
    void feedData(std::uint8_t byte, const CommandSink& sink) override;
    void finishData(const CommandSink& sink) override;

    bool inBitmap_ = false;
    std::size_t wanted_ = 0;  // bytes of a bitmap run
};

}  // namespace passbook::wire
