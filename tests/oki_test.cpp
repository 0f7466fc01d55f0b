// The PT functions as dialogues, and the OKI command set behind them. Bytes are spelled as in support.h.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <filesystem>

#include "api/passbook.h"
#include "image/convert.h"
#include "print/print_oki.h"
#include "print/raster.h"
#include "tests/day.h"

namespace passbook::tests {
namespace {

class Oki : public Day {
 protected:
    void TearDown() override {
        clean(false);
        Day::TearDown();
    }
};

Call printText(const char* text, int length = -1, int x = 53, int y = 254) {
    return call(PT_PrintTxtStream, "any", 0, 3, x, y, text, length);
}

Call printLines(std::string text) {
    return [text]() mutable {
        return PrintLineData_OKI(reinterpret_cast<unsigned char*>(text.data()), static_cast<int>(text.size()), 36, 180);
    };
}

TEST_F(Oki, CommandsAreSpokenAsTheyStand) {
    const auto fullFeeds = [](int count) {
        std::string sent;
        while (count-- > 0)
            sent += "^%5<FF>";
        return sent;
    };
    const Dialogue dialogues[] = {
        {"feed of 2 dots", call(SetYPosition_OKI, 2), 0, ""},
        {"feed of 26 dots", call(SetYPosition_OKI, 26), 0, "^%5<10>"},
        {"feed of 384 dots", call(SetYPosition_OKI, 384), 0, "^%5<FF>^%5<01>"},
        {"feed of 765 dots", call(InsertPaper_OKI, 765), 0, "^%5<FF>^%5<FF>"},
        {"feed beyond 65535 dots", call(SetYPosition_OKI, 196605), 0, fullFeeds(514)},
        {"feed backwards", call(SetYPosition_OKI, -300), 0, ""},
        {"move of 300", call(SetXPosition_OKI, 300), 0, "^%3<01>,"},
        {"move too far", call(SetXPosition_OKI, INT_MAX), 0, "^%3<FF><FF>"},
        {"move backwards", call(SetXPosition_OKI, -1), 0, "^%3<00><00>"},
        {"1000 columns", call(SetBMPHead_OKI, 1000), 0, "^%1<03><E8>"},
        {"initial settings", call(InitPrint_OKI, true), 0, "^}Sl<08>^}SF<10><0D>"},
        {"one initial setting", call(InitPrint_OKI, false), 0, "^}Sl<08><0D>"},
        {"final settings", ResetPrint_OKI, 0, "^}SF ^}Sl<FF>"},
        {"a record", call(PrintData_OKI, octets("A\nB"), 3, 36, 180), 0, "^%5x^%3<00>$A<0A>B<0D>"},
        {"eject", call(PT_Eject, "any", 0), 0, "^%5<10><0D><0C>"},
        {"eject where there is nothing", call(PT_Eject, nullptr, 0), -1, ""},

        {"a last line feed", printLines("AB\n"), 0, "^%5x^%3<00>$AB<0D>"},
        {"an empty first line", printLines("\nAB"), 0, "^%5x^%3<00>$<0D><0A>^%3<00>$AB<0D>"},
        {"a zero byte", printLines(std::string("AB\0CD\0\0EF", 9)), 0, "^%5x^%3<00>$AB<0D><0A>^%3<00>$CD<0D>"},
        {"no text", printLines(""), 0, "^%5x^%3<00>$<0D>"},

        {"converted text", printText("中\nA"), 0, "^%5v^%3<00>#<D6><D0><0D><0A>^%3<00>#A<0D>"},
        {"counted text", printText("ABC", 2, 0, 0), 0, "^%3<00><00>AB<0D>"},
        {"text that is no UTF-8", printText("A\xFF!"), -1, ""},
        {"text from nowhere", printText(nullptr), -1, ""},
        {"text left of the page", printText("A", -1, -1), -1, ""},
        {"text above the page", printText("A", -1, 0, -1), -1, ""},
    };
    speak(dialogues);
}

// Bad arguments come first: neither the port nor the time-out is touched. What comes later closes the port again.
TEST_F(Oki, EveryCallClosesThePortItUsed) {
    writeFile("a.gif", "GIF89a");
    writeFile("b", "B");
    writeFile("huge", "");
    std::filesystem::resize_file("huge", 16 * 1024 * 1024 + 1);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    const auto file = [](const char* path, int turns = 0) {
        return call(PT_PrintImageFileRevolve, "any", 0, 7, 0, 0, 0, path, turns);
    };
    const auto stream = [](const char* data, int length) {
        return call(PT_PrintImageStream, "any", 0, 7, 0, 0, 0, octets(data), length);
    };
    const struct {
        const char* name;
        Call call;
        int result;
        bool closed;
        int seconds = 0;  // of pause
    } rows[] = {
        {"no port", call(PT_PrintImageFile, nullptr, 0, 7, 0, 0, 0, "x"), -1, false},
        {"time-out", call(PT_PrintImageFile, "any", 0, -1, 0, 0, 0, "x"), -1, false},
        {"y", call(PT_PrintImageFile, "any", 0, 7, 0, -1, 0, "x"), -1, false},
        {"no path", file(nullptr), -1, false},
        {"turns", file("x", 4), -1, false},
        {"negative turns", call(PT_PrintImageStreamRevolve, "any", 0, 7, 0, 0, 0, octets("Qk0="), 4, -1), -1, false},
        {"no data", stream(nullptr, 4), -1, false},
        {"text, x", call(PT_PrintTxtFile, "any", 0, 7, -1, 0, "x"), -1, false},
        {"one byte", file("b"), -6, true},
        {"no file", file("none"), -6, true},
        {"a directory", file("."), -6, true},
        {"a pipe", file("pipe"), -6, true},
        {"no image", file("a.gif", 1), -6, true},
        {"a huge text file", call(PT_PrintTxtFile, "any", 0, 7, 0, 0, "huge"), -1, true},
        {"a huge text", call(PT_PrintTxtStream, "any", 0, 7, 0, 0, "x", 16 * 1024 * 1024 + 1), -1, true},
        {"no text file", call(PT_PrintTxtFile, "any", 0, 7, 0, 0, "none"), -1, true},
        {"empty stream", stream("BM", 0), -6, true},
        {"negative stream", stream("BM", INT_MIN), -6, true},
        {"base64 of no image", stream("R0lGODlh", 8), -6, true, 1},
        {"base64 of odd length", stream("R0lGODlh", 7), -6, true},
        {"no base64", stream("R0lG*Dlh", 8), -6, true},
        {"almost a PNG", stream("\x89PNG\r\n\x1B\n", 8), -6, true},
        {"a short BMP", stream("BMBM", 4), -12, true, 1},
        {"a short BMP in base64", stream("Qk0=", 4), -12, true, 1},
        {"half a JPEG", stream("\xFF\xD8\xFF\xE0", 4), -11, true, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        g_timeout = 1;
        const Outcome outcome = run(row.call);
        EXPECT_EQ(std::tuple(outcome.result, outcome.closed, outcome.slept),
                  std::tuple(row.result, row.closed, row.seconds));
        EXPECT_EQ(std::pair(spelled(outcome.writes), g_timeout), std::pair(std::string(), row.closed ? 7 : 1));
    }
    g_timeout = 1;
    const char* const line = "no/such/line";
    EXPECT_EQ((std::pair{PT_PrintTxtStream(line, 0, 9, 0, 0, "A", 1), g_timeout}), std::pair(-3, 9));
    EXPECT_EQ(std::pair(PT_Eject(line, 0), PT_PrintImageFile(line, 0, 9, 0, 0, 0, "a.gif")), std::pair(-3, -3));
}

std::string inked(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns) {
    return inkedPicture(width, height, rows, columns).bmp(24, true);
}

/// Text or a picture from a file of such content.
Call fromFile(const Call& job, const std::string& content) {
    return [=] {
        writeFile("a", content);
        return job();
    };
}
Call printFile(const std::string& picture, int x, int y, int turns = 0) {
    return fromFile(call(PT_PrintImageFileRevolve, "any", 0, 7, x, y, 0, "a", turns), picture);
}
Call printMemory(const std::string& picture, int turns) {
    return [=] {
        return PT_PrintImageStreamRevolve("any", 0, 7, 0, 0, 0, octets(picture.data()),
                                          static_cast<int>(picture.size()), turns);
    };
}

TEST_F(Oki, FilesAndMemoryArePrinted) {
    const std::string bar = inked(8, 16, {0}, {0, 1, 2, 3, 4, 5, 6, 7});
    const std::string gapped = inked(100, 3, {0}, {0, 62});
    writeFile("a.bmp", bar);
    ASSERT_EQ(convertBMPtoJPG("a.bmp", "a.jpg", 100), 0);
    const std::string jpeg = readFile("a.jpg"), dot = "<80><00><00>", run1 = "^%1<00><01>", blank3 = "<00><00><00>";
    const std::string across = "^%1<00><08>" + dot + dot + dot + dot + dot + dot + dot + dot,
                      down = run1 + "<FF><00><00>";
    const auto textFile = [](int mode, int x, int y) { return call(PT_PrintTxtFile, "any", mode, 3, x, y, "a"); };
    const auto bmp = [](bool eject, const char* path) { return call(PrintBmp_OKI, path, eject, false, 0, 0); };
    const std::vector<unsigned char> wide(oneBitStrideBytes(65536), 0xFF);
    const Dialogue dialogues[] = {
        {"text", fromFile(textFile(1, 10, 100), "存\nB"), 0, "^%5J^%3<00><07><B4><E6><0D><0A>^%3<00><07>B<0D>"},
        {"empty text", fromFile(textFile(0, 0, 0), ""), 0, "^%3<00><00><0D>"},

        {"upright", printFile(bar, 0, 0), 0, across},
        {"from memory, three quarters", printMemory(bar, 3), 0, down},
        {"JPEG from memory, three quarters", printMemory(jpeg, 3), 0, down},

        {"feed and move", printFile(inked(8, 10, {7}, {3, 4}), 105, 105), 0,
         "^%52^%3<00>F^%1<00><05>" + blank3 + blank3 + blank3 + "@<00><00>@<00><00>"},
        {"a gap first", printFile(inked(100, 3, {0}, {61}), 100, 0), 0, "^%3<00><83>" + run1 + dot},
        {"a gap first, at the edge", printFile(inked(100, 3, {0}, {61}), 0, 0), 0, "^%3<00>=" + run1 + dot},
        {"a gap between", printFile(gapped, 100, 0), 0, "^%3<00>F" + run1 + dot + "^%3<00>=" + run1 + dot, {}},
        {"two strips", printFile(inked(8, 60, {0, 29}, {0}), 0, 10), 0,
         "^%5<04>" + run1 + dot + "^%5<12>" + run1 + " <00><00>"},
        {"an escape byte", printFile(inked(8, 16, {0, 11, 12, 14, 15}, {0}), 0, 0), 0, run1 + "<80>^<00>"},
        // Only a print with eject has one, however it ended, but not without a picture.
        {"eject", bmp(true, "a.bmp"), 0, across + "^%5<10><0D><0C>"},
        {"no picture to eject", bmp(true, "none.bmp"), -11, ""},
        {"a run longer than its head can say", call(SendBMPData_OKI, 65536, 1, wide.data(), 9, 3), -1, "^%5<02>"},
    };
    speak(dialogues);
    // However much of its pixels is missing, nothing passes for the whole. A PNG ends with 16 bytes that tell of none.
    writePng(inkedPicture(8, 16, {0}, {0}), "a.png");
    for (const auto& [whole, end] :
         {std::pair(jpeg, jpeg.size()), std::pair(readFile("a.png"), readFile("a.png").size() - 16)})
        for (std::size_t length = 8; length < end; ++length)
            EXPECT_LT(run(printMemory(whole.substr(0, length), 1)).result, 0) << length;
    EXPECT_EQ(run(printMemory(bar, 0)).slept, 2);
}

}  // namespace
}  // namespace passbook::tests
