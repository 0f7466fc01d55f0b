#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "base/results.h"
#include "command/command.h"
#include "command/oki.h"
#include "device/device.h"
#include "device/outcome.h"
#include "status/status.h"

namespace passbook {

namespace {

/// Four digits behind two bytes of header; 0 for a reply of any other length.
int measure(std::span<const unsigned char> request) {
    std::array<unsigned char, 6> reply{};
    (void)sendCommand(request);  // a printer that did not hear it does not answer
    if (GetData(reply.data(), static_cast<int>(reply.size())) != static_cast<int>(reply.size())) {
        missAnswer();
        return 0;
    }
    char digits[5] = {};
    std::copy(reply.begin() + 2, reply.end(), digits);
    return static_cast<int>(std::strtol(digits, nullptr, 10));
}

}  // namespace

int GetPaperStatus() {
    if (!sendCommand(oki::paperStatus))
        return notSent;
    std::array<unsigned char, 4> reply{};
    constexpr int tellingByte = 2;
    const int received = GetData(reply.data(), static_cast<int>(reply.size()));
    if (received <= tellingByte || reply[tellingByte] > 1) {
        missAnswer();
        return paperUnknown;
    }
    return reply[tellingByte] + 1;
}

int GetPaperWidth() {
    return measure(oki::paperWidth);
}

int GetPaperLength() {
    return measure(oki::paperLength);
}

int GetPrinterConfig(unsigned char* buffer, int size) {
    (void)sendCommand(oki::configurationRead);  // a printer that did not hear it does not answer
    constexpr int mostEmptyReads = 6;
    int total = 0;
    for (int emptyReads = 0; total < size && emptyReads < mostEmptyReads;) {
        const int count = GetData(buffer + total, size - total);
        (void)std::printf("get data length: %d\n", count);
        total += count;
        if (count == 0)
            ++emptyReads;
        if (total >= 2 && std::equal(oki::configurationEnd.begin(), oki::configurationEnd.end(), buffer + total - 2))
            break;
    }
    return total;
}

int SetPrinterConfig(const unsigned char* data, int count) {
    (void)sendCommand(oki::configurationWrite);  // the answer tells
    (void)SendData(data, count);
    pauseSeconds(1);
    std::array<unsigned char, 4> reply{};
    (void)GetData(reply.data(), static_cast<int>(reply.size()));
    switch (reply[3]) {
        case '0':
            return 0;
        case '1':
            return -50;
        case '2':
            return -51;
        default:
            return -52;
    }
}

}  // namespace passbook
