// The exported functions of the PR2 family: test the arguments, convert units and text, delegate.

#include <cstdint>
#include <cstring>

#include "api/codeset.h"
#include "api/passbook.h"
#include "api/units.h"
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

constexpr int badArgument = -1;
constexpr int portAlreadyOpen = -5;
constexpr int portNotOpen = -6;
constexpr int notConvertible = -60;

/// A path that fits the scan record. Both sides' are looked at, for both are kept whichever side is scanned.
bool isScanName(const char* path) {
    return path != nullptr && std::strlen(path) < scanNameBytes;
}

}  // namespace

int YARDO_PR2_OpenPort(const char* portName) {
    if (g_portOpen)
        return portAlreadyOpen;
    if (portName == nullptr)
        return badArgument;
    if (PRSinit(portName) != 0)
        return -1;
    g_portOpen = true;
    return 0;
}

int YARDO_PR2_ClosePort(void) {
    if (!g_portOpen)
        return portNotOpen;
    (void)PRSexit();  // a transport that will not close is taken over by the next open
    g_portOpen = false;
    return 0;
}

int YARDO_PR2_Command(const unsigned char* data, int length) {
    if (!g_portOpen)
        return portNotOpen;
    if (length < 0 || (data == nullptr && length > 0))
        return badArgument;
    return Command_OLI(data, length);
}

int YARDO_PR2_InitPrinter(int mode, int timeoutSeconds) {
    return g_portOpen ? InitPrinter_OLI(mode, timeoutSeconds) : portNotOpen;
}

int YARDO_PR2_PrintData(int unit, int x, int y, const char* text, int length) {
    if (!g_portOpen)
        return portNotOpen;
    if (text == nullptr)
        return badArgument;
    const bool inches = unit != 0;
    // Text in millimetres goes one millimetre lower; text in inches, and pictures, do not.
    const int xDots = inches ? dotsFromInches(x) : dotsFromMillimetres(x);
    const int yDots = inches ? dotsFromInches(y) : dotsFromMillimetres(std::int64_t{y} + 1);
    int convertedLength = 0;
    const ConvertedText converted(convertCodeset(text, length, gb2312Code, utf8Code, &convertedLength));
    if (converted == nullptr)
        return notConvertible;
    return PrintData_OLI(reinterpret_cast<const unsigned char*>(converted.get()), convertedLength, xDots,
                         yDots);
}

int YARDO_PR2_SetFormat(double pitch, int bold, int width, int height) {
    if (!g_portOpen)
        return portNotOpen;
    if (const int result = SetFontSpace_OLI(pitch); result != 0)
        return result;
    if (const int result = SetFontBold_OLI(bold); result != 0)
        return result;
    if (const int result = SetFontWidth_OLI(width); result != 0)
        return result;
    return SetFontHeight_OLI(height);
}

int YARDO_PR2_SetLineSpace(int /*unit*/, double space) {
    return g_portOpen ? SetLineSpace_OLI(space) : portNotOpen;
}

int YARDO_PR2_SetUnderLine(int mode) {
    return g_portOpen ? SetUnderLine_OLI(mode) : portNotOpen;
}

int YARDO_PR2_LR(void) {
    return g_portOpen ? SendLineBreak_OLI() : portNotOpen;
}

int YARDO_PR2_InsertPaper(void) {
    return g_portOpen ? InsertPaper_OLI() : portNotOpen;
}

int YARDO_PR2_EjectPaper(void) {
    return g_portOpen ? EjectPaper_OLI() : portNotOpen;
}

int YARDO_PR2_ClearError(void) {
    return g_portOpen ? ClearError_OLI() : portNotOpen;
}

int YARDO_PR2_CLearAll(void) {
    return g_portOpen ? ClearAll_OLI() : portNotOpen;
}

int YARDO_PR2_GetFWID(unsigned char* out) {
    if (!g_portOpen)
        return portNotOpen;
    return out != nullptr ? GetFWID_OLI(out) : badArgument;
}

int YARDO_PR2_GetPrinterStatus(void) {
    return g_portOpen ? GetPrinterStatus_OLI() : portNotOpen;
}

int YARDO_PR2_GetPaperStatus(void) {
    return g_portOpen ? GetPaperStatus_OLI() : portNotOpen;
}

int YARDO_PR2_MSR(int track, char* buffer, int length) {
    return g_portOpen ? ReadStripe(track, buffer, length) : portNotOpen;
}

int YARDO_PR2_MSW(int track, const char* data, int length) {
    return g_portOpen ? WriteStripe(track, data, length) : portNotOpen;
}

int YARDO_PR2_MSRALL(char* buffer0, int length0, char* buffer1, int length1) {
    if (!g_portOpen)
        return portNotOpen;
    // Tested for both before the first read, whose own result is not returned: a bad buffer must not look
    // like a stripe that was read.
    if (buffer0 == nullptr || length0 < 2 || buffer1 == nullptr || length1 < 2)
        return badArgument;
    (void)ReadStripe(0, buffer0, length0);
    return ReadStripe(1, buffer1, length1);
}

int YARDO_PR2_SPB(int seconds) {
    return g_portOpen ? DealCradOvertime_OLI(seconds) : portNotOpen;
}

int YARDO_PrintBmpOLI(const char* path, bool eject, int x, int y) {
    if (!g_portOpen)
        return portNotOpen;
    if (path == nullptr)
        return badArgument;
    const int result = PrintBmp_OLI(path, eject, dotsFromMillimetres(x), dotsFromMillimetres(y));
    // Settles the line after the picture; whatever the printer says, the picture's result stands.
    for (int queries = 0; queries < 5; ++queries) {
        if (GetPrinterStatus_OLI() >= 0)
            break;
    }
    return result;
}

int YARDO_ScantoFileOKI(const char* frontFile, const char* backFile, int imageType, int frontParam1,
                        int backParam1, int param2, bool optionFlag, int sides, int dpi, int direction) {
    if (!g_portOpen)
        return portNotOpen;
    if (!isScanName(frontFile) || !isScanName(backFile))
        return badArgument;
    scans record;
    FormatScanParam(&record, frontFile, backFile, imageType, frontParam1, backParam1, param2, optionFlag,
                    sides, dpi, direction);
    return ScanToFileOKI(&record);
}

int YARDO_ScantoFileOLI(const char* frontFile, const char* backFile, int imageType, int param1, int param2,
                        bool optionFlag, int sides, int dpi, int direction) {
    if (!g_portOpen)
        return portNotOpen;
    if (!isScanName(frontFile) || !isScanName(backFile))
        return badArgument;
    scans record;
    FormatScanParam(&record, frontFile, backFile, imageType, param1, param1, param2, optionFlag, sides, dpi,
                    direction);
    return ScanToFileOLI(&record);
}
