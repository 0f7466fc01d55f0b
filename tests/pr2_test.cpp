// The PR2 functions as dialogues: what they put on the wire, what they make of the answers, and what they
// return when the wire does not carry it.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

#include "api/passbook.h"
#include "status/status.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

using Call = std::function<int()>;

char stripe0[64], stripe1[64];
unsigned char identifier[14];

const std::string setUp =
    "1B 6E 1B 2E 1B 6C 1B 51 30 38 30 1B 5A 1B 4A 30 30 30 1B 54 30 37 30 1B 26 34 36 1B 23 31 1B 61 33 1B "
    "52 30 30 33 "
    "1B 53 35 1B 6C 1B 6A";

struct Dialogue {
    const char* name;
    Call call;
    std::vector<const char*> replies;  // hex, one a read; empty: nothing comes
    int result;
    std::string sent;
};

const Dialogue dialogues[] = {
    {"raw bytes",
     [] { return YARDO_PR2_Command(reinterpret_cast<const unsigned char*>("\x1B\x00q"), 3); },
     {},
     0,
     "1B 00 71"},
    {"no raw bytes", [] { return YARDO_PR2_Command(nullptr, 0); }, {}, 0, ""},
    {"raw bytes, negative", [] { return YARDO_PR2_Command(identifier, -1); }, {}, -1, ""},
    {"raw bytes from nowhere", [] { return YARDO_PR2_Command(nullptr, 4); }, {}, -1, ""},

    {"text in millimetres, one lower",
     [] { return YARDO_PR2_PrintData(0, 10, 20, "AB", 2); },
     {},
     0,
     "1B 2F 31 30 31 39 36 1B 7C 41 30 34 36 41 42 0D"},
    {"text in inches",
     [] { return YARDO_PR2_PrintData(1, 1, 2, "AB", -1); },
     {},
     0,
     "1B 2F 31 30 34 38 30 1B 7C 41 31 32 30 41 42 0D"},
    {"Chinese text",
     [] {
         return YARDO_PR2_PrintData(0, 0, -1,
                                    "\xE4\xB8\xAD"
                                    "1",
                                    -1);
     },
     {},
     0,
     "1B 2F 31 30 30 30 30 1B 7C 41 30 30 30 D6 D0 31 0D"},
    {"text cut off in a character",
     [] { return YARDO_PR2_PrintData(1, 0, 0, "A\xE4\xB8", 3); },
     {},
     0,
     "1B 2F 31 30 30 30 30 1B 7C 41 30 30 30 41 0D"},
    {"text that is no UTF-8",
     [] {
         return YARDO_PR2_PrintData(0, 1, 1,
                                    "A\xFF"
                                    "B",
                                    3);
     },
     {},
     -60,
     ""},
    {"no text", [] { return YARDO_PR2_PrintData(0, 1, 1, nullptr, 3); }, {}, -1, ""},
    {"last place",
     [] { return YARDO_PR2_PrintData(0, 211, 1057, "", 0); },
     {},
     0,
     "1B 2F 31 39 39 39 36 1B 7C 41 39 39 36 0D"},
    {"too far right", [] { return YARDO_PR2_PrintData(0, 212, 10, "A", 1); }, {}, -1, ""},
    {"too far down", [] { return YARDO_PR2_PrintData(0, 10, 1058, "A", 1); }, {}, -1, ""},
    {"left of the page", [] { return YARDO_PR2_PrintData(0, -1, 10, "A", 1); }, {}, -1, ""},
    {"above the page", [] { return YARDO_PR2_PrintData(1, 0, -1, "A", 1); }, {}, -1, ""},
    {"wraps to a place in 32 bits, millimetres",
     [] { return YARDO_PR2_PrintData(0, 23860930, 10, "A", 1); },
     {},
     -1,
     ""},
    {"wraps to a place in 32 bits, inches",
     [] { return YARDO_PR2_PrintData(1, 0, 23860930, "A", 1); },
     {},
     -1,
     ""},
    {"one more than the largest", [] { return YARDO_PR2_PrintData(0, 0, INT_MAX, "A", 1); }, {}, -1, ""},

    {"format",
     [] { return YARDO_PR2_SetFormat(10.9, 1, 1, 2); },
     {},
     0,
     "1B 61 31 1B 28 1B 34 1C 68 0A 1B 77 32"},
    {"format, plain",
     [] { return YARDO_PR2_SetFormat(17, 0, 0, 0); },
     {},
     0,
     "1B 61 38 1B 29 1B 33 1C 6A 0A 1B 77 30"},
    {"format, unlisted",
     [] { return YARDO_PR2_SetFormat(11, 0, 7, 1); },
     {},
     0,
     "1B 61 00 1B 29 1B 34 1C 6A 0A 1B 77 31"},
    {"format, no number",
     [] { return YARDO_PR2_SetFormat(NAN, 0, 2, 0); },
     {},
     0,
     "1B 61 00 1B 29 1B 34 1C 6A 0A 1B 77 30"},
    {"line space", [] { return YARDO_PR2_SetLineSpace(1, 3.0); }, {}, 0, "1B 26 32 38"},
    {"largest line space", [] { return YARDO_PR2_SetLineSpace(0, 10.58); }, {}, 0, "1B 26 39 39"},
    {"line space too large", [] { return YARDO_PR2_SetLineSpace(0, 10.59); }, {}, -1, ""},
    {"negative line space", [] { return YARDO_PR2_SetLineSpace(0, -0.01); }, {}, -1, ""},
    {"line space without a number", [] { return YARDO_PR2_SetLineSpace(0, NAN); }, {}, -1, ""},
    {"underline 0", [] { return YARDO_PR2_SetUnderLine(0); }, {}, 0, "1B 2A 30"},
    {"underline 1", [] { return YARDO_PR2_SetUnderLine(1); }, {}, 0, "1B 2A 33"},
    {"underline 2", [] { return YARDO_PR2_SetUnderLine(2); }, {}, 0, "1B 2A 34"},
    {"underline 3", [] { return YARDO_PR2_SetUnderLine(3); }, {}, 0, "1B 2B"},
    {"underline, unlisted", [] { return YARDO_PR2_SetUnderLine(-1); }, {}, 0, "1B 2A 30"},
    {"line break", YARDO_PR2_LR, {}, 0, "0D 0A"},
    {"insert", YARDO_PR2_InsertPaper, {}, 0, "1B 6C 1B 4C 30 30 30"},
    {"eject", YARDO_PR2_EjectPaper, {}, 0, "1B 4F"},
    {"clear error", YARDO_PR2_ClearError, {}, 0, "1B 6C"},
    {"clear all", YARDO_PR2_CLearAll, {}, 0, "1B 30"},

    {"ready at once", [] { return YARDO_PR2_InitPrinter(2, 5); }, {"1B 72 50"}, 0, "1B 30 1B 6C " + setUp},
    {"ready in pieces", [] { return YARDO_PR2_InitPrinter(1, 5); }, {"1B", "", "72 50"}, 0, "1B 6C " + setUp},
    {"ready after an error",
     [] { return YARDO_PR2_InitPrinter(0, 5); },
     {"1B 72 51", "1B 72 50"},
     0,
     "1B 6C 0C " + setUp + " 1B 6C 1B 6A"},
    {"one read without time",
     [] { return YARDO_PR2_InitPrinter(1, 0); },
     {"", "1B 72 50"},
     -30,
     "1B 6C " + setUp},
    {"negative time", [] { return YARDO_PR2_InitPrinter(1, INT_MIN); }, {}, -30, "1B 6C " + setUp},

    {"no room for the identifier", [] { return YARDO_PR2_GetFWID(nullptr); }, {}, -1, ""},
    {"identifier, wrong head",
     [] { return YARDO_PR2_GetFWID(identifier); },
     {"1B 63 30 31"},
     -4,
     "1B 6C 1B 20 62"},
    {"no identifier", [] { return YARDO_PR2_GetFWID(identifier); }, {}, -4, "1B 6C 1B 20 62"},

    {"paper, three pieces", YARDO_PR2_GetPaperStatus, {"1B 20", "42 43", "00 00"}, 4, "1B 20 42"},
    {"paper, a piece too many", YARDO_PR2_GetPaperStatus, {"1B", "20", "42", "43 00 00"}, -20, "1B 20 42"},
    {"printer, four pieces", YARDO_PR2_GetPrinterStatus, {"1B", "", "72", "50"}, 1, "1B 6A"},
    {"printer, a piece too many", YARDO_PR2_GetPrinterStatus, {"1B", "", "72", "", "50"}, -22, "1B 6A"},
    {"printer, two conditions at once", YARDO_PR2_GetPrinterStatus, {"1B 72 55"}, -22, "1B 6A"},

    {"document gone at once",
     [] { return YARDO_PR2_SPB(10); },
     {"000000430000", "000000400000"},
     0,
     "1B 20 42 1B 4F 1B 20 42"},
    {"document in place again",
     [] { return YARDO_PR2_SPB(10); },
     {"000000410000", "000000430000"},
     0,
     "1B 20 42 1B 20 42"},
    {"document taken later",
     [] { return YARDO_PR2_SPB(10); },
     {"000000430000", "000000410000", "000000420000", "000000400000"},
     0,
     "1B 20 42 1B 4F 1B 20 42 1B 20 42 1B 20 42"},
    {"document never taken",
     [] { return YARDO_PR2_SPB(-1); },
     {"000000410000", "000000410000"},
     0,
     "1B 20 42 1B 20 42 1B 7D 30 50 1B 4C 30 30 30 1B 20 42 1B 6A 0C"},
    {"removal not answered",
     [] { return YARDO_PR2_SPB(10); },
     {"000000430000"},
     -20,
     "1B 20 42 1B 4F 1B 20 42"},

    {"stripe",
     [] { return YARDO_PR2_MSR(0, stripe0, sizeof stripe0); },
     {"AA BB 31 32 33 1C"},
     0,
     "1B 6C 1B 59 45 40 40 1B 5D"},
    {"stripe over three polls",
     [] { return YARDO_PR2_MSR(2, stripe0, sizeof stripe0); },
     {"AA 1C", "31 32 33", "1C"},
     0,
     "1B 6C 1B 59 45 41 40 1B 5D"},
    {"stripe without an end",
     [] { return YARDO_PR2_MSR(1, stripe0, sizeof stripe0); },
     {"AA BB 31"},
     -4,
     "1B 6C 1B 59 45 41 40 1B 5D"},
    {"stripe buffer too short", [] { return YARDO_PR2_MSR(1, stripe0, 1); }, {}, -1, ""},
    {"no stripe buffer", [] { return YARDO_PR2_MSR(1, nullptr, 20); }, {}, -1, ""},
    {"both stripes, one buffer missing",
     [] { return YARDO_PR2_MSRALL(nullptr, 64, stripe1, 64); },
     {},
     -1,
     ""},
    {"both stripes, one too short", [] { return YARDO_PR2_MSRALL(stripe0, 64, stripe1, 1); }, {}, -1, ""},
    {"stripe written",
     [] { return YARDO_PR2_MSW(0, "99=", 3); },
     {},
     0,
     "1B 6C 1B 59 45 40 40 1B 74 39 39 3D 1D 1B 5C"},
    {"no stripe data", [] { return YARDO_PR2_MSW(0, nullptr, 3); }, {}, -1, ""},
    {"negative stripe data", [] { return YARDO_PR2_MSW(0, "99", -1); }, {}, -1, ""},
    {"no picture", [] { return YARDO_PrintBmpOLI(nullptr, true, 0, 0); }, {}, -1, ""},
};

