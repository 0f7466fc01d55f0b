#include "tests/support.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>

#include "api/passbook.h"

namespace passbook::tests {

VirtualClock virtualClock;
std::map<std::string, std::string> redirectedPaths;

namespace {
int allocationsUntilFailure = 0;
std::size_t smallestFailingAllocation = 1;
}  // namespace

void failAllocation(int nth, std::size_t fromBytes) {
    allocationsUntilFailure = nth;
    smallestFailingAllocation = fromBytes;
}

extern "C" {
unsigned __wrap_sleep(unsigned seconds) {
    virtualClock.microseconds += std::int64_t{seconds} * 1'000'000;
    virtualClock.sleptSeconds += seconds;
    return 0;
}

int __wrap_usleep(useconds_t microseconds) {
    virtualClock.microseconds += microseconds;
    return 0;
}

int __wrap_gettimeofday(timeval* now, void*) {
    now->tv_sec = virtualClock.microseconds / 1'000'000;
    now->tv_usec = virtualClock.microseconds % 1'000'000;
    return 0;
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    const auto target = redirectedPaths.find(path);
    return __real_open(target == redirectedPaths.end() ? path : target->second.c_str(), flags, mode);
}

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode) {
    const auto target = redirectedPaths.find(path);
    return __real_access(target == redirectedPaths.end() ? path : target->second.c_str(), mode);
}

void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
    if (allocationsUntilFailure > 0 && size >= smallestFailingAllocation && --allocationsUntilFailure == 0) return nullptr;
    return __real__ZnamRKSt9nothrow_t(size, tag);
}
}

std::string bytes(const std::string& hexText) {
    std::string digits;
    std::copy_if(hexText.begin(), hexText.end(), std::back_inserter(digits), [](char c) { return c != ' '; });
    std::string result;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) result.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return result;
}

std::string hex(const std::string& data) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (const char c : data) {
        if (!result.empty()) result += ' ';
        result += digits[static_cast<unsigned char>(c) >> 4];
        result += digits[static_cast<unsigned char>(c) & 15];
    }
    return result;
}

std::string wire(const std::string& spelling) {
    std::string result;
    for (std::size_t i = 0; i < spelling.size(); ++i) {
        if (spelling[i] == '<') {
            result += bytes(spelling.substr(i + 1, 2));
            i += 3;
        } else {
            result += spelling[i] == '^' ? '\x1B' : spelling[i];
        }
    }
    return result;
}

std::string spelled(const std::string& data) {
    std::string result;
    for (const char c : data) {
        if (c == '\x1B')
            result += '^';
        else if (c >= ' ' && c <= '~' && c != '<' && c != '^')
            result += c;
        else
            result += "<" + hex(std::string(1, c)) + ">";
    }
    return result;
}

int ScriptedPort::ReadPipe(unsigned char* buffer) {
    ++reads;
    if (replies.empty()) return -1;
    std::string piece = replies.front();
    replies.pop_front();
    if (piece.empty()) return -1;
    const auto count = std::min(piece.size(), static_cast<std::size_t>(readLength));
    std::memcpy(buffer, piece.data(), count);
    if (count < piece.size()) replies.push_front(piece.substr(count));
    readLength = static_cast<int>(count);
    return 0;
}

int ScriptedPort::WritePipe(const unsigned char* data) {
    writes.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(writeLength));
    return static_cast<int>(writes.size()) == failWrite ? -1 : 0;
}

std::string ScriptedPort::sent() const {
    std::string all;
    for (const std::string& each : writes) all += each;
    return spelled(all);
}

void installPort(Protocol* transport) {
    protocol = transport;
    usbFlag = true;
}

void Pr2Port::SetUp() {
    virtualClock = {};
    failAllocation(0);
    port = new ScriptedPort;
    installPort(port);
    ASSERT_EQ(YARDO_PR2_OpenPort("scripted"), 0);
}

void Pr2Port::TearDown() {
    // An answer that could not be decoded is remembered beyond the port; one that can be clears it.
    if (protocol != nullptr) {
        port->failWrite = 0;
        port->replies = {"", "...C.."};
        EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 4);
    }
    (void)YARDO_PR2_ClosePort();
}

TemporaryDirectory::TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "passbook-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::string& path, const std::string& content) { std::ofstream(path, std::ios::binary) << content; }

std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

std::string BmpHeader::text() const {
    std::string header(54, '\0');
    const auto put = [&](std::size_t at, std::int64_t value, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) header[at + i] = static_cast<char>(value >> (8 * i));
    };
    header[0] = 'B';
    header[1] = 'M';
    put(10, dataOffset, 4);
    put(14, infoSize, 4);
    put(18, width, 4);
    put(22, height, 4);
    put(26, 1, 2);
    put(28, bitsPerPixel, 2);
    put(46, colorsUsed, 4);
    return header;
}

std::string Picture::bmp(int bitsPerPixel, bool topDown) {
    std::string table;
    if (bitsPerPixel == 1) table = bytes("00 00 00 00 FF FF FF 00");
    for (int i = 0; bitsPerPixel == 4 && i < 16; ++i) table += std::string(3, static_cast<char>(17 * i)) + '\0';
    BmpHeader header{width, topDown ? -height : height, bitsPerPixel, 54 + static_cast<std::int64_t>(table.size())};
    std::string rows;
    for (int row = 0; row < height; ++row) {
        const int y = topDown ? row : height - 1 - row;
        std::string line;
        for (int x = 0; x < width; ++x) {
            const std::uint8_t value = at(x, y);
            if (bitsPerPixel >= 8) {
                line += std::string(static_cast<std::size_t>(bitsPerPixel / 8), static_cast<char>(value));
                continue;
            }
            const int perByte = 8 / bitsPerPixel;
            if (x % perByte == 0) line += '\0';
            const int index = bitsPerPixel == 1 ? (value >= 200 ? 1 : 0) : value / 17;
            line.back() = static_cast<char>(line.back() | index << (8 - bitsPerPixel * (x % perByte + 1)));
        }
        line.resize((line.size() + 3) / 4 * 4);
        rows += line;
    }
    return header.text() + table + rows;
}

Picture inkedPicture(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns) {
    Picture picture(width, height);
    for (const int row : rows) {
        for (const int column : columns) picture.at(column, row) = 0;
    }
    return picture;
}

}  // namespace passbook::tests
