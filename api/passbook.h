/*
 * libpassbook - driver library for bank passbook printers.
 *
 * A teller or self-service program opens a passbook printer through these functions, prints positioned text
 * and pictures on the document that lies in it, reads the printer's and the paper's status, reads and writes
 * the passbook's magnetic stripe, scans the document into image files, and ejects it.
 *
 * Two families of printers are served. The YARDO_ functions speak the OLI family's commands (PR2 command set)
 * on a port that the host opens once and keeps open; YARDO_ScantoFileOKI does the same with OKI printers. The
 * PT_ functions speak the OKI family's commands; each call opens the port, does its job and closes it again.
 *
 * CONVENTIONS
 *   Ownership   Every buffer is the caller's, before and after the call. Nothing is handed out that needs
 *               releasing.
 *   NULL        A null pointer where data is expected gives -1 and nothing is sent.
 *   Threads     One port per process and one call at a time. The library takes no locks: a program with
 *               threads calls it from one of them, or puts its own lock around every call.
 *   Blocking    Every call runs on the caller's thread and returns when its work is done. A read of the
 *               printer's answer waits at most one second on a serial port, for the transfers' time-out on USB
 *               (see YARDO_PR2_OpenPort), and without limit on a parallel port. A write waits without limit on a
 *               serial or parallel port whose printer takes nothing, and so does closing a serial port; on USB
 *               it has the time-out of reads. Reading away what nobody asked for any more, the rest of an aborted
 *               scan say, goes on until the line falls silent, at most two minutes. These two minutes, and those of
 *               the scans, do not depend on the time of day: somebody may set the clock meanwhile.
 *   Sharing     A serial or parallel device is locked (flock) while it is open. A device that another program of
 *               this library has open counts as one that cannot be opened. Programs without the library are not
 *               kept out. Programs that the host starts do not inherit the port. A serial device is not asked
 *               whether it is one: below /dev, "null" opens as well, for one program at a time.
 *   Signals     Signals do not change how long a call waits. A system call that a signal interrupts before it
 *               did anything is made again. A write to a serial or parallel port that a signal cuts short counts
 *               as sent, and its rest is lost: a program that handles signals blocks them around its calls.
 *   Text        UTF-8 in, GB18030 to the printer. A text of more than 16 MiB (16,777,216 bytes) counts as one that
 *               cannot be converted.
 *   Memory      A call without memory ends with its code. The text functions have one exception: GLib, which
 *               converts the text, ends the process when it finds no memory for a few hundred bytes of its own. For
 *               the text itself the library looks first whether there is enough.
 *   Units       Millimetres, tenths of them or inches as each function says, from the document's top left
 *               corner. Inside, positions are dots of 1/180 inch; a picture's pixel is one dot. An OLI printer
 *               moves its head in steps of 1/120 inch, and both families move the paper in steps of 1/60 inch,
 *               so print can lie up to two dots off the dot asked for.
 *   Files       A pipe in the place of a file to read counts as a file that cannot be opened: it would hold the
 *               call. So does a pipe in the place of a file to write that nobody reads. A file that cannot be written
 *               whole is removed, behind a symbolic link the file that it leads to.
 *   Output      Scans print a few lines of progress on standard output. libpng and the JPEG writer tell what
 *               is wrong with a file on standard error. Nothing else is printed.
 *
 *          x ->
 *      +---+--------------------------+   OLI: x 0 to 1499 dots (211 mm, 8 inches),
 *    y |                              |        y 0 to 7499 dots (1058 mm, 41 inches).
 *    | +   * (x, y)                   |   A position outside is refused with -1 and nothing is printed: cut
 *    v |                              |   to what the printer's command can say, it would print in a wrong
 *      |                              |   place.
 *
 * RESULT CODES of the YARDO_ functions
 *    0    Success: the bytes were handed to the operating system. That they are on paper only the printer
 *         knows: ask YARDO_PR2_GetPrinterStatus.
 *   >0    Status functions: the status value. Scans: see there.
 *   -1    A bad argument: nothing reached the printer (but see YARDO_PrintBmpOLI). From YARDO_PR2_OpenPort
 *         also: the port could not be opened. Mend the call; retrying does not help.
 *   -3    A command or its data was not sent whole. Part of it may have reached the printer: look at the
 *         page, or initialise and begin it anew, before printing again.
 *   -4    An answer (firmware identifier, stripe, scan) did not come or was malformed. May be asked again.
 *   -5    A port is open already; it stays open.
 *   -6    No port is open; nothing was sent. This test comes before every other one.
 *   -11   The picture's file cannot be opened.                    \
 *   -12   The file is short, or of a depth that no BMP has.        |  nothing was printed,
 *   -13   The file holds fewer rows than its header promises, or   |  nothing is ejected
 *         its header promises what no BMP can hold.               /
 *   -20   The paper status was not answered, or not recognisably; or the line does not fall silent. Ask again until
 *         it is answered before you read a stripe or an identifier: these take whatever comes first, a late answer
 *         to this question too.
 *   -21   Scan: the printer did not tell the document's size.
 *   -22   The same of the printer status.
 *   -30   The printer was not ready in time. See to the printer, then initialise again.
 *   -31   No memory: nothing was printed. Scan: no memory, or no temporary file.
 *   -40   Scan: the image did not come whole.
 *   -60   The text is not valid UTF-8, or too long; nothing was sent.
 *
 * RESULT CODES of the PT_ functions
 *    0    Success, as above.
 *   -1    A bad argument: the port was not opened. From the text functions also: the file cannot be read, or
 *         the text is not valid UTF-8; nothing was sent. From the image functions also: a part of the picture
 *         is wider than 65535 dots, and the picture ends there.
 *   -3    The port could not be opened; or a command or its data was not sent whole: look at the page.
 *   -6    The image's file cannot be opened, or the data is no BMP, JPEG or PNG; nothing was sent.
 *   -11   The BMP cannot be opened: of a JPEG or PNG, or of a turn, nothing was made.     \
 *   -12   The BMP is short, or of a depth that is not printed.                             |  nothing was
 *   -13   The BMP holds fewer rows than its header promises: a JPEG or PNG was damaged.   /   sent
 *   -31   No memory; nothing was printed.
 *
 * ORDER OF CALLS
 *   YARDO_PR2_OpenPort, YARDO_PR2_InitPrinter, then for each document YARDO_PR2_InsertPaper, formats, text and
 *   pictures, YARDO_PR2_EjectPaper or YARDO_PR2_SPB, and at the end YARDO_PR2_ClosePort.
 *   The PT_ functions need nothing before them and nothing behind. Called while a port is open, they use that
 *   port whatever name they are given, and close it: calls of the YARDO_ functions then have nothing to talk
 *   to, and most fail (-3, -4, -30), until the host closes the port and opens it again.
 */
