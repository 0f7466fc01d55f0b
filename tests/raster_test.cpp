#include <gtest/gtest.h>

#include "api/passbook.h"
#include "print/print_oli.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

TEST(OliPicture, GoesWhereItBelongs) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp"), none = directory.file("none.bmp");
    const auto inked = [&](int width, int height, const std::vector<int>& rows, const std::vector<int>& columns, int x,
                           int y) -> Call {
        return [=] {
            writeFile(path, inkedPicture(width, height, rows, columns).bmp(8, false));
            return PrintBmp_OLI(path.c_str(), false, x, y);
        };
    };
    const auto dotAt = [&](int x, int y) { return inked(8, 30, {0}, {0}, x, y); };
    const auto file = [&](bool eject, int y) { return call(YARDO_PrintBmpOLI, path.c_str(), eject, 1, y); };
    const std::string dot = "<01><00><00>", run1 = "^1A000" + dot + "^2", fiveQueries = "^j^j^j^j^j";
    const std::string blank60 = spelled(std::string(180, '\0')), printed = "^!G1^/10188^|A004" + run1;
    const Call twoStrips = inked(8, 40, {7, 35}, {0}, 50, 100), twoRuns = inked(160, 3, {0}, {0, 100}, 0, 0);
    const Dialogue dialogues[] = {
        {"7 blank rows, 5 between strips", twoStrips, 0,
         "^!G1^/10140^|A033^1A000<02><00><00>^2^/10176^|A033^1A000<04><00><00>^2"},
        {"60 blank columns are sent", inked(160, 3, {0}, {60, 121}, 0, 0), 0,
         "^!G1^/10000^|A000^1A000" + blank60 + dot + blank60 + dot + "^2"},
        {"61 are not", inked(160, 3, {0}, {61, 123}, 3, 0), 0, "^!G1^/10000^|A042" + run1 + "^|A084" + run1},
        {"two runs", twoRuns, 0, "^!G1^/10000^|A000" + run1 + "^|A066" + run1},
        {"as far right as can be", dotAt(1499, 0), 0, "^!G1^/10000^|A999" + run1},
        {"as far down as can be", dotAt(0, 7470), 0, "^!G1^/19960^|A000" + run1},
        {"too far left", dotAt(-1, 0), -1, ""},
        {"too far right", dotAt(1500, 0), -1, ""},
        {"too far up", dotAt(0, -1), -1, ""},
        {"the last row too far down", dotAt(0, 7473), -1, ""},
        {"a run that would begin too far right", inked(800, 3, {0}, {0, 700}, 1000, 0), -1, "^!G1^/10000^|A666" + run1},
    };
    speak(dialogues);
    writeFile(path, inkedPicture(8, 1, {0}, {0}).bmp(24, true));
    // The eject takes place whatever became of the picture, but not without one; the status is asked in any case.
    const Dialogue files[] = {
        {"a file", file(false, 20), 0, printed + fiveQueries},
        {"a file, ejected", file(true, 20), 0, printed + "^O^j^j", {"", "^rU", "", "^ra"}},
        {"a file too far down", file(true, 1060), -1, "^O" + fiveQueries},
        {"no file", call(YARDO_PrintBmpOLI, none.c_str(), true, 1, 1), -11, fiveQueries},
    };
    speak(files);
}

}  // namespace
}  // namespace passbook::tests
