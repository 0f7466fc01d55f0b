// The PR2 functions as dialogues: what they put on the wire, what they make of the answers, and what they
// return when the wire does not carry it. Bytes are spelled as in support.h: ^ is ESC.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "api/passbook.h"
#include "status/status.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

using Call = std::function<int()>;
using Replies = std::vector<std::string>;  // one a read; an empty one is a read that times out

char stripe0[64], stripe1[64];
unsigned char identifier[14];

Call raw(const unsigned char* data, int length) {
    return [=] { return YARDO_PR2_Command(data, length); };
}
Call text(int unit, int x, int y, const char* text, int length = -1) {
    return [=] { return YARDO_PR2_PrintData(unit, x, y, text, length); };
}
Call format(double pitch, int bold, int width, int height) {
    return [=] { return YARDO_PR2_SetFormat(pitch, bold, width, height); };
}
Call lineSpace(double millimetres) {
    return [=] { return YARDO_PR2_SetLineSpace(1, millimetres); };
}
Call underline(int mode) {
    return [=] { return YARDO_PR2_SetUnderLine(mode); };
}
Call initialise(int mode, int seconds) {
    return [=] { return YARDO_PR2_InitPrinter(mode, seconds); };
}
Call getIdentifier(unsigned char* out) {
    return [=] { return YARDO_PR2_GetFWID(out); };
}
Call removal(int seconds) {
    return [=] { return YARDO_PR2_SPB(seconds); };
}
Call readStripe(int track, char* buffer = stripe0, int length = 64) {
    return [=] { return YARDO_PR2_MSR(track, buffer, length); };
}
Call readStripes(char* buffer0, int length0, char* buffer1, int length1) {
    return [=] { return YARDO_PR2_MSRALL(buffer0, length0, buffer1, length1); };
}
Call writeStripe(const char* data, int length) {
    return [=] { return YARDO_PR2_MSW(0, data, length); };
}

const std::string setUp = "^n^.^l^Q080^Z^J000^T070^&46^#1^a3^R003^S5^l^j";

