#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "wire/command.h"
#include "wire/table.h"
#include "wire/text.h"

namespace passbook::wire {

// Every command of the OLI family.
[[nodiscard]] std::span<const Row> oliTable();

// Turns the bytes a host sends to an OLI printer into commands. The pieces they arrive in don't matter: the
// same bytes give the same commands. What fits no command is reported as "unknown" with its bytes, and
// decoding goes on behind it.
class OliDecoder {
 public:
    // The longest of each that is kept before it is handed on: a text is cut there (between two characters),
    // a bitmap run or a stripe is reported as malformed.
    static constexpr std::size_t kMaxText = 4096;
    static constexpr std::size_t kMaxBitmap = 3 * 16384;
    static constexpr std::size_t kMaxStripe = 4096;

    // `sink` gets each command as soon as its last byte is in; a text when the byte that ends it is.
    void feed(std::span<const std::uint8_t> bytes, const CommandSink& sink);

    // Hands on what is waiting for more bytes: a text as it stands, anything else as cut short.
    void finish(const CommandSink& sink);

 private:
    enum class State { kGround, kSequence, kBitmap, kStripe };

    void feedByte(std::uint8_t byte, const CommandSink& sink);
    void feedGround(std::uint8_t byte, const CommandSink& sink);
    void feedSequence(std::uint8_t byte, const CommandSink& sink);
    void feedBitmap(std::uint8_t byte, const CommandSink& sink);
    void feedStripe(std::uint8_t byte, const CommandSink& sink);
    void begin(const Row& row, const CommandSink& sink);
    void flushText(const CommandSink& sink);
    void emitUnknown(std::span<const std::uint8_t> bytes, std::string_view note, const CommandSink& sink);
    void emitData(CommandId id, std::size_t tailLength, std::string_view note, const CommandSink& sink);

    State state_ = State::kGround;
    TextRun text_;
    std::vector<std::uint8_t> sequence_;  // an unfinished command
    std::vector<std::uint8_t> data_;      // of a bitmap run or a stripe
    std::size_t headLength_ = 0;          // bytes of the command in front of data_, not yet accounted for
    bool escapeSeen_ = false;             // inside a bitmap run: the last byte was an ESC
    bool cut_ = false;                    // a part of this bitmap run has been handed on already
};

}  // namespace passbook::wire
