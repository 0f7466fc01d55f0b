// The commands of the OLI family (PR2 command set), each once. Beside each stands what goes over the wire. Digits that
// are 0 here are fields, which whoever sends the command fills in.
#pragma once

#include "command/bytes.h"

namespace passbook::oli {

// Position
inline constexpr auto horizontalPosition = esc("|A000");  // 1B 7C 41 d d d     1/120 inch
inline constexpr auto verticalPosition = esc("/10000");   // 1B 2F 31 d d d d   1/240 inch
inline constexpr auto lineSpace = esc("&00");             // 1B 26 d d          1/240 inch
inline constexpr auto lineBreak = joined(carriageReturn, lineFeed);

// How text looks
inline constexpr auto pitch = esc("a0");                         // 1B 61 p        a code
inline constexpr auto boldOn = esc("(");                         // 1B 28
inline constexpr auto boldOff = esc(")");                        // 1B 29
inline constexpr auto widthNormal = esc("3");                    // 1B 33
inline constexpr auto widthDouble = esc("4");                    // 1B 34
inline constexpr auto hanWidthOne = fs("h");                     // 1C 68
inline constexpr auto hanWidthTwo = fs("j");                     // 1C 6A
inline constexpr auto fontHeight = joined(lineFeed, esc("w0"));  // 0A 1B 77 h
inline constexpr auto underlinePlain = esc("*0");                // 1B 2A 30
inline constexpr auto underlineFirst = esc("*3");                // 1B 2A 33
inline constexpr auto underlineSecond = esc("*4");               // 1B 2A 34
inline constexpr auto underlineOff = esc("+");                   // 1B 2B

// Pictures
inline constexpr auto graphicsMode = esc("!G1");  // 1B 21 47 31         once for each picture
inline constexpr auto runHead = esc("1A000");     // 1B 31 41 30 30 30   columns follow, up to:
inline constexpr auto runEnd = esc("2");          // 1B 32

// Document and errors
inline constexpr auto clearError = esc("l");        // 1B 6C
inline constexpr auto clearAll = esc("0");          // 1B 30
inline constexpr auto eject = esc("O");             // 1B 4F
inline constexpr auto paperPosition = esc("L000");  // 1B 4C 30 30 30
inline constexpr auto insert = joined(clearError, paperPosition);
inline constexpr auto removalMode = esc("}0P");  // 1B 7D 30 50

// Questions
inline constexpr auto printerStatus = esc("j");                  // 1B 6A
inline constexpr auto paperStatus = esc(" B");                   // 1B 20 42
inline constexpr auto firmware = joined(clearError, esc(" b"));  // 1B 6C 1B 20 62

// Magnetic stripe
inline constexpr auto stripeFirst = joined(clearError, esc("YE@@"));       // 1B 6C 1B 59 45 40 40
inline constexpr auto stripeSecond = joined(clearError, esc("YEA@"));      // 1B 6C 1B 59 45 41 40
inline constexpr auto stripeRead = esc("]");                               // 1B 5D
inline constexpr auto stripeWrite = esc("t");                              // 1B 74    data follow, up to:
inline constexpr auto stripeWriteEnd = joined(Bytes<1>{0x1D}, esc("\\"));  // 1D 1B 5C

// Scanning
inline constexpr auto scanAnnouncement = joined(esc("}SE"), Bytes<1>{0x00});  // 1B 7D 53 45 00
inline constexpr auto scanFirstPreparation = esc("}-");                       // 1B 7D 2D
inline constexpr auto scanSecondPreparation = esc("-");                       // 1B 2D
inline constexpr auto scanMode = esc("YP");                                   // 1B 59 50      mode byte, colour byte
inline constexpr auto scanSides = esc("}P");                                  // 1B 7D 50      side block, then:
inline constexpr auto scanSidesEnd = esc("Z");                                // 1B 5A

// What the printer is set up with; most of it has no other use.
namespace setting {
inline constexpr auto upToLineSpace = joined(esc("Q080"),    // 1B 51 30 38 30
                                             esc("Z"),       // 1B 5A
                                             esc("J000"),    // 1B 4A 30 30 30
                                             esc("T070"),    // 1B 54 30 37 30
                                             esc("&46"),     // 1B 26 34 36   line space 46/240 inch
                                             esc("#1"));     // 1B 23 31
inline constexpr auto pitchAndMargins = joined(esc("a3"),    // 1B 61 33      15 characters per inch
                                               esc("R003"),  // 1B 52 30 30 33
                                               esc("S5"));   // 1B 53 35
}  // namespace setting

/// Sets the printer up for printing and asks for its status: the answer is the ready reply.
inline constexpr auto setUp =
    joined(esc("n"),  // 1B 6E
           esc("."),  // 1B 2E
           clearError, setting::upToLineSpace, setting::pitchAndMargins, clearError, printerStatus);
static_assert(setUp.size() == 45);

/// Sets the printer up for scanning, in two writes.
inline constexpr auto scanSetUpFirst = joined(cancel, Bytes<3>{escapeByte, 0x07, 'E'}, backspace, clearAll);
static_assert(scanSetUpFirst.size() == 7);
inline constexpr auto scanSetUpSecond =
    joined(clearAll, clearError, esc("n"), esc("."), clearError, setting::upToLineSpace,
           fs("&"),   // 1C 26
           fs("g0"),  // 1C 67 30
           clearError, setting::pitchAndMargins,
           esc("[010"),  // 1B 5B 30 31 30
           clearError);
static_assert(scanSetUpSecond.size() == 59);

/// For a document that was not taken in time, in one write. It asks two questions whose answers nobody awaits.
inline constexpr auto removalTimeout = joined(removalMode, paperPosition, paperStatus, printerStatus, formFeed);
static_assert(removalTimeout.size() == 15);

}  // namespace passbook::oli
