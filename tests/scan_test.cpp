// Scan jobs as dialogues: what is sent, what is made of the answers, and which files are there afterwards. Bytes are
// spelled as in support.h; a reply is what one read brings.
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

#include "api/passbook.h"
#include "scan/scan.h"
#include "status/status.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

using Replies = std::vector<std::string>;

class Scan : public Pr2Port {
 protected:
    TemporaryDirectory directory;
    std::string front = directory.file("front"), back = directory.file("back");
    std::string output;  // what the job printed

    int okiScan(const Replies& replies, int imageType = 2, int sides = 2, int dpi = 300) {
        return run(replies, [&] { return YARDO_ScantoFileOKI(front.c_str(), back.c_str(), imageType, 10, 20, 30, true, sides, dpi, 1); });
    }
    int oliScan(const Replies& replies, int imageType = 0, int sides = 0, int direction = 0, int dpi = 200) {
        return run(replies,
                   [&] { return YARDO_ScantoFileOLI(front.c_str(), back.c_str(), imageType, 200, 1, false, sides, dpi, direction); });
    }
    [[nodiscard]] bool leftTemporary() const {
        for (const auto& entry : std::filesystem::directory_iterator(directory.file(""))) {
            if (entry.path().filename().string().starts_with(".tmp_")) return true;
        }
        return false;
    }
    void again() {
        for (const auto& entry : std::filesystem::directory_iterator(directory.file(""))) std::filesystem::remove(entry);
        TearDown();
        SetUp();
    }

 private:
    int run(const Replies& replies, const std::function<int()>& job) {
        for (const std::string& each : replies) port->replies.push_back(each);
        testing::internal::CaptureStdout();
        const int result = job();
        output = testing::internal::GetCapturedStdout();
        return result;
    }
};

/// An OKI header for `size` bytes of data.
std::string okiHeader(std::size_t size, const std::string& first = "<05><01><02><00>") {
    std::string header = wire(first);
    for (int i = 0; i < 4; ++i) header += static_cast<char>(size >> (8 * i));
    return header;
}

/// What an OKI printer answers before the image: status, width, length.
Replies okiReplies(const Replies& stream, const char* width = "..0800", const char* length = "..0800") {
    Replies all = {wire("..<01>."), width, length};
    all.insert(all.end(), stream.begin(), stream.end());
    return all;
}

