// The PT functions as dialogues, and the OKI command set behind them. Bytes are spelled as in support.h.
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

#include "api/passbook.h"
#include "image/file.h"
#include "print/print_oki.h"
#include "print/raster.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

/// A port that outlives the calls that close it.
struct Log {
    std::vector<std::string> writes;
    int failWrite = 0;
    int closed = 0;
};

class LoggedPort : public Protocol {
 public:
    explicit LoggedPort(Log& log) : log_(log) {}
    int OpenDevice() override { return 0; }
    int ReadPipe(unsigned char*) override { return -1; }
    int WritePipe(const unsigned char* data) override {
        log_.writes.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(writeLength));
        return static_cast<int>(log_.writes.size()) == log_.failWrite ? -1 : 0;
    }
    int CloseDevice() override {
        ++log_.closed;
        return 0;
    }

 private:
    Log& log_;
};

/// Each test runs in an empty directory, for that is where temporary files would be left.
class Oki : public ::testing::Test {
 protected:
    void SetUp() override {
        virtualClock = {};
        failAllocation(0);
        std::filesystem::current_path(directory_.file(""));
    }
    void TearDown() override {
        EXPECT_EQ(PRSexit(), 0);
        std::filesystem::current_path("/");
        g_timeout = 10;
    }

    /// What was sent by a call, with the port that it opens being ours; its result is in `result`.
    std::string sent(const std::function<int()>& call, int failWrite = 0) {
        log_ = {};
        log_.failWrite = failWrite;
        installPort(new LoggedPort(log_));
        result = call();
        std::string all;
        for (const std::string& each : log_.writes) all += each;
        for (const auto& entry : std::filesystem::directory_iterator("."))
            EXPECT_FALSE(entry.path().filename().string().starts_with(".tmp_")) << entry.path();
        return spelled(all);
    }

    int result = 1;
    Log log_;

 private:
    TemporaryDirectory directory_;
};

using Call = std::function<int()>;

Call printText(const char* text, int length = -1, int x = 53, int y = 254) {
    return [=] { return PT_PrintTxtStream("any", 0, 3, x, y, text, length); };
}

Call printLines(std::string text) {
    return [text]() mutable {
        return PrintLineData_OKI(reinterpret_cast<unsigned char*>(text.data()), static_cast<int>(text.size()), 36, 180);
    };
}

