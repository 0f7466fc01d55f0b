/*
 * libpassbook - driver library for bank passbook printers.
 *
 * A teller or self-service program loads this library. With it the program opens a passbook printer, prints text and
 * pictures at exact places on the document in the printer, reads the status of printer and paper, reads and writes the
 * magnetic stripe, scans the document into image files, and ejects it. Such a program is called the host below.
 *
 * There are two families of printers:
 *   OLI   printers with the PR2 command set. The host uses the YARDO_ functions. It opens the port once and keeps it
 *         open.
 *   OKI   OKI passbook printers. The host uses the PT_ functions. Each call opens the port, works, and closes the
 *         port. Scanning is different: YARDO_ScantoFileOKI works on a port that is open.
 *
 * CONVENTIONS
 *   Ownership   All buffers belong to the host, before and after the call. The host never has to release anything.
 *   NULL        A null pointer where data is expected gives -1. Nothing is sent.
 *   Threads     A process has one port. The library serves one call at a time and takes no locks. A host with threads
 *               calls it from one thread only, or puts its own lock around every call.
 *   Blocking    A call runs on the host's thread. It returns when its work is done. These waits can happen:
 *               - Reading an answer: at most one second on a serial port. On USB the transfer time-out (see
 *                 YARDO_PR2_OpenPort). On a parallel port there is no limit.
 *               - Writing to a printer that takes nothing: no limit on a serial or parallel port. On USB the transfer
 *                 time-out. Closing a serial port waits in the same way until everything is out.
 *               - Reading away bytes that nobody needs any more: until the line is silent, at most two minutes.
 *               Bounds of two minutes do not depend on the time of day. Nobody changes them by setting the clock.
 *   Signals     A signal never makes a wait shorter or longer. A system call that a signal interrupts is made again.
 *               There is one exception: a write to a serial or parallel port that a signal cuts in the middle counts as
 *               complete, and the rest of it is lost. So a host that handles signals blocks them around its calls.
 *   Sharing     An open serial or parallel port is locked (flock). A second host that uses this library cannot open it.
 *               Programs without this library are not kept out. Programs that the host starts do not inherit the port.
 *               The library does not test whether a serial device is a serial line: "null" opens /dev/null, for one
 *               host at a time.
 *   Text        Hosts hand over UTF-8. Printers get GB18030. A text of more than 16 MiB (16,777,216 bytes) is refused.
 *   Memory      A call that finds no memory returns its code for that. One exception: GLib converts the text, and GLib
 *               ends the process when it finds no memory for a few hundred bytes of its own. For the text itself the
 *               library tests first whether there is enough memory.
 *   Files       A pipe in the place of a file to read counts as a file that cannot be opened. A pipe that nobody reads,
 *               in the place of a file to write, counts as a file that cannot be created. A file that cannot be written
 *               whole is removed. If its name is a symbolic link, the file behind the link is removed.
 *   Output      Scans print a few lines of progress on standard output. libpng and the JPEG writer print what is wrong
 *               with a file on standard error. The library prints nothing else.
 *
 * POSITIONS
 *          x ->
 *      +---+--------------------------+   Positions count from the top left corner of the document, in millimetres,
 *    y |                              |   tenths of millimetres or inches, as each function says. Inside they are
 *    | +   * (x, y)                   |   dots of 1/180 inch. A pixel of a picture is one dot.
 *    v |                              |   OLI: x is 0 to 1499 dots (211 mm, 8 inches), y is 0 to 7499 dots
 *      |                              |   (1058 mm, 41 inches). A position outside gives -1. Nothing is printed then.
 *
 *   Printers round. An OLI printer moves its head in steps of 1/120 inch. Both families move the paper in steps of 1/60
 *   inch. So print can be up to two dots away from the dot that was asked for.
 *
 * WHAT SUCCESS MEANS
 *   0 means: the operating system took all bytes that the result covers. It does not mean that they are on paper. An
 *   OLI host asks for that: YARDO_PR2_GetPrinterStatus gives PASSBOOK_PRINTER_READY when the printer is content. The
 *   OKI functions ask the printer nothing.
 *   Some failures have no result. The functions concerned say so. passbook_outcome() tells of all of them. The most
 *   important ones:
 *   - The vertical movement of YARDO_PR2_PrintData and of pictures. If the line breaks, the next command fails and you
 *     get -3. But if USB loses just that one transfer, the result is 0 and the text stands at the height of the line
 *     before.
 *   - The horizontal movement and the frame of a picture's parts: the same.
 *   - Stripe data: read the stripe back.
 *   - The file of a scanned side: look whether the file is there.
 *   - The settings of a scan: the image can be another one than was asked for.
 *
 * AFTER A FAILURE
 *   The first question is always: what of this call can be on the paper? passbook_outcome() answers it for the call
 *   that was made: ink NONE, and the call can be repeated; ink SENT and in_place 1, and the host goes on. This table
 *   tells what can be at all. "Look" means that a person looks at the page,
 *   or that the host scans it. A text or a picture can be there in part.
 *
 *   function          result          on the paper               repeat the call?   then
 *   ----------------  --------------  -------------------------  -----------------  --------------------------------
 *   all               -6, -5          nothing                    after the mend     open or close the port first
 *   all               -1, -60         nothing (but see pictures) after the mend     correct the arguments
 *   OpenPort          -1              nothing                    yes                see to name, rights, cable, and to
 *                                                                                   other programs on the port
 *   InitPrinter       -30             nothing                    yes                see to the printer
 *   InsertPaper       -3              nothing                    yes, harmless      ask GetPaperStatus
 *   PrintData,        -3              nothing, a part, or all    look first         InitPrinter, then this line or the
 *   passbook_print_text                                                             next one
 *   SetFormat,        -3              nothing                    yes, harmless      positions are absolute: paper that
 *   SetLineSpace,                                                                   has moved does not matter
 *   SetUnderLine, LR
 *   PrintBmpOLI       -3              nothing, or the upper      look first         InitPrinter; take out a page with
 *                                     part                                          half a picture
 *   PrintBmpOLI       -1              nothing; the upper part    no                 another place or picture
 *                                     if a part of the picture
 *                                     is too far right
 *   PrintBmpOLI       -11 to -13,     nothing                    after the mend     another file; with -31 the document
 *                     -31                                                           can be ejected
 *   EjectPaper, SPB   -3              as before                  yes, harmless      ask GetPaperStatus
 *   SPB               -20             as before                  no                 ask GetPaperStatus: the document
 *                                                                                   can be out
 *   MSW               -3              nothing                    yes                read the stripe back, always
 *   MSR, MSRALL,      any             nothing                    yes                after -20 and -22 ask for a status
 *   GetFWID, status                                                                 until it is answered
 *   Scan functions    any             nothing                    yes                after 2 the document is out: insert
 *                                                                                   it again
 *   PT_PrintTxt...,   -3              nothing, or the lines      look first         begin after the last line that is
 *   passbook_oki_                     before the failed one                         there
 *   print_text                        and a part of that one
 *   PT_PrintImage...  -3              nothing, or the upper      look first         take out a page with half a picture
 *                                     part
 *   PT_PrintImage...  -1              nothing; the upper part    no                 another picture
 *                                     if a part of the picture
 *                                     is too wide
 *   PT_PrintImage...  -6, -11 to      nothing                    after the mend     another file
 *                     -13, -31
 *   PT_Eject          -3              as before                  yes, harmless
 *   PT_ functions: -3 can also mean that the port could not be opened. Then nothing was sent.
 *
 * A HOST THAT DIES
 *   The system closes the port of a process that ends, killed or not, and its lock ends: the next host can open the port
 *   at once. A serial line stays set as YARDO_PR2_OpenPort sets it. Temporary files stay where they are. The printer can
 *   wait for the rest of a picture or of stripe data: then it takes for that what the next host sends, and texts are
 *   lost with result 0. So take the document out, and switch the printer off and on. Or send what ends the waiting,
 *   with YARDO_PR2_Command: to an OLI printer the end of stripe data, the bytes 1D 1B 5C (hex); and to both families
 *   three zero bytes for each column of the widest picture, which are blank dots.
 *
 * ORDER OF CALLS
 *   YARDO_PR2_OpenPort, YARDO_PR2_InitPrinter. Then for each document: YARDO_PR2_InsertPaper, formats, texts and
 *   pictures, YARDO_PR2_EjectPaper or YARDO_PR2_SPB. At the end YARDO_PR2_ClosePort.
 *   A PT_ function needs no other call before or after it. If a port is open, a PT_ function uses that port, whatever
 *   name it is given, and closes it. After that the YARDO_ functions have no port to talk to, and most of them fail
 *   (-3, -4, -30), until the host calls YARDO_PR2_ClosePort and YARDO_PR2_OpenPort again.
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

/* The version of this header. */
#define PASSBOOK_VERSION_MAJOR 1
#define PASSBOOK_VERSION_MINOR 0
#define PASSBOOK_VERSION_PATCH 0
#define PASSBOOK_VERSION "1.0.0"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Names for the numbers --------------------------------------------------------------------------------------- */

