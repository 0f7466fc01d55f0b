// The OKI family's commands and print jobs.
//
// Positions and distances are dots of 1/180 inch. Movement is relative: the paper by feeding, the head to the
// right from where it stands. Distances to the right and counts are kept within 0 to 65535, what the commands' two
// bytes can say; a feed goes as far as it is told. Results are 0, and -3 when a command was not sent whole.
#pragma once

#include "print/lost_move.h"

namespace passbook {

/// Feeds the paper by `distance`, in units of 1/120 inch of which 2 are 3 dots: less than 3 dots feed
/// nothing. As many commands as it takes; stops at the first that is not sent whole, and what was fed stays
/// fed.
[[nodiscard]] int SetYPosition_OKI(int distance);
/// Moves the head to the right.
[[nodiscard]] int SetXPosition_OKI(int distance);
/// Announces `columns` columns of graphics, whose 3 x columns bytes are to follow.
[[nodiscard]] int SetBMPHead_OKI(int columns);
[[nodiscard]] int EjectPaper_OKI();
/// The same as SetYPosition_OKI: this family draws a document in by feeding.
[[nodiscard]] int InsertPaper_OKI(int distance);

/// Fixed settings around a job; `second` also sends the second of them. Always 0.
int InitPrint_OKI(bool second);
int ResetPrint_OKI();

/// Prints a BMP file with its top left corner `x` to the right of the head and `y` below the paper's place.
/// With `eject` the document is ejected afterwards, however the printing ended; `unused` has no effect. 0; -3
/// a run of columns was not sent whole and the rest was not sent; -11, -12, -13, -31 the file cannot be
/// printed (see OneBitPicture) or there is no memory: nothing is sent and nothing ejected, but
/// that the lack of a work buffer still ejects.
[[nodiscard]] int PrintBmp_OKI(const char* path, bool eject, bool unused, int x, int y);

/// The same for a one-bit image in memory (see BinaryImage), without the eject.
[[nodiscard]] int SendBMPData_OKI(int width, int height, const unsigned char* image, int x, int y);

/// Prints text in the printer's code set as lines, cut at line feeds and zero bytes, which it overwrites in
/// `text`. Every line begins at `x`; the printer's own pitch leads from line to line. An empty line behind
/// the first ends the text. 0; -3 a line's move or its bytes were not sent whole: the lines before it are
/// printed.
[[nodiscard]] int PrintLineData_OKI(unsigned char* text, int length, int x, int y,
                                    LostMove lost = LostMove::printsAnyway);

/// Prints bytes as one line, without cutting. 0 or -3.
[[nodiscard]] int PrintData_OKI(const unsigned char* data, int length, int x, int y);

}  // namespace passbook
