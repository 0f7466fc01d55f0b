// The PR2 functions as dialogues: what they put on the wire, what they make of the answers, and what they
// return when the wire does not carry it. Bytes are spelled as in support.h: ^ is ESC.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "api/passbook.h"
#include "device/outcome.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

char other[64];
unsigned char* const identifier = reinterpret_cast<unsigned char*>(answer);

const std::string setUp = "^n^.^l^Q080^Z^J000^T070^&46^#1^a3^R003^S5^l^j";

const std::string tooLong(512, 'x'), hugeText(16 * 1024 * 1024 + 1, 'x'), zeros = "<00><00><00>";
const Call getIdentifier = call(YARDO_PR2_GetFWID, identifier), readStripe = call(YARDO_PR2_MSR, 0, answer, 64);
const Call readSecond = call(YARDO_PR2_MSR, 2, answer, 64), readSix = call(YARDO_PR2_MSR, 0, answer, 6);
const Replies twoStripes = {"hh1<1C>", "hh9<1C>"};
const Call readBoth = call(YARDO_PR2_MSRALL, answer, 4, answer + 4, 60);

const Dialogue dialogues[] = {
    {"raw bytes", call(YARDO_PR2_Command, octets("\x1B\x00q"), 3), 0, "^<00>q"},
    {"no raw bytes", call(YARDO_PR2_Command, nullptr, 0), 0, ""},
    {"raw bytes, negative", call(YARDO_PR2_Command, octets("x"), -1), -1, ""},
    {"raw bytes from nowhere", call(YARDO_PR2_Command, nullptr, 4), -1, ""},

    {"text in millimetres, one lower", call(YARDO_PR2_PrintData, 0, 10, 20, "ABC", 2), 0, "^/10196^|A046AB<0D>"},
    {"text in inches", call(YARDO_PR2_PrintData, 1, 1, 2, "AB", -1), 0, "^/10480^|A120AB<0D>"},
    {"Chinese text", call(YARDO_PR2_PrintData, 0, 0, -1, "中1", -1), 0, "^/10000^|A000<D6><D0>1<0D>"},
    {"text cut off in a character", call(YARDO_PR2_PrintData, 1, 0, 0, "A\xE4\xB8", 3), 0, "^/10000^|A000A<0D>"},
    {"text that is no UTF-8", call(YARDO_PR2_PrintData, 0, 1, 1, "A\xFF!", 3), -60, ""},
    {"text of 16 MiB and a byte", call(YARDO_PR2_PrintData, 0, 1, 1, hugeText.c_str(), -1), -60, ""},
    {"text said to be that long", call(YARDO_PR2_PrintData, 0, 1, 1, hugeText.c_str(), INT_MAX), -60, ""},
    {"no text", call(YARDO_PR2_PrintData, 0, 1, 1, nullptr, -1), -1, ""},
    {"last place", call(YARDO_PR2_PrintData, 0, 211, 1057, "", -1), 0, "^/19996^|A996<0D>"},
    {"too far right", call(YARDO_PR2_PrintData, 0, 212, 10, "A", -1), -1, ""},
    {"too far down", call(YARDO_PR2_PrintData, 0, 10, 1058, "A", -1), -1, ""},
    {"left of the page", call(YARDO_PR2_PrintData, 0, -1, 10, "A", -1), -1, ""},
    {"above the page", call(YARDO_PR2_PrintData, 1, 0, -1, "A", -1), -1, ""},
    {"in 32 bits a place again, millimetres", call(YARDO_PR2_PrintData, 0, 23860930, 10, "A", -1), -1, ""},
    {"in 32 bits a place again, inches", call(YARDO_PR2_PrintData, 1, 0, 23860930, "A", -1), -1, ""},
    {"one more than the largest", call(YARDO_PR2_PrintData, 0, 0, INT_MAX, "A", -1), -1, ""},

    {"format", call(YARDO_PR2_SetFormat, 10.9, 1, 1, 2), 0, "^a1^(^4<1C>h<0A>^w2"},
    {"format, plain", call(YARDO_PR2_SetFormat, 17, 0, 0, 0), 0, "^a8^)^3<1C>j<0A>^w0"},
    {"format, unlisted", call(YARDO_PR2_SetFormat, 11, 0, 7, 1), 0, "^a<00>^)^4<1C>j<0A>^w1"},
    {"format, no number", call(YARDO_PR2_SetFormat, NAN, 0, 2, 0), 0, "^a<00>^)^4<1C>j<0A>^w0"},
    {"largest line space", call(YARDO_PR2_SetLineSpace, 1, 10.58), 0, "^&99"},
    {"line space too large", call(YARDO_PR2_SetLineSpace, 1, 10.59), -1, ""},
    {"negative line space", call(YARDO_PR2_SetLineSpace, 1, -0.01), -1, ""},
    {"line space without a number", call(YARDO_PR2_SetLineSpace, 1, NAN), -1, ""},
    {"underline, unlisted", call(YARDO_PR2_SetUnderLine, -1), 0, "^*0"},
    {"underline 1", call(YARDO_PR2_SetUnderLine, 1), 0, "^*3"},
    {"underline 2", call(YARDO_PR2_SetUnderLine, 2), 0, "^*4"},
    {"underline off", call(YARDO_PR2_SetUnderLine, 3), 0, "^+"},
    {"line break", YARDO_PR2_LR, 0, "<0D><0A>"},
    {"insert", YARDO_PR2_InsertPaper, 0, "^l^L000"},
    {"eject", YARDO_PR2_EjectPaper, 0, "^O"},
    {"clear error", YARDO_PR2_ClearError, 0, "^l"},
    {"clear all", YARDO_PR2_CLearAll, 0, "^0"},

    {"ready at once", call(YARDO_PR2_InitPrinter, 2, 5), 0, "^0^l" + setUp, {"^rP"}},
    {"ready in pieces", call(YARDO_PR2_InitPrinter, 1, 5), 0, "^l" + setUp, {"^", "r", "P"}},
    {"ready after an error", call(YARDO_PR2_InitPrinter, 0, 5), 0, "^l<0C>" + setUp + "^l^j", {"^rQ", "^rP"}},
    {"negative time is one read", call(YARDO_PR2_InitPrinter, 1, INT_MIN), -30, "^l" + setUp, {"", "^rP"}},

    {"identifier", getIdentifier, 0, "^l^ b", {"^b01234", "", "56789ABCxymore"}, "0123456789ABC#"},
    {"short identifier", getIdentifier, 0, "^l^ b", {"^b01<00>3"}, "01<00>3" + zeros + zeros + zeros + "#"},
    {"identifier, wrong head", getIdentifier, -4, "^l^ b", {"^c01"}, "#"},
    {"no room for the identifier", call(YARDO_PR2_GetFWID, nullptr), -1, ""},

    {"paper, three pieces", YARDO_PR2_GetPaperStatus, 4, "^ B", {"^ ", "BC", ".."}},
    {"paper, a piece too many", YARDO_PR2_GetPaperStatus, -20, "^ B", {"^", " ", "B", "C.."}},
    {"printer, four pieces", YARDO_PR2_GetPrinterStatus, 1, "^j", {"^", "", "r", "P"}},
    {"printer, a piece too many", YARDO_PR2_GetPrinterStatus, -22, "^j", {"^", "", "r", "", "P"}},

    {"document gone at once", call(YARDO_PR2_SPB, 10), 0, "^ B^O^ B", {"...C..", "...@.."}},
    {"document in place again", call(YARDO_PR2_SPB, 10), 0, "^ B^ B", {"...B..", "...C.."}},
    {"taken later", call(YARDO_PR2_SPB, INT_MAX), 0, "^ B^O^ B^ B^ B", {"...C..", "...A..", "...B..", "...@.."}},
    {"never taken", call(YARDO_PR2_SPB, -1), 0, "^ B^ B^}0P^L000^ B^j<0C>", {"...A..", "...A.."}},
    {"removal not answered", call(YARDO_PR2_SPB, 10), -20, "^ B^O^ B", {"...C.."}},

    {"stripe", readStripe, 0, "^l^YE@@^]", {"hh123<1C>"}, "123<00><00><1C>#"},
    {"stripe, header like an end", readSecond, 0, "^l^YEA@^]", {"h<1C>", "1", "<1C>"}, "1<00><00><1C>#"},
    {"empty stripe", readStripe, 0, "^l^YE@@^]", {"hh<1C>"}, "<00><00><1C>#"},
    {"stripe, full, no end", readSix, 0, "^l^YE@@^]", {"hh12", "3456"}, "1234<00><00>#"},
    {"stripe, no more than a header", call(YARDO_PR2_MSR, 0, answer, 2), 0, "^l^YE@@^]", {"h<1C>"}, "<00><00>#"},
    {"stripe without an end", call(YARDO_PR2_MSR, 1, answer, 64), -4, "^l^YEA@^]", {"hh1"}, "hh1#"},
    {"stripe buffer too short", call(YARDO_PR2_MSR, 1, answer, 1), -1, ""},
    {"no stripe buffer", call(YARDO_PR2_MSR, 1, nullptr, 64), -1, ""},
    // When the first cannot be read the second is; only its result is told.
    {"both stripes", readBoth, 0, "^l^YE@@^]^l^YEA@^]", twoStripes, "1<00><00><1C>9<00><00><1C>#"},
    {"both stripes, no room", call(YARDO_PR2_MSRALL, answer, 2, answer + 2, 2), 0, "^l^YE@@^]^l^YEA@^]", twoStripes,
     "<00><00><00><00>#"},
    {"both stripes, silence", readBoth, -4, "^l^YE@@^]^l^YEA@^]"},
    {"both stripes, one buffer missing", call(YARDO_PR2_MSRALL, nullptr, 64, other, 64), -1, ""},
    {"both stripes, first too short", call(YARDO_PR2_MSRALL, answer, 1, other, 64), -1, ""},
    {"both stripes, second too short", call(YARDO_PR2_MSRALL, answer, 64, other, 1), -1, ""},
    {"stripe written", call(YARDO_PR2_MSW, 0, "99=", 3), 0, "^l^YE@@^t99=<1D>^\\"},
    {"no stripe data", call(YARDO_PR2_MSW, 0, nullptr, 3), -1, ""},
    {"negative stripe data", call(YARDO_PR2_MSW, 0, "99", -1), -1, ""},
    {"scan, no front", call(YARDO_ScantoFileOKI, nullptr, "b", 0, 0, 0, 0, false, 0, 0, 0), -1, ""},
    {"scan, no back", call(YARDO_ScantoFileOLI, "a", nullptr, 0, 0, 0, false, 0, 0, 0), -1, ""},
    {"scan, front too long", call(YARDO_ScantoFileOLI, tooLong.c_str(), "b", 0, 0, 0, false, 0, 0, 0), -1, ""},
    {"scan, back too long", call(YARDO_ScantoFileOKI, "a", tooLong.c_str(), 0, 0, 0, 0, false, 0, 0, 0), -1, ""},
    {"no picture", call(YARDO_PrintBmpOLI, nullptr, true, 0, 0), -1, ""},
};