#ifndef PASSBOOK_H
#define PASSBOOK_H

#ifndef __cplusplus
#include <stdbool.h>
#endif

#if defined(__GNUC__)
#define PASSBOOK_API __attribute__((visibility("default")))
#else
#define PASSBOOK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Port and raw commands ------------------------------------------------------------------------------ */

/*
 * Opens the printer's port and keeps it open until YARDO_PR2_ClosePort.
 * portName  in: one of
 *           - "USB", exactly: the first printer that can be opened of those with the ids (vendor:product)
 *             2086:0011, 2086:0003, 0B3C:0001, 067B:2305 and 0FE6:811E, in this order;
 *           - the name of a serial device below /dev, such as "ttyS0" or "ttyUSB1", at most 127 characters. It
 *             is set to 9600 bits per second, 8 data bits, no parity, one stop bit;
 *           - any name containing "LPT" or "lpt": the first parallel port that opens of /dev/parallel/0 to 3 if
 *             that directory exists, else of /dev/printers/0 to 3 if that exists, else of /dev/lp0 to 3.
 * On USB: An interface that is in use is asked for six times in six seconds; a printer that is attached and
 * stays in use, or that the user has no right to, is passed over. A driver of the system that holds it is sent
 * away, which costs a second, and comes back only when the printer is plugged in anew. Every transfer has a
 * time-out of 10 seconds, or the one that the last PT_ call has set; 0 there is without limit. A printer that
 * never answers holds each read for that long, and functions that ask again and again for minutes:
 * YARDO_PrintBmpOLI asks 5 times, with 4 reads each, after every picture.
 * Returns 0; -1 the port could not be opened, or portName is NULL; -5 a port is open already, and stays so.
 */
