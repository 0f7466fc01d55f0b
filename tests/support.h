// What the driver's tests are written with: a scripted port, a clock that only sleeping moves, bytes as hex,
// BMP files from hand-made headers.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "device/device.h"

namespace passbook::tests {

/// "1B 6A" or "1B6A" to bytes.
std::string bytes(const std::string& hex);
/// Bytes to "1B 6A".
std::string hex(const std::string& bytes);

/// Bytes as a dialogue spells them: ^ is ESC, <0D> any byte in hex, everything else itself. And back.
std::string wire(const std::string& spelling);
std::string spelled(const std::string& bytes);

/// The clock that the driver sees. Sleeping moves it and returns at once.
struct VirtualClock {
    std::int64_t microseconds = 1'700'000'000'000'000;
    std::int64_t sleptSeconds = 0;  // through whole-second sleeps only
};
extern VirtualClock virtualClock;

/// Where the driver's open() and access() go instead, by path; an empty target does not exist.
extern std::map<std::string, std::string> redirectedPaths;

/// The driver's n-th allocation from now on (1 is the next) of at least `fromBytes` finds no memory. 0
/// switches off.
void failAllocation(int nth, std::size_t fromBytes = 1);

/// A port that records what is written and reads what it was told to.
class ScriptedPort : public Protocol {
 public:
    std::vector<std::string> writes;
    std::deque<std::string> replies;  // one a read; an empty one is a read that times out
    int failWrite = 0;                // the n-th write fails, 1 is the first
    int reads = 0;

    int OpenDevice() override { return 0; }
    int ReadPipe(unsigned char* buffer) override;
    int WritePipe(const unsigned char* data) override;
    int CloseDevice() override { return 0; }

    /// All that was written, spelled out.
    [[nodiscard]] std::string sent() const;
};

/// An open PR2 port on a scripted transport, a fresh clock, and no answers left over from another test.
class Pr2Port : public ::testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;
    ScriptedPort* port = nullptr;
};

/// Installs `transport` as the open port, in place of a device; the port owns it from then on.
void installPort(Protocol* transport);

/// A directory that goes with its files.
class TemporaryDirectory {
 public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
    std::string path_;
};

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);

/// A BMP's headers, field by field, for files that no writer would write.
struct BmpHeader {
    std::int32_t width = 8, height = 1;
    std::int32_t bitsPerPixel = 24;
    std::int64_t dataOffset = 54;
    std::uint32_t colorsUsed = 0, infoSize = 40;
    [[nodiscard]] std::string text() const;
};

/// A picture of one grey byte a pixel, rows from the top; ink is 0 and paper 255.
struct Picture {
    int width = 0, height = 0;
    std::vector<std::uint8_t> grey;
    Picture(int w, int h) : width(w), height(h), grey(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), 255) {}
    std::uint8_t& at(int x, int y) {
        return grey[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    }
    /// As a BMP file of 1 (a black and white colour table; below 200 is black), 4, 8, 24 or 32 bits a pixel.
    [[nodiscard]] std::string bmp(int bitsPerPixel, bool topDown);
};

/// A picture with ink in the given columns of the given rows.
Picture inkedPicture(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns);

}  // namespace passbook::tests
