#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "wire/command.h"
#include "wire/table.h"
#include "wire/text.h"

namespace passbook::wire {

enum class Family { kOli, kOki };

// Turns the bytes a host sends to a printer into commands. The pieces they arrive in don't matter: the same
// bytes give the same commands. What fits no command is reported as "unknown" with its bytes, and decoding
// goes on behind it.
//
// Text and commands of a known length are the same work for every family and done here, from the family's
// table; data that follow a command are the family's own.
class Decoder {
 public:
    // The longest text that is kept before it is handed on, cut between two characters.
    static constexpr std::size_t kMaxText = 4096;

    virtual ~Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    // `sink` gets each command as soon as its last byte is in; a text when the byte that ends it is.
    void feed(std::span<const std::uint8_t> bytes, const CommandSink& sink);

    // Hands on the whole characters of a text that has not ended. What comes next continues the text as if
    // nothing had been asked.
    void handOnText(const CommandSink& sink);

    // Hands on what is waiting for more bytes: a text as it stands, anything else as cut short.
    void finish(const CommandSink& sink);

 protected:
    explicit Decoder(std::span<const Row> table) : table_(table) {}

    // A command with data has begun; `head` are its bytes so far. False if it turns out to have none.
    virtual bool beginData(const Row& row, std::span<const std::uint8_t> head) = 0;
    virtual void feedData(std::uint8_t byte, const CommandSink& sink) = 0;
    // The host says no more: what there is of the data is handed on.
    virtual void finishData(const CommandSink& sink) = 0;

    // For feedData(): no data follow any more, and for a byte that turned out to belong to none.
    void endData() { state_ = State::kGround; }
    void feedByte(std::uint8_t byte, const CommandSink& sink);

    // Hands on data_ and forgets it. `tailLength` counts the bytes that ended it.
    void emitData(CommandId id, std::string_view name, std::size_t tailLength, std::string_view note,
                  const CommandSink& sink);

    std::vector<std::uint8_t> data_;

 private:
    enum class State { kGround, kSequence, kData };

    void feedGround(std::uint8_t byte, const CommandSink& sink);
    void feedSequence(std::uint8_t byte, const CommandSink& sink);
    void begin(const Row& row, const CommandSink& sink);
    void flushText(const CommandSink& sink);

    std::span<const Row> table_;
    State state_ = State::kGround;
    TextRun text_;
    std::vector<std::uint8_t> sequence_;  // an unfinished command
    std::size_t headLength_ = 0;          // bytes of the command in front of data_, not yet accounted for
};

[[nodiscard]] std::unique_ptr<Decoder> makeDecoder(Family family);

}  // namespace passbook::wire