const struct Dialogue {
    const char* name;
    Call call;
    int result;
    std::string sent;
    Replies replies = {};
} dialogues[] = {
    {"raw bytes", raw(reinterpret_cast<const unsigned char*>("\x1B\x00q"), 3), 0, "^<00>q"},
    {"no raw bytes", raw(nullptr, 0), 0, ""},
    {"raw bytes, negative", raw(identifier, -1), -1, ""},
    {"raw bytes from nowhere", raw(nullptr, 4), -1, ""},

    {"text in millimetres, one lower", text(0, 10, 20, "ABC", 2), 0, "^/10196^|A046AB<0D>"},
    {"text in inches", text(1, 1, 2, "AB"), 0, "^/10480^|A120AB<0D>"},
    {"Chinese text", text(0, 0, -1, "中1"), 0, "^/10000^|A000<D6><D0>1<0D>"},
    {"text cut off in a character", text(1, 0, 0, "A\xE4\xB8", 3), 0, "^/10000^|A000A<0D>"},
    {"text that is no UTF-8", text(0, 1, 1, "A\xFF!", 3), -60, ""},
    {"no text", text(0, 1, 1, nullptr), -1, ""},
    {"last place", text(0, 211, 1057, ""), 0, "^/19996^|A996<0D>"},
    {"too far right", text(0, 212, 10, "A"), -1, ""},
    {"too far down", text(0, 10, 1058, "A"), -1, ""},
    {"left of the page", text(0, -1, 10, "A"), -1, ""},
    {"above the page", text(1, 0, -1, "A"), -1, ""},
    {"in 32 bits a place again, millimetres", text(0, 23860930, 10, "A"), -1, ""},
    {"in 32 bits a place again, inches", text(1, 0, 23860930, "A"), -1, ""},
    {"one more than the largest", text(0, 0, INT_MAX, "A"), -1, ""},

    {"format", format(10.9, 1, 1, 2), 0, "^a1^(^4<1C>h<0A>^w2"},
    {"format, plain", format(17, 0, 0, 0), 0, "^a8^)^3<1C>j<0A>^w0"},
    {"format, unlisted", format(11, 0, 7, 1), 0, "^a<00>^)^4<1C>j<0A>^w1"},
    {"format, no number", format(NAN, 0, 2, 0), 0, "^a<00>^)^4<1C>j<0A>^w0"},
    {"line space", lineSpace(3.0), 0, "^&28"},
    {"largest line space", lineSpace(10.58), 0, "^&99"},
    {"line space too large", lineSpace(10.59), -1, ""},
    {"negative line space", lineSpace(-0.01), -1, ""},
    {"line space without a number", lineSpace(NAN), -1, ""},
    {"underline 0", underline(0), 0, "^*0"},
    {"underline 1", underline(1), 0, "^*3"},
    {"underline 2", underline(2), 0, "^*4"},
    {"underline 3", underline(3), 0, "^+"},
    {"underline, unlisted", underline(-1), 0, "^*0"},
    {"line break", YARDO_PR2_LR, 0, "<0D><0A>"},
    {"insert", YARDO_PR2_InsertPaper, 0, "^l^L000"},
    {"eject", YARDO_PR2_EjectPaper, 0, "^O"},
    {"clear error", YARDO_PR2_ClearError, 0, "^l"},
    {"clear all", YARDO_PR2_CLearAll, 0, "^0"},

    {"ready at once", initialise(2, 5), 0, "^0^l" + setUp, {"^rP"}},
    {"ready in pieces", initialise(1, 5), 0, "^l" + setUp, {"^", "", "rP"}},
    {"ready after an error", initialise(0, 5), 0, "^l<0C>" + setUp + "^l^j", {"^rQ", "^rP"}},
    {"one read without time", initialise(1, 0), -30, "^l" + setUp, {"", "^rP"}},
    {"negative time", initialise(1, INT_MIN), -30, "^l" + setUp},

    {"no room for the identifier", getIdentifier(nullptr), -1, ""},
    {"identifier, wrong head", getIdentifier(identifier), -4, "^l^ b", {"^c01"}},
    {"no identifier", getIdentifier(identifier), -4, "^l^ b"},

    {"paper, three pieces", YARDO_PR2_GetPaperStatus, 4, "^ B", {"^ ", "BC", ".."}},
    {"paper, a piece too many", YARDO_PR2_GetPaperStatus, -20, "^ B", {"^", " ", "B", "C.."}},
    {"printer, four pieces", YARDO_PR2_GetPrinterStatus, 1, "^j", {"^", "", "r", "P"}},
    {"printer, a piece too many", YARDO_PR2_GetPrinterStatus, -22, "^j", {"^", "", "r", "", "P"}},
    {"printer, two conditions at once", YARDO_PR2_GetPrinterStatus, -22, "^j", {"^rU"}},

    {"document gone at once", removal(10), 0, "^ B^O^ B", {"...C..", "...@.."}},
    {"document in place again", removal(10), 0, "^ B^ B", {"...A..", "...C.."}},
    {"taken later", removal(10), 0, "^ B^O^ B^ B^ B", {"...C..", "...A..", "...B..", "...@.."}},
    {"never taken", removal(-1), 0, "^ B^ B^}0P^L000^ B^j<0C>", {"...A..", "...A.."}},
    {"removal not answered", removal(10), -20, "^ B^O^ B", {"...C.."}},

    {"stripe", readStripe(0), 0, "^l^YE@@^]", {"hh123<1C>"}},
    {"stripe over three polls", readStripe(2), 0, "^l^YEA@^]", {"h<1C>", "123", "<1C>"}},
    {"stripe without an end", readStripe(1), -4, "^l^YEA@^]", {"hh1"}},
    {"stripe buffer too short", readStripe(1, stripe0, 1), -1, ""},
    {"no stripe buffer", readStripe(1, nullptr), -1, ""},
    {"both stripes, one buffer missing", readStripes(nullptr, 64, stripe1, 64), -1, ""},
    {"both stripes, one too short", readStripes(stripe0, 64, stripe1, 1), -1, ""},
    {"stripe written", writeStripe("99=", 3), 0, "^l^YE@@^t99=<1D>^\\"},
    {"no stripe data", writeStripe(nullptr, 3), -1, ""},
    {"negative stripe data", writeStripe("99", -1), -1, ""},
    {"no picture", [] { return YARDO_PrintBmpOLI(nullptr, true, 0, 0); }, -1, ""},

    // The scan job's set-up shares its name, not its bytes, with the one above.
    {"scan set-up", [] { return YARDO_PR2_LR() + passbook::InitPrinter_OLI(); }, 0,
     "<0D><0A><18>^<07>E<08>^0^0^l^n^.^l^Q080^Z^J000^T070^&46^#1<1C>&<1C>g0^l^a3^R003^S5^[010^l"},
    {"paper position", [] { return YARDO_PR2_LR() + passbook::InitPaperPosition_OLI(); }, 0, "<0D><0A>^L000"},
};

