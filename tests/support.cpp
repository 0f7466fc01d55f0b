#include "tests/support.h"

#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <numeric>
#include <sstream>

#include "api/passbook.h"
#include "device/outcome.h"
#include "tests/recorded.h"

namespace passbook::tests {

std::string bytes(const std::string& hexText) {
    std::string digits = hexText, result;
    std::erase(digits, ' ');
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        result.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return result;
}

std::string wire(const std::string& spelling) {
    std::string result;
    for (std::size_t i = 0; i < spelling.size(); ++i) {
        const bool hex = spelling[i] == '<';
        result += hex ? bytes(spelling.substr(i + 1, 2)) : std::string(1, spelling[i] == '^' ? '\x1B' : spelling[i]);
        i += hex ? 3 : 0;
    }
    return result;
}

std::string spelled(const std::string& data) {
    std::string result;
    for (const char c : data) {
        char code[8];
        (void)std::snprintf(code, sizeof code, "<%02X>", static_cast<unsigned char>(c));
        const bool itself = c >= ' ' && c <= '~' && c != '<' && c != '^';
        result += c == '\x1B' ? "^" : itself ? std::string(1, c) : code;
    }
    return result;
}

std::string spelled(const std::vector<std::string>& writes) {
    return spelled(std::accumulate(writes.begin(), writes.end(), std::string()));
}

int ScriptedPort::ReadPipe(unsigned char* buffer) {
    if (replies.empty())
        return -1;
    std::string piece = replies.front();
    replies.pop_front();
    if (piece.starts_with('`')) {  // comes late, or while somebody sets the clock
        const bool wall = piece[1] == 'w';
        (wall ? virtualClock.wallAhead : virtualClock.microseconds) +=
            std::atol(piece.c_str() + (wall ? 2 : 1)) * 1'000'000;
        piece.erase(0, piece.rfind('`') + 1);
    }
    if (piece.empty())
        return -1;
    const auto count = std::min(piece.size(), static_cast<std::size_t>(readLength));
    std::memcpy(buffer, piece.data(), count);
    if (count < piece.size())
        replies.push_front(piece.substr(count));
    readLength = static_cast<int>(count);
    virtualClock.microseconds += 10'000;  // or a line that never falls silent would have no end
    return 0;
}

int ScriptedPort::WritePipe(const unsigned char* data) {
    writes.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(writeLength));
    const bool fails = static_cast<int>(writes.size()) == failWrite;
    taken = fails ? 0 : writeLength;
    systemError = fails ? EIO : 0;
    return fails ? -1 : 0;
}

int ScriptedPort::CloseDevice() {
    if (refusals-- > 0)
        return -1;
    left = writes;
    return 0;
}

void installPort(Protocol* transport) {
    (void)PRSexit();  // one that a refused call left open
    protocol = transport;
    usbFlag = true;
}

namespace {
ScriptedPort* openScripted() {
    findTrack();  // as if no call had failed before
    virtualClock = {};
    auto* port = new ScriptedPort;
    installPort(port);
    EXPECT_EQ(YARDO_PR2_OpenPort("scripted"), 0);
    return port;
}

/// An answer that could not be decoded is remembered beyond the port, as data_len; one that can be clears it.
void closeScripted(ScriptedPort* port) {
    if (protocol != nullptr) {
        port->failWrite = 0;
        port->replies = {"", "...C.."};
        EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 4);
    }
    (void)YARDO_PR2_ClosePort();
}
}  // namespace

void Pr2Port::SetUp() {
    port = openScripted();
}
void Pr2Port::TearDown() {
    closeScripted(port);
}

Outcome run(const Call& job, const Replies& replies, int failWrite) {
    ScriptedPort* const port = openScripted();
    port->failWrite = failWrite;
    for (const std::string& each : replies)
        port->replies.push_back(wire(each));
    Outcome outcome;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();  // libpng tells what is wrong with a file
    outcome.result = job();
    outcome.output = testing::internal::GetCapturedStdout();
    (void)testing::internal::GetCapturedStderr();
    outcome.slept = virtualClock.sleptSeconds();
    outcome.closed = protocol == nullptr;
    outcome.writes = outcome.closed ? ScriptedPort::left : port->writes;
    outcome.unread = !outcome.closed && !port->replies.empty();
    struct passbook_outcome told {};
    told.size = sizeof told;
    EXPECT_EQ(passbook_outcome(&told), 0);
    record(std::to_string(outcome.result) + " of " + inWords(told) + " | " + shortened(spelled(outcome.writes)) +
           " | " + std::to_string(virtualClock.slept) + " us");
    closeScripted(port);
    return outcome;
}

