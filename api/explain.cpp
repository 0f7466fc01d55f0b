// What every result of every function means: the same as passbook.h tells, row for row.

#include <algorithm>
#include <string_view>

#include "api/passbook.h"

namespace {

// Groups of functions, by names with a space on both sides.

constexpr std::string_view open = " YARDO_PR2_OpenPort ";
constexpr std::string_view init = " YARDO_PR2_InitPrinter ";
constexpr std::string_view text = " YARDO_PR2_PrintData passbook_print_text ";
constexpr std::string_view settings =
    " YARDO_PR2_SetFormat YARDO_PR2_SetLineSpace YARDO_PR2_SetUnderLine YARDO_PR2_LR ";
constexpr std::string_view movesDocument = " YARDO_PR2_InsertPaper YARDO_PR2_EjectPaper YARDO_PR2_SPB ";
constexpr std::string_view clears = " YARDO_PR2_ClearError YARDO_PR2_CLearAll ";
constexpr std::string_view raw = " YARDO_PR2_Command ";
constexpr std::string_view picture = " YARDO_PrintBmpOLI ";
constexpr std::string_view asks = " YARDO_PR2_GetPrinterStatus YARDO_PR2_GetPaperStatus ";
constexpr std::string_view reads = " YARDO_PR2_MSR YARDO_PR2_MSRALL ";
constexpr std::string_view stripeWrite = " YARDO_PR2_MSW ";
constexpr std::string_view scans = " YARDO_ScantoFileOKI YARDO_ScantoFileOLI ";
constexpr std::string_view scanOki = " YARDO_ScantoFileOKI ";
constexpr std::string_view needPort =
    " YARDO_PR2_ClosePort YARDO_PR2_Command YARDO_PR2_InitPrinter YARDO_PR2_PrintData YARDO_PR2_SetFormat "
    "YARDO_PR2_SetLineSpace YARDO_PR2_SetUnderLine YARDO_PR2_LR YARDO_PR2_InsertPaper YARDO_PR2_EjectPaper "
    "YARDO_PR2_ClearError YARDO_PR2_CLearAll YARDO_PR2_GetFWID YARDO_PR2_GetPrinterStatus YARDO_PR2_GetPaperStatus "
    "YARDO_PR2_MSR YARDO_PR2_MSW YARDO_PR2_MSRALL YARDO_PR2_SPB YARDO_PrintBmpOLI YARDO_ScantoFileOKI "
    "YARDO_ScantoFileOLI passbook_print_text ";
constexpr std::string_view badArguments =
    " YARDO_PR2_Command YARDO_PR2_PrintData passbook_print_text YARDO_PR2_SetLineSpace YARDO_PR2_GetFWID YARDO_PR2_MSR "
    "YARDO_PR2_MSW "
    "YARDO_PR2_MSRALL YARDO_ScantoFileOKI YARDO_ScantoFileOLI PT_Eject passbook_oki_paper ";
constexpr std::string_view ptText = " PT_PrintTxtFile PT_PrintTxtStream passbook_oki_print_text ";
constexpr std::string_view ptImage =
    " PT_PrintImageFile PT_PrintImageStream PT_PrintImageFileRevolve PT_PrintImageStreamRevolve ";
constexpr std::string_view ptEject = " PT_Eject ";
constexpr std::string_view okiPaper = " passbook_oki_paper ";
/// Those that other results than 0 can end at the host's wish.
constexpr std::string_view canBeEnded =
    " YARDO_PR2_InitPrinter YARDO_PR2_PrintData YARDO_PR2_MSR YARDO_PR2_MSRALL YARDO_PR2_SPB YARDO_PrintBmpOLI "
    "YARDO_ScantoFileOKI YARDO_ScantoFileOLI PT_PrintTxtFile PT_PrintTxtStream PT_PrintImageFile PT_PrintImageStream "
    "PT_PrintImageFileRevolve PT_PrintImageStreamRevolve passbook_print_text passbook_oki_print_text ";

constexpr const char* nothing = "Nothing of this call is on the paper.";
constexpr const char* upperPart = "Nothing, or the upper part of the picture.";

struct Row {
    std::string_view functions;
    int result;
    passbook_meaning meaning;
};

constexpr int safe = PASSBOOK_REPEAT_SAFE, afterLooking = PASSBOOK_REPEAT_AFTER_LOOKING,
              useless = PASSBOOK_REPEAT_USELESS;

constexpr Row rows[] = {
    {needPort, PASSBOOK_NOT_OPEN, {"PASSBOOK_NOT_OPEN", "No port is open.", nothing, "Open the port first.", useless}},
    {open,
     PASSBOOK_NOT_OPENED,
     {"PASSBOOK_NOT_OPENED", "The port cannot be opened.", nothing,
      "See to the port's name, to the rights of the user, to the cable, and to other programs on the port.", safe}},
    {open,
     PASSBOOK_ALREADY_OPEN,
     {"PASSBOOK_ALREADY_OPEN", "A port is open already; it stays open.", nothing, "Close it first.", useless}},
    {badArguments,
     PASSBOOK_BAD_ARGUMENT,
     {"PASSBOOK_BAD_ARGUMENT", "An argument is wrong, or a position is outside the page.", nothing,
      "Correct the arguments.", useless}},
    {picture,
     PASSBOOK_BAD_ARGUMENT,
     {"PASSBOOK_BAD_ARGUMENT", "An argument is wrong, or the picture does not fit on the page.",
      "Nothing; or the upper part of the picture, when a part behind a wide gap is too far right.",
      "Choose another place or another picture.", useless}},
    {init,
     PASSBOOK_NOT_READY,
     {"PASSBOOK_NOT_READY", "The printer was not ready in time.", nothing,
      "See to the printer: power, cable, cover, paper. Then initialise it again.", safe}},
    {text,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The line was not sent whole.", "Nothing, a part of the line, or all of it.",
      "Look at the page. Initialise the printer. Then print this line or the next one.", afterLooking}},
    {text,
     PASSBOOK_NO_TEXT,
     {"PASSBOOK_NO_TEXT", "The text is not valid UTF-8, or too long.", nothing, "Correct the text.", useless}},
    {settings,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "A setting or a line break was not sent whole.", nothing,
      "Repeat it. Positions of text are absolute: paper that has moved does not matter.", safe}},
    {movesDocument,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The command for the document was not sent whole.", "As before the call.",
      "Ask for the paper status, then repeat it if the document is not where it should be.", safe}},
    {" YARDO_PR2_SPB ",
     PASSBOOK_PAPER_UNKNOWN,
     {"PASSBOOK_PAPER_UNKNOWN", "The printer did not tell where the document is.", "As before the call.",
      "Ask for the paper status: the document can be out.", useless}},
    {clears, PASSBOOK_NOT_SENT, {"PASSBOOK_NOT_SENT", "The command was not sent whole.", nothing, "Repeat it.", safe}},
    {raw,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The bytes were not sent whole.", "What the bytes print, in part or not at all.",
      "Initialise the printer. Repeat them if they print nothing.", afterLooking}},
    {picture,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The picture was not sent whole.", upperPart,
      "Initialise the printer. Take out a page with half a picture.", afterLooking}},
    {picture,
     PASSBOOK_NO_FILE,
     {"PASSBOOK_NO_FILE", "The picture's file cannot be opened.", nothing, "Get another file.", useless}},
    {picture,
     PASSBOOK_SHORT_FILE,
     {"PASSBOOK_SHORT_FILE", "The picture's file is short, or no BMP has its depth.", nothing, "Get another file.",
      useless}},
    {picture,
     PASSBOOK_MISSING_ROWS,
     {"PASSBOOK_MISSING_ROWS", "The picture's file has fewer rows than it promises.", nothing, "Get another file.",
      useless}},
    {picture,
     PASSBOOK_NO_MEMORY,
     {"PASSBOOK_NO_MEMORY", "There is no memory for the picture.", "Nothing; the document can have been ejected.",
      "Free memory, or print a smaller picture.", safe}},
    {" YARDO_PR2_GetFWID ",
     PASSBOOK_NO_ANSWER,
     {"PASSBOOK_NO_ANSWER", "The printer did not tell its identifier.", nothing,
      "Ask for a status until it is answered. Then repeat the call.", safe}},
    {" YARDO_PR2_GetPrinterStatus ",
     PASSBOOK_PRINTER_UNKNOWN,
     {"PASSBOOK_PRINTER_UNKNOWN", "The printer did not tell its status, or not in a known way.", nothing,
      "Ask again, until it is answered. Only then read a stripe or an identifier.", safe}},
    {" YARDO_PR2_GetPaperStatus ",
     PASSBOOK_PAPER_UNKNOWN,
     {"PASSBOOK_PAPER_UNKNOWN", "The printer did not tell where the document is, or not in a known way.", nothing,
      "Ask again, until it is answered. Only then read a stripe or an identifier.", safe}},
    {asks, PASSBOOK_NOT_SENT, {"PASSBOOK_NOT_SENT", "The question was not sent whole.", nothing, "Ask again.", safe}},
    {reads,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The read command was not sent whole.", nothing, "Repeat the call.", safe}},
    {reads,
     PASSBOOK_NO_ANSWER,
     {"PASSBOOK_NO_ANSWER", "The stripe was not read whole in time.", nothing,
      "Ask for a status until it is answered. Then repeat the call.", safe}},
    {stripeWrite,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The write command was not sent whole.", "Nothing; the stripe is as it was.",
      "Repeat the call. Read the stripe back.", safe}},
    {" YARDO_ScantoFileOLI ",
     PASSBOOK_SCAN_NOT_READY,
     {"PASSBOOK_SCAN_NOT_READY",
      "The printer was not ready and was told to eject; or the image has another number of rows than announced.",
      nothing, "Look which files are there. Insert the document again and repeat the scan.", safe}},
    {scanOki,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The question for the paper status was not sent whole.", nothing, "Repeat the scan.", safe}},
    {scanOki,
     PASSBOOK_NO_ANSWER,
     {"PASSBOOK_NO_ANSWER", "The printer sent no image.", nothing, "See to the printer. Repeat the scan.", safe}},
    {scanOki,
     PASSBOOK_PAPER_UNKNOWN,
     {"PASSBOOK_PAPER_UNKNOWN", "The printer did not tell where the document is.", nothing,
      "See to the printer. Repeat the scan.", safe}},
    {scanOki,
     PASSBOOK_NO_PAPER_SIZE,
     {"PASSBOOK_NO_PAPER_SIZE", "The printer did not tell the size of the document.", nothing,
      "See whether the document is in place. Repeat the scan.", safe}},
    {scans,
     PASSBOOK_IMAGE_BROKEN_OFF,
     {"PASSBOOK_IMAGE_BROKEN_OFF", "The image did not come whole.", nothing,
      "Look which files are there. Repeat the scan.", safe}},
    {scans,
     PASSBOOK_NO_MEMORY,
     {"PASSBOOK_NO_MEMORY", "There is no memory for the image, or its temporary file cannot be written.", nothing,
      "Free memory and disk space. Repeat the scan.", safe}},

    {ptText,
     PASSBOOK_PT_NO_TEXT,
     {"PASSBOOK_PT_NO_TEXT",
      "An argument is wrong; or the text file cannot be read; or the text is not valid UTF-8, or too long.", nothing,
      "Correct the arguments or the text.", useless}},
    {ptText,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The port cannot be opened, or the text was not sent whole.",
      "Nothing; or the lines before the failed one, and a part of that one.",
      "Look at the page. Begin after the last line that is there.", afterLooking}},
    {ptImage,
     PASSBOOK_BAD_ARGUMENT,
     {"PASSBOOK_BAD_ARGUMENT", "An argument is wrong, or a part of the picture is wider than 65535 dots.",
      "Nothing; or the upper part of the picture, when a part of it is too wide.",
      "Correct the arguments, or take another picture.", useless}},
    {ptImage,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The port cannot be opened, or the picture was not sent whole.", upperPart,
      "Look at the page. Take out a page with half a picture.", afterLooking}},
    {ptImage,
     PASSBOOK_PT_NO_IMAGE,
     {"PASSBOOK_PT_NO_IMAGE", "The image cannot be opened, or is no BMP, JPEG or PNG.", nothing, "Get another image.",
      useless}},
    {ptImage,
     PASSBOOK_NO_FILE,
     {"PASSBOOK_NO_FILE", "The image is damaged, or there is no room for its temporary file.", nothing,
      "Get another image, or make room in the directory for temporary files.", useless}},
    {ptImage,
     PASSBOOK_SHORT_FILE,
     {"PASSBOOK_SHORT_FILE", "The image is short, damaged, or of a depth that is not printed.", nothing,
      "Get another image.", useless}},
    {ptImage,
     PASSBOOK_MISSING_ROWS,
     {"PASSBOOK_MISSING_ROWS", "The image is damaged: it has fewer rows than it promises.", nothing,
      "Get another image.", useless}},
    {ptImage,
     PASSBOOK_NO_MEMORY,
     {"PASSBOOK_NO_MEMORY", "There is no memory for the image.", nothing, "Free memory, or print a smaller image.",
      safe}},
    {ptEject,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The port cannot be opened, or the command was not sent whole.", "As before the call.",
      "Repeat it.", safe}},
    {okiPaper,
     PASSBOOK_NOT_SENT,
     {"PASSBOOK_NOT_SENT", "The port cannot be opened, or the question was not sent whole.", nothing, "Ask again.",
      safe}},
    {okiPaper,
     PASSBOOK_PAPER_UNKNOWN,
     {"PASSBOOK_PAPER_UNKNOWN", "The printer did not answer, or not in a known way.", nothing,
      "See to the printer: power, cable, and whether it is of the OKI family. Ask again.", safe}},
    {canBeEnded,
     PASSBOOK_CANCELLED,
     {"PASSBOOK_CANCELLED", "The host ended the call.", "What passbook_outcome tells: what was sent before.",
      "Look at the page if ink was sent. Eject the document.", afterLooking}},
};

