#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "device/device.h"
#include "status/status.h"

namespace passbook {

namespace {

constexpr auto paperRequest = ascii("\x1B}SS");       // 1B 7D 53 53
constexpr auto widthRequest = ascii("\x1B}S-");       // 1B 7D 53 2D
constexpr auto lengthRequest = ascii("\x1B}SL");      // 1B 7D 53 4C
constexpr auto configRequest = ascii("\x1B} a\x07");  // 1B 7D 20 61 07
constexpr auto configPrefix = ascii("\x1B} =");       // 1B 7D 20 3D

/// Four digits behind two bytes of header; 0 for a reply of any other length.
int measure(std::span<const unsigned char> request) {
    std::array<unsigned char, 6> reply{};
    (void)sendCommand(request);  // a printer that did not hear it does not answer
    if (GetData(reply.data(), static_cast<int>(reply.size())) != static_cast<int>(reply.size()))
        return 0;
    char digits[5] = {};
    std::copy(reply.begin() + 2, reply.end(), digits);
    return static_cast<int>(std::strtol(digits, nullptr, 10));
}

}  // namespace

int GetPaperStatus() {
    if (!sendCommand(paperRequest))
        return -3;
    std::array<unsigned char, 4> reply{};
    constexpr int tellingByte = 2;
    const int received = GetData(reply.data(), static_cast<int>(reply.size()));
    if (received <= tellingByte || reply[tellingByte] > 1)
        return -20;
    return reply[tellingByte] + 1;
}

int GetPaperWidth() {
    return measure(widthRequest);
}

int GetPaperLength() {
    return measure(lengthRequest);
}

int GetPrinterConfig(unsigned char* buffer, int size) {
    (void)sendCommand(configRequest);  // a printer that did not hear it does not answer
    constexpr int mostEmptyReads = 6;
    int total = 0;
    for (int emptyReads = 0; total < size && emptyReads < mostEmptyReads;) {
        const int count = GetData(buffer + total, size - total);
        (void)std::printf("get data length: %d\n", count);
        total += count;
        if (count == 0)
            ++emptyReads;
        if (total >= 2 && buffer[total - 2] == 0x1B && buffer[total - 1] == 'Z')
            break;
    }
    return total;
}

int SetPrinterConfig(const unsigned char* data, int count) {
    (void)sendCommand(configPrefix);  // the answer tells
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
