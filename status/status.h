// What the printer and its paper report.
#pragma once

namespace passbook {

/// Reads and discards until nothing comes, when an earlier query could not decode its answer: late bytes
/// would be taken for the next answer. Does nothing otherwise. Costs at least one read time-out of the port.
/// A line that never falls silent is given up after 1024 reads.
void clearPrinterBuffer();

/// 1 no document, 2 and 3 a document that is not in place, 4 in place; -3 the request was not sent whole; -20
/// no or another answer. At most three reads.
[[nodiscard]] int GetPaperStatus_OLI();

/// 1 (ready) to 15, by the status byte's table; -3 the request was not sent whole; -22 no or another answer,
/// combinations of the status bits included. At most four reads.
[[nodiscard]] int GetPrinterStatus_OLI();

/// Feeds the document to its first position. Always 0.
int InitPaperPosition_OLI();

/// Sends the fixed set-up that a scan begins with, two writes, no answer read. Always 0. Not the operation of
/// the same name with two arguments, which serves printing and waits for the printer.
int InitPrinter_OLI();

/// Ejects a document that is in place and waits until it has been taken, at most `seconds`; then the printer
/// is sent its removal time-out sequence. 0, the time-out included; or the first negative paper status met
/// after the eject.
[[nodiscard]] int DealCradOvertime_OLI(int seconds);

}  // namespace passbook
