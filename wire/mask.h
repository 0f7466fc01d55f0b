// Hides what belongs to customers: texts, stripe data, scanned images. Commands and answers stay readable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "wire/decoder.h"

namespace passbook::wire {

/// Replaces such data byte by byte, so that every length stays and what is masked still decodes. It follows both
/// directions of a line, in whatever pieces the bytes come. In doubt it hides too much: what is not known for an answer
/// after a question for a stripe counts as its data, until the printer answers something else in a later call.
class Masker {
 public:
    /// In the place of every hidden byte.
    static constexpr std::uint8_t hidden = '*';

    explicit Masker(Family family) : family_(family), decoder_(makeDecoder(family)) {}

    /// The bytes that a host hands over for the printer, also those that the line does not take.
    void send(std::span<std::uint8_t> bytes);
    /// The bytes of one read.
    void answer(std::span<std::uint8_t> bytes);
    /// A call of the host has ended. `whole`: the line took all that it sent. `good`: it got what it asked for.
    void endCall(bool whole, bool good);

 private:
    enum class Awaited { nothing, stripe, scan };

    [[nodiscard]] bool hides(std::uint8_t byte);
    void answerByte(std::uint8_t& byte);
    [[nodiscard]] std::size_t scanHead(std::span<const std::uint8_t> bytes);

    Family family_;
    std::unique_ptr<Decoder> decoder_;
    std::uint8_t before_ = 0;  // the byte before, inside data of a stripe

    Awaited awaited_ = Awaited::nothing;
    bool late_ = false;        // the call that asked for it has ended
    std::size_t place_ = 0;    // inside an answer
    std::size_t pass_ = 0;     // so many bytes of this answer stay
    bool inStripe_ = false;    // what comes now are data of a stripe
    bool sideBegins_ = false;  // OKI scans: the next read has the header of a side
};

}  // namespace passbook::wire
