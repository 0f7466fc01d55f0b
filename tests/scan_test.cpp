// Scan jobs as dialogues: what is sent, what is made of the answers, and which files are there afterwards. Bytes are
// spelled as in support.h; a reply is what one read brings.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>

#include "api/passbook.h"
#include "scan/scan.h"
#include "status/status.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

class Scan : public ::testing::Test {
 protected:
    TemporaryDirectory directory;
    std::string front = directory.file("front"), back = directory.file("back");

    [[nodiscard]] Call oki(int imageType = 2, int sides = 2, int dpi = 300) const {
        return [=, this] {
            return YARDO_ScantoFileOKI(front.c_str(), back.c_str(), imageType, 10, 20, 30, true, sides, dpi, 1);
        };
    }
    [[nodiscard]] Call oli(int imageType = 0, int sides = 0, int direction = 0, int dpi = 200) const {
        return [=, this] {
            return YARDO_ScantoFileOLI(front.c_str(), back.c_str(), imageType, 200, 1, false, sides, dpi, direction);
        };
    }
    /// Runs a job in an empty directory.
    [[nodiscard]] Outcome scan(const Call& job, const Replies& replies) const {
        for (const auto& entry : std::filesystem::directory_iterator(directory.file("")))
            std::filesystem::remove(entry);
        return run(job, replies);
    }
    /// The rows of a file with the headers of a BMP, or nothing.
    static std::string rowsOf(const std::string& file) { return readFile(file).erase(0, 54); }
};

/// An OKI header for `size` bytes of data.
std::string okiHeader(std::size_t size, const std::string& first = "<05><02><02><00>") {
    std::string header = first;
    for (int i = 0; i < 4; ++i)
        header += spelled(std::string(1, static_cast<char>(size >> (8 * i))));
    return header;
}

/// What an OKI printer answers before the image: status, width, length.
Replies okiReplies(Replies stream, const char* width = "..0800", const char* length = "..0800") {
    stream.insert(stream.begin(), {"..<01>.", width, length});
    return stream;
}

