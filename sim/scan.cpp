#include "sim/scan.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

namespace passbook::sim {

namespace {

using wire::Family;

/// Letters of the sides.
constexpr int blackAndWhite = 'A';
constexpr int sixteenGreys = 'Q';
constexpr int greyOrColour = 'a';
constexpr int notWanted = 'q';

constexpr std::uint8_t okiHeader = 5;
constexpr std::uint8_t okiEnd = 6;
constexpr std::uint8_t oliHeader = 1;
constexpr std::uint8_t oliStart = 2;
constexpr std::uint8_t oliEnd = 3;

constexpr std::size_t okiHeaderBytes = 8;
/// A host reads so much when it awaits a header; what comes beyond would be a read of its own.
constexpr std::size_t okiFirstRead = 2048;
constexpr std::size_t fillerBytes = 8;

/// A pseudo-terminal passes on a larger piece in parts that may end at these places, and a host that is quick enough
/// gets them one by one.
constexpr std::array<std::size_t, 2> lineParts{2048, 1792};

/// A block that the host would not take for image data, or the rest of one.
bool misleads(Family family, std::size_t size) {
    const auto bad = [family](std::size_t part) {
        return family == Family::oki ? part == 1 || part == okiHeaderBytes : part == 6;
    };
    const std::size_t rest = size % lineParts[0];
    return bad(size) || bad(rest) || bad(rest % lineParts[1]);
}

/// The size of the next block: the largest that misleads nobody and doesn't force the last one to. `inFront` bytes come
/// in the same piece.
std::size_t blockSize(Family family, std::uint64_t left, std::size_t most, std::size_t inFront) {
    const auto largest = static_cast<std::size_t>(std::min<std::uint64_t>(left, most));
    for (std::size_t size = largest; size > 0; --size) {
        const std::uint64_t rest = left - size;
        const bool restIsLast = rest > 0 && rest <= most;
        if (!misleads(family, size + inFront) && !(restIsLast && misleads(family, static_cast<std::size_t>(rest))))
            return size;
    }
    return largest;
}

/// A number as the messages carry it.
std::string fiveDigits(std::int64_t value) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%05d",
                  static_cast<int>(std::clamp<std::int64_t>(value, 0, maxScanPixels)));
    return text.data();
}

std::vector<std::uint8_t> message(std::uint8_t kind, std::string_view content) {
    std::vector<std::uint8_t> bytes(1 + content.size(), kind);
    std::copy(content.begin(), content.end(), bytes.begin() + 1);
    return bytes;
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

ScanDelivery::ScanDelivery(Family family, const ScanRequest& request, ScanScenario scenario)
    : family_(family), request_(request), scenario_(std::move(scenario)) {
    scenario_.block = std::clamp<std::size_t>(scenario_.block, family_ == Family::oki ? 2 : 1, maxScanBlock);
    if (!scenario_.silent)
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
        const bool oki = family_ == Family::oki;
        bytes_.emplace(std::move(image), oki ? ScanBytes::Form::bitmap : ScanBytes::Form::raw, request_.fromBottom);
        if (oki && bytes_->size() > std::numeric_limits<std::uint32_t>::max())
            bytes_.reset();  // the header couldn't tell its size
    }
    step_ = Step::header;
    if (family_ == Family::oli && !bytes_)
        beginSide(side_ + 1);
}

std::vector<std::uint8_t> ScanDelivery::next() {
    switch (step_) {
        case Step::header: {
            std::vector<std::uint8_t> piece = header();
            afterHeader();
            return piece;
        }
        case Step::start:
            step_ = Step::data;
            afterData();
            return message(oliStart, std::string(1, side_ == 0 ? 'F' : 'B'));
        case Step::data: {
            if (std::exchange(fillerDue_, false))
                return std::vector<std::uint8_t>(fillerBytes);
            std::vector<std::uint8_t> piece = block(scenario_.block, 0);
            fillerDue_ = scenario_.fillers;
            afterData();
            return piece;
        }
        case Step::end: {
            const std::int64_t rows = std::int64_t{bytes_->image().height()} + scenario_.rowsError;
            beginSide(side_ + 1);
            return family_ == Family::oki ? std::vector{okiEnd} : message(oliEnd, fiveDigits(rows));
        }
        case Step::done:
            break;
    }
    return {};
}

std::vector<std::uint8_t> ScanDelivery::header() {
    if (family_ == Family::oli) {
        const ScanImage& image = bytes_->image();
        return message(oliHeader, fiveDigits(image.width()) + ' ' +
                                      fiveDigits(std::int64_t{image.height()} + scenario_.sizeError));
    }
    // Which of how many sides, a byte without meaning, and the size, lowest byte first.
    std::vector<std::uint8_t> piece{okiHeader, static_cast<std::uint8_t>(side_ + 1), 2, 0};
    std::int64_t announced = 0;
    if (bytes_) {
        announced = std::clamp<std::int64_t>(static_cast<std::int64_t>(bytes_->size()) + scenario_.sizeError, 0,
                                             std::numeric_limits<std::uint32_t>::max());
    }
    for (int shift = 0; shift < 32; shift += 8)
        piece.push_back(static_cast<std::uint8_t>(announced >> shift));
    if (bytes_) {
        const std::vector<std::uint8_t> first =
            block(std::min(scenario_.block, okiFirstRead - okiHeaderBytes), okiHeaderBytes);
        piece.insert(piece.end(), first.begin(), first.end());
    }
    return piece;
}

void ScanDelivery::afterHeader() {
    fillerDue_ = false;
    if (family_ == Family::oli) {
        step_ = Step::start;
    } else if (!bytes_) {
        beginSide(side_ + 1);
    } else {
        step_ = Step::data;
        fillerDue_ = scenario_.fillers;
        afterData();
    }
}

void ScanDelivery::afterData() {
    if (dataLeft() > 0)
        return;
    if (bytes_->left() > 0) {
        brokenOff_ = true;
        step_ = Step::done;
    } else if (scenario_.noEnd) {
        beginSide(side_ + 1);
    } else {
        step_ = Step::end;
    }
}

std::uint64_t ScanDelivery::dataLeft() const {
    const std::uint64_t left = bytes_->left();
    return scenario_.breakAfter ? std::min(left, *scenario_.breakAfter - dataSent_) : left;
}

std::vector<std::uint8_t> ScanDelivery::block(std::size_t most, std::size_t inFront) {
    std::vector<std::uint8_t> piece = bytes_->take(blockSize(family_, dataLeft(), most, inFront));
    dataSent_ += piece.size();
    return piece;
}

}  // namespace passbook::sim
