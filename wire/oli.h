// The command set of the OLI family.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "wire/decoder.h"

namespace passbook::wire {

/// Every command of the OLI family.
[[nodiscard]] std::span<const Row> oliTable();

/// Bitmap runs and stripe data of this family end with a mark.
class OliDecoder : public Decoder {
 public:
    /// Longer ones are handed on as malformed.
    static constexpr std::size_t maxBitmap = 3 * 16384;
    static constexpr std::size_t maxStripe = 4096;

    OliDecoder() : Decoder(oliTable()) {}

 private:
    bool beginData(const Row& row, std::span<const std::uint8_t> head) override;
    void feedData(std::uint8_t byte, const CommandSink& sink) override;
    void finishData(const CommandSink& sink) override;
    void feedBitmap(std::uint8_t byte, const CommandSink& sink);
    void feedStripe(std::uint8_t byte, const CommandSink& sink);

    bool inStripe_ = false;
    bool escapeSeen_ = false;  // inside a bitmap run: the last byte was an ESC
    bool cut_ = false;         // a part of this bitmap run has already been handed on
};

}  // namespace passbook::wire
