#include "sim/scan.h"

#include <algorithm>
#include <utility>

namespace passbook::sim {

namespace {

/// Letters of the sides.
constexpr int blackAndWhite = 'A';
constexpr int sixteenGreys = 'Q';
constexpr int greyOrColour = 'a';
constexpr int notWanted = 'q';

constexpr std::size_t fillerBytes = 8;

/// A read that the host would not take for image data, of a block or of the part of one that the line hands over.
bool misleads(const ScanRules& rules, const std::array<std::size_t, 2>& lineParts, std::size_t size) {
    const std::size_t rest = size % lineParts[0];
    return std::any_of(rules.misleading.begin(), rules.misleading.end(),
                       [&](std::size_t bad) { return size == bad || rest == bad || rest % lineParts[1] == bad; });
}

}  // namespace

bool setScanMode(ScanRequest& request, int mode, int colour) {
    constexpr int colourBit = 4;
    if ((mode & 0xE0) != 0x40 || (colour & 0x88) != 0x88)
        return false;
    request.colour = (colour & 7) >= colourBit;
    request.resolution = static_cast<Resolution>(mode >> 3 & 3);
    request.fromBottom = (mode & 1) != 0;
    return true;
}

bool setScanSides(ScanRequest& request, std::span<const int> letters) {
    std::array<int, 2> bits{};
    for (std::size_t side = 0; side < bits.size() && side < letters.size(); ++side) {
        switch (letters[side]) {
            case blackAndWhite:
                bits[side] = 1;
                break;
            case sixteenGreys:
                bits[side] = 4;
                break;
            case greyOrColour:
                bits[side] = request.colour ? 24 : 8;
                break;
            case notWanted:
                break;
            default:
                return false;
        }
    }
    request.bits = bits;
    return true;
}

ScanDelivery::ScanDelivery(const ScanRules& rules, const ScanRequest& request, ScanScenario scenario)
    : rules_(rules), request_(request), scenario_(std::move(scenario)) {
    scenario_.block = std::clamp(scenario_.block, rules_.smallestBlock, maxScanBlock);
    if (!scenario_.trouble.silent)
        beginSide(0);
}

void ScanDelivery::beginSide(std::size_t side) {
    side_ = side;
    bytes_.reset();
    if (side_ == request_.bits.size()) {
        step_ = Step::done;
        return;
    }
    const int bits = request_.bits[side_];
    ScanImage image(bits > 0 ? scenario_.sides[side_] : Document{}, bits, request_.resolution);
    if (!image.empty()) {
        bytes_.emplace(std::move(image), rules_.form, request_.fromBottom);
        if (bytes_->size() > rules_.mostBytes)
            bytes_.reset();
    }
    step_ = Step::header;
    if (!bytes_ && !rules_.headsUnwanted)
        beginSide(side_ + 1);
}

std::vector<std::uint8_t> ScanDelivery::next() {
    switch (step_) {
        case Step::header: {
            std::vector<std::uint8_t> piece =
                rules_.header(side_, bytes_ ? &*bytes_ : nullptr, scenario_.trouble.sizeError);
            fillerDue_ = false;
            if (rules_.start != nullptr) {
                step_ = Step::start;
            } else if (!bytes_) {
                beginSide(side_ + 1);
            } else {
                const std::vector<std::uint8_t> first =
                    block(std::min(scenario_.block, rules_.firstRead - piece.size()), piece.size());
                piece.insert(piece.end(), first.begin(), first.end());
                step_ = Step::data;
                fillerDue_ = scenario_.trouble.fillers;
                afterData();
            }
            return piece;
        }
        case Step::start:
            step_ = Step::data;
            afterData();
            return rules_.start(side_);
        case Step::data: {
            if (std::exchange(fillerDue_, false))
                return std::vector<std::uint8_t>(fillerBytes);
            std::vector<std::uint8_t> piece = block(scenario_.block, 0);
            fillerDue_ = scenario_.trouble.fillers;
            afterData();
            return piece;
        }
        case Step::end: {
            const std::int64_t rows = std::int64_t{bytes_->image().height()} + scenario_.trouble.rowsError;
            beginSide(side_ + 1);
            return rules_.end(rows);
        }
        case Step::done:
            break;
    }
    return {};
}

void ScanDelivery::afterData() {
    if (dataLeft() > 0)
        return;
    if (bytes_->left() > 0) {
        brokenOff_ = true;
        step_ = Step::done;
    } else if (scenario_.trouble.noEnd) {
        beginSide(side_ + 1);
    } else {
        step_ = Step::end;
    }
}

std::uint64_t ScanDelivery::dataLeft() const {
    const std::uint64_t left = bytes_->left();
    return scenario_.trouble.breakAfter ? std::min(left, *scenario_.trouble.breakAfter - dataSent_) : left;
}

/// The largest block that misleads nobody and does not force the last one to. `inFront` bytes come in the same piece.
std::vector<std::uint8_t> ScanDelivery::block(std::size_t most, std::size_t inFront) {
    const auto bad = [this](std::uint64_t size) {
        return misleads(rules_, scenario_.lineParts, static_cast<std::size_t>(size));
    };
    const std::uint64_t left = dataLeft();
    const auto largest = static_cast<std::size_t>(std::min<std::uint64_t>(left, most));
    std::size_t size = largest;
    for (; size > 0; --size) {
        const std::uint64_t rest = left - size;
        if (!bad(size + inFront) && !(rest > 0 && rest <= most && bad(rest)))
            break;
    }
    std::vector<std::uint8_t> piece = bytes_->take(size > 0 ? size : largest);
    dataSent_ += piece.size();
    return piece;
}

}  // namespace passbook::sim