class Dialogues : public Pr2Port {};

TEST_F(Dialogues, AreSpokenAsTheyStand) {
    for (const Dialogue& dialogue : dialogues) {
        SCOPED_TRACE(dialogue.name);
        port->writes.clear();
        port->replies.clear();
        for (const char* reply : dialogue.replies)
            port->replies.push_back(bytes(reply));
        EXPECT_EQ(dialogue.call(), dialogue.result);
        EXPECT_EQ(port->sent(), dialogue.sent);
        EXPECT_LT(port->reads, 200);
        TearDown();
        SetUp();
    }
}

TEST_F(Dialogues, EveryCallNeedsAnOpenPort) {
    ASSERT_EQ(YARDO_PR2_ClosePort(), 0);
    for (const Dialogue& dialogue : dialogues)
        EXPECT_EQ(dialogue.call(), -6) << dialogue.name;
    EXPECT_EQ(YARDO_PR2_ClosePort(), -6);
}

// Which write decides the result, and which is not looked at: each call with its n-th write failing.
TEST_F(Dialogues, AFailedWriteIsReportedWhereItCounts) {
    const struct {
        const char* name;
        Call call;
        std::vector<const char*> replies;
        std::vector<int> results;  // for the first write failing, the second, …
        std::size_t writesAtLast;  // how many were made when the last of them failed
    } rows[] = {
        {"text", [] { return YARDO_PR2_PrintData(0, 1, 1, "A", 1); }, {}, {0, -3, -3, 0}, 4},
        {"format", [] { return YARDO_PR2_SetFormat(10, 1, 1, 1); }, {}, {-3, -3, -3, 0, -3}, 5},
        {"line space", [] { return YARDO_PR2_SetLineSpace(0, 1); }, {}, {-3}, 1},
        {"underline", [] { return YARDO_PR2_SetUnderLine(1); }, {}, {-3}, 1},
        {"underline off for good", [] { return YARDO_PR2_SetUnderLine(3); }, {}, {0}, 1},
        {"insert", YARDO_PR2_InsertPaper, {}, {-3}, 1},
        {"raw", [] { return YARDO_PR2_Command(identifier, 2); }, {}, {-3}, 1},
        {"initialise", [] { return YARDO_PR2_InitPrinter(1, 1); }, {"1B 72 50"}, {0, 0}, 2},
        {"identifier", [] { return YARDO_PR2_GetFWID(identifier); }, {"1B 62"}, {0}, 1},
        {"paper", YARDO_PR2_GetPaperStatus, {"000000430000"}, {-3}, 1},
        {"printer", YARDO_PR2_GetPrinterStatus, {"1B 72 50"}, {-3}, 1},
        {"removal", [] { return YARDO_PR2_SPB(1); }, {"000000430000", "000000400000"}, {0, 0, -3}, 3},
        {"stripe read", [] { return YARDO_PR2_MSR(0, stripe0, 64); }, {"AA BB 1C"}, {0, -3}, 2},
        {"stripe write", [] { return YARDO_PR2_MSW(0, "1", 1); }, {}, {0, -3, 0, 0}, 4},
    };
    for (const auto& row : rows) {
        for (std::size_t n = 0; n < row.results.size(); ++n) {
            SCOPED_TRACE(std::string(row.name) + ", write " + std::to_string(n + 1));
            port->failWrite = static_cast<int>(n) + 1;
            for (const char* reply : row.replies)
                port->replies.push_back(bytes(reply));
            // A lost first query of the removal wait leaves its answer to the second one.
            EXPECT_EQ(row.call(), row.results[n]);
            if (n + 1 == row.results.size()) {
                EXPECT_EQ(port->writes.size(), row.writesAtLast);
            }
            TearDown();
            SetUp();
        }
    }
}