class Dialogues : public Pr2Port {
 protected:
    void reply(const Replies& replies) {
        port->replies.clear();
        for (const std::string& each : replies) port->replies.push_back(wire(each));
    }
    void again() {
        TearDown();
        SetUp();
    }
};

TEST_F(Dialogues, AreSpokenAsTheyStand) {
    for (const Dialogue& dialogue : dialogues) {
        SCOPED_TRACE(dialogue.name);
        reply(dialogue.replies);
        EXPECT_EQ(dialogue.call(), dialogue.result);
        EXPECT_EQ(port->sent(), dialogue.sent);
        again();
    }
    ASSERT_EQ(YARDO_PR2_ClosePort(), 0);
    for (const Dialogue& dialogue : dialogues) EXPECT_EQ(dialogue.call(), -6) << dialogue.name << " without a port";
    EXPECT_EQ(YARDO_PR2_ClosePort(), -6);
}

// Which write decides the result, and which is not looked at: each call with its n-th write failing.
TEST_F(Dialogues, AFailedWriteIsReportedWhereItCounts) {
    const struct {
        const char* name;
        Call call;
        std::vector<int> results;  // for the first write failing, the second, …
        Replies replies = {};
    } rows[] = {
        {"text", text(0, 1, 1, "A"), {0, -3, -3, 0}},
        {"format", format(10, 1, 1, 1), {-3, -3, -3, 0, -3}},
        {"line space", lineSpace(1), {-3}},
        {"underline", underline(1), {-3}},
        {"underline off", underline(3), {0}},
        {"insert", YARDO_PR2_InsertPaper, {-3}},
        {"raw", raw(identifier, 2), {-3}},
        {"initialise", initialise(1, 1), {0, 0}, {"^rP"}},
        {"identifier", getIdentifier(identifier), {0}, {"^b"}},
        {"paper", YARDO_PR2_GetPaperStatus, {-3}, {"...C.."}},
        {"printer", YARDO_PR2_GetPrinterStatus, {-3}, {"^rP"}},
        {"removal", removal(1), {0, 0, -3}, {"...C..", "...@.."}},
        {"stripe read", readStripe(0), {0, -3}, {"hh<1C>"}},
        {"stripe write", writeStripe("1", 1), {0, -3, 0, 0}},
    };
    for (const auto& row : rows) {
        for (std::size_t n = 0; n < row.results.size(); ++n) {
            port->failWrite = static_cast<int>(n) + 1;
            reply(row.replies);
            EXPECT_EQ(row.call(), row.results[n]) << row.name << ", write " << n + 1;
            if (row.results[n] == -3) {
                EXPECT_EQ(port->writes.size(), n + 1) << row.name;
            }
            again();
        }
    }
}

TEST_F(Dialogues, StatusBytesHaveTheirValues) {
    const std::string printerBytes = "PQTXabdh1248qrp";
    for (int byte = 0; byte < 256; ++byte) {
        const auto place = printerBytes.find(static_cast<char>(byte));
        port->replies = {"", std::string("\x1Br") + static_cast<char>(byte)};
        EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), place == std::string::npos ? -22 : static_cast<int>(place) + 1);
        port->replies = {"", std::string(3, 'C') + static_cast<char>(byte) + "CC"};
        EXPECT_EQ(YARDO_PR2_GetPaperStatus(), byte >= '@' && byte <= 'C' ? byte - '?' : -20);
    }
}

