#include "stripe/stripe.h"

#include "device/device.h"

namespace passbook {

namespace {

constexpr auto selectFirst = ascii("\x1Bl\x1BYE@@");   // 1B 6C 1B 59 45 40 40
constexpr auto selectSecond = ascii("\x1Bl\x1BYEA@");  // 1B 6C 1B 59 45 41 40
constexpr auto readCommand = ascii("\x1B]");           // 1B 5D
constexpr auto writeCommand = ascii("\x1Bt");          // 1B 74
constexpr auto writeEnd = ascii("\x1D\x1B\\");         // 1D 1B 5C

constexpr unsigned char terminator = 0x1C;
constexpr int headerBytes = 2;

void selectTrack(int track) {
    // What becomes of it shows at the command behind it.
    (void)sendCommand(track == 0 ? selectFirst : selectSecond);
}

/// Polls for the reply. The number of bytes received, or -1 when it did not end in time.
int receiveStripe(unsigned char* reply, int length) {
    constexpr int polls = 15;
    int received = 0;
    for (int poll = 0; poll < polls; ++poll) {
        pauseSeconds(1);
        received += GetData(reply + received, length - received);
        // Header bytes are not looked at, and one of them could have the terminator's value.
        if (received == length || (received > headerBytes && reply[received - 1] == terminator))
            return received;
    }
    return -1;
}

}  // namespace

int ReadStripe(int track, char* buffer, int length) {
    if (buffer == nullptr || length < headerBytes)
        return -1;
    selectTrack(track);
    if (!sendCommand(readCommand))
        return -3;
    auto* reply = reinterpret_cast<unsigned char*>(buffer);
    const int received = receiveStripe(reply, length);
    if (received < 0)
        return -4;
    int i = headerBytes;
    for (; i < received && reply[i] != terminator; ++i)
        reply[i - headerBytes] = reply[i];
    reply[i - 2] = 0;
    reply[i - 1] = 0;
    return 0;
}

int WriteStripe(int track, const char* data, int length) {
    if (data == nullptr || length < 0)
        return -1;
    selectTrack(track);
    if (!sendCommand(writeCommand))
        return -3;
    // The end goes out whatever becomes of the data, so that the printer does not take what follows for more of it.
    (void)SendData(reinterpret_cast<const unsigned char*>(data), length);
    (void)sendCommand(writeEnd);
    return 0;
}

}  // namespace passbook
