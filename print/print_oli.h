// The OLI family's commands (PR2 command set) for text, control and pictures.
//
// Positions are dots of 1/180 inch from the document's top left corner, x to the right from 0 to 1499 and y
// down from 0 to 7499: what the commands' digits can say. The printer steps 1/120 inch across, so that of
// three neighbouring x two share a place, and 3 dots down. Results are 0, -3 when a command was not sent
// whole, and -1, with nothing sent, for a value that its field cannot hold: cut to the field it would print
// in a wrong place.
#pragma once

#include "print/lost_move.h"

namespace passbook {

[[nodiscard]] int SetXPosition_OLI(int x);
[[nodiscard]] int SetYPosition_OLI(int y);
/// True when both positions fit their commands.
[[nodiscard]] bool fitsPage_OLI(int x, int y);

/// Prints a line of text in the printer's code set, and CR. Both positions are tested before either is sent;
/// a vertical position that is not sent whole is reported only when nothing is printed then.
[[nodiscard]] int PrintData_OLI(const unsigned char* data, int length, int x, int y,
                                LostMove lost = LostMove::printsAnyway);

/// `pitch` in characters per inch, its fraction cut off: 10, 12, 15, 16, 17. Any other selects code 0.
[[nodiscard]] int SetFontSpace_OLI(double pitch);
[[nodiscard]] int SetFontBold_OLI(int bold);
/// 0 normal, 1 or 2 wide; anything else as 2. The result is that of the first of two commands.
[[nodiscard]] int SetFontWidth_OLI(int width);
/// Sends LF and the height added to '0' in eight bits.
[[nodiscard]] int SetFontHeight_OLI(int height);
/// `millimetres` from 0 to below 10.58, sent in 1/240 inch, truncated.
[[nodiscard]] int SetLineSpace_OLI(double millimetres);
/// 0 on, 1 and 2 on in the printer's other styles, 3 off, which always reports 0; anything else as 0.
[[nodiscard]] int SetUnderLine_OLI(int mode);
[[nodiscard]] int SendLineBreak_OLI();
[[nodiscard]] int InsertPaper_OLI();
[[nodiscard]] int EjectPaper_OLI();
[[nodiscard]] int ClearError_OLI();
[[nodiscard]] int ClearAll_OLI();

/// Sends bytes as they are. 0 or -3.
[[nodiscard]] int Command_OLI(const unsigned char* data, int length);

/// Resets the printer (`mode` 1: error clear; 2: clear-all and error clear; else error clear and form feed),
/// sets it up and waits for its ready reply. 0, or -30 when none came within the limit; at least one read is
/// made, and the wait can exceed the limit by one read time-out and a second.
[[nodiscard]] int InitPrinter_OLI(int mode, int timeoutSeconds);

/// Reads the 13 bytes of the firmware identifier; no zero is written behind them, and bytes that did not
/// arrive are zero. 0, or -4 without a valid reply.
[[nodiscard]] int GetFWID_OLI(unsigned char* out);

/// Prints a BMP file with its top left corner at x, y (y brought down to a multiple of 3), a second of pause
/// after each inked strip of 24 rows. With `eject` the document is ejected afterwards, however the printing
/// ended. 0; -3 a run of columns was not sent whole and the rest was not sent; -1 a position does not fit:
/// with nothing sent when x, y or the last row does not, in the middle when a later run would lie too far to
/// the right; -11, -12, -13, -31 the file cannot be printed (see OneBitPicture) or there is no
/// memory: nothing is sent and nothing ejected, but that the lack of a work buffer still ejects.
[[nodiscard]] int PrintBmp_OLI(const char* path, bool eject, int x, int y);

/// The same for a one-bit image in memory (see BinaryImage), without the eject.
[[nodiscard]] int SendBMPData_OLI(int width, int height, const unsigned char* image, int x, int y);

/// Opens and closes the data of a run of columns. Always 0: what comes of the run is told by its data.
int SetBMPHead_OLI();
int SetBMPEnd_OLI();

}  // namespace passbook