TEST_F(Scan, OkiStreamsBecomeFiles) {
    const std::string image = Picture(9, 4).bmp(8, false), end = "<06>", none = okiHeader(0), more(300, '+');
    const std::string head = okiHeader(image.size()), all = spelled(image);
    const std::string line = "read bmp data " + std::to_string(image.size()) + " ok!\n";
    const auto part = [&](std::size_t from, std::size_t count) { return spelled(image.substr(from, count)); };
    const std::string drop = "XXXXXXXX", first = part(0, 50), rest = part(50, 999);
    // More blocks that are dropped than anybody would wait for, but among others.
    Replies among = {okiHeader(26000)}, fillers(20000, "XXXXXXXX");
    for (int i = 0; i < 13000; ++i)
        among.insert(among.end(), {"XXXXXXXX", "++"});
    among.insert(among.end(), {end, none});
    const Replies both = {head + part(0, 7), part(7, 999), end, head, part(0, 50), part(50, 999), end};
    const struct {
        const char* name;
        Replies stream;
        int result;
        std::string front, back, output;
        bool littered = false;
    } rows[] = {
        {"whole with the header", {head + all, end, none}, 0, image, "", ""},
        {"both sides, in blocks", both, 0, image, image, line + line},
        {"blocks of 8 in between", {head, drop, first, drop, rest, end, none}, 0, image, "", line},
        {"many blocks of 8", among, 0, std::string(26000, '+'), "", "read bmp data 26000 ok!\n"},
        {"one after a long pause", {head, first, "`130`" + drop, rest, end, none}, 0, image, "", line},
        {"the clock is set", {head, drop, "`w-7200`" + drop, "`w7200`" + drop, all, end, none}, 0, image, "", line},
        {"more than announced", {head, all, "more", none}, 0, image + "more", "", line + line},
        {"past the size in one block", {head, all + "+", none}, 0, image + "+", "", line},
        {"ended early", {head, part(0, 60), end, none}, 0, image.substr(0, 60), "", ""},
        {"64 kilobytes announced", {okiHeader(0x10000), more, end, none}, 0, more, "", ""},
        {"four gigabytes announced", {okiHeader(0xFFFFFFFF), all, end, none}, 0, image, "", ""},
        {"silence behind the last block", {head, all}, -40, "", "", line, true},
        {"silence in the middle", {head, part(0, 60)}, -40, "", "", "", true},
        {"nothing at all", {}, -4, "", "", ""},
        {"no second header", {head + all, end}, -4, image, "", ""},
        {"half a second image", {head + all, end, head, part(0, 60)}, -40, image, "", "", true},
        {"counters the wrong way round", {okiHeader(9, "<05><03><02><00>")}, -40, "", "", ""},
        {"another mark", {okiHeader(9, "<04><01><02><00>")}, -40, "", "", ""},
        {"a short header", {"<05><01><02><00>fff"}, -40, "", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome outcome = scan(oki(), okiReplies(row.stream));
        EXPECT_EQ(std::tuple(outcome.result, readFile(front), readFile(back)),
                  std::tuple(row.result, row.front, row.back));
        EXPECT_EQ(std::tuple(outcome.output, directory.littered(), outcome.unread),
                  std::tuple(row.output, row.littered, false));
    }
    fillers.front() = head;
    EXPECT_EQ(scan(oki(), okiReplies(fillers)).result, -40);
    front = directory.file("front.jpg");
    EXPECT_EQ(scan(oki(), okiReplies({head + all, end, none})).result, 0);
    EXPECT_EQ(readFile(front).substr(0, 2), "\xFF\xD8");
    EXPECT_FALSE(directory.littered());
    // The port is drained when there is no place for the image.
    for (const std::string& name : {std::string("no/front"), std::string(200, 'd') + "/" + std::string(100, 'f')}) {
        front = directory.file(name);
        const Outcome outcome = scan(oki(), okiReplies({head, "abcd", end}));
        EXPECT_EQ(std::pair(outcome.result, outcome.unread), std::pair(-31, false));
    }
}

std::string oliHeader(int width, int height) {
    char text[24];
    (void)std::snprintf(text, sizeof text, "<01>%-6d%-5d", width, height);
    return text;
}

const std::string ready = "^rP", start = "<02>T", end10 = "<03>10   ";
const std::string oliSetUp =
    "^}SE<00><18>^<07>E<08>^0^0^l^n^.^l^Q080^Z^J000^T070^&46^#1<1C>&<1C>g0^l^a3^R003^S5^[010^l^ B";

/// What an OLI printer answers around the messages of a scan.
Replies oliReplies(Replies messages) {
    messages.insert(messages.begin(), {"...C..", "^S<00><00><00><00>", "<00><00><00><00><00><00>", ready, ready});
    messages.push_back(ready);
    return messages;
}

TEST_F(Scan, CommandsComeInTheirOrder) {
    const auto okiSettings = [](const std::string& settings) { return "^}SS^}S-^}SL<00>" + settings + "^}D"; };
    const Replies late = {"...@..", "...A..", "...B..", "...C..", "", "", "^rQ", "gone"};
    const Dialogue dialogues[] = {
        {"OKI, no status", oki(), -20, "^}SS", {"?"}},
        {"OKI, another status", oki(), -20, "^}SS", {"..<02>."}},
        {"OKI, no width", oki(), -21, "^}SS^}S-^}SL", okiReplies({}, "..1x00", "..0000")},
        {"OKI, half a width", oki(), -21, "^}SS^}S-^}SL", okiReplies({}, "..080")},
        // resolution, option, direction; colours; sides, parameters.
        {"OKI, 240 dots", oki(0, 0, 240), -4, okiSettings("^}SM_<AA>^}SDAq<0A><14><1E><1E>"),
         okiReplies({}, "..1300", "..1500")},
        {"OKI, 241 dots", oki(1, 1, 241), -4, okiSettings("^}SMW<AA>^}SDqQ<0A><14><1E><1E>"),
         okiReplies({}, "..1230", "..1500")},
        {"OKI, 400 dots", oki(2, 2, 400), -4, okiSettings("^}SMW<AA>^}SDaaAA<1E><1E>"),
         okiReplies({}, "..1231", "..1589")},
        {"OKI, 401 dots", oki(4, 3, 401), -4, okiSettings("^}SMG<CC>^}SDqqAA<1E><1E>"),
         okiReplies({}, "..1379", "..1441")},
        {"OKI, lowest", oki(-1, -1, INT_MIN), -4, okiSettings("^}SM_<AA>^}SDqq<0A><14><1E><1E>"),
         okiReplies({}, "..1380", "..1500")},
        {"OLI", oli(3, 2, 3, 600), -40, oliSetUp + "^}-^-^j^YPC<CC>^j^}Paa<C8><C8><01><01>^Z^j^l^O^0",
         oliReplies({""})},
        // The document is called for, drawn in, and not waited for beyond a minute.
        {"OLI, late", oli(), 2, oliSetUp + "<07>^ B<07>^ B^L000^ B^}-^-^j^l^O^0", late},
    };
    speak(dialogues);
    EXPECT_EQ(run(oli(), Replies(31, "...@..")).slept, 60);
    EXPECT_EQ(run(oli(), {"...@.."}, 5).slept, 0);  // a bell that fails ends the waiting, not the job
    Replies notReady = oliReplies({""});
    notReady.insert(notReady.begin() + 4, 22, "^rQ");
    (void)run(oli(), notReady);  // 22 requests of the wait and one check on either side, for the record
}

TEST_F(Scan, OliMessagesBecomeFiles) {
    const std::string header = oliHeader(32, 10), huge = oliHeader(65535, 65535);
    const std::string data = "0123456789abcdefghijABCDEFGHIJ)!@#$%*&'(";  // 32 x 10 pixels of 1 bit
    const std::string more(2000, '+'), nothing = "wd=0 len=0\nreq=0 rv=0 \n";
    const auto told = [](int width, int height, int count, int wanted) {
        char text[64];
        (void)std::snprintf(text, sizeof text, "wd=%d len=%d\nreq=%d rv=%d \n", width, height, wanted, count);
        return std::string(text);
    };
    const auto received = [&](int count) { return told(32, 10, count, 40); };
    const std::string half = data.substr(0, 20), late = "`130`", back1 = "`w-7200`";
    const struct {
        const char* name;
        Replies messages;
        int result;
        std::string rows, output;
        int imageType = 0;
    } rows[] = {
        {"in blocks", {header, start, data.substr(0, 1), data.substr(1), end10}, 0, data, received(40)},
        {"other messages in between", {"?", header, "??", start, data, end10}, 0, data, received(40)},
        {"another row count", {header, start, data, "<03>11   "}, 2, data, received(40)},
        {"a block too long at the end", {header, start, data, "x", end10}, 0, data, received(40)},
        {"a block that overshoots", {header, start, half, half + "x", end10}, 0, "", received(20)},
        {"too much in one block", {header, start, more, end10}, 0, "", received(0)},
        {"data like an end", {header, start, end10, data}, 0, "", received(0)},
        {"no image", {header, end10}, 0, "", ""},
        {"all late", {late + header, late + start, late + data, late + "x", late + end10}, 0, data, received(40)},
        {"a clock is set", {"`w7200`?", header, start, back1 + data, "x", "`w7200`x", end10}, 0, data, received(40)},
        {"noise and a header", {"?", "`119`" + header, "`2`?", "`119`" + start, data, end10}, 0, data, received(40)},
        {"noise without an end", {header, "?", "`121`?"}, -40, "", ""},
        {"the same header without an end", {header, header, "`121`" + header}, -40, "", ""},
        {"complete, and no end", {header, start, data, "x", "`121`x"}, -40, data, received(40)},
        {"not complete, and no end", {header, start, data.substr(1), "xx", "`121`xx"}, -40, "", ""},
        {"an empty image", {oliHeader(0, 10), start, end10}, 0, "", "wd=0 len=10\nreq=0 rv=0 \n"},
        {"no header", {start, "abc", end10}, 2, "", nothing},
        {"a header of 11 bytes", {header.substr(0, 14), start, data, end10}, 2, "", nothing},
        {"silence in the data", {header, start, data, ""}, -40, "", ""},
        {"silence", {""}, -40, "", ""},
        // 65535 squared pixels of 24 bits are beyond 31 bits, of 1 bit they are not.
        {"more than there is memory for", {huge, start, data, end10}, -31, "", "", 3},
        {"the same, without an end", {huge, start, data, ""}, -40, "", "", 3},
        {"the same, for a long time", {huge, start, data, "`121`" + data}, -31, "", "", 3},
        // Rows of any width get their fill. 00011 11110 00001: the last bits of 15 never come.
        {"5 bits",
         {oliHeader(5, 3), start, "<1F>", "<03>3    "},
         0,
         bytes("18000000E000000000000000"),
         told(5, 3, 1, 1)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome outcome = scan(oli(row.imageType), oliReplies(row.messages));
        EXPECT_EQ(std::tuple(outcome.result, rowsOf(front), outcome.output),
                  std::tuple(row.result, row.rows, row.output));
        EXPECT_FALSE(outcome.unread);
    }
    // Both sides: a header speaks for both, a failed front does not stop the back, the last failure counts.
    EXPECT_EQ(scan(oli(0, 2), oliReplies({header, start, "", start, data, end10})).result, -40);
    EXPECT_EQ(rowsOf(front) + rowsOf(back), data);
}

TEST_F(Scan, ExchangesAndConfigurationTellWhatWentWrong) {
    const auto exchange = [](const std::string& command) {
        return [bytes = wire(command)] { return pb2Prt(octets(bytes.data()), static_cast<int>(bytes.size())); };
    };
    const auto get = [](int size) {
        return [=] {
            std::vector<unsigned char> room(static_cast<std::size_t>(size));
            const int count = GetPrinterConfig(room.data(), size);
            std::copy_n(room.begin(), count, answer);
            return count;
        };
    };
    const auto set = call(SetPrinterConfig, octets("12"), 2);
    const std::string empty = "get data length: 0\n";
    const Dialogue dialogues[] = {
        {"no reply awaited", exchange("<00><00><00>"), 0, "<00>"},
        {"ready", exchange("<01><03>^j"), 0, "^j", {ready}},
        {"not ready", exchange("<01><03>^j"), 64, "^j", {"^rQ"}},
        {"in pieces", exchange("<01><03>^j"), 2, "^j", {"^r", "P"}},
        {"nothing", exchange("<01><03>^j"), 2, "^j"},
        {"too much", exchange("<01><03>^j"), 2, "^j", {"^rPP"}},
        {"longest", exchange("<08><20>^j"), 0, "^j", {"^a8F010003224000901" + spelled(std::string(11, '\x7F')) + "^Z"}},
        {"another", exchange("<05><06>^j"), 0, "^j", {"^B5@^Z"}},
        {"beyond the replies", exchange("<09><03>^j"), 0, "^j", {ready}},

        {"configuration", get(64), 10, "^} a<07>", {"12345", "678^", "", "Z"}, "12345678^Z#"},
        {"no configuration", get(64), 0, "^} a<07>", {}, "#"},
        {"as much as there is room", get(4), 4, "^} a<07>", {"123456"}, "1234#"},
        {"set", set, 0, "^} =12", {"ab.0"}},
        {"set 1", set, -50, "^} =12", {"ab.1"}},
        {"set 2", set, -51, "^} =12", {"ab.2"}},
        {"set 3", set, -52, "^} =12", {"ab.3"}},
        {"set, half an answer", set, -52, "^} =12", {"0"}},
    };
    speak(dialogues);
    EXPECT_EQ(run(get(64), {"12", "", "^Z"}).output, "get data length: 2\n" + empty + "get data length: 2\n");
    EXPECT_EQ(run(get(4), {"123456"}).output, "get data length: 4\n");
    EXPECT_EQ(run(get(64)).output.size(), 6 * empty.size());
}

}  // namespace
}  // namespace passbook::tests
