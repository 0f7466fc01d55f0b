#include "stripe/stripe.h"

#include "base/results.h"
#include "command/command.h"
#include "command/oli.h"
#include "device/device.h"
#include "device/outcome.h"

namespace passbook {

namespace {

constexpr unsigned char terminator = 0x1C;
constexpr int headerBytes = 2;

void selectTrack(int track) {
    // What becomes of it shows at the command behind it.
    (void)sendCommand(track == 0 ? oli::stripeFirst : oli::stripeSecond);
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
        if (!goOn())
            break;
    }
    missAnswer();
    return -1;
}

}  // namespace

int ReadStripe(int track, char* buffer, int length) {
    if (buffer == nullptr || length < headerBytes)
        return badArgument;
    selectTrack(track);
    if (!sendCommand(oli::stripeRead))
        return notSent;
    auto* reply = reinterpret_cast<unsigned char*>(buffer);
    const int received = receiveStripe(reply, length);
    if (received < 0)
        return noAnswer;
    int i = headerBytes;
    for (; i < received && reply[i] != terminator; ++i)
        reply[i - headerBytes] = reply[i];
    reply[i - 2] = 0;
    reply[i - 1] = 0;
    return 0;
}

int WriteStripe(int track, const char* data, int length) {
    if (data == nullptr || length < 0)
        return badArgument;
    selectTrack(track);
    if (!sendCommand(oli::stripeWrite))
        return notSent;
    // The end goes out whatever becomes of the data, so that the printer does not take what follows for more of it.
    (void)SendData(reinterpret_cast<const unsigned char*>(data), length);
    (void)sendCommand(oli::stripeWriteEnd);
    return 0;
}

}  // namespace passbook
