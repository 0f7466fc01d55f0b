// Scanning: the record that drives a job, the exchange of its commands, and the jobs of both families.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace passbook {

/// Room for a target file's path, with its terminating zero.
inline constexpr std::size_t scanNameBytes = 512;

/// One image entry of a side: what is asked for, and what has come.
struct scanEntry {
    std::uint8_t enabled;         // 1 when this side is to be scanned
    std::uint8_t param1, param2;  // sent to the printer as they are
    unsigned char* imageData;     // the OLI job's receive buffer, null outside of it
    std::int32_t imageSize;       // bytes of the image that was saved (OLI)
    char fileName[scanNameBytes];
    std::uint16_t width, height;  // pixels, from the OLI header message
    std::uint8_t startTag;        // from the OLI image-start message; kept for whoever looks at the record
    std::int32_t requiredBytes;   // that the OLI image must have
    std::int32_t receivedBytes;   // OLI: all data; OKI: all but those that came with the header
};

/// A job's settings, progress and result.
struct scans {
    std::uint8_t resolution;    // 3: to 240 dots per inch, 2: to 400, 0: above
    std::uint8_t direction;     // bit 0 goes to the printer; not 0: OLI files are bottom-up
    std::uint8_t colorMode;     // 2 black and white or grey, 4 colour
    std::uint8_t bitsPerPixel;  // 1, 4, 8 or 24
    std::uint8_t optionFlag;    // 0 or 1
    std::uint8_t reserved;      // 0
    std::int8_t result;         // 0 success; 2, -40, -31, -4 as the jobs say
    std::uint8_t entryIndex;    // 0
    std::uint8_t side;          // being received: 0 front, 1 back
    scanEntry entries[2][10];   // front, back; only the first of each is used

    [[nodiscard]] scanEntry& entry(std::size_t ofSide) { return entries[ofSide][entryIndex]; }
    [[nodiscard]] scanEntry& current() { return entry(side); }
};

/// Clears the record and fills it from a host's arguments. `imageType` 0 black and white, 1 and 2 grey with 4 and 8
/// bits, any other colour. `sides` 0 front, 1 back, 2 both, any other none. Of the parameters and `direction` the low
/// 8 bits count. Names of scanNameBytes and more are cut: the caller refuses them.
void FormatScanParam(scans* record, const char* frontName, const char* backName, int imageType, int frontParam1,
                     int backParam1, int param2, bool optionFlag, int sides, int dpi, int direction);

/// The settings as both families' commands carry them.
[[nodiscard]] std::uint8_t scanModeByte(const scans& record);
[[nodiscard]] std::uint8_t scanColorByte(const scans& record);
[[nodiscard]] std::array<unsigned char, 6> scanSideBlock(const scans& record);

/// Sends one command and checks its reply. `command`: the index of the reply expected, its length (not looked at), then
/// the bytes for the printer; `length` counts all. Returns flag bits: 1 the command was not sent whole; 2 the reply,
/// which is what one single read brings, is of another length; 64 it is of the right length and differs.
int pb2Prt(const unsigned char* command, int length);

// The indices of the replies that commands expect.
inline constexpr unsigned char noReply = 0, readyReply = 1, firstPreparationReply = 6, secondPreparationReply = 7;

/// Scans on an OLI printer into BMP files. Waits up to a minute for a document; goes on without one. Sides that are not
/// enabled are not received; a front side that fails does not stop the back side. Prints two lines of progress for
/// each side on standard output.
/// 0 (also when the data of a side do not match the size announced: it gets no file); 2 the printer was not ready, and
/// the document was ejected, or the end message's row count is not the header's (the file is written all the same);
/// -40 a read brought nothing where something was awaited; -31 no memory for the image:
/// the port was drained. The last failure counts.
[[nodiscard]] int ScanToFileOLI(scans* record);

/// Scans on an OKI printer into BMP files or, for names that contain ".jpg", JPEG files. Both sides are received,
/// whichever were asked for; one without data gets no file. Prints lines of progress on standard output.
/// 0; -3, -20 from the paper status; -21 no paper width or length; -4 no header came; -40 the header is malformed, or
/// a read brought nothing before the side had ended; -31 the temporary file could not be made or written, or there is
/// no memory: the port was drained. The first failure ends the job. A temporary file that was begun then stays beside
/// the front side's file.
[[nodiscard]] int ScanToFileOKI(scans* record);

}  // namespace passbook
