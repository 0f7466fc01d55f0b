#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "base/results.h"
#include "command/command.h"
#include "command/oli.h"
#include "device/device.h"
#include "device/outcome.h"
#include "image/bmp.h"
#include "image/file.h"
#include "scan/exchange.h"
#include "scan/scan.h"
#include "status/status.h"

namespace passbook {

namespace {

/// A document that lies outside makes the printer call for it; one that is at the entry is drawn in.
int WaitInsertPaper_OLI() {
    const Deadline deadline(60);
    for (;;) {
        const int status = GetPaperStatus_OLI();
        if (status == paperInPlace)
            return 0;
        if (status == paperNotPositioned) {
            InitPaperPosition_OLI();
        } else if (status >= 0) {
            if (!sendCommand(bell))
                return notSent;
            pauseSeconds(1);
        }
        pauseSeconds(1);
        if (deadline.passed() || !goOn())
            return notReady;
    }
}

bool isReady() {
    return exchange(readyReply, oli::printerStatus) == 0;
}

/// Waits until the printer is ready, as far as 22 questions go. What follows shows if it is not.
void GStatues() {
    constexpr int repeats = 21;
    for (int i = 0; !isReady() && i < repeats && goOn(); ++i)
        (void)exchange(noReply, oli::clearError);
}

/// 0 when the printer is ready; else 1, and the document is ejected.
int GStatuesEject() {
    if (isReady())
        return 0;
    (void)exchange(noReply, oli::clearError);
    (void)exchange(noReply, oli::eject);
    (void)exchange(noReply, oli::clearAll);
    std::array<unsigned char, 255> scratch;
    (void)GetData(scratch.data(), static_cast<int>(scratch.size()));  // whatever it has to say about that
    return 1;
}

/// A message from the printer, told by its length and its first byte. Always with a zero behind it.
struct Message {
    std::array<unsigned char, 257> bytes{};
    int length = 0;

    void read() {
        bytes.fill(0);
        length = GetData(bytes.data(), static_cast<int>(bytes.size()) - 1);
    }
    [[nodiscard]] bool isHeader() const { return length == 12 && bytes[0] == 0x01; }
    [[nodiscard]] bool isImageStart() const { return length == 2 && bytes[0] == 0x02; }
    [[nodiscard]] bool isEnd() const { return isEnd(bytes.data(), length); }
    [[nodiscard]] static bool isEnd(const unsigned char* data, int count) { return count == 6 && data[0] == 0x03; }
    /// The decimal number that begins at a byte.
    [[nodiscard]] long number(std::size_t at) const {
        return std::strtol(reinterpret_cast<const char*>(bytes.data() + at), nullptr, 10);
    }
};

/// Rows of `rowBits` bits each, one behind the other. The last one's last bits may be missing.
struct PackedRows {
    const unsigned char* data;
    std::size_t bytes;
    std::size_t rowBits;

    /// Brings a row to its first byte, and fills it up with zeros to `stride` bytes.
    void unpack(std::size_t row, unsigned char* out, std::size_t stride) const {
        const std::size_t first = row * rowBits / 8, rowBytes = (rowBits + 7) / 8;
        const unsigned shift = row * rowBits % 8;
        const auto at = [&](std::size_t i) { return i < bytes ? static_cast<unsigned>(data[i]) : 0U; };
        for (std::size_t i = 0; i < rowBytes; ++i) {
            const unsigned two = at(first + i) << 8 | at(first + i + 1);
            out[i] = static_cast<unsigned char>(two >> (8 - shift));
        }
        if (rowBits % 8 != 0)  // what follows in the last byte is the next row's
            out[rowBytes - 1] = static_cast<unsigned char>(out[rowBytes - 1] & (0xFF00U >> (rowBits % 8)));
        std::fill(out + rowBytes, out + stride, static_cast<unsigned char>(0));
    }
};

/// Receives the current side of a job.
class SideReceiver {
 public:
    explicit SideReceiver(scans& record) : record_(record) {}
    SideReceiver(const SideReceiver&) = delete;
    SideReceiver& operator=(const SideReceiver&) = delete;
    ~SideReceiver() { record_.current().imageData = nullptr; }