/* Results of the YARDO_ functions. The table above says what each means for the paper. Functions return int. */
enum passbook_result {
    PASSBOOK_OK = 0,
    PASSBOOK_SCAN_NOT_READY = 2,     /* OLI scan: the printer was not ready and was told to eject; or the image has
                                         another number of rows than announced, and the file is there all the same */
    PASSBOOK_BAD_ARGUMENT = -1,      /* nothing was sent; for pictures see YARDO_PrintBmpOLI */
    PASSBOOK_NOT_OPENED = -1,        /* YARDO_PR2_OpenPort: the port could not be opened */
    PASSBOOK_NOT_SENT = -3,          /* a command or its data was not sent whole */
    PASSBOOK_NO_ANSWER = -4,         /* an answer did not come, or was malformed */
    PASSBOOK_ALREADY_OPEN = -5,      /* a port is open, and stays open */
    PASSBOOK_NOT_OPEN = -6,          /* no port is open; this is tested before everything else */
    PASSBOOK_NO_FILE = -11,          /* the picture's file cannot be opened */
    PASSBOOK_SHORT_FILE = -12,       /* the file is short, or no BMP has its depth */
    PASSBOOK_MISSING_ROWS = -13,     /* the file has fewer rows than it promises, or promises what no BMP can hold */
    PASSBOOK_PAPER_UNKNOWN = -20,    /* the paper status was not answered, or not in a known way, or the line never
                                         falls silent */
    PASSBOOK_NO_PAPER_SIZE = -21,    /* scan: the printer did not tell the size of the document */
    PASSBOOK_PRINTER_UNKNOWN = -22,  /* the same as -20, of the printer status */
    PASSBOOK_NOT_READY = -30,        /* the printer was not ready in time */
    PASSBOOK_NO_MEMORY = -31,        /* no memory; of a scan also: no temporary file */
    PASSBOOK_IMAGE_BROKEN_OFF = -40, /* scan: the image did not come whole */
    PASSBOOK_NO_TEXT = -60,          /* the text is not valid UTF-8, or too long */
    PASSBOOK_CANCELLED = -100        /* the host ended the call: see passbook_cancel, passbook_set_progress */
};