TEST_F(Dialogues, StatusBytesHaveTheirValues) {
    const std::string printerBytes = "PQTXabdh1248qrp";
    for (int byte = 0; byte < 256; ++byte) {
        const auto place = printerBytes.find(static_cast<char>(byte));
        port->replies = {"", std::string("\x1B"
                                         "r") +
                                 static_cast<char>(byte)};
        EXPECT_EQ(YARDO_PR2_GetPrinterStatus(),
                  place == std::string::npos ? -22 : static_cast<int>(place) + 1)
            << byte;
        port->replies = {"", std::string(3, '\x43') + static_cast<char>(byte) + "C" + "C"};
        EXPECT_EQ(YARDO_PR2_GetPaperStatus(), byte >= 0x40 && byte <= 0x43 ? byte - 0x3F : -20) << byte;
    }
}

TEST_F(Dialogues, AGarbledAnswerIsReadAwayBeforeTheNextQuery) {
    port->replies = {bytes("1B 72 55")};
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);
    // The drain finds what came late, and the next answer is taken for what it is.
    port->reads = 0;
    port->replies = {bytes("00 00 40"), bytes("43"), "", bytes("1B 72 50")};
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), 1);
    EXPECT_EQ(port->reads, 4);
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), -22);

    // A drain that found nothing is made again behind the answer, and survives closing the port.
    ASSERT_EQ(YARDO_PR2_ClosePort(), 0);
    SetUp();
    port->replies = {"", bytes("00 00 00 41 00 00"), bytes("FF FF"), ""};
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 2);
    EXPECT_TRUE(port->replies.empty());
    port->reads = 0;
    port->replies = {bytes("00 00 00 43 00 00")};
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 4);
    EXPECT_EQ(port->reads, 1);
}