char answer[64];

void speak(std::span<const Dialogue> dialogues) {
    for (const Dialogue& each : dialogues) {
        SCOPED_TRACE(each.name);
        std::fill(std::begin(answer), std::end(answer), '#');
        const Outcome outcome = run(each.job, each.replies);
        EXPECT_EQ(std::pair(outcome.result, spelled(outcome.writes)), std::pair(each.result, each.sent));
        EXPECT_EQ(spelled(std::string(answer, wire(each.answer).size())), each.answer);
        constexpr std::size_t most = 12;  // movements are all alike
        for (std::size_t failing = 1; failing <= std::min(outcome.writes.size(), most); ++failing)
            (void)run(each.job, each.replies, static_cast<int>(failing));
    }
}

TemporaryDirectory::TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "passbook-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

bool TemporaryDirectory::littered() const {
    const std::filesystem::directory_iterator files(path_);
    return std::any_of(begin(files), end(files),
                       [](const auto& entry) { return entry.path().filename().string().starts_with(".tmp_"); });
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

std::string BmpHeader::text() const {
    std::string header(54, '\0');
    header.replace(0, 2, "BM");
    const std::int64_t fileSize = imageSize == 0 ? 0 : 54 + std::int64_t{imageSize};
    const std::int64_t fields[][3] = {
        {2, 4, fileSize}, {10, 4, dataOffset},   {14, 4, infoSize},  {18, 4, width},     {22, 4, height},
        {26, 2, 1},       {28, 2, bitsPerPixel}, {34, 4, imageSize}, {46, 4, colorsUsed}};  // place, size, value
    for (const auto& [place, size, value] : fields)
        for (std::int64_t i = 0; i < size; ++i)
            header[static_cast<std::size_t>(place + i)] = static_cast<char>(value >> (8 * i));
    return header;
}

LoadedBmp::LoadedBmp(const std::string& path) : code(bitmap.load(path.c_str())) {
    const auto size = bmpStrideBytes(bitmap.width, bitmap.bitsPerPixel) * bitmap.rows();
    if (code == 0)
        rows.assign(reinterpret_cast<char*>(bitmap.data.get()), static_cast<std::size_t>(size));
}

std::string Picture::bmp(int bitsPerPixel, bool topDown) {
    std::string table, rows;
    if (bitsPerPixel == 1)
        table = bytes("00 00 00 00 FF FF FF 00");
    for (int i = 0; bitsPerPixel == 4 && i < 16; ++i)
        table += std::string(3, static_cast<char>(17 * i)) + '\0';
    for (int row = 0; row < height; ++row) {
        std::string line;
        for (int x = 0; x < width; ++x) {
            const int value = at(x, topDown ? row : height - 1 - row), bit = x * bitsPerPixel % 8;
            if (bit == 0)
                line.append(static_cast<std::size_t>(std::max(1, bitsPerPixel / 8)),
                            static_cast<char>(bitsPerPixel < 8 ? 0 : value));
            const int index = bitsPerPixel == 1 ? value / 200 : value / 17;
            if (bitsPerPixel < 8)
                line.back() = static_cast<char>(line.back() | index << (8 - bitsPerPixel - bit));
        }
        rows += line.append((4 - line.size() % 4) % 4, '\0');
    }
    return BmpHeader{width, topDown ? -height : height, bitsPerPixel, 54 + static_cast<std::int64_t>(table.size())}
               .text() +
           table + rows;
}

void writePng(const Picture& picture, const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = PNG_FORMAT_GRAY;
    EXPECT_NE(png_image_write_to_file(&image, path.c_str(), 0, picture.grey.data(), 0, nullptr), 0);
}

Picture inkedPicture(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns) {
    Picture picture(width, height);
    for (const int row : rows)
        for (const int column : columns)
            picture.at(column, row) = 0;
    return picture;
}

}  // namespace passbook::tests
