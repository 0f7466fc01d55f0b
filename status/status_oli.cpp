#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <span>

#include "base/results.h"
#include "command/command.h"
#include "command/oli.h"
#include "device/device.h"
#include "device/outcome.h"
#include "status/status.h"

namespace passbook {

namespace {

// This module's process-wide state.

/// Bytes of answers that could not be decoded and may not have been read whole. Not 0: drain before asking
/// again. Opening and closing the port leave it alone, for the printer goes on with its answer all the same.
std::int32_t data_len = 0;

/// A status query: what is asked, how long the answer is, how patiently it is read, and what its one telling
/// byte means.
struct StatusByte {
    unsigned char byte;
    int value;
};

constexpr StatusByte paperValues[] = {
    {0x40, paperAbsent}, {0x41, paperNotTaken}, {0x42, paperNotPositioned}, {0x43, paperInPlace}};

constexpr StatusByte printerValues[] = {
    {0x50, printerReady},
    {0x51, 2},
    {0x54, 3},
    {0x58, 4},  // 5x
    {0x61, 5},
    {0x62, 6},
    {0x64, 7},
    {0x68, 8},  // 6x
    {0x31, 9},
    {0x32, 10},
    {0x34, 11},
    {0x38, 12},  // 3x
    {0x71, 13},
    {0x72, 14},
    {0x70, 15},  // 7x
};

struct StatusQuery {
    std::span<const unsigned char> request;
    std::size_t replyBytes;
    int reads;
    std::size_t tellingByte;
    std::span<const StatusByte> values;
    int notRecognised;
};

constexpr StatusQuery paperQuery{oli::paperStatus, 6, 3, 3, paperValues, paperUnknown};
constexpr StatusQuery printerQuery{oli::printerStatus, 3, 4, 2, printerValues, printerUnknown};

constexpr std::size_t longestReply = 6;

/// clearPrinterBuffer. False when there is no end to what comes: it would be taken for the answer to the next question.
bool fallsSilent() {
    if (data_len == 0)
        return true;
    const Drained drained = drainPort();
    if (drained == Drained::untilSilence)
        data_len = 0;
    return drained != Drained::gaveUp;
}

int runQuery(const StatusQuery& query) {
    if (!fallsSilent()) {
        missAnswer();
        return query.notRecognised;
    }
    if (!sendCommand(query.request))
        return notSent;
    std::array<unsigned char, longestReply> reply{};
    (void)receiveReply(std::span(reply).first(query.replyBytes),
                       query.reads);  // missing bytes are zero: in no table
    for (const StatusByte& row : query.values) {
        if (row.byte != reply[query.tellingByte])
            continue;
        // The first drain may have come before the late bytes did; they are not for the next query either.
        if (!fallsSilent())
            return query.notRecognised;
        data_len = 0;
        return row.value;
    }
    const auto expected = static_cast<std::int32_t>(query.replyBytes);
    missAnswer();
    data_len = std::min(data_len, std::numeric_limits<std::int32_t>::max() - expected) + expected;
    return query.notRecognised;
}

}  // namespace

void clearPrinterBuffer() {
    (void)fallsSilent();  // a line that does not is drained again before the next query
}

int GetPaperStatus_OLI() {
    return runQuery(paperQuery);
}

int GetPrinterStatus_OLI() {
    return runQuery(printerQuery);
}

int InitPaperPosition_OLI() {
    (void)sendCommand(oli::paperPosition);  // the caller asks for the paper's status next
    return 0;
}

int InitPrinter_OLI() {
    (void)sendCommand(oli::scanSetUpFirst);  // the exchange that follows shows whether the printer is there
    (void)sendCommand(oli::scanSetUpSecond);
    return 0;
}

int DealCradOvertime_OLI(int seconds) {
    const Deadline deadline(seconds);
    if (GetPaperStatus_OLI() == paperInPlace)
        (void)sendCommand(oli::eject);  // whether it came out is what the wait finds
    int status = GetPaperStatus_OLI();
    while (status == paperNotTaken || status == paperNotPositioned) {
        if (deadline.passed()) {
            (void)sendCommand(oli::removalTimeout);  // the wait is over either way
            return 0;
        }
        if (!goOn())
            return 0;
        status = GetPaperStatus_OLI();
    }
    return std::min(status, 0);
}

}  // namespace passbook