/* Results of the PT_ functions, where they are other ones. The rest is as above. */
enum passbook_pt_result {
    PASSBOOK_PT_NO_TEXT = -1,    /* the text file cannot be read, or the text is not valid UTF-8, or too long */
    PASSBOOK_PT_NOT_OPENED = -3, /* the port could not be opened; -3 is also PASSBOOK_NOT_SENT */
    PASSBOOK_PT_NO_IMAGE = -6    /* the file cannot be opened, or the data is no BMP, JPEG or PNG */
};

/* What YARDO_PR2_GetPrinterStatus returns: one value for each status byte that the printer can send. The meaning of
 * PASSBOOK_PRINTER_READY is known. For the other values only the byte is known: a host shows the number to a person,
 * and that person looks it up in the manual of the printer model. */
enum passbook_printer_status {
    PASSBOOK_PRINTER_READY = 1, /* byte 50 hex, 'P': ready */
    PASSBOOK_PRINTER_51 = 2,    /* 'Q' */
    PASSBOOK_PRINTER_54 = 3,    /* 'T' */
    PASSBOOK_PRINTER_58 = 4,    /* 'X' */
    PASSBOOK_PRINTER_61 = 5,    /* 'a' */
    PASSBOOK_PRINTER_62 = 6,    /* 'b' */
    PASSBOOK_PRINTER_64 = 7,    /* 'd' */
    PASSBOOK_PRINTER_68 = 8,    /* 'h' */
    PASSBOOK_PRINTER_31 = 9,    /* '1' */
    PASSBOOK_PRINTER_32 = 10,   /* '2' */
    PASSBOOK_PRINTER_34 = 11,   /* '4' */
    PASSBOOK_PRINTER_38 = 12,   /* '8' */
    PASSBOOK_PRINTER_71 = 13,   /* 'q' */
    PASSBOOK_PRINTER_72 = 14,   /* 'r' */
    PASSBOOK_PRINTER_70 = 15    /* 'p' */
};

/* What YARDO_PR2_GetPaperStatus returns. Only PASSBOOK_PAPER_IN_PLACE allows printing. The names of the others say how
 * the library treats them. */
enum passbook_paper_status {
    PASSBOOK_PAPER_ABSENT = 1,         /* YARDO_PR2_SPB stops waiting */
    PASSBOOK_PAPER_NOT_TAKEN = 2,      /* YARDO_PR2_SPB goes on waiting */
    PASSBOOK_PAPER_NOT_POSITIONED = 3, /* YARDO_PR2_SPB goes on waiting; a scan has the document drawn in */
    PASSBOOK_PAPER_IN_PLACE = 4
};

/* Units of YARDO_PR2_PrintData, and of y in the PT_ functions (their argument mode). */
enum passbook_unit { PASSBOOK_MILLIMETRES = 0, PASSBOOK_INCHES = 1 };
enum passbook_pt_mode { PASSBOOK_PT_MODE_TENTH_MM = 0, PASSBOOK_PT_MODE_0165_MM = 1 };

/* How YARDO_PR2_InitPrinter resets the printer. */
enum passbook_reset { PASSBOOK_RESET_FORM_FEED = 0, PASSBOOK_RESET_ERROR = 1, PASSBOOK_RESET_ALL = 2 };

/* Modes of YARDO_PR2_SetUnderLine. */
enum passbook_underline {
    PASSBOOK_UNDERLINE_PLAIN = 0,
    PASSBOOK_UNDERLINE_SECOND = 1,
    PASSBOOK_UNDERLINE_THIRD = 2,
    PASSBOOK_UNDERLINE_OFF = 3
};

/* Image types and sides of the scan functions. */
enum passbook_image_type {
    PASSBOOK_IMAGE_BLACK_WHITE = 0, /* 1 bit a pixel */
    PASSBOOK_IMAGE_GREY_16 = 1,     /* 4 bits */
    PASSBOOK_IMAGE_GREY_256 = 2,    /* 8 bits */
    PASSBOOK_IMAGE_COLOUR = 3       /* 24 bits */
};
enum passbook_sides { PASSBOOK_SIDES_FRONT = 0, PASSBOOK_SIDES_BACK = 1, PASSBOOK_SIDES_BOTH = 2 };

/* Clockwise turns of the PT_ functions. */
enum passbook_turn { PASSBOOK_UPRIGHT = 0, PASSBOOK_TURNED_90 = 1, PASSBOOK_TURNED_180 = 2, PASSBOOK_TURNED_270 = 3 };

/* ---- Port and raw commands --------------------------------------------------------------------------------------- */