TEST(Dialogues, AreSpokenAsTheyStand) {
    speak(dialogues);
    for (const Dialogue& each : dialogues)
        EXPECT_EQ(each.job(), -6) << each.name << " without a port";
    EXPECT_EQ(YARDO_PR2_ClosePort(), -6);
}

TEST_F(Pr2Port, StatusBytesHaveTheirValues) {
    const std::string printerBytes = "PQTXabdh1248qrp";
    for (int byte = 0; byte < 256; ++byte) {
        const auto place = printerBytes.find(static_cast<char>(byte));
        port->replies = {"", std::string("\x1Br") + static_cast<char>(byte)};
        EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), place == std::string::npos ? -22 : static_cast<int>(place) + 1);
        port->replies = {"", std::string(3, 'C') + static_cast<char>(byte) + "CC"};
        EXPECT_EQ(YARDO_PR2_GetPaperStatus(), byte >= '@' && byte <= 'C' ? byte - '?' : -20);
    }
}

TEST_F(Pr2Port, AGarbledAnswerIsReadAwayBeforeTheNextQuery) {
    port->replies = {"\x1BrU"};
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
    // The drain finds what came late, and the next answer is taken for what it is.
    port->replies = {"...", "C", "", "\x1BrP", "no drain behind it"};
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), 1);
    EXPECT_EQ(port->replies.size(), 1U);

    // A drain that found nothing is made again behind the answer, and survives closing the port.
    port->replies = {};
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
    ASSERT_EQ(YARDO_PR2_ClosePort(), 0);
    SetUp();
    port->replies = {"", "...A..", "late", "", "...C.."};
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 2);
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 4);
    EXPECT_TRUE(port->replies.empty());

    // A line that never falls silent does not hold the host, nor is what it babbles an answer; whether there was
    // silence before or not, and however late it begins.
    const std::pair<int (*)(), int> queries[] = {{YARDO_PR2_GetPrinterStatus, -22}, {YARDO_PR2_GetPaperStatus, -20}};
    for (const char* late : {"P", "`119`P", "`130`P", "`w130`P"}) {
        EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
        for (const auto& [query, code] : queries) {
            port->replies.assign(20000, code == -22 ? "P" : "C");
            port->replies.push_front(late);
            EXPECT_EQ(query(), code);
            EXPECT_FALSE(port->replies.empty());
        }
        port->replies = {"still", "", "\x1BrP"};
        EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), 1);
    }
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
    port->replies.assign(20000, "P");
    port->replies.insert(port->replies.begin(), {"", "\x1BrP"});
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
}