TEST_F(Dialogues, ALineThatNeverFallsSilentDoesNotHoldTheHost) {
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
    // A clock that is about to wrap its 32 bits, and one that is set back, end no wait early.
    virtualClock = {.microseconds = (std::int64_t{INT_MAX} - 1500) * 1000};
    EXPECT_EQ(YARDO_PR2_InitPrinter(1, 5), -30);
    EXPECT_EQ(virtualClock.sleptSeconds, 6);
    virtualClock = {};
    EXPECT_EQ(YARDO_PR2_MSR(0, stripe0, 64), -4);
    EXPECT_EQ(virtualClock.sleptSeconds, 15);
}

TEST_F(Dialogues, TheIdentifierIsThirteenBytes) {
    std::fill(std::begin(identifier), std::end(identifier), static_cast<unsigned char>('#'));
    port->replies = {bytes("1B 62") + "01234", "", "56789ABCxy" + std::string("more")};
    EXPECT_EQ(YARDO_PR2_GetFWID(identifier), 0);
    EXPECT_EQ(std::string(identifier, identifier + 14), "0123456789ABC#");
    port->replies = {bytes("1B 62") + "0"};
    EXPECT_EQ(YARDO_PR2_GetFWID(identifier), 0);
    EXPECT_EQ(std::string(identifier, identifier + 14), "0" + std::string(12, '\0') + "#");
}