TEST_F(Dialogues, AGarbledAnswerIsReadAwayBeforeTheNextQuery) {
    reply({"^rU"});
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
    // The drain finds what came late, and the next answer is taken for what it is.
    port->reads = 0;
    reply({"...", "C", "", "^rP"});
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), 1);
    EXPECT_EQ(port->reads, 4);
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);

    // A drain that found nothing is made again behind the answer, and survives closing the port.
    ASSERT_EQ(YARDO_PR2_ClosePort(), 0);
    SetUp();
    reply({"", "...A..", "late", ""});
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 2);
    EXPECT_TRUE(port->replies.empty());
    port->reads = 0;
    reply({"...C.."});
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 4);
    EXPECT_EQ(port->reads, 1);

    // A line that never falls silent does not hold the host.
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
    port->replies.assign(5000, std::string(256, 'U'));
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
    EXPECT_FALSE(port->replies.empty());
    port->replies.clear();
}

TEST_F(Dialogues, WaitsAreBoundedByTheClock) {
    // 5 seconds of silence: 6 polls, for the limit has to be exceeded.
    EXPECT_EQ(YARDO_PR2_InitPrinter(1, 5), -30);
    EXPECT_EQ(virtualClock.sleptSeconds, 6);
    // A clock that is about to wrap its 32 bits ends no wait early.
    virtualClock = {.microseconds = (std::int64_t{INT_MAX} - 1500) * 1000};
    EXPECT_EQ(YARDO_PR2_InitPrinter(1, 5), -30);
    EXPECT_EQ(virtualClock.sleptSeconds, 6);
    virtualClock = {};
    EXPECT_EQ(YARDO_PR2_MSR(0, stripe0, 64), -4);
    EXPECT_EQ(virtualClock.sleptSeconds, 15);
}

TEST_F(Dialogues, TheIdentifierIsThirteenBytes) {
    std::fill(std::begin(identifier), std::end(identifier), static_cast<unsigned char>('#'));
    reply({"^b01234", "", "56789ABCxymore"});
    EXPECT_EQ(YARDO_PR2_GetFWID(identifier), 0);
    EXPECT_EQ(std::string(identifier, identifier + 14), "0123456789ABC#");
    reply({"^b0"});
    EXPECT_EQ(YARDO_PR2_GetFWID(identifier), 0);
    EXPECT_EQ(std::string(identifier, identifier + 14), "0" + std::string(12, '\0') + "#");
}

TEST_F(Dialogues, StripeDataIsCutOutOfTheReply) {
    const struct {
        Replies replies;
        int length;
        int result;
        std::string buffer;  // what it begins with afterwards
    } rows[] = {
        {{"hh123<1C>"}, 64, 0, "123<00><00><1C>#"},
        {{"hh<1C>"}, 64, 0, "<00><00><1C>#"},
        {{"<1C><1C>", "1<1C>"}, 64, 0, "1<00><00><1C>#"},  // a header byte does not end it
        {{"hh123456"}, 6, 0, "1234<00><00>#"},             // full without an end
        {{"h<1C>"}, 2, 0, "<00><00>#"},
        {{"hh1"}, 64, -4, "hh1#"},
    };
    for (const auto& row : rows) {
        std::string buffer(64, '#');
        reply(row.replies);
        EXPECT_EQ(YARDO_PR2_MSR(0, buffer.data(), row.length), row.result);
        EXPECT_EQ(spelled(buffer.substr(0, wire(row.buffer).size())), row.buffer);
    }
    // Without a first answer the second is still read; only its result is told.
    Replies late(15);
    late.push_back("hh9<1C>");
    reply(late);
    stripe0[0] = '#';
    EXPECT_EQ(YARDO_PR2_MSRALL(stripe0, 64, stripe1, 64), 0);
    EXPECT_EQ(stripe0[0], '#');
    EXPECT_STREQ(stripe1, "9");
}

TEST_F(Dialogues, ThePortThatIsOpenStays) {
    EXPECT_EQ(YARDO_PR2_OpenPort("another"), -5);
    EXPECT_EQ(protocol, port);
    // Closed underneath, as by a function of the other family: sending fails, nothing crashes, and closing
    // works.
    ASSERT_EQ(PRSexit(), 0);
    EXPECT_EQ(YARDO_PR2_EjectPaper(), -3);
    EXPECT_EQ(YARDO_PR2_GetFWID(identifier), -4);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(PRSexit(), 0);
    for (const char* name : {static_cast<const char*>(nullptr), "no/such/line", "usb", ""}) EXPECT_EQ(YARDO_PR2_OpenPort(name), -1);
    EXPECT_EQ(protocol, nullptr);
    EXPECT_FALSE(usbFlag);
}

}  // namespace
}  // namespace passbook::tests