TEST_F(Oki, CommandsAreSpokenAsTheyStand) {
    const struct {
        const char* name;
        Call call;
        int result;
        std::string sent;
    } rows[] = {
        {"feed of 2 dots", [] { return SetYPosition_OKI(2); }, 0, ""},
        {"feed of 26 dots", [] { return SetYPosition_OKI(26); }, 0, "^%5<10>"},
        {"feed of 382 dots", [] { return SetYPosition_OKI(382); }, 0, "^%5<FE>"},
        {"feed of 384 dots", [] { return SetYPosition_OKI(384); }, 0, "^%5<FF>^%5<01>"},
        {"feed of 765 dots", [] { return InsertPaper_OKI(765); }, 0, "^%5<FF>^%5<FF>"},
        {"feed backwards", [] { return SetYPosition_OKI(-300); }, 0, ""},
        {"move of 300", [] { return SetXPosition_OKI(300); }, 0, "^%3<01>,"},
        {"move too far", [] { return SetXPosition_OKI(INT_MAX); }, 0, "^%3<FF><FF>"},
        {"move backwards", [] { return SetXPosition_OKI(-1); }, 0, "^%3<00><00>"},
        {"1000 columns", [] { return SetBMPHead_OKI(1000); }, 0, "^%1<03><E8>"},
        {"initial settings", [] { return InitPrint_OKI(true); }, 0, "^}Sl<08>^}SF<10><0D>"},
        {"one initial setting", [] { return InitPrint_OKI(false); }, 0, "^}Sl<08><0D>"},
        {"final settings", ResetPrint_OKI, 0, "^}SF ^}Sl<FF>"},
        {"a record", [] { return PrintData_OKI(reinterpret_cast<const unsigned char*>("A\nB"), 3, 36, 180); }, 0, "^%5x^%3<00>$A<0A>B<0D>"},
        {"eject", [] { return PT_Eject("any", 0); }, 0, "^%5<10><0D><0C>"},
        {"eject where there is nothing", [] { return PT_Eject(nullptr, 0); }, -1, ""},

        {"two lines", printLines("AB\nCD"), 0, "^%5x^%3<00>$AB<0D><0A>^%3<00>$CD<0D>"},
        {"a last line feed", printLines("AB\n"), 0, "^%5x^%3<00>$AB<0D>"},
        {"an empty line", printLines("AB\n\nCD"), 0, "^%5x^%3<00>$AB<0D>"},
        {"an empty first line", printLines("\nAB"), 0, "^%5x^%3<00>$<0D><0A>^%3<00>$AB<0D>"},
        {"a zero byte", printLines(std::string("AB\0CD\0\0EF", 9)), 0, "^%5x^%3<00>$AB<0D><0A>^%3<00>$CD<0D>"},
        {"no text", printLines(""), 0, "^%5x^%3<00>$<0D>"},

        {"converted text", printText("中\nA"), 0, "^%5v^%3<00>#<D6><D0><0D><0A>^%3<00>#A<0D>"},
        {"counted text", printText("ABC", 2, 0, 0), 0, "^%3<00><00>AB<0D>"},
        {"text that is no UTF-8", printText("A\xFF!"), -1, ""},
        {"text from nowhere", printText(nullptr), -1, ""},
        {"text left of the page", printText("A", -1, -1), -1, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(sent(row.call), row.sent) << row.name;
        EXPECT_EQ(result, row.result) << row.name;
    }
}

TEST_F(Oki, AFailedWriteIsReportedWhereItCounts) {
    const struct {
        const char* name;
        Call call;
        std::vector<int> results;  // for the first write failing, the second, …
    } rows[] = {
        {"feed", [] { return SetYPosition_OKI(765); }, {-3, -3}},
        {"settings", [] { return InitPrint_OKI(true); }, {0, 0, 0}},
        {"eject", [] { return PT_Eject("any", 1); }, {-3}},
        // feed, move, line, CR; LF, move, line, CR
        {"text", printText("A\nB"), {0, -3, -3, 0, 0, -3, -3, 0}},
    };
    for (const auto& row : rows) {
        for (std::size_t n = 0; n < row.results.size(); ++n) {
            (void)sent(row.call, static_cast<int>(n) + 1);
            EXPECT_EQ(result, row.results[n]) << row.name << ", write " << n + 1;
            if (row.results[n] != 0) {
                EXPECT_EQ(log_.writes.size(), n + 1) << row.name;
            }
        }
    }
}

// Bad arguments come first: neither the port nor the time-out is touched. What comes later closes the port again.
TEST_F(Oki, EveryCallClosesThePortItUsed) {
    const auto* data = reinterpret_cast<const unsigned char*>("Qk0=");
    const struct {
        const char* name;
        Call call;
        int result;
    } bad[] = {
        {"no port", [] { return PT_PrintImageFile(nullptr, 0, 5, 0, 0, 0, "x"); }, -1},
        {"time-out", [] { return PT_PrintImageFile("any", 0, -1, 0, 0, 0, "x"); }, -1},
        {"y", [] { return PT_PrintImageFile("any", 0, 5, 0, -1, 0, "x"); }, -1},
        {"no path", [] { return PT_PrintImageFile("any", 0, 5, 0, 0, 0, nullptr); }, -1},
        {"turns", [] { return PT_PrintImageFileRevolve("any", 0, 5, 0, 0, 0, "x", 4); }, -1},
        {"negative turns", [&] { return PT_PrintImageStreamRevolve("any", 0, 5, 0, 0, 0, data, 4, -1); }, -1},
        {"no data", [] { return PT_PrintImageStream("any", 0, 5, 0, 0, 0, nullptr, 4); }, -1},
        {"text, x", [] { return PT_PrintTxtFile("any", 0, 5, -1, 0, "x"); }, -1},
    };
    for (const auto& row : bad) {
        EXPECT_EQ(sent(row.call), "") << row.name;
        EXPECT_EQ(result, row.result) << row.name;
        EXPECT_EQ(log_.closed, 0) << row.name;
        EXPECT_EQ(g_timeout, 10) << row.name;
        EXPECT_EQ(PRSexit(), 0);
    }
    writeFile("a.gif", "GIF89a");
    const std::string gif = "R0lGODlh";
    const auto stream = [](const std::string& text, int length) {
        return [=] { return PT_PrintImageStream("any", 0, 7, 0, 0, 0, reinterpret_cast<const unsigned char*>(text.data()), length); };
    };
    const struct {
        const char* name;
        Call call;
        int result;
        int seconds;  // of pause
    } failing[] = {
        {"no file", [] { return PT_PrintImageFile("any", 0, 7, 0, 0, 0, "none"); }, -6, 0},
        {"a directory", [] { return PT_PrintImageFile("any", 0, 7, 0, 0, 0, "."); }, -6, 0},
        {"no image", [] { return PT_PrintImageFileRevolve("any", 0, 7, 0, 0, 0, "a.gif", 1); }, -6, 0},
        {"no text file", [] { return PT_PrintTxtFile("any", 0, 7, 0, 0, "none"); }, -1, 0},
        {"empty stream", stream("BM", 0), -6, 0},
        {"negative stream", stream("BM", INT_MIN), -6, 0},
        {"base64 of no image", stream(gif, 8), -6, 1},
        {"base64 of odd length", stream(gif, 7), -6, 0},
        {"no base64", stream("R0lG*Dlh", 8), -6, 0},
        {"a short BMP", stream("BMBM", 4), -12, 1},
        {"a short BMP in base64", stream("Qk0=", 4), -12, 1},
        {"half a PNG", stream("\x89PNG\r\n\x1A\n\1\2\3", 11), -11, 1},
        {"half a JPEG", stream("\xFF\xD8\xFF\xE0", 4), -11, 1},
    };
    for (const auto& row : failing) {
        virtualClock = {};
        g_timeout = 1;
        EXPECT_EQ(sent(row.call), "") << row.name;
        EXPECT_EQ(result, row.result) << row.name;
        EXPECT_EQ(log_.closed, 1) << row.name;
        EXPECT_EQ(g_timeout, 7) << row.name;
        EXPECT_EQ(virtualClock.sleptSeconds, row.seconds) << row.name;
    }
    g_timeout = 1;
    EXPECT_EQ(PT_PrintTxtStream("no/such/line", 0, 9, 0, 0, "A", 1), -3);
    EXPECT_EQ(g_timeout, 9);
    EXPECT_EQ(PT_Eject("no/such/line", 0), -3);
    EXPECT_EQ(PT_PrintImageFile("no/such/line", 0, 9, 0, 0, 0, "a.gif"), -3);
}

TEST_F(Oki, AFileOfTextIsPrinted) {
    writeFile("a.txt", "存\nB");
    EXPECT_EQ(sent([] { return PT_PrintTxtFile("any", 1, 3, 10, 100, "a.txt"); }), "^%5J^%3<00><07><B4><E6><0D><0A>^%3<00><07>B<0D>");
    failAllocation(1);
    EXPECT_EQ(sent([] { return PT_PrintTxtFile("any", 0, 3, 0, 0, "a.txt"); }), "");
    EXPECT_EQ(result, -1);
    writeFile("a.txt", "");
    EXPECT_EQ(sent([] { return PT_PrintTxtFile("any", 0, 3, 0, 0, "a.txt"); }), "^%3<00><00><0D>");
    EXPECT_EQ(result, 0);
}

std::string inked(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns) {
    return inkedPicture(width, height, rows, columns).bmp(24, true);
}

TEST_F(Oki, PicturesAreWalkedInStripsAndRuns) {
    const struct {
        const char* name;
        std::string bmp;
        int x, y;  // tenths of a millimetre
        std::string sent;
    } rows[] = {
        {"no ink", inked(64, 40, {}, {}), 50, 50, ""},
        {"at the edge", inked(8, 1, {0}, {0}), 0, 0, "^%1<00><01><80><00><00>"},
        {"feed and move", inked(8, 10, {7}, {3, 4}), 105, 105,
         "^%52^%3<00>F^%1<00><05>" + spelled(std::string(9, '\0')) + "@<00><00>@<00><00>"},
        {"a gap first", inked(100, 3, {0}, {61}), 100, 0, "^%3<00><83>^%1<00><01><80><00><00>"},
        {"a gap first, at the edge", inked(100, 3, {0}, {61}), 0, 0, "^%3<00>=^%1<00><01><80><00><00>"},
        {"a gap between", inked(100, 3, {0}, {0, 62}), 100, 0, "^%3<00>F^%1<00><01><80><00><00>^%3<00>=^%1<00><01><80><00><00>"},
        {"two strips", inked(8, 60, {0, 29}, {0}), 0, 0, "^%1<00><01><80><00><00>^%5<12>^%1<00><01> <00><00>"},
        {"an escape byte", inked(8, 16, {0, 11, 12, 14, 15}, {0}), 0, 0, "^%1<00><01><80>^<00>"},
    };
    for (const auto& row : rows) {
        writeFile("a.bmp", row.bmp);
        EXPECT_EQ(sent([&] { return PT_PrintImageFile("any", 0, 1, row.x, row.y, 0, "a.bmp"); }), row.sent) << row.name;
        EXPECT_EQ(result, 0) << row.name;
    }
    // move, head, data; move, head, data: only data counts.
    writeFile("a.bmp", inked(100, 3, {0}, {0, 62}));
    for (int n = 1; n <= 6; ++n) {
        (void)sent([] { return PT_PrintImageFile("any", 0, 1, 100, 0, 0, "a.bmp"); }, n);
        EXPECT_EQ(result, n == 3 || n == 6 ? -3 : 0);
        EXPECT_EQ(log_.writes.size(), n == 3 ? 3U : 6U);
    }
    failAllocation(2);  // the first one loads the picture
    EXPECT_EQ(sent([] { return PT_PrintImageFile("any", 0, 1, 0, 0, 0, "a.bmp"); }), "");
    EXPECT_EQ(result, -31);
    // Only a print with eject has one, however it ended, but not without a picture.
    EXPECT_EQ(sent([] { return PrintBmp_OKI("a.bmp", true, false, 0, 0); }, 2).substr(11), "<80><00><00>^%5<10><0D><0C>");
    EXPECT_EQ(result, -3);
    EXPECT_EQ(sent([] { return PrintBmp_OKI("none.bmp", true, false, 0, 0); }), "");
    EXPECT_EQ(result, -11);
}

TEST_F(Oki, NoRunIsLongerThanItsHeadCanSay) {
    for (const int width : {65536, 65544}) {
        std::vector<unsigned char> image(oneBitStrideBytes(width), 0xFF);
        const auto before = sent([&] { return SendBMPData_OKI(width, 1, image.data(), 9, 3); });
        EXPECT_EQ(before, "^%5<02>");
        EXPECT_EQ(result, -1);
    }
}

}  // namespace
}  // namespace passbook::tests
