// What the printer and its paper report.
#pragma once

namespace passbook {

/// Where the document is on an OLI printer.
enum PaperStatus : int { paperAbsent = 1, paperNotTaken = 2, paperNotPositioned = 3, paperInPlace = 4 };

/// The one printer status of the OLI family whose meaning is known.
inline constexpr int printerReady = 1;

/// Reads and discards until nothing comes, when an earlier query could not decode its answer: late bytes
/// would be taken for the next answer. Does nothing otherwise. Costs at least one read time-out of the port.
/// A line that never falls silent is given up (see drainPort): it is drained again before the next query, and a query
/// that finds it so ends as one that was not answered.
void clearPrinterBuffer();

/// A PaperStatus; -3 the request was not sent whole; -20
/// no or another answer. At most three reads.
[[nodiscard]] int GetPaperStatus_OLI();

/// 1 (ready) to 15, by the status byte's table; -3 the request was not sent whole; -22 no or another answer,
/// combinations of the status bits included. At most four reads.
[[nodiscard]] int GetPrinterStatus_OLI();

/// Sends the paper-position command. Always 0.
int InitPaperPosition_OLI();

/// Sends the fixed set-up that a scan begins with, two writes, no answer read. Always 0. Not the operation of
/// the same name with two arguments, which serves printing and waits for the printer.
int InitPrinter_OLI();

/// Ejects a document that is in place and waits until it has been taken, at most `seconds`; then the printer
/// is sent its removal time-out sequence. 0, the time-out included; or the first negative paper status met
/// after the eject.
[[nodiscard]] int DealCradOvertime_OLI(int seconds);

/// The OKI family's paper status: 1 or 2; -3 the request was not sent whole; -20 no or another answer. One read, and
/// a late answer is not waited for.
[[nodiscard]] int GetPaperStatus();

/// The inserted document's width and length in the OKI printer's own units; 0 without an answer of the right length.
[[nodiscard]] int GetPaperWidth();
[[nodiscard]] int GetPaperLength();

/// Reads the OKI printer's configuration block, up to its end mark 1B 5A, into `buffer` of `size` bytes. Returns the
/// bytes received, the mark included; a printer that stays silent is given six reads. Prints a line of progress for
/// each read on standard output.
[[nodiscard]] int GetPrinterConfig(unsigned char* buffer, int size);

/// Writes a configuration block of `count` bytes. 0; -50, -51 the printer refused it; -52 it gave no or another answer.
[[nodiscard]] int SetPrinterConfig(const unsigned char* data, int count);

}  // namespace passbook
