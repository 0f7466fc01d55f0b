#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/document.h"
#include "sim/family.h"
#include "sim/scan_image.h"
#include "sim/script.h"

namespace passbook::sim {

/// What a host has asked for, as the bytes of its commands say it.
struct ScanRequest {
    Resolution resolution = Resolution::dpi200;
    bool fromBottom = false;
    bool colour = false;
    std::array<int, 2> bits{};  // front and back, 1, 4, 8 or 24; 0 is a side not wanted
};

/// False for a byte that means nothing; the request then stays as it is.
[[nodiscard]] bool setScanMode(ScanRequest& request, int mode, int colour);
[[nodiscard]] bool setScanSides(ScanRequest& request, std::span<const int> letters);

/// The largest block of image data there is.
inline constexpr std::size_t maxScanBlock = 16384;

/// How a scan is handed over, and what goes wrong with it.
struct ScanScenario {
    /// The document's sides. If there is no front, the page in the printer is scanned with what has been printed on it;
    /// if there is no back, that is blank.
    std::array<Document, 2> sides{};

    /// Image data come in blocks of at most that many bytes, up to maxScanBlock; OKI at least 2.
    std::size_t block = 4095;
    /// A line may hand a larger piece over in parts: of the one size, and what is left of it again of the other. A host
    /// that is quick enough gets them one by one.
    std::array<std::size_t, 2> lineParts{2048, 1792};

    ScanTrouble trouble{};
};

/// A scan on its way to the host, piece by piece, made while it is taken: the pieces are what the host has to get with
/// one read each.
class ScanDelivery {
 public:
    ScanDelivery(const ScanRules& rules, const ScanRequest& request, ScanScenario scenario);

    /// The next piece; call it only while there is one.
    [[nodiscard]] std::vector<std::uint8_t> next();
    [[nodiscard]] bool done() const { return step_ == Step::done; }

    [[nodiscard]] std::uint64_t dataBytes() const { return dataSent_; }
    [[nodiscard]] bool brokenOff() const { return brokenOff_; }

 private:
    enum class Step { header, start, data, end, done };

    [[nodiscard]] std::vector<std::uint8_t> block(std::size_t most, std::size_t inFront);
    [[nodiscard]] std::uint64_t dataLeft() const;
    void beginSide(std::size_t side);
    void afterData();

    const ScanRules& rules_;
    ScanRequest request_;
    ScanScenario scenario_;
    Step step_ = Step::done;
    std::size_t side_ = 0;
    std::optional<ScanBytes> bytes_;  // of the side, if it is wanted
    std::uint64_t dataSent_ = 0;
    bool fillerDue_ = false;
    bool brokenOff_ = false;
};

}  // namespace passbook::sim