/*
 * Opens the port of the printer. It stays open until YARDO_PR2_ClosePort.
 * portName  in: one of these names.
 *           "USB", exactly: the first printer that can be opened of these, in this order (vendor:product): 2086:0011,
 *           2086:0003, 0B3C:0001, 067B:2305, 0FE6:811E.
 *           The name of a serial device below /dev, for example "ttyS0" or "ttyUSB1", at most 127 characters. The
 *           library sets it to 9600 bits per second, 8 data bits, no parity, one stop bit. Other settings stay.
 *           A name that contains "LPT" or "lpt": the first parallel port that opens. These are tried: /dev/parallel/0
 *           to 3 if that directory exists; else /dev/printers/0 to 3 if that exists; else /dev/lp0 to 3.
 * USB: A printer whose interface is in use is tried six times, which takes six seconds. Then the next one is tried. A
 * driver of the system (usblp) that holds the interface is removed, which takes a second. It comes back when the
 * printer is plugged in again. Every transfer has a time-out of 10 seconds, or the time-out of the last PT_ call; 0
 * means no limit. A printer that never answers holds each read for that time. Functions that ask repeatedly then take
 * minutes: YARDO_PrintBmpOLI asks 5 times, with 4 reads each, after every picture.
 * Returns 0; -1 the port could not be opened, or portName is NULL; -5.
 */
PASSBOOK_API int YARDO_PR2_OpenPort(const char* portName);

/*
 * Closes the port. A serial line gets back the settings that it had before, after everything that was sent is out.
 * Returns 0; -6.
 */
PASSBOOK_API int YARDO_PR2_ClosePort(void);

/*
 * Sends bytes to the printer as they are, in one write. The host cannot read an answer to them.
 * data    in: length bytes. May be NULL when length is 0.
 * length  0 or more.
 * Returns 0; -1 negative length, or no data; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_Command(const unsigned char* data, int length);

/* ---- Text and control -------------------------------------------------------------------------------------------- */

/*
 * Resets the printer, sets it up (15 characters per inch, line space 46/240 inch), and waits until it is ready.
 * mode            see enum passbook_reset. Any other value is as PASSBOOK_RESET_FORM_FEED.
 * timeoutSeconds  how long to wait. With 0 or less, one read of an answer is made. The call can take one second and one
 *                 read longer (see Blocking).
 * Returns 0 ready; -30; -6. After -30 a late answer can still come. The next question takes it for its own.
 */
PASSBOOK_API int YARDO_PR2_InitPrinter(int mode, int timeoutSeconds);

/*
 * Prints one line of text at a position.
 * unit    see enum passbook_unit. PASSBOOK_MILLIMETRES: x and y are whole millimetres, and 1 mm is added to y. Any
 *         other value: whole inches.
 * x, y    in millimetres x is 0 to 211 and y is -1 to 1057. In inches x is 0 to 8 and y is 0 to 41.
 * text    in: UTF-8. Control characters reach the printer as they are. A character that is cut off at the end is left
 * out. length  bytes of text. Negative: up to the terminating zero.
 * The result does not cover the vertical movement, see WHAT SUCCESS MEANS.
 * Returns 0; -1 text is NULL, or a position is outside the page; -3; -6; -60.
 */
PASSBOOK_API int YARDO_PR2_PrintData(int unit, int x, int y, const char* text, int length);

/*
 * Sets how the following text looks. The paper moves by one line space.
 * pitch   characters per inch: 10, 12, 15, 16 or 17. A fraction is cut off. Any other value sends the printer code 0.
 * bold    0 off, any other value on.
 * width   0 normal, 1 or 2 wide, any other value as 2.
 * height  0, 1 or 2. It is added to the character '0'.
 * Returns 0; -3, and then the settings after the failed one are not sent; -6.
 */
PASSBOOK_API int YARDO_PR2_SetFormat(double pitch, int bold, int width, int height);

/*
 * Sets the distance from line to line. The printer's step is 1/240 inch; the value is rounded down.
 * unit    has no effect.
 * space   millimetres, from 0 to below 10.58.
 * Returns 0; -1 space is outside; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_SetLineSpace(int unit, double space);

/*
 * Switches underlining of the following text.
 * mode    see enum passbook_underline. 0, 1 and 2 are three styles that the printer has. 3 is off; its result is always
 *         0. Any other value is as 0.
 * Returns 0; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_SetUnderLine(int mode);

/* Sends carriage return and line feed. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_LR(void);

/* Clears an error and draws a document in, to its first line. Does not wait. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_InsertPaper(void);

/* Ejects the document. Does not wait until somebody takes it; YARDO_PR2_SPB does. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_EjectPaper(void);

/* Clears an error of the printer. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_ClearError(void);

/* Clears errors, settings, and what is not yet printed. Returns 0; -3; -6. */
PASSBOOK_API int YARDO_PR2_CLearAll(void);

/*
 * Reads the firmware identifier of the printer.
 * out     out: 13 bytes, without a zero at the end. Bytes that did not arrive are zero. Unchanged after -4.
 * Makes up to six reads. If a status function gave -20 or -22 before, first ask for a status until it is answered: else
 * a late answer mixes with this one.
 * Returns 0; -1 out is NULL; -4; -6.
 */
PASSBOOK_API int YARDO_PR2_GetFWID(unsigned char* out);