PASSBOOK_API int YARDO_PR2_OpenPort(const char* portName);

/*
 * Closes the port; a serial line gets its earlier settings back when what was sent has gone out.
 * Returns 0; -6.
 */
PASSBOOK_API int YARDO_PR2_ClosePort(void);

/*
 * Sends bytes to the printer as they are, in one write. An answer to them cannot be read through this library.
 * data    in: length bytes; may be NULL when length is 0.
 * length  0 or more.
 * Returns 0; -1 negative length or no data; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_Command(const unsigned char* data, int length);

/* ---- Text and control ----------------------------------------------------------------------------------- */

/*
 * Resets the printer, sets it up (15 characters per inch, line space 46/240 inch) and waits until it is ready.
 * mode            1: clears an error; 2: clears everything; any other: clears an error and sends a form feed.
 * timeoutSeconds  how long to wait; with 0 or less one read of an answer is made. The call can take longer by a
 *                 second and one read (see Blocking).
 * Returns 0 ready; -30 not ready in time; -6. After -30 the answer to a question can still be on its way: the
 * next function that asks something takes it for its own.
 */
PASSBOOK_API int YARDO_PR2_InitPrinter(int mode, int timeoutSeconds);

/*
 * Prints one line of text at a position.
 * unit    0: x and y are whole millimetres, and 1 mm is added to y; any other: whole inches.
 * x, y    position of the line, see the picture above: in millimetres x 0 to 211 and y -1 to 1057, in inches
 *         x 0 to 8 and y 0 to 41.
 * text    in: UTF-8. Control characters in it reach the printer as they are. A sequence cut off at the very
 *         end is left out.
 * length  bytes of text; negative: up to its terminating zero.
 * Of the movement down no failure is told: of a line that has broken the movement aside tells, but when a single
 * transfer on USB gets lost there, the text stands at the height of what came before it.
 * Returns 0; -1 text is NULL or a position does not fit: nothing was sent; -3; -6; -60 not valid UTF-8:
 * nothing was sent.
 */
PASSBOOK_API int YARDO_PR2_PrintData(int unit, int x, int y, const char* text, int length);

/*
 * Sets the character format of the text that follows. The paper moves by one line space on the way.
 * pitch   characters per inch, its fraction cut off: 10, 12, 15, 16 or 17; any other sends the printer code 0.
 * bold    0 off, else on.
 * width   0 normal, 1 or 2 wide; any other as 2.
 * height  a small count that is added to the character '0': 0, 1, 2.
 * Returns 0; -3, the settings behind the failed one are not sent then; -6.
 */
PASSBOOK_API int YARDO_PR2_SetFormat(double pitch, int bold, int width, int height);

/*
 * Sets the distance from line to line, in steps of 1/240 inch (rounded down).
 * unit    has no effect.
 * space   millimetres, 0 to below 10.58.
 * Returns 0; -1 space does not fit: nothing was sent; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_SetLineSpace(int unit, double space);

/*
 * Switches underlining of the text that follows.
 * mode    0 on; 1 and 2 on in the printer's two other styles (a double and a heavy line, say); 3 off, for
 *         which the result is always 0; any other as 0.
 * Returns 0; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_SetUnderLine(int mode);

/* Sends carriage return and line feed. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_LR(void);

/* Draws a document in, to its first line, after clearing an error. Does not wait. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_InsertPaper(void);

/* Ejects the document. Does not wait until it is taken, see YARDO_PR2_SPB. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_EjectPaper(void);

/* Clears an error of the printer. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_ClearError(void);

/* Clears everything: errors, settings, what is not yet printed. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_CLearAll(void);

/*
 * Reads the printer's firmware identifier. Call it when no other answer can be on its way (see -20 and -22): an
 * answer that comes late, or in more than six pieces, mixes with the next one.
 * out     out: 13 bytes; no zero is written behind them, and bytes that did not arrive are zero.
 * Blocks for up to six reads. Returns 0; -1 out is NULL; -4 no valid answer, out is unchanged; -6.
 */
