// What the driver's tests are written with: a scripted port, bytes as hex, BMP files from hand-made headers.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "device/device.h"
#include "image/bmp.h"
#include "tests/system.h"

namespace passbook::tests {

/// A call to be made later, for tables.
using Call = std::function<int()>;
template <typename... Parts>
Call call(Parts... functionAndArguments) {
    return std::bind_front(functionAndArguments...);
}

/// What a port answers: one a read; an empty one is a read that times out. `130`AB is AB after 130 seconds, `w-130`AB
/// while the wall clock is set back by as much.
using Replies = std::vector<std::string>;

/// "1B 6A" or "1B6A" to bytes.
std::string bytes(const std::string& hex);
/// As the driver takes it.
inline const unsigned char* octets(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

/// Bytes as a dialogue spells them: ^ is ESC, <0D> any byte in hex, everything else itself. And back.
std::string wire(const std::string& spelling);
std::string spelled(const std::string& bytes);
std::string spelled(const std::vector<std::string>& writes);

/// Both ends of a pseudo-terminal; ours is the printer's.
struct Pty {
    int printer = -1, host = -1;
    std::string name;  // relative to /dev

    Pty() {
        char path[64];
        EXPECT_EQ(openpty(&printer, &host, path, nullptr, nullptr), 0);
        name = std::string(path).substr(5);
    }
    ~Pty() {
        (void)close(printer);
        (void)close(host);
    }
    [[nodiscard]] termios settings() const {
        termios result{};
        EXPECT_EQ(tcgetattr(host, &result), 0);
        return result;
    }
    void write(const std::string& text) const {
        EXPECT_EQ(::write(printer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    [[nodiscard]] std::string read() const {
        pollfd ready{printer, POLLIN, 0};
        char buffer[4096];
        const ssize_t count = poll(&ready, 1, 1000) > 0 ? ::read(printer, buffer, sizeof buffer) : 0;
        return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : "";
    }
};

/// A port that records what is written and reads what it was told to.
class ScriptedPort : public Protocol {
 public:
    std::vector<std::string> writes;
    std::deque<std::string> replies;
    int failWrite = 0;                            // the n-th write fails, 1 is the first
    int refusals = 0;                             // closings that fail
    static inline std::vector<std::string> left;  // what was written to the port that was closed last

    int OpenDevice() override { return 0; }
    int ReadPipe(unsigned char* buffer) override;
    int WritePipe(const unsigned char* data) override;
    int CloseDevice() override;
};

/// An open PR2 port on a scripted transport, a fresh clock, and no answers left over from another test.
class Pr2Port : public ::testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;
    ScriptedPort* port = nullptr;
};

/// What became of a call that had a Pr2Port to itself. Answers are spelled.
struct Outcome {
    int result = 0;
    std::vector<std::string> writes;
    std::string output;  // on standard output
    std::int64_t slept = 0;
    bool closed = false, unread = false;
};
Outcome run(const Call& job, const Replies& replies = {}, int failWrite = 0);

/// Calls that are run, each on its own, and compared with what is to become of them; then once more for each write that
/// can fail, for the record.
struct Dialogue {
    const char* name;
    Call job;
    int result;
    std::string sent;
    Replies replies = {};
    std::string answer = {};  // what the buffer of this name begins with afterwards; before it is full of #
};
extern char answer[64];
void speak(std::span<const Dialogue> dialogues);

/// Installs `transport` as the open port, in place of a device; the port owns it from then on.
void installPort(Protocol* transport);

/// A directory that goes with its files.
class TemporaryDirectory {
 public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }
    /// True when a temporary file of the driver's lies there.
    [[nodiscard]] bool littered() const;

 private:
    std::string path_;
};

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
inline std::ptrdiff_t entries(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}
/// How many files this process has open.
inline std::ptrdiff_t openFiles() {
    return entries("/proc/self/fd");
}

/// A BMP's headers, field by field, for files that no writer would write.
struct BmpHeader {
    std::int32_t width = 8, height = 1;
    std::int32_t bitsPerPixel = 24;
    std::int64_t dataOffset = 54;
    std::uint32_t colorsUsed = 0, infoSize = 40, imageSize = 0;
    [[nodiscard]] std::string text() const;
};

/// A BMP as the print engine gets it, few bits as grey: its rows from the top, or none and the code.
struct LoadedBmp {
    Bitmap bitmap;
    int code;
    std::string rows;
    explicit LoadedBmp(const std::string& path);
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

/// Writes the picture as a grey PNG.
void writePng(const Picture& picture, const std::string& path);

/// A picture with ink in the given columns of the given rows.
Picture inkedPicture(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns);

}  // namespace passbook::tests
