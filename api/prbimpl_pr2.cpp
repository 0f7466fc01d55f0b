// The exported functions of the PR2 family: test the arguments, convert units and text, delegate.

#include <cstdint>
#include <cstring>

#include "api/call.h"
#include "api/codeset.h"
#include "api/passbook.h"
#include "api/units.h"
#include "base/results.h"
#include "device/device.h"
#include "print/print_oli.h"
#include "scan/scan.h"
#include "status/status.h"
#include "stripe/stripe.h"

using namespace passbook;

namespace {

// The process-wide state of the exported functions; the names of the code sets stand in codeset.cpp.

/// True from a successful YARDO_PR2_OpenPort until YARDO_PR2_ClosePort, whatever becomes of the transport
/// below.
bool g_portOpen = false;

// What the modules hand up is what the header names.
static_assert(int{success} == PASSBOOK_OK && int{scanNotReady} == PASSBOOK_SCAN_NOT_READY);
static_assert(int{badArgument} == PASSBOOK_BAD_ARGUMENT && int{notSent} == PASSBOOK_NOT_SENT);
static_assert(int{noAnswer} == PASSBOOK_NO_ANSWER && int{notAnImage} == PASSBOOK_PT_NO_IMAGE);
static_assert(int{noFile} == PASSBOOK_NO_FILE && int{shortFile} == PASSBOOK_SHORT_FILE);
static_assert(int{missingRows} == PASSBOOK_MISSING_ROWS && int{paperUnknown} == PASSBOOK_PAPER_UNKNOWN);
static_assert(int{noPaperSize} == PASSBOOK_NO_PAPER_SIZE && int{printerUnknown} == PASSBOOK_PRINTER_UNKNOWN);
static_assert(int{notReady} == PASSBOOK_NOT_READY && int{noMemory} == PASSBOOK_NO_MEMORY);
static_assert(int{imageBrokenOff} == PASSBOOK_IMAGE_BROKEN_OFF);
static_assert(int{paperInPlace} == PASSBOOK_PAPER_IN_PLACE && printerReady == PASSBOOK_PRINTER_READY);

/// A path that fits the scan record. Both sides' are looked at, for both are kept whichever side is scanned.
bool isScanName(const char* path) {
    return path != nullptr && std::strlen(path) < scanNameBytes;
}

/// Does a job on the port that is open, and keeps the record of the call.
template <typename Job>
int onOpenPort(const char* function, Job job) {
    return recorded(
        function, [&] { return g_portOpen ? int{job()} : int{PASSBOOK_NOT_OPEN}; });
}

int printLine(int xDots, int yDots, const char* text, int length, LostMove lost) {
    int convertedLength = 0;
    const ConvertedText converted = toPrinter(text, length, &convertedLength);
    if (converted == nullptr)
        return PASSBOOK_NO_TEXT;
    return PrintData_OLI(reinterpret_cast<const unsigned char*>(converted.get()), convertedLength, xDots, yDots, lost);
}

}  // namespace

int YARDO_PR2_OpenPort(const char* portName) {
    return recorded(
        __func__,
        [&]() -> int {
            if (g_portOpen)
                return PASSBOOK_ALREADY_OPEN;
            if (portName == nullptr)
                return PASSBOOK_BAD_ARGUMENT;
            if (PRSinit(portName) != 0)
                return PASSBOOK_NOT_OPENED;
            g_portOpen = true;
            return PASSBOOK_OK;
        });
}

int YARDO_PR2_ClosePort(void) {
    return onOpenPort(
        __func__,
        [] {
            (void)PRSexit();  // a transport that will not close is taken over by the next open
            g_portOpen = false;
            return PASSBOOK_OK;
        });
}

int YARDO_PR2_Command(const unsigned char* data, int length) {
    return onOpenPort(
        __func__,
        [&]() -> int {
            if (length < 0 || (data == nullptr && length > 0))
                return PASSBOOK_BAD_ARGUMENT;
            return Command_OLI(data, length);
        });
}

int YARDO_PR2_InitPrinter(int mode, int timeoutSeconds) {
    return onOpenPort(
        __func__, [&] { return InitPrinter_OLI(mode, timeoutSeconds); });
}

int YARDO_PR2_PrintData(int unit, int x, int y, const char* text, int length) {
    return onOpenPort(
        __func__,
        [&]() -> int {
            if (text == nullptr)
                return PASSBOOK_BAD_ARGUMENT;
            const bool inches = unit != PASSBOOK_MILLIMETRES;
            // Text in millimetres goes one millimetre lower; text in inches, and pictures, do not.
            const int xDots = inches ? dotsFromInches(x) : dotsFromMillimetres(x);
            const int yDots = inches ? dotsFromInches(y) : dotsFromMillimetres(std::int64_t{y} + 1);
            return printLine(xDots, yDots, text, length, LostMove::printsAnyway);
        });
}

int passbook_print_text(int xDots, int yDots, const char* text, int length) {
    return onOpenPort(
        __func__,
        [&]() -> int {
            return text != nullptr ? printLine(xDots, yDots, text, length, LostMove::printsNothing)
                                   : int{PASSBOOK_BAD_ARGUMENT};
        });
}