/* ---- Status, stripe and pictures --------------------------------------------------------------------------------- */

/*
 * Asks for the status of the printer. Makes up to four reads. First reads away what an earlier question left on the
 * line. Returns a value of enum passbook_printer_status; -3; -6; -22, also for a byte that is not in that list, as
 * combinations of several conditions are not.
 */
PASSBOOK_API int YARDO_PR2_GetPrinterStatus(void);

/*
 * Asks where the document is. Makes up to three reads. First reads away what an earlier question left on the line.
 * Returns a value of enum passbook_paper_status; -3; -6; -20.
 */
PASSBOOK_API int YARDO_PR2_GetPaperStatus(void);

/*
 * Reads the magnetic stripe.
 * Important: the library takes the first answer that comes for the stripe. If a status function gave -20 or -22 before,
 * first ask for a status until it is answered. Else a late status answer can stand in the buffer, the result is 0, and
 * the account number is wrong.
 * track   0: the first select command. Any other value: the second.
 * buffer  out: length bytes. After 0 it holds the data of the stripe with a zero after them. What follows the zero has
 *         no meaning. After -4 it holds what arrived.
 * length  2 or more. At most length - 2 bytes of data fit. There should be room for the data, 2 bytes of header and 1
 *         byte for the end.
 * Asks up to 15 times, with a pause of one second and one read each.
 * Returns 0; -1 buffer is NULL, or length is below 2; -3; -4; -6.
 */
PASSBOOK_API int YARDO_PR2_MSR(int track, char* buffer, int length);

/*
 * Writes the magnetic stripe. The printer does not confirm it: read the stripe back.
 * track   as in YARDO_PR2_MSR.
 * data    in: length bytes, sent as they are.
 * length  0 or more.
 * Returns 0 the write command was sent; -1 data is NULL, or length is negative; -3; -6.
 */
PASSBOOK_API int YARDO_PR2_MSW(int track, const char* data, int length);

/*
 * Reads both stripes as YARDO_PR2_MSR does: track 0 into buffer0, then track 1 into buffer1.
 * passbook_outcome tells which of the two were read.
 * Returns the result of the second read: 0; -3; -4; or -1 one of the buffers is NULL or shorter than 2: nothing was
 * sent; -6. There is no result of the first read.
 */
PASSBOOK_API int YARDO_PR2_MSRALL(char* buffer0, int length0, char* buffer1, int length1);

/*
 * Ejects a document that is in place, and waits until somebody takes it.
 * seconds  how long to wait. When the time is over the printer gets its removal time-out sequence, and the result is 0.
 *          So 0 does not say that the document is gone: ask YARDO_PR2_GetPaperStatus.
 * Asks for the paper status again and again without a pause. Each question can take three reads.
 * Returns 0; -3; -20; -6.
 */
PASSBOOK_API int YARDO_PR2_SPB(int seconds);

/*
 * Prints a BMP file. Bytes of a pixel below 200 are ink: for 24 and 32 bits the mean of blue, green and red; for 8 bits
 * the byte itself, whatever the colour table says (a grey picture); for 1 and 4 bits the mean of the entry in the
 * colour table. path    in: an uncompressed BMP of 1, 4, 8, 16 (read as 8), 24 or 32 bits a pixel.
 * eject   whether to eject the document afterwards. It is ejected also when the printing fails, but not when the
 *         picture cannot be read.
 * x, y    the top left corner, in whole millimetres. y is moved up to a multiple of 3 dots. The whole height of the
 *         picture must fit on the page.
 * Some ink is not printed. A row whose only ink is in its last width % 8 pixels counts as blank. And the printer would
 * take one byte of a picture for a command: eight dots of a column that are, from top to bottom, ink, ink, blank, ink,
 * ink, blank, blank, blank. The library leaves the first of these dots out.
 * Pauses one second after every 24 rows with ink. At the end asks for the printer status, at most five times.
 * Returns 0; -1 path is NULL or a position is outside the page: nothing is printed, with one exception: the part of a
 * picture behind a wide gap can be too far right, and then the picture ends there; -3 the picture ends at the part that
 * failed; -6; -11; -12; -13; -31.
 */
PASSBOOK_API int YARDO_PrintBmpOLI(const char* path, bool eject, int x, int y);

/* ---- Scanning ---------------------------------------------------------------------------------------------------- */

/*
 * Scans the document in an OKI printer, on the port that is open. The port stays open.
 * frontFile, backFile  in: the image files of the sides, at most 511 characters each. Both are always given. A name
 *                      that contains ".jpg" anywhere gives a JPEG (baseline, quality 20, the rows in the order in which
 *                      the printer stored them). Any other name gives the printer's BMP as it came. A side without data
 *                      gets no file.
 * imageType            see enum passbook_image_type. Any other value is colour.
 * frontParam1,         go to the printer, their low 8 bits. For a document of the size of special paper both first
 * backParam1, param2   parameters become 'A', except for black and white.
 * optionFlag           goes to the printer.
 * sides                see enum passbook_sides. Any other value is no side. The printer always answers for both sides.
 * dpi                  up to 240, up to 400, or above: one of three resolutions of the printer.
 * direction            bit 0 goes to the printer.
 * Files: Remove old files of these names before the call, and look after it which files are there. A file that is there
 * is whole. While the scan runs, the image is in a temporary file beside frontFile. Only the user can read it. It stays
 * there when the scan fails. An image is lost, and the result is 0 all the same, when it cannot be put under its name:
 * another file system, no such directory, no room for the JPEG. The library does not need more memory for a larger
 * image. Waits: A read that brings nothing ends the scan. Pieces of 8 bytes are not part of the image. They are endured
 * for two minutes; each other piece starts these two minutes again.
 * Lines: The library takes what one read brings for one piece of the printer's stream, and pieces of exactly 1 byte and
 * of exactly 8 bytes have a meaning. USB keeps such pieces apart. A serial line does not, and can cut the stream so
 * that image bytes get lost or the image ends early.
 * Returns 0; -1 a name is NULL or too long; -3 and -20 as YARDO_PR2_GetPaperStatus; -21; -4 no image began; -40 the
 * image is malformed, or broke off; -31 no memory, or the temporary file could not be made or written; -6. If the back
 * side fails, the file of the front side stays.
 */
