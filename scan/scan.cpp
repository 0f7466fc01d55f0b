#include "scan/scan.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "command/command.h"
#include "device/device.h"
#include "device/outcome.h"

namespace passbook {

namespace {

// This module's process-wide state.

/// The reply of the latest exchange, always with a zero behind it.
unsigned char g_receive[256];

constexpr std::size_t longestReply = 32;

/// What printers answer to the commands of a scan: a length, and the bytes.
struct ExpectedReply {
    std::uint8_t length;
    std::array<unsigned char, longestReply> bytes;
};

constexpr ExpectedReply reqCmd[] = {
    {0, {}},
    {3, {0x1B, 0x72, 0x50}},  // ready
    {3, {0x1B, 0x2F, 0x39}},
    {5, {}},
    {6, {0x1B, 0x70, 0x43, 0x41, 0x30, 0x29}},
    {6, {0x1B, 0x42, 0x35, 0x40, 0x1B, 0x5A}},
    {6, {0x1B, 0x53}},
    {6, {}},
    {32, {0x1B, 0x61, 0x38, 0x46, 0x30, 0x31, 0x30, 0x30, 0x30, 0x33, 0x32, 0x32, 0x34, 0x30, 0x30, 0x30,
          0x39, 0x30, 0x31, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x1B, 0x5A}},
};

void copyName(scanEntry& entry, const char* name) {
    const std::string_view text(name);
    text.copy(entry.fileName, sizeof entry.fileName - 1);  // the rest has been cleared
}

}  // namespace

void FormatScanParam(scans* record, const char* frontName, const char* backName, int imageType, int frontParam1,
                     int backParam1, int param2, bool optionFlag, int sides, int dpi, int direction) {
    *record = {};
    record->resolution = dpi <= 240 ? 3 : dpi <= 400 ? 2 : 0;
    record->direction = static_cast<std::uint8_t>(direction);
    record->bitsPerPixel = imageType == 0 ? 1 : imageType == 1 ? 4 : imageType == 2 ? 8 : 24;
    record->optionFlag = optionFlag ? 1 : 0;
    record->colorMode = imageType <= 2 ? 2 : 4;  // a negative type is colour by its depth, yet not by its mode
    scanEntry& front = record->entry(0);
    scanEntry& back = record->entry(1);
    front.enabled = sides == 0 || sides == 2 ? 1 : 0;
    back.enabled = sides == 1 || sides == 2 ? 1 : 0;
    front.param1 = static_cast<std::uint8_t>(frontParam1);
    back.param1 = static_cast<std::uint8_t>(backParam1);
    front.param2 = back.param2 = static_cast<std::uint8_t>(param2);
    copyName(front, frontName);
    copyName(back, backName);
}

std::uint8_t scanModeByte(const scans& record) {
    const unsigned direction = record.direction & 1U;  // fills two bits
    const unsigned resolution = record.resolution, option = record.optionFlag;
    return static_cast<std::uint8_t>(0x40U | (resolution << 3U & 0x18U) | (option << 2U & 0x04U) | direction << 1U |
                                     direction);
}

std::uint8_t scanColorByte(const scans& record) {
    const unsigned mode = record.colorMode;
    return static_cast<std::uint8_t>(0x88U | (mode & 0x07U) | (mode << 4U & 0x70U));
}

std::array<unsigned char, 6> scanSideBlock(const scans& record) {
    const bool grey = record.colorMode <= 3;
    const unsigned char letter = grey && record.bitsPerPixel == 1 ? 'A' : grey && record.bitsPerPixel == 4 ? 'Q' : 'a';
    constexpr unsigned char notScanned = 'q';
    const scanEntry& front = record.entries[0][record.entryIndex];
    const scanEntry& back = record.entries[1][record.entryIndex];
    return {front.enabled != 0 ? letter : notScanned,
            back.enabled != 0 ? letter : notScanned,
            front.param1,
            back.param1,
            front.param2,
            back.param2};
}

int pb2Prt(const unsigned char* command, int length) {
    constexpr int notSentWhole = 1, otherLength = 2, otherBytes = 64;
    const std::span bytes(command + 2, static_cast<std::size_t>(length) - 2);
    int result = sendCommand(bytes) ? 0 : notSentWhole;
    pauseMicroseconds(1);
    const std::size_t index = command[0];
    if (index >= std::size(reqCmd) || reqCmd[index].length == 0)
        return result;
    const ExpectedReply& expected = reqCmd[index];
    std::memset(g_receive, 0, sizeof g_receive);
    if (GetData(g_receive, sizeof g_receive - 1) != expected.length) {
        missAnswer();
        return result | otherLength;
    }
    if (std::memcmp(g_receive, expected.bytes.data(), expected.length) != 0)
        result |= otherBytes;
    return result;
}

}  // namespace passbook