PASSBOOK_API int YARDO_PR2_GetFWID(unsigned char* out);

/* ---- Status, stripe and pictures ------------------------------------------------------------------------ */

/*
 * Asks for the printer's status. Blocks for up to four reads, and first reads away what an earlier answer
 * left.
 * Returns the value that stands for the answer's status byte; -3; -6; -22 no answer, or a byte that is not
 * listed (as combinations of several conditions are not):
 *    1 'P' ready      5 'a'      9 '1'     13 'q'
 *    2 'Q'            6 'b'     10 '2'     14 'r'
 *    3 'T'            7 'd'     11 '4'     15 'p'
 *    4 'X'            8 'h'     12 '8'
 */
PASSBOOK_API int YARDO_PR2_GetPrinterStatus(void);

/*
 * Asks where the document is. Blocks for up to three reads, and first reads away what an earlier answer left.
 * Returns 4 it is in place; 1, 2, 3 it is not (YARDO_PR2_SPB waits while it is 2 or 3, and ends at 1); -3; -6;
 * -20 no answer, or one that is not listed.
 */
PASSBOOK_API int YARDO_PR2_GetPaperStatus(void);

/*
 * Reads the magnetic stripe. The answer is not looked at beyond its end mark. So after a status function that gave
 * -20 or -22, ask for the status again until it is answered: else the late answer can stand for the stripe, the result
 * is 0, and the account number is wrong.
 * track   0: the first select command; any other: the second.
 * buffer  out: length bytes. On success the stripe's data with a zero behind it; at most length - 2 bytes of
 *         data fit, and what lies behind the zero has no meaning. After -4 it holds what arrived.
 * length  2 or more; the stripe's data, 2 bytes of header and one terminator should fit.
 * Blocks for up to 15 polls of one second each plus a read. Returns 0; -1 buffer is NULL or length below 2:
 * nothing was sent; -3; -4 no complete answer; -6.
 */
PASSBOOK_API int YARDO_PR2_MSR(int track, char* buffer, int length);

/*
 * Writes the magnetic stripe. The printer does not confirm it: read the stripe back.
 * track   as YARDO_PR2_MSR.
 * data    in: length bytes, sent as they are.
 * length  0 or more.
 * Returns 0 the write command was sent; -1 data is NULL or length negative: nothing was sent; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_MSW(int track, const char* data, int length);

/*
 * Reads with the first select command into buffer0, then with the second into buffer1, each as YARDO_PR2_MSR.
 * Returns the second read's result; the first one's is not told: set buffer0[0] before the call to see whether
 * it changed. -1 when either buffer is NULL or shorter than 2: nothing was sent. -6.
 */
PASSBOOK_API int YARDO_PR2_MSRALL(char* buffer0, int length0, char* buffer1, int length1);

/*
 * Ejects a document that is in place and waits until it has been taken.
 * seconds  how long to wait; 0 or less: as good as not at all.
 * When the time is over the printer is sent its time-out sequence; the result is 0 then, too: ask
 * YARDO_PR2_GetPaperStatus whether the document is gone.
 * Returns 0; -3; -6; -20 a paper status that was not answered ends the wait.
 */
PASSBOOK_API int YARDO_PR2_SPB(int seconds);

/*
 * Prints a BMP file, black and white: grey values below 200 of 255 are ink. One pixel is one dot of 1/180
 * inch.
 * path    in: an uncompressed BMP. 24 and 32 bits: the mean of the three colours counts. 8 bits: the index
 *         itself is the grey value. 1 and 4 bits: the colour table is looked up; without one, 0 is black.
 * eject   true: the document is ejected afterwards, also when printing failed; not when the file could not be
 *         read.
 * x, y    position of the top left corner in whole millimetres, brought down to a multiple of 3 dots in y. The
 *         whole height of the picture must fit the page.
 * Ink that stands only in the last width % 8 pixels of a row does not by itself print; neither does one dot of
 * a column group whose eight dots from top to bottom are ink, ink, blank, ink, ink, blank, blank, blank (its
 * upper one), for the printer would take it for a command.
 * Takes at least a second for every 24 rows with ink. Asks for the printer's status at the end, up to five
 * times.
 * Returns 0; -1 path is NULL or a position does not fit: nothing was printed, unless a part of the picture
 * lies behind a wide gap and too far right: then it ends there; -3 the picture ends at the run that failed;
 * -6; -11; -12; -13; -31.
 */
