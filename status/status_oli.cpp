#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <span>

#include "device/device.h"
#include "status/status.h"

namespace passbook {

namespace {

// This module's process-wide state.

/// Bytes of answers that could not be decoded and may not have been read whole. Not 0: drain before asking
/// again. Opening and closing the port leave it alone, for the printer goes on with its answer all the same.
std::int32_t data_len = 0;

constexpr auto paperRequest = ascii("\x1B B");     // 1B 20 42
constexpr auto printerRequest = ascii("\x1Bj");    // 1B 6A
constexpr auto paperPosition = ascii("\x1BL000");  // 1B 4C 30 30 30
constexpr auto eject = ascii("\x1BO");             // 1B 4F

constexpr auto removalTimeout = ascii(
    "\x1B}0P"   // 1B 7D 30 50
    "\x1BL000"  // 1B 4C 30 30 30  paper position
    "\x1B B"    // 1B 20 42        paper status request
    "\x1Bj"     // 1B 6A           printer status request
    "\x0C");    // 0C              form feed
static_assert(removalTimeout.size() == 15);

constexpr auto scanSetUpFirst = ascii(
    "\x18"  // 18
    "\x1B\x07"
    "E"     // 1B 07 45
    "\x08"  // 08
    "\x1B"
    "0");  // 1B 30           clear-all
static_assert(scanSetUpFirst.size() == 7);

constexpr auto scanSetUpSecond = ascii(
    "\x1B"
    "0"         // 1B 30           clear-all
    "\x1Bl"     // 1B 6C           error clear
    "\x1Bn"     // 1B 6E
    "\x1B."     // 1B 2E
    "\x1Bl"     // 1B 6C
    "\x1BQ080"  // 1B 51 30 38 30
    "\x1BZ"     // 1B 5A
    "\x1BJ000"  // 1B 4A 30 30 30
    "\x1BT070"  // 1B 54 30 37 30
    "\x1B&46"   // 1B 26 34 36     line space
    "\x1B#1"    // 1B 23 31
    "\x1C&"     // 1C 26
    "\x1Cg0"    // 1C 67 30
    "\x1Bl"     // 1B 6C
    "\x1B"
    "a3"        // 1B 61 33        15 characters per inch
    "\x1BR003"  // 1B 52 30 30 33
    "\x1BS5"    // 1B 53 35
    "\x1B[010"  // 1B 5B 30 31 30
    "\x1Bl");   // 1B 6C
static_assert(scanSetUpSecond.size() == 59);

/// A status query: what is asked, how long the answer is, how patiently it is read, and what its one telling
/// byte means.
struct StatusByte {
    unsigned char byte;
    int value;
};

constexpr StatusByte paperValues[] = {{0x40, 1}, {0x41, 2}, {0x42, 3}, {0x43, 4}};

constexpr StatusByte printerValues[] = {
    {0x50, 1},  {0x51, 2},  {0x54, 3},  {0x58, 4},   // 5x
    {0x61, 5},  {0x62, 6},  {0x64, 7},  {0x68, 8},   // 6x
    {0x31, 9},  {0x32, 10}, {0x34, 11}, {0x38, 12},  // 3x
    {0x71, 13}, {0x72, 14}, {0x70, 15},              // 7x
};

struct StatusQuery {
    std::span<const unsigned char> request;
    std::size_t replyBytes;
    int reads;
    std::size_t tellingByte;
    std::span<const StatusByte> values;
    int notRecognised;
};

constexpr StatusQuery paperQuery{paperRequest, 6, 3, 3, paperValues, -20};
constexpr StatusQuery printerQuery{printerRequest, 3, 4, 2, printerValues, -22};

constexpr std::size_t longestReply = 6;

/// clearPrinterBuffer. False when there is no end to what comes: it would be taken for the answer to the next question.
bool fallsSilent() {
    if (data_len == 0)
        return true;
    const Drained drained = drainPort(256);
    if (drained == Drained::untilSilence)
        data_len = 0;
    return drained != Drained::gaveUp;
}

int runQuery(const StatusQuery& query) {
    if (!fallsSilent())
        return query.notRecognised;
    if (!sendCommand(query.request))
        return -3;
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
    (void)sendCommand(paperPosition);  // the caller asks for the paper's status next
    return 0;
}

int InitPrinter_OLI() {
    (void)sendCommand(scanSetUpFirst);  // the exchange that follows shows whether the printer is there
    (void)sendCommand(scanSetUpSecond);
    return 0;
}

int DealCradOvertime_OLI(int seconds) {
    constexpr int ejectedNotTaken = 2;
    constexpr int notPositioned = 3;
    constexpr int inPlace = 4;

    const Deadline deadline(seconds);
    if (GetPaperStatus_OLI() == inPlace)
        (void)sendCommand(eject);  // whether it came out is what the wait finds
    int status = GetPaperStatus_OLI();
    while (status == ejectedNotTaken || status == notPositioned) {
        if (deadline.passed()) {
            (void)sendCommand(removalTimeout);  // the wait is over either way
            return 0;
        }
        status = GetPaperStatus_OLI();
    }
    return std::min(status, 0);
}

}  // namespace passbook
