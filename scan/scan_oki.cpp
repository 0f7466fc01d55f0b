#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>

#include "base/results.h"
#include "command/command.h"
#include "command/oki.h"
#include "device/device.h"
#include "device/outcome.h"
#include "image/convert.h"
#include "image/file.h"
#include "image/handles.h"
#include "scan/exchange.h"
#include "scan/scan.h"
#include "status/status.h"

namespace passbook {

namespace {

constexpr std::size_t headerBytes = 8;
constexpr unsigned char headerMark = 0x05;
constexpr unsigned char endMark = 0x06;

/// Only asks: a document is in place or not, and the printer says so when it scans.
int WaitInsertPaper() {
    const int status = GetPaperStatus();
    return status < 0 ? status : 0;
}

/// Documents of one size get a first parameter of their own, but for black and white.
void dealSpecialPaper(int width, int length, scans* record) {
    const bool special = 1230 < width && width < 1380 && 1440 < length && length < 1590;
    if (special && record->bitsPerPixel != 1)
        record->entry(0).param1 = record->entry(1).param1 = 'A';
}

// What comes of these commands shows in the image stream that does or does not follow.

void sendnop() {
    (void)exchange(noReply, oki::noOperation);
}

void sendScanMode(scans* record) {
    const std::array<unsigned char, 2> settings{scanModeByte(*record), scanColorByte(*record)};
    (void)exchange(noReply, joined(oki::scanMode, settings));
    (void)exchange(noReply, joined(oki::scanSides, scanSideBlock(*record)));
}

void sendScanCMD() {
    (void)exchange(noReply, oki::scanStart);
}

/// Receives the sides of one job.
class SideReceiver {
 public:
    explicit SideReceiver(scans& record) : record_(record) {
        // Beside the front side's file, so that moving it there stays within one directory; the back side's as well.
        takeTempFileName(temporary_, record.entry(0).fileName);
    }

    /// True when the next side may be received; otherwise the record's result says why not.
    bool receive(std::uint8_t side);

 private:
    bool fail(Result result) {
        missAnswer();
        record_.result = static_cast<std::int8_t>(result);
        return false;
    }
    bool failDrained() {
        (void)drainPort();  // the result is the same whether there was something
        return fail(noMemory);
    }
    bool receiveData(std::uint32_t size, const unsigned char* begun, std::size_t begunBytes);

    static constexpr std::size_t blockBytes = 16384;
    static constexpr std::size_t fileBufferBytes = 65536;

    scans& record_;
    char temporary_[tempNameBytes] = "";
    std::unique_ptr<unsigned char[]> memory_;  // a block, and behind it the file's buffer
};

bool SideReceiver::receive(std::uint8_t side) {
    if (temporary_[0] != '\0')
        (void)std::remove(temporary_);  // what the front side left
    record_.side = side;
    std::array<unsigned char, 2048> first{};
    const auto count = static_cast<std::size_t>(GetData(first.data(), static_cast<int>(first.size())));
    if (count == 0)
        return fail(noAnswer);
    if (count < headerBytes || first[0] != headerMark || first[1] > first[2])
        return fail(imageBrokenOff);
    const std::uint32_t size = first[4] | static_cast<std::uint32_t>(first[5]) << 8 |
                               static_cast<std::uint32_t>(first[6]) << 16 | static_cast<std::uint32_t>(first[7]) << 24;
    if (size != 0 && !receiveData(size, first.data() + headerBytes, count - headerBytes))
        return false;
    // What came is kept; a file that cannot be put under its name has no result.
    if (putUnderName(temporary_, record_.current().fileName))
        havePart(side);
    else
        (void)std::remove(temporary_);  // nobody would look for a customer's document under this name
    haveDone(size, size);
    return true;
}

bool SideReceiver::receiveData(std::uint32_t size, const unsigned char* begun, std::size_t begunBytes) {
    FileHandle file = createTempFile(temporary_);
    if (memory_ == nullptr)
        memory_.reset(new (std::nothrow) unsigned char[blockBytes + fileBufferBytes]);
    if (file == nullptr || memory_ == nullptr)
        return failDrained();
    unsigned char* const block = memory_.get();
    // Ports hand over far less than a block at a time.
    (void)std::setvbuf(file.get(), reinterpret_cast<char*>(block + blockBytes), _IOFBF, fileBufferBytes);

    // Unsigned and wider than the announced size: both can be beyond 31 bits.
    std::uint64_t total = begunBytes;
    Patience patience;
    bool written = std::fwrite(begun, 1, begunBytes, file.get()) == begunBytes;
    while (total <= size && written) {
        auto count = static_cast<std::size_t>(GetData(block, static_cast<int>(blockBytes)));
        if (count == 0)
            return fail(imageBrokenOff);
        if (!goOn(static_cast<std::int64_t>(total), size))
            return failDrained();
        if (count == 1 && block[0] == endMark) {
            record_.result = 0;
            break;
        }
        if (count == headerBytes) {
            count = 0;  // printers put blocks of this length in between; they are no pixels
            if (patience.ends())
                return fail(imageBrokenOff);
        } else {
            patience.renew();
        }
        written = std::fwrite(block, 1, count, file.get()) == count;
        total += count;
        record_.current().receivedBytes =
            static_cast<std::int32_t>(static_cast<std::uint32_t>(record_.current().receivedBytes) + count);
        if (total >= size) {
            (void)std::printf("read bmp data %d ok!\n", static_cast<int>(size));
            record_.result = 0;
        }
    }
    // A full disk must not pass for a document.
    if (std::fclose(file.release()) != 0 || !written)
        return failDrained();
    return true;
}

int getBMP(scans* record) {
    SideReceiver receiver(*record);
    for (const std::uint8_t side : {std::uint8_t{0}, std::uint8_t{1}})
        if (!receiver.receive(side))
            break;
    return record->result;
}

}  // namespace

int ScanToFileOKI(scans* record) {
    if (const int status = WaitInsertPaper(); status < 0)
        return status;
    const int width = GetPaperWidth();
    const int length = GetPaperLength();
    if (width == 0 || length == 0)
        return noPaperSize;
    dealSpecialPaper(width, length, record);
    sendnop();
    sendScanMode(record);
    sendScanCMD();
    return getBMP(record);
}

}  // namespace passbook