constexpr passbook_meaning done = {"PASSBOOK_OK", "Everything was handed over.", "What the call prints.", "Go on.",
                                   PASSBOOK_REPEAT_AFTER_LOOKING};

bool isIn(std::string_view functions, std::string_view function) {
    const auto at = functions.find(function);
    return at != std::string_view::npos && !function.empty() && functions[at - 1] == ' ' &&
           functions[at + function.size()] == ' ';
}

constexpr const char* paperTexts[] = {"no document", "the document was ejected and not taken",
                                      "the document is not in its place", "the document is in place"};
constexpr const char* statusTexts[] = {
    "ready",
    "not ready: status byte 51 (Q)",
    "not ready: status byte 54 (T)",
    "not ready: status byte 58 (X)",
    "not ready: status byte 61 (a)",
    "not ready: status byte 62 (b)",
    "not ready: status byte 64 (d)",
    "not ready: status byte 68 (h)",
    "not ready: status byte 31 (1)",
    "not ready: status byte 32 (2)",
    "not ready: status byte 34 (4)",
    "not ready: status byte 38 (8)",
    "not ready: status byte 71 (q)",
    "not ready: status byte 72 (r)",
    "not ready: status byte 70 (p)",
};

}  // namespace

const struct passbook_meaning* passbook_explain(const char* function, int result) {
    if (function == nullptr)
        return nullptr;
    const std::string_view name(function);
    if (result == PASSBOOK_OK) {
        const bool known = name == "YARDO_PR2_OpenPort" || isIn(needPort, name) || isIn(ptText, name) ||
                           isIn(ptImage, name) || isIn(ptEject, name) || isIn(okiPaper, name);
        // The status functions have values instead.
        return known && !isIn(asks, name) ? &done : nullptr;
    }
    const auto* const row = std::find_if(std::begin(rows), std::end(rows), [&](const Row& each) {
        return each.result == result && isIn(each.functions, name);
    });
    return row != std::end(rows) ? &row->meaning : nullptr;
}

const char* passbook_status_text(int status) {
    return status >= 1 && status <= 15 ? statusTexts[status - 1] : nullptr;
}

const char* passbook_paper_text(int status) {
    return status >= 1 && status <= 4 ? paperTexts[status - 1] : nullptr;
}
