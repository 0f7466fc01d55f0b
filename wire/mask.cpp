#include "wire/mask.h"

#include <algorithm>
#include <utility>

namespace passbook::wire {

namespace {

constexpr std::uint8_t stripeAnswerEnd = 0x1C;
constexpr std::size_t stripeHeadBytes = 2;

constexpr std::size_t okiHeaderBytes = 8;
constexpr std::uint8_t okiHeader = 5, okiEnd = 6;

bool isNumber(std::span<const std::uint8_t> bytes) {
    return std::all_of(
        bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == ' ' || (byte >= '0' && byte <= '9'); });
}

/// How many bytes an answer has that begins with ESC and this one; 0: it may be any.
std::size_t lengthOfAnswer(std::uint8_t second) {
    return second == 'r' ? 3 : second == 'B' ? 6 : 0;  // the status of the printer, and of the paper
}

/// Whether one read brought a status, and nothing else.
bool isStatus(std::span<const std::uint8_t> bytes) {
    return bytes.size() >= 3 && bytes[0] == esc &&
           (bytes.size() == lengthOfAnswer(bytes[1]) || (bytes[1] == 'S' && bytes.size() <= 6));
}

}  // namespace

bool Masker::hides(std::uint8_t byte) {
    const Row* const data = decoder_->dataOf();
    CommandId last = CommandId::noOperation;
    decoder_->feed({&byte, 1}, [&](const Command& command) {
        last = command.id;
        const bool scans = command.id == (family_ == Family::oki ? CommandId::scanStart : CommandId::scanSides);
        if (command.id == CommandId::stripeRead || scans) {
            awaited_ = scans ? Awaited::scan : Awaited::stripe;
            late_ = false;
            sideBegins_ = true;
            place_ = 0;
        }
    });
    const std::uint8_t before = std::exchange(before_, byte);
    if (decoder_->inText())
        return true;
    if (decoder_->dataOf() == nullptr) {
        // The longest text or stripe that is kept ends without a byte of its own.
        return (last == CommandId::text && byte >= 0x20) || last == CommandId::malformedStripe;
    }
    // The bytes of the command in front of the data stay, and what ends the data, or there would be no end.
    const bool inside = decoder_->dataOf() == data && data->id == CommandId::stripeWrite;
    return inside && byte != gs && !(byte == esc && before == gs);
}

void Masker::send(std::span<std::uint8_t> bytes) {
    for (std::uint8_t& byte : bytes)
        if (hides(byte))
            byte = hidden;
}

void Masker::answerByte(std::uint8_t& byte) {
    if (inStripe_) {
        inStripe_ = byte != stripeAnswerEnd;
        if (!inStripe_) {
            awaited_ = Awaited::nothing;
            place_ = 0;
        } else if (place_++ >= stripeHeadBytes) {
            byte = hidden;
        }
        return;
    }
    const bool awaited = awaited_ == Awaited::stripe;
    if (place_ == 0) {
        place_ = byte == esc ? 1 : 0;
        inStripe_ = place_ == 0 && awaited;
        place_ = inStripe_ ? 1 : place_;
        return;
    }
    if (place_ == 1) {
        pass_ = lengthOfAnswer(byte);
        inStripe_ = byte == ']' || (awaited && pass_ == 0);
        place_ = inStripe_ || pass_ > 0 ? 2 : 0;
        return;
    }
    if (++place_ == pass_) {
        place_ = 0;
        if (late_)
            awaited_ = Awaited::nothing;
    }
}

/// How much at the beginning of a read is no image. Messages are known by their length, as hosts know them.
std::size_t Masker::scanHead(std::span<const std::uint8_t> bytes) {
    const std::size_t size = bytes.size();
    if (family_ == Family::oki) {
        if (std::exchange(sideBegins_, false) && bytes[0] == okiHeader)
            return std::min(okiHeaderBytes, size);
        sideBegins_ = size == 1 && bytes[0] == okiEnd;
        return sideBegins_ ? size : 0;
    }
    const bool message = (size == 12 && bytes[0] == 1 && isNumber(bytes.subspan(1))) || (size == 2 && bytes[0] == 2) ||
                         (size == 6 && bytes[0] == 3 && isNumber(bytes.subspan(1)));
    return message ? size : 0;
}

void Masker::answer(std::span<std::uint8_t> bytes) {
    if (bytes.empty())
        return;
    if (awaited_ == Awaited::scan) {
        const bool status = isStatus(bytes);
        if (!status)
            std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(scanHead(bytes)), bytes.end(), hidden);
        else if (late_)
            awaited_ = Awaited::nothing;
    } else if (family_ == Family::oli) {
        for (std::uint8_t& byte : bytes)
            answerByte(byte);
    }
}

void Masker::endCall(bool whole, bool good) {
    // A command that was cut has no end: what the next call sends is not its data.
    if (!whole)
        decoder_->finish([](const Command&) {});
    late_ = true;
    if (good && awaited_ == Awaited::scan)
        awaited_ = Awaited::nothing;
}

}  // namespace passbook::wire
