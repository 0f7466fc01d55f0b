// What differs between the families of printers, each in a source of its own. The commands stand in wire/.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sim/page.h"
#include "sim/paper.h"
#include "sim/scan_image.h"
#include "wire/decoder.h"

namespace passbook::sim {

/// How a scan goes over the line.
struct ScanRules {
    ScanBytes::Form form;
    std::uint64_t mostBytes;                // of a side, as far as its header can tell
    std::size_t smallestBlock;              // of image data
    std::array<std::size_t, 2> misleading;  // sizes of reads that hosts take for something else than image data
    /// How a side begins, which is null if it is not wanted.
    std::vector<std::uint8_t> (*header)(std::size_t side, const ScanBytes* bytes, int sizeError);
    bool headsUnwanted;  // a side that is not wanted is a header alone
    /// A host reads so much when it awaits a header, and the first block comes with it; 0: it comes by itself.
    std::size_t firstRead;
    std::vector<std::uint8_t> (*start)(std::size_t side);  // between header and image data; null: nothing
    std::vector<std::uint8_t> (*end)(std::int64_t rows);
};

struct FamilyRules {
    Paper::Slot slot;
    DotOrder dotOrder;
    std::array<int, 4> paperStatus;  // the host's numbers of the states of paper
    std::vector<std::uint8_t> (*paperAnswer)(PaperState state);
    wire::CommandId scanStart;  // the command at which a scan begins
    ScanRules scan;
};

extern const FamilyRules oliRules;
extern const FamilyRules okiRules;

[[nodiscard]] const FamilyRules& rulesOf(wire::Family family);

}  // namespace passbook::sim