PASSBOOK_API int YARDO_PrintBmpOLI(const char* path, bool eject, int x, int y);

/* ---- Scanning ------------------------------------------------------------------------------------------- */

/*
 * Scans the document in an OKI printer on the port that is open, and leaves the port open.
 * frontFile, backFile  in: the sides' image files, at most 511 characters each, both always given. A name that
 *                      contains ".jpg" anywhere gives a JPEG (baseline, quality 20, the rows in the order in
 *                      which the printer stored them), any other the printer's BMP as it came. A side for which
 *                      the printer has no data gets no file.
 * imageType            0 black and white, 1 grey with 4 bits, 2 grey with 8 bits, any other colour.
 * frontParam1,         passed on to the printer, their low 8 bits. A document of the size of special paper has
 * backParam1, param2   both first parameters replaced by 'A', but for black and white.
 * optionFlag           passed on to the printer.
 * sides                0 front, 1 back, 2 both, any other none. The printer answers for both in any case.
 * dpi                  up to 240, up to 400, above: one of the printer's three resolutions.
 * direction            bit 0 is passed on to the printer.
 * While it runs, the image is in a temporary file beside frontFile, readable by nobody but the user. It stays
 * there after a failure. An image that cannot be put under its name (another file system, a directory that
 * does not exist, no room for the JPEG) is lost or left in that file, which the result does not tell: look
 * whether the side's file is there. Remove files of that name before the call. A file that is there is whole. Memory does not grow with the image.
 * Each read of the port is taken for one piece of the printer's stream, and pieces of exactly 1 and 8 bytes
 * mean something: lines that carry bytes without borders (a serial line at speed, say) can cut pieces so that
 * image bytes get lost or the image ends early. Ports that keep borders (USB) do not have this.
 * A pause of the printer ends the scan when a read brings nothing (see Blocking). Pieces of 8 bytes, which are no image,
 * are put up with for two minutes; each piece of the image begins this time anew.
 * Returns 0; -1 a name is NULL or too long: nothing was sent; -3, -20 from the paper status; -21; -4 the printer
 * began no image; -40 the image was malformed or broke off; -31 the temporary file could not be made or
 * written, or no memory; -6. The front side's file stays when the back side fails.
 */
PASSBOOK_API int YARDO_ScantoFileOKI(const char* frontFile, const char* backFile, int imageType,
                                     int frontParam1, int backParam1, int param2, bool optionFlag, int sides,
                                     int dpi, int direction);

/*
 * Scans the document in an OLI printer on the port that is open, and leaves the port open. Waits up to a
 * minute for a document, and longer by what the last look for one takes (see YARDO_PR2_GetPaperStatus).
 * frontFile, backFile  in: the sides' BMP files, whatever their names, at most 511 characters each, both
 *                      always given.
 * imageType, param2, optionFlag, sides, dpi  as YARDO_ScantoFileOKI. Sides that are not asked for get no file.
 * param1               for both sides; passed on to the printer, its low 8 bits.
 * direction            bit 0 is passed on to the printer; not 0 (low 8 bits): the files are bottom-up.
 * A side is held in memory. Files have no colour table, whatever their depth.
 * Each read of the port is taken for one message of the printer; see YARDO_ScantoFileOKI for what that means.
 * A pause of the printer ends the scan when a read brings nothing (see Blocking). Messages of no use, which are those
 * that fit nowhere and blocks beyond the image's size, are put up with for two minutes; each message of use begins this
 * time anew. An image that is complete by then has its file, and the result is -40 since its end was not told. Without
 * memory for an image the rest of it is read away, for at most two minutes.
 * Returns 0, also for a side that has no file because its data were not as many as announced, or because it
 * cannot be written (no such directory, a full disk): look whether the side's file is there; -1 a name is NULL or
 * too long: nothing was sent; 2 the printer was not ready, or did not answer, and was told to eject the document,
 * or an image ended with another row count than announced (its file is there if the data were as many as
 * announced); -40 an image broke off; -31 no memory; -6. With two sides the last failure is told, and a file that
 * was made stays.
 */