TEST_F(Scan, OkiStreamsBecomeFiles) {
    const std::string image = Picture(9, 4).bmp(8, false), end = "\x06", none = okiHeader(0);
    const std::string head = okiHeader(image.size()), line = "read bmp data " + std::to_string(image.size()) + " ok!\n";
    const auto part = [&](std::size_t from, std::size_t count) { return image.substr(from, count); };
    const struct {
        const char* name;
        Replies stream;
        int result;
        std::string front, back, output;
        bool temporary = false;
    } rows[] = {
        {"whole with the header", {head + image, end, none}, 0, image, "", ""},
        {"in blocks", {head, part(0, 50), part(50, 999), end, none}, 0, image, "", line},
        {"both sides", {head + part(0, 7), part(7, 999), end, head, image, end}, 0, image, image, line + line},
        {"the back side only", {none, head, image, end}, 0, "", image, line},
        {"blocks of 8 in between", {head, "XXXXXXXX", part(0, 50), "XXXXXXXX", part(50, 999), end, none}, 0, image, "", line},
        {"more than announced", {head, image, "more", none}, 0, image + "more", "", line + line},
        {"past the size in one block", {head, image + "+", none}, 0, image + "+", "", line},
        {"ended early", {head, part(0, 60), end, none}, 0, part(0, 60), "", ""},
        {"silence behind the last block", {head, image}, -40, "", "", line, true},
        {"silence in the middle", {head, part(0, 60)}, -40, "", "", "", true},
        {"nothing at all", {}, -4, "", "", ""},
        {"no second header", {head + image, end}, -4, image, "", ""},
        {"half a second image", {head + image, end, head, part(0, 60)}, -40, image, "", "", true},
        {"counters the wrong way round", {okiHeader(9, "<05><03><02><00>")}, -40, "", "", ""},
        {"another mark", {okiHeader(9, "<04><01><02><00>")}, -40, "", "", ""},
        {"a short header", {head.substr(0, 7)}, -40, "", "", ""},
        {"four gigabytes announced", {okiHeader(0xFFFFFFFF), image, end, none}, 0, image, "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(okiScan(okiReplies(row.stream)), row.result);
        EXPECT_EQ(readFile(front), row.front);
        EXPECT_EQ(readFile(back), row.back);
        EXPECT_EQ(output, row.output);
        EXPECT_EQ(leftTemporary(), row.temporary);
        EXPECT_TRUE(port->replies.empty());
        again();
    }
    front = directory.file("front.jpg");
    EXPECT_EQ(okiScan(okiReplies({head + image, end, none})), 0);
    EXPECT_EQ(readFile(front).substr(0, 2), "\xFF\xD8");
    EXPECT_FALSE(leftTemporary());
}

TEST_F(Scan, OkiScansThatCannotBegin) {
    const std::string head = okiHeader(4);
    EXPECT_EQ(okiScan({"?"}), -20);
    again();
    EXPECT_EQ(okiScan({wire("..<02>.")}), -20);
    again();
    port->failWrite = 1;
    EXPECT_EQ(okiScan({}), -3);
    again();
    EXPECT_EQ(okiScan(okiReplies({}, "..1x00", "..0000")), -21);
    EXPECT_EQ(port->sent(), "^}SS^}S-^}SL");
    again();
    EXPECT_EQ(okiScan(okiReplies({}, "..080", "..0800")), -21);
    again();
    // The port is drained when there is no place for the image.
    front = directory.file("no/front");
    EXPECT_EQ(okiScan(okiReplies({head, "abcd", "\x06"})), -31);
    EXPECT_TRUE(port->replies.empty());
    again();
    front = directory.file(std::string(200, 'd') + "/" + std::string(100, 'f'));
    EXPECT_EQ(okiScan(okiReplies({head, "abcd"})), -31);
    again();
    front = directory.file("front");
    failAllocation(1, 16384);
    EXPECT_EQ(okiScan(okiReplies({head, "abcd"})), -31);
    again();

    const std::string longest(511, 'x');
    const char* names[][2] = {{nullptr, "b"}, {"a", nullptr}, {"a", nullptr}};
    const std::string tooLong = longest + "x";
    names[2][1] = tooLong.c_str();
    for (const auto& [a, b] : names) {
        EXPECT_EQ(YARDO_ScantoFileOKI(a, b, 0, 0, 0, 0, false, 0, 0, 0), -1);
        EXPECT_EQ(YARDO_ScantoFileOLI(a, b, 0, 0, 0, false, 0, 0, 0), -1);
    }
    EXPECT_EQ(port->sent(), "");
    ASSERT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(YARDO_ScantoFileOKI(nullptr, "b", 0, 0, 0, 0, false, 0, 0, 0), -6);
    EXPECT_EQ(YARDO_ScantoFileOLI(nullptr, "b", 0, 0, 0, false, 0, 0, 0), -6);
}

// resolution, option, direction; colours; sides, parameters.
TEST_F(Scan, SettingsAreSentAsBytes) {
    const struct {
        int imageType, sides, dpi;
        const char *width, *length;
        std::string sent;
    } rows[] = {
        {0, 0, 240, "..1300", "..1500", "^}SM_<AA>^}SDAq<0A><14><1E><1E>"},
        {1, 1, 241, "..1230", "..1500", "^}SMW<AA>^}SDqQ<0A><14><1E><1E>"},
        {2, 2, 400, "..1231", "..1589", "^}SMW<AA>^}SDaaAA<1E><1E>"},
        {3, 3, 401, "..1379", "..1441", "^}SMG<CC>^}SDqqAA<1E><1E>"},
        {-1, -1, INT_MIN, "..1380", "..1500", "^}SM_<AA>^}SDqq<0A><14><1E><1E>"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(okiScan(okiReplies({}, row.width, row.length), row.imageType, row.sides, row.dpi), -4);
        EXPECT_EQ(port->sent(), "^}SS^}S-^}SL<00>" + row.sent + "^}D");
        again();
    }
}

std::string oliHeader(int width, int height) {
    char text[16];
    (void)std::snprintf(text, sizeof text, "\x01%-6d%-5d", width, height);
    return text;
}
std::string oliEnd(int rows) {
    char text[16];
    (void)std::snprintf(text, sizeof text, "\x03%-5d", rows);
    return text;
}

const std::string ready = "\x1BrP", start = "\x02T";

/// What an OLI printer answers around the messages of a scan.
Replies oliReplies(const Replies& messages) {
    Replies all = {"...C..", wire("^S<00><00><00><00>"), std::string(6, '\0'), ready, ready};
    all.insert(all.end(), messages.begin(), messages.end());
    all.push_back(ready);
    return all;
}

TEST_F(Scan, OliMessagesBecomeFiles) {
    const std::string data = "0123456789abcdefghijABCDEFGHIJ)!@#$%^&*(";  // 32 x 10 pixels of 1 bit
    const std::string file = BmpHeader{32, -10, 1}.text() + data, size = "wd=32 len=10\n";
    const auto received = [&](int count) { return size + "req=40 rv=" + std::to_string(count) + " \n"; };
    const struct {
        const char* name;
        Replies messages;
        int result;
        std::string rows, output;
    } rows[] = {
        {"whole", {oliHeader(32, 10), start, data, oliEnd(10)}, 0, data, received(40)},
        {"in blocks", {oliHeader(32, 10), start, data.substr(0, 1), data.substr(1), oliEnd(10)}, 0, data, received(40)},
        {"other messages in between", {"?", oliHeader(32, 10), "??", start, data, oliEnd(10)}, 0, data, received(40)},
        {"another row count", {oliHeader(32, 10), start, data, oliEnd(11)}, 2, data, received(40)},
        {"a block too long at the end", {oliHeader(32, 10), start, data, "x", oliEnd(10)}, 0, data, received(40)},
        {"a block that overshoots", {oliHeader(32, 10), start, data.substr(0, 20), data.substr(0, 21), oliEnd(10)}, 0, "", received(20)},
        {"too much in one block", {oliHeader(32, 10), start, data + data, oliEnd(10)}, 0, "", received(0)},
        {"data like an end", {oliHeader(32, 10), start, oliEnd(10), data}, 0, "", received(0)},
        {"no image", {oliHeader(32, 10), oliEnd(10)}, 0, "", ""},
        {"an empty image", {oliHeader(0, 10), start, oliEnd(10)}, 0, "", "wd=0 len=10\nreq=0 rv=0 \n"},
        {"no header", {start, "abc", oliEnd(1)}, 2, "", "wd=0 len=0\nreq=0 rv=0 \n"},
        {"a header of 11 bytes", {oliHeader(32, 10).substr(0, 11), start, data, oliEnd(10)}, 2, "", "wd=0 len=0\nreq=0 rv=0 \n"},
        {"silence in the data", {oliHeader(32, 10), start, data, ""}, -40, "", ""},
        {"silence", {""}, -40, "", ""},
        {"more than there is memory for", {oliHeader(65535, 65535), start, data, oliEnd(10)}, -31, "", ""},
        {"the same, without an end", {oliHeader(65535, 65535), start, data, ""}, -40, "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        // 65535 squared pixels of 24 bits are beyond 31 bits, of 1 bit they are not.
        const bool huge = row.messages[0] == oliHeader(65535, 65535);
        EXPECT_EQ(oliScan(oliReplies(row.messages), huge ? 3 : 0), row.result);
        const std::string made = readFile(front);
        EXPECT_EQ(made.empty() ? "" : made.substr(54), row.rows);
        EXPECT_EQ(output, row.output);
        EXPECT_TRUE(port->replies.empty());
        again();
    }
    EXPECT_EQ(oliScan(oliReplies({oliHeader(32, 10), start, data, oliEnd(10)}), 0, 0, 1), 0);
    EXPECT_EQ(hex(readFile(front).substr(18, 8)), "20 00 00 00 0A 00 00 00");  // bottom-up
    again();
    // Both sides: a header speaks for both, a failed front does not stop the back, the last failure counts.
    EXPECT_EQ(oliScan(oliReplies({oliHeader(32, 10), start, "", start, data, oliEnd(10)}), 0, 2), -40);
    EXPECT_EQ(readFile(front), "");
    EXPECT_EQ(readFile(back).substr(54), data);
    again();
    EXPECT_EQ(oliScan(oliReplies({oliHeader(32, 10), start, data, oliEnd(9)}), 0, 1), 2);
    EXPECT_EQ(readFile(back).substr(54), data);
    EXPECT_FALSE(std::filesystem::exists(front));
    again();
    failAllocation(1, 1000);
    EXPECT_EQ(oliScan(oliReplies({oliHeader(32, 10), start, data, oliEnd(10)})), -31);
    EXPECT_TRUE(port->replies.empty());
}

TEST_F(Scan, OliRowsOfAnyWidthGetTheirFill) {
    const struct {
        int width, height, imageType;
        std::string data, rows;
    } rows[] = {
        {5, 3, 0, "1F 82", "18 00 00 00 F0 00 00 00 00 00 00 00"},  // 00011 11110 00001(0), the last bit never came
        {12, 2, 0, "AB CD EF", "AB C0 00 00 DE F0 00 00"},
        {3, 2, 1, "12 34 56", "12 30 00 00 45 60 00 00"},
        {3, 1, 2, "01 02 03", "01 02 03 00"},
        {1, 2, 3, "01 02 03 04 05 06", "01 02 03 00 04 05 06 00"},
        {4, 2, 2, "01 02 03 04 05 06 07 08", "01 02 03 04 05 06 07 08"},
    };
    for (const auto& row : rows) {
        std::string data = bytes(row.data);
        if (row.width == 5) data = data.substr(0, 1);  // 15 bits are one whole byte
        const Replies messages = {oliHeader(row.width, row.height), start, data, oliEnd(row.height)};
        EXPECT_EQ(oliScan(oliReplies(messages), row.imageType), 0);
        const std::string want = row.width == 5 ? "18 00 00 00 E0 00 00 00 00 00 00 00" : row.rows;
        EXPECT_EQ(hex(readFile(front).substr(54)), want) << row.width;
        again();
    }
}

TEST_F(Scan, OliCommandsComeInTheirOrder) {
    const std::string setUp = "<18>^<07>E<08>^0^0^l^n^.^l^Q080^Z^J000^T070^&46^#1<1C>&<1C>g0^l^a3^R003^S5^[010^l";
    EXPECT_EQ(oliScan(oliReplies({""}), 3, 2, 3, 600), -40);
    EXPECT_EQ(port->sent(), "^}SE<00>" + setUp + "^ B^}-^-^j^YPC<CC>^j^}Paa<C8><C8><01><01>^Z^j^l^O^0");
    again();
    // The document is called for, drawn in, and not waited for beyond a minute.
    EXPECT_EQ(oliScan({"...@..", "...A..", "...B..", "...C..", "", "", "\x1BrQ", "gone"}), 2);
    EXPECT_EQ(port->sent(), "^}SE<00>" + setUp + "^ B<07>^ B<07>^ B^L000^ B^}-^-^j^l^O^0");
    EXPECT_EQ(virtualClock.sleptSeconds, 5);
    EXPECT_TRUE(port->replies.empty());
    again();
    EXPECT_EQ(oliScan(Replies(31, "...@..")), 2);
    EXPECT_EQ(virtualClock.sleptSeconds, 60);
    again();
    port->failWrite = 5;  // the bell; the job goes on
    EXPECT_EQ(oliScan({"...@.."}), 2);
    EXPECT_EQ(virtualClock.sleptSeconds, 0);
    again();
    Replies replies = oliReplies({""});
    replies.insert(replies.begin() + 4, 22, "\x1BrQ");
    EXPECT_EQ(oliScan(replies), -40);
    std::size_t requests = 0, clears = 0;
    for (const std::string& each : port->writes) {
        requests += each == "\x1Bj" ? 1 : 0;
        clears += each == "\x1Bl" ? 1 : 0;
    }
    EXPECT_EQ(requests, 24U);  // 22 of the wait, one check on either side
    EXPECT_EQ(clears, 21U);
}

TEST_F(Scan, ExchangesTellWhatWentWrong) {
    const struct {
        std::string command;
        Replies replies;
        int failWrite, flags, reads;
    } rows[] = {
        {"<00><00><00>", {}, 0, 0, 0},
        {"<00><00><00>", {}, 1, 1, 0},
        {"<01><03>^j", {"\x1BrP"}, 0, 0, 1},
        {"<01><03>^j", {"\x1BrP"}, 1, 1, 1},
        {"<01><03>^j", {"\x1BrQ"}, 0, 64, 1},
        {"<01><03>^j", {"\x1Br", "P"}, 0, 2, 1},
        {"<01><03>^j", {}, 1, 3, 1},
        {"<01><03>^j", {"\x1BrPP"}, 0, 2, 1},
        {"<08><20>^j", {wire("^a8F010003224000901") + std::string(11, '\x7F') + wire("^Z")}, 0, 0, 1},
        {"<05><06>^j", {wire("^B5@^Z")}, 0, 0, 1},
        {"<09><03>^j", {"\x1BrP"}, 0, 0, 0},
    };
    for (const auto& row : rows) {
        for (const std::string& each : row.replies) port->replies.push_back(each);
        port->failWrite = row.failWrite;
        port->reads = 0;
        const std::string command = wire(row.command);
        EXPECT_EQ(pb2Prt(reinterpret_cast<const unsigned char*>(command.data()), static_cast<int>(command.size())), row.flags)
            << row.command;
        EXPECT_EQ(port->reads, row.reads);
        again();
    }
}

TEST_F(Scan, OkiConfiguration) {
    std::string buffer(64, '#');
    auto* data = reinterpret_cast<unsigned char*>(buffer.data());
    const auto get = [&](const Replies& replies, int size) {
        for (const std::string& each : replies) port->replies.push_back(each);
        testing::internal::CaptureStdout();
        const int count = GetPrinterConfig(data, size);
        output = testing::internal::GetCapturedStdout();
        return count;
    };
    EXPECT_EQ(get({"12345", "678\x1B", "", "Z"}, 64), 10);
    EXPECT_EQ(output, "get data length: 5\nget data length: 4\nget data length: 0\nget data length: 1\n");
    EXPECT_EQ(port->sent(), "^} a<07>");
    EXPECT_EQ(get({}, 64), 0);
    EXPECT_EQ(output.size(), 6 * std::string("get data length: 0\n").size());
    EXPECT_EQ(get({"123456"}, 4), 4);
    port->replies.clear();
    const struct {
        const char* reply;
        int result;
    } rows[] = {{"ab.0", 0}, {"ab.1", -50}, {"ab.2", -51}, {"ab.3", -52}, {"0", -52}, {"", -52}};
    for (const auto& row : rows) {
        port->writes.clear();
        port->replies = {row.reply};
        EXPECT_EQ(SetPrinterConfig(data, 2), row.result);
        EXPECT_EQ(port->sent(), "^} =12");
    }
    EXPECT_EQ(virtualClock.sleptSeconds, 6);
}

}  // namespace
}  // namespace passbook::tests
