// From the bytes on the line to commands.
#pragma once

#include <array>
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

enum class Family { oli, oki };

/// The families' names for users, in the order of the enumeration.
inline constexpr std::array<std::string_view, 2> familyNames{"oli", "oki"};

/// Turns the bytes that a host sends to a printer into commands. The same bytes always give the same commands, in
/// whatever pieces they arrive. Bytes that fit no command are reported as "unknown", and decoding goes on behind them.
///
/// Text and commands of a known length are decoded here, from the family's table. Data that follow a command are the
/// family's own matter.
class Decoder {
 public:
    /// A longer text is handed on in parts, cut between two characters.
    static constexpr std::size_t maxText = 4096;

    virtual ~Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// `sink` gets each command when its last byte has come. It gets a text when the first byte behind the text has come.
    void feed(std::span<const std::uint8_t> bytes, const CommandSink& sink);

    /// Hands on the whole characters of a text that has not ended. The next bytes continue the text as if nobody had
    /// asked.
    void handOnText(const CommandSink& sink);

    /// Hands on what waits for more bytes: a text as it is, anything else as cut short.
    void finish(const CommandSink& sink);

    /// Whether a text has begun that has not ended.
    [[nodiscard]] bool inText() const { return state_ == State::ground && !text_.empty(); }
    /// The command whose data come now; null when no data are awaited.
    [[nodiscard]] const Row* dataOf() const { return state_ == State::data ? dataRow_ : nullptr; }

 protected:
    explicit Decoder(std::span<const Row> table) : table_(table) {}

    /// A command with data has begun, and `head` holds its bytes so far. False when no data follow after all.
    virtual bool beginData(const Row& row, std::span<const std::uint8_t> head) = 0;
    virtual void feedData(std::uint8_t byte, const CommandSink& sink) = 0;
    /// No more bytes will come: hands on the data as far as they have come.
    virtual void finishData(const CommandSink& sink) = 0;

    /// For feedData(): the data have ended.
    void endData() { state_ = State::ground; }
    /// For feedData(): a byte that turned out not to belong to the data.
    void feedByte(std::uint8_t byte, const CommandSink& sink);

    /// Hands on data_ with the command that they belong to; as malformed when there is a `note`. `tailLength` counts the
    /// bytes that ended them.
    void emitData(std::size_t tailLength, std::string_view note, const CommandSink& sink);

    std::vector<std::uint8_t> data_;

 private:
    enum class State { ground, sequence, data };

    void feedGround(std::uint8_t byte, const CommandSink& sink);
    void feedSequence(std::uint8_t byte, const CommandSink& sink);
    void begin(const Row& row, const CommandSink& sink);
    void flushText(const CommandSink& sink);

    std::span<const Row> table_;
    State state_ = State::ground;
    TextRun text_;
    std::vector<std::uint8_t> sequence_;  // a command that has not ended
    const Row* dataRow_ = nullptr;        // the command that data_ belong to
    std::size_t headLength_ = 0;          // of that command's bytes in front of data_, until they are accounted for
};

[[nodiscard]] std::unique_ptr<Decoder> makeDecoder(Family family);

}  // namespace passbook::wire