PASSBOOK_API int YARDO_ScantoFileOKI(const char* frontFile, const char* backFile, int imageType, int frontParam1,
                                     int backParam1, int param2, bool optionFlag, int sides, int dpi, int direction);

/*
 * Scans the document in an OLI printer, on the port that is open. The port stays open. Waits up to a minute for a
 * document, and longer by the last question for it.
 * frontFile, backFile  in: the BMP files of the sides, whatever their names, at most 511 characters each. Both are
 *                      always given. Sides that are not asked for get no file.
 * imageType, param2, optionFlag, sides, dpi  as in YARDO_ScantoFileOKI.
 * param1               for both sides. Its low 8 bits go to the printer.
 * direction            bit 0 goes to the printer. If its low 8 bits are not 0, the files are bottom-up.
 * Files: as in YARDO_ScantoFileOKI, without a temporary file. BMP files have no colour table. A side is held in memory.
 * Waits: A read that brings nothing ends the side. Messages that fit nowhere, and blocks beyond the size of the image,
 * are endured for two minutes; each message of use starts these two minutes again. An image that is complete by then
 * gets its file, and the result is -40, for its end was not told. Without memory for an image, the rest of it is read
 * away, for at most two minutes.
 * Lines: as in YARDO_ScantoFileOKI; here pieces of 2, 6 and 12 bytes have a meaning.
 * Returns 0, also for a side without a file: its data did not have the announced size, or the file cannot be written;
 * -1 a name is NULL or too long; 2; -40; -31; -6. With two sides the last failure is returned, and a file that was made
 * stays.
 */
PASSBOOK_API int YARDO_ScantoFileOLI(const char* frontFile, const char* backFile, int imageType, int param1, int param2,
                                     bool optionFlag, int sides, int dpi, int direction);

/* ---- OKI family: images and text --------------------------------------------------------------------------------- */

/*
 * The PT_ functions share these arguments:
 * portName  in: as in YARDO_PR2_OpenPort.
 * mode      see enum passbook_pt_mode: the unit of y. Any other value is as PASSBOOK_PT_MODE_TENTH_MM.
 * timeout   seconds, 0 or more: the time-out of USB transfers if this call opens a USB port. 0 means no limit. Other
 *           ports have bounds of their own.
 * x         0 or more: tenths of a millimetre to the right of the left margin. A distance above 65535 dots (9247 mm)
 *           becomes 65535 dots.
 * y         0 or more: the distance below the place where the document stands. The paper is fed that far, in steps of
 *           at most 42 mm.
 * reserved  is not read.
 * Positions are cut to whole millimetres: x = 105 and x = 100 are both 10 mm.
 * The image functions make temporary files in the current directory, named ".tmp_" and a time. Only the user can read
 * them. They are removed before the call returns. Hosts that print at the same time run in different directories.
 */

/*
 * Prints an image file: BMP (as YARDO_PrintBmpOLI, but no dot is left out), JPEG (grey or colour, not CMYK), or PNG (of
 * any kind; transparency is dropped, not blended). The content tells which. JPEG and PNG can be up to 32767 pixels wide
 * and high. A damaged JPEG or PNG is refused. A JPEG that only deviates from the format, as those of phones do, is
 * printed. path  in: the file of the image. A BMP is printed from there.
 * Returns 0; -1; -3; -6; -11, -12 or -13, also when a JPEG or PNG is damaged; -31.
 */
PASSBOOK_API int PT_PrintImageFile(const char* portName, int mode, int timeout, int x, int y, int reserved,
                                   const char* path);

/*
 * Prints an image from memory: the bytes of a BMP, JPEG or PNG file, or the base64 text of one (RFC 4648; line feeds,
 * carriage returns and spaces are skipped, but they count in the length, which must be a multiple of 4). Pauses one
 * second. data    in: length bytes.
 * length  below 1 gives -6.
 * Returns as PT_PrintImageFile; -6 also for data that is neither an image nor valid base64.
 */
PASSBOOK_API int PT_PrintImageStream(const char* portName, int mode, int timeout, int x, int y, int reserved,
                                     const unsigned char* data, int length);

/*
 * As PT_PrintImageFile, with the image turned.
 * turns  see enum passbook_turn. Any other value gives -1. BMP files of 1, 4, 8, 24 and 32 bits can be turned.
 */
