#include "command/command.h"

#include <array>

#include "base/results.h"
#include "device/device.h"
#include "device/outcome.h"

namespace passbook {

bool sendCommand(std::span<const unsigned char> command) {
    const int length = static_cast<int>(command.size());
    return SendData(command.data(), length) == length;
}

int send(std::span<const unsigned char> command) {
    return sendCommand(command) ? success : notSent;
}

int sendPlacing(std::span<const unsigned char> command) {
    const SendingScope scope(Sending::place);
    return send(command);
}

int sendInk(std::span<const unsigned char> ink) {
    const SendingScope scope(Sending::ink);
    return send(ink);
}

int sendAnnouncedInk(std::span<const unsigned char> ink) {
    const SendingScope scope(Sending::announcedInk);
    return send(ink);
}

std::size_t receiveReply(std::span<unsigned char> reply, int reads) {
    std::size_t received = 0;
    for (int i = 0; i < reads && received < reply.size(); ++i) {
        const auto room = reply.subspan(received);
        received += static_cast<std::size_t>(GetData(room.data(), static_cast<int>(room.size())));
        pauseMicroseconds(100);
    }
    return received;
}

bool Patience::ends() {
    const std::int64_t now = monotonicMs();
    if (!tried_)
        sinceMs_ = now;
    tried_ = true;
    return now - sinceMs_ > std::int64_t{patienceSeconds} * 1000;
}

Drained drainPort() {
    std::array<unsigned char, 256> scratch;
    Patience patience;
    Drained result = Drained::nothing;
    while (GetData(scratch.data(), static_cast<int>(scratch.size())) > 0) {
        result = Drained::untilSilence;
        if (patience.ends())
            return Drained::gaveUp;
    }
    return result;
}

}  // namespace passbook