TEST(Waits, AreBoundedByTheClock) {
    const auto atSignals = [](int everyMs, const Call& job) {
        return [=] {
            virtualClock.signalEvery = everyMs * 1000;
            return job();
        };
    };
    for (const int everyMs : {0, 400, 1}) {
        // 5 seconds and the poll that exceeds them.
        EXPECT_EQ(run(atSignals(everyMs, call(YARDO_PR2_InitPrinter, 1, 5))).slept, 6);
        EXPECT_EQ(run(atSignals(everyMs, call(YARDO_PR2_MSR, 0, answer, 64))).slept, 15);
    }
    const auto wrapping = [] {
        virtualClock = {.microseconds = (std::int64_t{INT_MAX} - 1500) * 1000};
        return YARDO_PR2_InitPrinter(1, 5);
    };
    EXPECT_EQ(run(wrapping).slept, 6);
}

TEST_F(Pr2Port, ThePortThatIsOpenStays) {
    EXPECT_EQ(YARDO_PR2_OpenPort("another"), -5);
    EXPECT_EQ(protocol, port);
    // Closed underneath, as by a function of the other family: sending fails, nothing crashes, and closing
    // works.
    std::vector<int> results = {PRSexit(), YARDO_PR2_EjectPaper()};
    EXPECT_STREQ(outcome().message, "the printer took 0 of 2 bytes: no port is open");
    results.insert(results.end(), {YARDO_PR2_GetFWID(identifier), YARDO_PR2_ClosePort(), PRSexit()});
    EXPECT_EQ(results, (std::vector{0, -3, -4, 0, 0}));
    for (const char* name : {static_cast<const char*>(nullptr), "no/such/line", ""})
        EXPECT_EQ(YARDO_PR2_OpenPort(name), -1);
    EXPECT_EQ(protocol, nullptr);
    EXPECT_FALSE(usbFlag);
}

}  // namespace
}  // namespace passbook::tests