int YARDO_PR2_SetFormat(double pitch, int bold, int width, int height) {
    return onOpenPort(
        __func__,
        [&] {
            if (const int result = SetFontSpace_OLI(pitch); result != 0)
                return result;
            if (const int result = SetFontBold_OLI(bold); result != 0)
                return result;
            if (const int result = SetFontWidth_OLI(width); result != 0)
                return result;
            return SetFontHeight_OLI(height);
        });
}

int YARDO_PR2_SetLineSpace(int /*unit*/, double space) {
    return onOpenPort(
        __func__, [&] { return SetLineSpace_OLI(space); });
}

int YARDO_PR2_SetUnderLine(int mode) {
    return onOpenPort(
        __func__, [&] { return SetUnderLine_OLI(mode); });
}

int YARDO_PR2_LR(void) {
    return onOpenPort(__func__, SendLineBreak_OLI);
}

int YARDO_PR2_InsertPaper(void) {
    return onOpenPort(__func__, InsertPaper_OLI);
}

int YARDO_PR2_EjectPaper(void) {
    return onOpenPort(__func__, EjectPaper_OLI);
}

int YARDO_PR2_ClearError(void) {
    return onOpenPort(__func__, ClearError_OLI);
}

int YARDO_PR2_CLearAll(void) {
    return onOpenPort(__func__, ClearAll_OLI);
}

int YARDO_PR2_GetFWID(unsigned char* out) {
    return onOpenPort(
        __func__, [&] { return out != nullptr ? GetFWID_OLI(out) : PASSBOOK_BAD_ARGUMENT; });
}

int YARDO_PR2_GetPrinterStatus(void) {
    return onOpenPort(__func__, GetPrinterStatus_OLI);
}

int YARDO_PR2_GetPaperStatus(void) {
    return onOpenPort(__func__, GetPaperStatus_OLI);
}

int YARDO_PR2_MSR(int track, char* buffer, int length) {
    return onOpenPort(
        __func__, [&] { return ReadStripe(track, buffer, length); });
}

int YARDO_PR2_MSW(int track, const char* data, int length) {
    return onOpenPort(
        __func__, [&] { return WriteStripe(track, data, length); });
}

int YARDO_PR2_MSRALL(char* buffer0, int length0, char* buffer1, int length1) {
    return onOpenPort(
        __func__,
        [&]() -> int {
            // Tested for both before the first read, whose own result is not returned: a bad buffer must not look
            // like a stripe that was read.
            if (buffer0 == nullptr || length0 < 2 || buffer1 == nullptr || length1 < 2)
                return PASSBOOK_BAD_ARGUMENT;
            const bool first = ReadStripe(0, buffer0, length0) == 0;
            if (first)
                havePart(0);
            if (!goOn(first ? 1 : 0, 2))
                return PASSBOOK_CANCELLED;
            const int result = ReadStripe(1, buffer1, length1);
            if (result == 0)
                havePart(1);
            haveDone((first ? 1 : 0) + (result == 0 ? 1 : 0), 2);
            return result;
        });
}

int YARDO_PR2_SPB(int seconds) {
    return onOpenPort(
        __func__, [&] { return DealCradOvertime_OLI(seconds); });
}

int YARDO_PrintBmpOLI(const char* path, bool eject, int x, int y) {
    return onOpenPort(
        __func__,
        [&]() -> int {
            if (path == nullptr)
                return PASSBOOK_BAD_ARGUMENT;
            const int result = PrintBmp_OLI(path, eject, dotsFromMillimetres(x), dotsFromMillimetres(y));
            // Settles the line after the picture; whatever the printer says, the picture's result stands.
            for (int queries = 0; queries < 5 && !isEnding(); ++queries)
                if (GetPrinterStatus_OLI() >= 0)
                    break;
            return result;
        });
}

int YARDO_ScantoFileOKI(const char* frontFile, const char* backFile, int imageType, int frontParam1, int backParam1,
                        int param2, bool optionFlag, int sides, int dpi, int direction) {
    return onOpenPort(
        __func__,
        [&]() -> int {
            if (!isScanName(frontFile) || !isScanName(backFile))
                return PASSBOOK_BAD_ARGUMENT;
            scans record;
            FormatScanParam(&record, frontFile, backFile, imageType, frontParam1, backParam1, param2, optionFlag, sides,
                            dpi, direction);
            callIsRelative();
            return ScanToFileOKI(&record);
        });
}

int YARDO_ScantoFileOLI(const char* frontFile, const char* backFile, int imageType, int param1, int param2,
                        bool optionFlag, int sides, int dpi, int direction) {
    return onOpenPort(
        __func__,
        [&]() -> int {
            if (!isScanName(frontFile) || !isScanName(backFile))
                return PASSBOOK_BAD_ARGUMENT;
            scans record;
            FormatScanParam(&record, frontFile, backFile, imageType, param1, param1, param2, optionFlag, sides, dpi,
                            direction);
            return ScanToFileOLI(&record);
        });
}