PASSBOOK_API int PT_PrintImageFileRevolve(const char* portName, int mode, int timeout, int x, int y, int reserved,
                                          const char* path, int turns);

/* As PT_PrintImageStream, with the image turned as in PT_PrintImageFileRevolve. Always pauses two seconds. */
PASSBOOK_API int PT_PrintImageStreamRevolve(const char* portName, int mode, int timeout, int x, int y, int reserved,
                                            const unsigned char* data, int length, int turns);

/* Ejects the document. Returns 0; -1 portName is NULL; -3. */
PASSBOOK_API int PT_Eject(const char* portName, int reserved);

/*
 * Prints a text file. Every line begins at the same x. The distance between lines is the printer's own. Lines end at
 * line feeds. An empty line after the first one ends the text. Lines are not wrapped.
 * path  in: a file of UTF-8 text, at most 16 MiB.
 * Returns 0; -1 also when the file cannot be read, or is not UTF-8; -3, and the lines before the failed one are
 * printed.
 */
PASSBOOK_API int PT_PrintTxtFile(const char* portName, int mode, int timeout, int x, int y, const char* path);

/*
 * As PT_PrintTxtFile, with the text from memory.
 * text    in: UTF-8. The call does not change it.
 * length  bytes of text. Negative: up to the terminating zero.
 */
PASSBOOK_API int PT_PrintTxtStream(const char* portName, int mode, int timeout, int x, int y, const char* text,
                                   int length);

/* ---- Text to the dot -------------------------------------------------------------------------------------------- */

/*
 * As YARDO_PR2_PrintData, with the place in dots of 1/180 inch. Nothing is added to y. The printer rounds, see POSITIONS.
 * The text is not sent when its place was not: YARDO_PR2_PrintData reports that only by passbook_outcome.
 * xDots   0 to 1499.
 * yDots   0 to 7499. It is moved up to a multiple of 3.
 * Returns 0; -1; -3; -6; -60.
 */
PASSBOOK_API int passbook_print_text(int xDots, int yDots, const char* text, int length);

/*
 * As PT_PrintTxtStream, with the place in dots of 1/180 inch. A line is not sent when its place was not.
 * xDots     0 or more, from the left margin.
 * feedDots  0 or more: how far the paper is fed before. It is moved up to a multiple of 3.
 * Returns 0; -1; -3.
 */
PASSBOOK_API int passbook_oki_print_text(const char* portName, int timeout, int xDots, int feedDots, const char* text,
                                         int length);

/* Two functions below have the name of the struct that they fill, as stat(2) has. GCC calls that shadowing in C++. */
#if defined(__GNUC__) && defined(__cplusplus)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
#endif

/* ---- What became of a call -------------------------------------------------------------------------------------- */

/*
 * All functions above keep a record of the latest call. The functions here do not change it, with one exception:
 * passbook_oki_paper.
 */

/* What is on the paper. */
enum passbook_ink {
    PASSBOOK_INK_NONE = 0,     /* no printable byte left the process */
    PASSBOOK_INK_POSSIBLE = 1, /* some may be on the paper */
    PASSBOOK_INK_SENT = 2      /* all were handed over */
};

struct passbook_outcome {
    unsigned size;         /* in: sizeof(struct passbook_outcome) */
    char function[32];     /* the name of the function; empty before the first call */
    int result;            /* what it returned */
    int ink;               /* see enum passbook_ink */
    int in_place;          /* 1: every movement that places this ink was handed over whole. 0: not so. Then the ink of
                              this call can be in a wrong place. On OKI printers movements count from where the paper
                              is: after a lost one this is 0 until a document was ejected. */
    int transfers;         /* writes to the printer */
    int failed_transfers;  /* those that were not taken whole, also when the result does not tell */
    int missing_answers;   /* questions without an answer that the library understands */
    long long bytes_sent;  /* bytes that were taken */
    int x_dots, y_dots;    /* where the last ink was sent to, in dots of 1/180 inch; -1 unknown. OKI: from the left
                              margin, and from where the paper was before the call */
    long long done, total; /* strips of a picture with ink, lines of a text, bytes of the side that is scanned, stripes
                              that were read; 0, 0 where nothing is counted */
    unsigned parts;        /* scans: bit 0, the front has a file; bit 1, the back. YARDO_PR2_MSRALL: bit 0, track 0 was
                              read; bit 1, track 1 */
    int system_error;      /* the first failure: errno, or a code of libusb below 0; 0 none */
    char message[256];     /* one sentence for a person, about the first failure; empty when nothing failed */
};

/*
 * Tells what became of the latest call of this process.
 * out  in: size; out: as many of the other fields as fit into size.
 * What a host does with it: With ink NONE it repeats the call. With ink SENT and in_place 1 the ink is where it
 * belongs, and the host goes on. In all other cases a person looks at the page, or the page is taken out.
 * Returns 0; -1 out is NULL, or its size has no room for the first two fields.
 */
PASSBOOK_API int passbook_outcome(struct passbook_outcome* out);

/* When to repeat a call. */
enum passbook_repeat {
    PASSBOOK_REPEAT_SAFE = 0,          /* at once: nothing can be printed twice */
    PASSBOOK_REPEAT_AFTER_LOOKING = 1, /* only when somebody has looked at the page */
    PASSBOOK_REPEAT_USELESS = 2        /* it gives the same again until the cause is removed */
};