TEST_F(Dialogues, StripeDataIsCutOutOfTheReply) {
    const struct {
        std::vector<const char*> replies;
        int length;
        int result;
        std::string buffer;  // what it begins with afterwards
    } rows[] = {
        {{"AA BB 31 32 33 1C"}, 64, 0, "31 32 33 00 00 1C 2E"},
        {{"AA BB 1C"}, 64, 0, "00 00 1C 2E"},
        {{"1C 1C", "31 1C"}, 64, 0, "31 00 00 1C 2E"},                // a header byte does not end it
        {{"AA BB 31 32 33 34 35 36"}, 6, 0, "31 32 33 34 00 00 2E"},  // full without an end
        {{"AA 1C"}, 2, 0, "00 00 2E"},
        {{"AA BB 31"}, 64, -4, "AA BB 31 2E"},
    };
    for (const auto& row : rows) {
        char buffer[64];
        std::fill(std::begin(buffer), std::end(buffer), '.');
        port->replies.clear();
        for (const char* reply : row.replies)
            port->replies.push_back(bytes(reply));
        EXPECT_EQ(YARDO_PR2_MSR(0, buffer, row.length), row.result);
        EXPECT_EQ(hex(std::string(buffer, (row.buffer.size() + 1) / 3)), row.buffer);
    }
    // Without a first answer the second is still read; only its result is told.
    port->replies.assign(15, "");
    port->replies.push_back(bytes("AA BB 39 1C"));
    stripe0[0] = '.';
    EXPECT_EQ(YARDO_PR2_MSRALL(stripe0, 64, stripe1, 64), 0);
    EXPECT_EQ(stripe0[0], '.');
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
    for (const char* name : {static_cast<const char*>(nullptr), "no/such/line", "usb", ""})
        EXPECT_EQ(YARDO_PR2_OpenPort(name), -1);
    EXPECT_EQ(protocol, nullptr);
    EXPECT_FALSE(usbFlag);
}

// The scan job's set-up; it shares its name, not its bytes, with the one above.
TEST_F(Dialogues, TheScanSetUpIsSentInTwoWrites) {
    port->failWrite = 1;
    EXPECT_EQ(passbook::InitPrinter_OLI(), 0);
    ASSERT_EQ(port->writes.size(), 2U);
    EXPECT_EQ(hex(port->writes[0]), "18 1B 07 45 08 1B 30");
    EXPECT_EQ(hex(port->writes[1]),
              "1B 30 1B 6C 1B 6E 1B 2E 1B 6C 1B 51 30 38 30 1B 5A 1B 4A 30 30 30 1B 54 30 37 30 1B 26 34 36 "
              "1B 23 31 "
              "1C 26 1C 67 30 1B 6C 1B 61 33 1B 52 30 30 33 1B 53 35 1B 5B 30 31 30 1B 6C");
    EXPECT_EQ(passbook::InitPaperPosition_OLI(), 0);
    EXPECT_EQ(hex(port->writes[2]), "1B 4C 30 30 30");
}

}  // namespace
}  // namespace passbook::tests