PASSBOOK_API int YARDO_ScantoFileOLI(const char* frontFile, const char* backFile, int imageType, int param1,
                                     int param2, bool optionFlag, int sides, int dpi, int direction);

/* ---- OKI family: images and text ------------------------------------------------------------------------ */

/*
 * The PT_ functions share these arguments:
 * portName  in: as YARDO_PR2_OpenPort.
 * mode      1: y is in units of 0.165 mm; any other: y is in tenths of a millimetre.
 * timeout   seconds, 0 or more. It is the time-out of transfers over USB, when the call opens such a port; 0
 *           is without limit. Other ports have their own.
 * x         0 or more, tenths of a millimetre to the right of the left margin. A distance beyond 65535 dots (9247 mm)
 *           is brought down to that.
 * y         0 or more, in the unit that mode says, below the place where the document stands. The paper is fed as far as
 *           that says, in steps of at most 42 mm.
 * reserved  not read.
 * Positions are cut to whole millimetres: x = 105 and x = 100 are both 10 mm.
 * The image functions lay temporary files, named ".tmp_" and a time, into the current directory, readable by
 * nobody but the user, and remove them before they return. Programs that print at the same time do so from
 * directories of their own.
 */

/*
 * Prints an image file: BMP (as YARDO_PrintBmpOLI, but that no dot is left out), JPEG (grey or colour, not
 * CMYK) or PNG (of any kind; transparency is dropped, not blended), recognised by its content. JPEG and PNG up
 * to 32767 pixels either way.
 * path  in: the image's file; a BMP is printed from where it is.
 * Returns 0; -1; -3; -6; -11; -12; -13; -31.
 */
PASSBOOK_API int PT_PrintImageFile(const char* portName, int mode, int timeout, int x, int y, int reserved,
                                   const char* path);

/*
 * Prints an image from memory: the bytes of a BMP, JPEG or PNG file, or the base64 text of one (RFC 4648; line
 * feeds, carriage returns and spaces are skipped, but count in the length, which has to be a multiple of 4).
 * Pauses a second.
 * data    in: length bytes.
 * length  below 1 gives -6.
 * Returns as PT_PrintImageFile; -6 also for what is neither an image nor valid base64.
 */
PASSBOOK_API int PT_PrintImageStream(const char* portName, int mode, int timeout, int x, int y, int reserved,
                                     const unsigned char* data, int length);

/*
 * As PT_PrintImageFile, turned clockwise.
 * turns  0 to 3 quarter turns; any other gives -1. BMP files of 8, 24 and 32 bits, and of 1 and 4, can be turned.
 */
PASSBOOK_API int PT_PrintImageFileRevolve(const char* portName, int mode, int timeout, int x, int y,
                                          int reserved, const char* path, int turns);

/* As PT_PrintImageStream, turned as PT_PrintImageFileRevolve. Pauses two seconds, whether it turns or not. */
PASSBOOK_API int PT_PrintImageStreamRevolve(const char* portName, int mode, int timeout, int x, int y,
                                            int reserved, const unsigned char* data, int length, int turns);

/*
 * Ejects the document.
 * Returns 0; -1 portName is NULL; -3 the port could not be opened, or the command was not sent whole.
 */
PASSBOOK_API int PT_Eject(const char* portName, int reserved);

/*
 * Prints a text file: every line from the same x, the printer's own distance apart. Lines end at line feeds; an
 * empty line behind the first ends the text. Lines are not wrapped.
 * path  in: a file of UTF-8 text.
 * Returns 0; -1 also when the file cannot be read, is not UTF-8, or is longer than 16 MiB: nothing was sent; -3, lines
 * before it are printed.
 */
PASSBOOK_API int PT_PrintTxtFile(const char* portName, int mode, int timeout, int x, int y, const char* path);

/*
 * As PT_PrintTxtFile, from memory.
 * text    in: UTF-8, unchanged by the call.
 * length  bytes of text; negative: up to its terminating zero.
 */
PASSBOOK_API int PT_PrintTxtStream(const char* portName, int mode, int timeout, int x, int y,
                                   const char* text, int length);

#ifdef __cplusplus
}
#endif

#endif /* PASSBOOK_H */