struct passbook_meaning {
    const char* name;   /* of the result, as in the enums above */
    const char* cause;  /* a sentence each, in English, for a person */
    const char* paper;  /* what may be on it */
    const char* remedy; /* what to do */
    int repeat;         /* see enum passbook_repeat */
};

/*
 * Explains the result of a function: what the table AFTER A FAILURE says, for programs.
 * function  in: a name, for example "YARDO_PR2_PrintData".
 * Returns what belongs to the library and stays valid; NULL for a result that the function does not have.
 */
PASSBOOK_API const struct passbook_meaning* passbook_explain(const char* function, int result);

/* The values of YARDO_PR2_GetPrinterStatus and YARDO_PR2_GetPaperStatus as English text; NULL for any other value. */
PASSBOOK_API const char* passbook_status_text(int status);
PASSBOOK_API const char* passbook_paper_text(int status);

/* What a trace is told. */
enum passbook_trace_kind {
    PASSBOOK_TRACE_CALL = 0,   /* a call begins */
    PASSBOOK_TRACE_RETURN = 1, /* it ends: result, system_error */
    PASSBOOK_TRACE_WRITE = 2,  /* data: length bytes for the printer; result: how many were taken, -1 nobody knows */
    PASSBOOK_TRACE_READ = 3,   /* data: length bytes from the printer */
    PASSBOOK_TRACE_OPEN = 4,   /* data: the name of the port, length bytes; result 0 or -1; system_error */
    PASSBOOK_TRACE_CLOSE = 5   /* result 0 or -1 */
};

struct passbook_trace_event {
    unsigned size;        /* sizeof(struct passbook_trace_event) of the library */
    int kind;             /* see enum passbook_trace_kind */
    const char* function; /* the call in which it happens */
    int result;
    const unsigned char* data;
    int length;
    int system_error;
    long long microseconds; /* on the monotonic clock of the system */
};

typedef void (*passbook_trace_callback)(const struct passbook_trace_event* event, void* user);

/*
 * Has all that happens told to the host, while it happens, on the thread that makes the call.
 * callback  NULL: no more. It must not call this library. What it gets is valid until it returns.
 * The trace holds everything: account numbers on stripes and texts of customers too. The host masks what it keeps.
 * Returns 0.
 */
PASSBOOK_API int passbook_set_trace(passbook_trace_callback callback, void* user);

typedef int (*passbook_progress_callback)(long long done, long long total, void* user);

/*
 * Has the host told how far a call has come: between strips, lines, blocks of a scan, and questions.
 * callback  NULL: no more. done and total are as in struct passbook_outcome. A result other than 0 ends the call at
 *           that point. It must not call this library, except passbook_cancel.
 * A call that is ended returns PASSBOOK_CANCELLED. There is no half command on the line then: an eject works. The rest
 * of a scan is read away, for at most two minutes. passbook_outcome tells what is on the paper. A host that does not
 * ask for this never gets this result.
 * Returns 0.
 */
PASSBOOK_API int passbook_set_progress(passbook_progress_callback callback, void* user);

/*
 * Ends the call that is running, as a progress callback does. For other threads, and for handlers of signals. Without a
 * running call it does nothing: it does not end the next call. A pause or a read that has begun goes on to its end
 * first. Returns 0.
 */
PASSBOOK_API int passbook_cancel(void);

/*
 * Limits how long a serial or parallel printer can take nothing before a write fails.
 * milliseconds  0, as it is at first: no limit. Any other value: a write that makes no progress for so long fails,
 *               which gives the function's -3. A write then goes on until all is taken, also when a signal cuts it.
 *               Closing a serial port waits no longer either; what has not gone out by then is thrown away.
 * Returns 0; -1 negative.
 */
PASSBOOK_API int passbook_set_write_limit(int milliseconds);

struct passbook_oki_paper {
    unsigned size; /* in: sizeof(struct passbook_oki_paper) */
    int status;    /* 1 or 2, as the printer tells it; -3 or -20 when it does not */
    int width;     /* of the document, in the printer's own units; 0 not told */
    int length;    /* the same */
};

/*
 * Asks an OKI printer for its paper status, and for the width and length of the document. So a host of that family sees
 * more than that bytes were sent. Opens the port and closes it, as the PT_ functions do. If a port is open, it uses
 * that port and leaves it open.
 * portName  in: as in YARDO_PR2_OpenPort.
 * out       in: size; out: the other fields.
 * Each answer is read once. A late answer is not waited for.
 * Returns 0 the printer told its status; -1 portName or out is NULL, or the size is too small; -3; -20.
 */
PASSBOOK_API int passbook_oki_paper(const char* portName, struct passbook_oki_paper* out);

/*
 * Sets the directory for the temporary files of the PT_ functions.
 * directory  in: a directory that the host may write into, at most 220 characters; NULL: the current one, as at first.
 * Returns 0; -1 it is longer, or it is no directory that can be written into: the setting stays as it was.
 */
PASSBOOK_API int passbook_set_temporary_directory(const char* directory);

/* The version of the library that is loaded, for example "1.0.0". */
PASSBOOK_API const char* passbook_version(void);

#if defined(__GNUC__) && defined(__cplusplus)
#pragma GCC diagnostic pop
#endif

#ifdef __cplusplus
}
#endif

#endif /* PASSBOOK_H */