    void run();

 private:
    bool takeHeader();
    bool receiveImage();
    bool receiveData();
    void drainToEnd();
    [[nodiscard]] bool writeFile() const;
    void save();

    static constexpr int blockBytes = 16384;
    static constexpr int spareBytes = 1024;

    scans& record_;
    Message message_;
    int bitsPerPixel_ = 0;
    std::unique_ptr<unsigned char[]> data_;
    std::int64_t position_ = 0;
    Patience patience_;
};

void SideReceiver::run() {
    for (;;) {
        message_.read();
        if (message_.isHeader() && takeHeader())
            continue;
        if (message_.isImageStart() && !receiveImage())
            return;
        if (message_.isEnd()) {
            if (message_.number(1) != record_.current().height)
                record_.result = scanNotReady;
            return;
        }
        if (message_.length == 0 || patience_.ends() || !goOn()) {
            missAnswer();
            record_.result = imageBrokenOff;
            return;
        }
    }
}

/// A header speaks for both sides: the back side's may not come. False when it says what is known already: a printer
/// that says that for ever is of no use.
bool SideReceiver::takeHeader() {
    const auto width = static_cast<std::uint16_t>(message_.number(1));
    const auto height = static_cast<std::uint16_t>(message_.number(7));
    if (record_.current().width == width && record_.current().height == height)
        return false;
    for (const std::size_t side : {std::size_t{0}, std::size_t{1}}) {
        record_.entry(side).width = width;
        record_.entry(side).height = height;
    }
    patience_.renew();
    return true;
}

/// From the image-start message to the end message, which is then in message_. False when the side has failed.
bool SideReceiver::receiveImage() {
    patience_.renew();
    scanEntry& entry = record_.current();
    bitsPerPixel_ = record_.colorMode == 4 || record_.colorMode == 5 ? 24 : record_.bitsPerPixel;
    const std::int64_t required = std::int64_t{entry.width} * entry.height * bitsPerPixel_ / 8;
    const bool fits = required <= std::numeric_limits<std::int32_t>::max() - spareBytes;
    entry.requiredBytes = fits ? static_cast<std::int32_t>(required) : std::numeric_limits<std::int32_t>::max();
    entry.receivedBytes = 0;
    position_ = 0;
    // Room for a row of the file as well, so that nothing can fail any more once the image is there.
    const auto room = static_cast<std::size_t>(
        required + std::max<std::int64_t>(spareBytes, bmpStrideBytes(entry.width, bitsPerPixel_)));
    data_.reset(fits ? new (std::nothrow) unsigned char[room] : nullptr);
    entry.imageData = data_.get();
    entry.startTag = message_.bytes[1];
    if (data_ == nullptr) {
        drainToEnd();
        return false;
    }
    if (!receiveData())
        return false;
    (void)std::printf("wd=%d len=%d\n", entry.width, entry.height);
    (void)std::printf("req=%d rv=%d \n", entry.requiredBytes, static_cast<int>(position_));
    if (position_ == required && required != 0)
        save();
    data_.reset();
    entry.imageData = nullptr;
    return true;
}

bool SideReceiver::receiveData() {
    scanEntry& entry = record_.current();
    std::array<unsigned char, blockBytes> scratch;
    for (;;) {
        // Always a whole block: a read cut to the room that is left would leave the rest of a message behind, to be
        // taken for the next one, and its head could complete the picture by accident.
        const std::int64_t room = entry.requiredBytes + std::int64_t{spareBytes} - position_;
        unsigned char* block = room >= blockBytes ? data_.get() + position_ : scratch.data();
        const int count = GetData(block, blockBytes);
        if (count == 0) {
            missAnswer();
            record_.result = imageBrokenOff;
            return false;
        }
        if (!goOn(position_, entry.requiredBytes))
            return false;
        if (Message::isEnd(block, count)) {
            std::copy_n(block, count, message_.bytes.begin());
            message_.bytes[static_cast<std::size_t>(count)] = 0;
            message_.length = count;
            return true;
        }
        entry.receivedBytes = static_cast<std::int32_t>(static_cast<std::uint32_t>(entry.receivedBytes) +
                                                        static_cast<std::uint32_t>(count));
        if (position_ + count > entry.requiredBytes) {
            if (!patience_.ends())
                continue;  // too much: dropped whole
            record_.result = imageBrokenOff;
            // An image that is complete gets its file, even when its end is never told.
            message_.length = count;
            message_.bytes[0] = 0;
            return position_ == entry.requiredBytes;
        }
        if (block == scratch.data())
            std::copy_n(block, count, data_.get() + position_);
        position_ += count;
        patience_.renew();
    }
}

/// Without memory for the image the line is still to be cleared, up to the end message, as far as patience goes.
void SideReceiver::drainToEnd() {
    do {
        message_.read();
    } while (message_.length != 0 && !message_.isEnd() && !patience_.ends());
    record_.result = message_.length != 0 ? noMemory : imageBrokenOff;
}

/// Writes what was received as a BMP file. False when there is none in the end.
bool SideReceiver::writeFile() const {
    const scanEntry& entry = record_.current();
    const auto rowBits = static_cast<std::size_t>(entry.width) * static_cast<std::size_t>(bitsPerPixel_);
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(entry.width, bitsPerPixel_));
    const auto colorMode = static_cast<char>(record_.colorMode);
    if (rowBits % 32 == 0)
        return saveImageASBMP(entry.width, entry.height, bitsPerPixel_, record_.direction, colorMode, data_.get(),
                              entry.fileName) == 0;
    // The rows get their fill bytes on their way into the file: what was received is read once, and not written again.
    const PackedRows rows{data_.get(), static_cast<std::size_t>(entry.requiredBytes), rowBits};
    unsigned char* const row = data_.get() + entry.requiredBytes;
    OutputFile file;
    if (createBmp(file, entry.width, entry.height, bitsPerPixel_, record_.direction, colorMode, entry.fileName) != 0)
        return false;
    for (std::size_t y = 0; y < entry.height; ++y) {
        rows.unpack(y, row, stride);
        (void)std::fwrite(row, 1, stride, file.get());
    }
    return file.commit();
}

void SideReceiver::save() {
    record_.current().imageSize = record_.current().requiredBytes;
    if (writeFile())  // a file that cannot be made has no code; the host misses it
        havePart(record_.side);
    haveDone(position_, position_);
}

int getimgn(scans* record) {
    SideReceiver(*record).run();
    return record->result;
}

void pb2_scan(scans* record) {
    const std::array<unsigned char, 2> settings{scanModeByte(*record), scanColorByte(*record)};
    InitPrinter_OLI();
    // Whether a document came, and what the preparations gave, shows at the check behind them.
    (void)WaitInsertPaper_OLI();
    (void)exchange(firstPreparationReply, oli::scanFirstPreparation);
    (void)exchange(secondPreparationReply, oli::scanSecondPreparation);
    if (isEnding())
        return;
    if (GStatuesEject() == 1) {
        record->result = scanNotReady;
        return;
    }
    (void)exchange(noReply, joined(oli::scanMode, settings));  // a broken line shows as an image that does not come
    GStatues();
    (void)exchange(noReply, joined(oli::scanSides, scanSideBlock(*record), oli::scanSidesEnd));
    for (const std::uint8_t side : {std::uint8_t{0}, std::uint8_t{1}}) {
        if (record->entry(side).enabled == 0 || isEnding())
            continue;
        record->side = side;
        (void)getimgn(record);  // a front side that fails does not stop the back side; the record keeps the code
    }
    if (!isEnding())
        (void)GStatuesEject();
}

}  // namespace

int ScanToFileOLI(scans* record) {
    (void)exchange(noReply, oli::scanAnnouncement);
    pb2_scan(record);
    if (isEnding())
        (void)drainPort();  // or the next question gets the image for its answer
    return record->result;
}

}  // namespace passbook
