/*
 * libpassbook in Java, by JNA: every function, struct and number of passbook.h, under the same names. passbook.h tells
 * what they do.
 *
 *     javac -cp /usr/share/java/jna.jar Passbook.java        (Debian: libjna-java)
 *
 * A call:
 *
 *     Passbook passbook = Passbook.load();
 *     if (passbook.YARDO_PR2_OpenPort("ttyS0") != Passbook.PASSBOOK_OK) {
 *         Passbook.PassbookOutcome outcome = new Passbook.PassbookOutcome();
 *         passbook.passbook_outcome(outcome);
 *         System.err.println(Native.toString(outcome.message, "UTF-8"));
 *     }
 *
 * Call passbook_set_write_limit(10000) first. The runtime can send signals to its own threads; then they cut no write.
 * Text goes over as UTF-8. A bool is a byte, 0 or 1. A callback that is handed over must be kept in a field: the
 * library calls it later, too.
 */
import com.sun.jna.Callback;
import com.sun.jna.Library;
import com.sun.jna.Native;
import com.sun.jna.Pointer;
import com.sun.jna.Structure;
import com.sun.jna.Structure.FieldOrder;
import java.util.Map;

public interface Passbook extends Library {
    static Passbook load() {
        return Native.load("libpassbook.so.1", Passbook.class, Map.of(Library.OPTION_STRING_ENCODING, "UTF-8"));
    }

    // enum passbook_result
    int PASSBOOK_OK = 0;
    int PASSBOOK_SCAN_NOT_READY = 2;
    int PASSBOOK_BAD_ARGUMENT = -1;
    int PASSBOOK_NOT_OPENED = -1;
    int PASSBOOK_NOT_SENT = -3;
    int PASSBOOK_NO_ANSWER = -4;
    int PASSBOOK_ALREADY_OPEN = -5;
    int PASSBOOK_NOT_OPEN = -6;
    int PASSBOOK_NO_FILE = -11;
    int PASSBOOK_SHORT_FILE = -12;
    int PASSBOOK_MISSING_ROWS = -13;
    int PASSBOOK_PAPER_UNKNOWN = -20;
    int PASSBOOK_NO_PAPER_SIZE = -21;
    int PASSBOOK_PRINTER_UNKNOWN = -22;
    int PASSBOOK_NOT_READY = -30;
    int PASSBOOK_NO_MEMORY = -31;
    int PASSBOOK_IMAGE_BROKEN_OFF = -40;
    int PASSBOOK_NO_TEXT = -60;
    int PASSBOOK_CANCELLED = -100;

    // enum passbook_pt_result
    int PASSBOOK_PT_NO_TEXT = -1;
    int PASSBOOK_PT_NOT_OPENED = -3;
    int PASSBOOK_PT_NO_IMAGE = -6;

    // enum passbook_printer_status
    int PASSBOOK_PRINTER_READY = 1;
    int PASSBOOK_PRINTER_51 = 2;
    int PASSBOOK_PRINTER_54 = 3;
    int PASSBOOK_PRINTER_58 = 4;
    int PASSBOOK_PRINTER_61 = 5;
    int PASSBOOK_PRINTER_62 = 6;
    int PASSBOOK_PRINTER_64 = 7;
    int PASSBOOK_PRINTER_68 = 8;
    int PASSBOOK_PRINTER_31 = 9;
    int PASSBOOK_PRINTER_32 = 10;
    int PASSBOOK_PRINTER_34 = 11;
    int PASSBOOK_PRINTER_38 = 12;
    int PASSBOOK_PRINTER_71 = 13;
    int PASSBOOK_PRINTER_72 = 14;
    int PASSBOOK_PRINTER_70 = 15;

    // enum passbook_paper_status
    int PASSBOOK_PAPER_ABSENT = 1;
    int PASSBOOK_PAPER_NOT_TAKEN = 2;
    int PASSBOOK_PAPER_NOT_POSITIONED = 3;
    int PASSBOOK_PAPER_IN_PLACE = 4;

    // enum passbook_unit
    int PASSBOOK_MILLIMETRES = 0;
    int PASSBOOK_INCHES = 1;

    // enum passbook_pt_mode
    int PASSBOOK_PT_MODE_TENTH_MM = 0;
    int PASSBOOK_PT_MODE_0165_MM = 1;

    // enum passbook_reset
    int PASSBOOK_RESET_FORM_FEED = 0;
    int PASSBOOK_RESET_ERROR = 1;
    int PASSBOOK_RESET_ALL = 2;

    // enum passbook_underline
    int PASSBOOK_UNDERLINE_PLAIN = 0;
    int PASSBOOK_UNDERLINE_SECOND = 1;
    int PASSBOOK_UNDERLINE_THIRD = 2;
    int PASSBOOK_UNDERLINE_OFF = 3;

    // enum passbook_image_type
    int PASSBOOK_IMAGE_BLACK_WHITE = 0;
    int PASSBOOK_IMAGE_GREY_16 = 1;
    int PASSBOOK_IMAGE_GREY_256 = 2;
    int PASSBOOK_IMAGE_COLOUR = 3;

    // enum passbook_sides
    int PASSBOOK_SIDES_FRONT = 0;
    int PASSBOOK_SIDES_BACK = 1;
    int PASSBOOK_SIDES_BOTH = 2;

    // enum passbook_turn
    int PASSBOOK_UPRIGHT = 0;
    int PASSBOOK_TURNED_90 = 1;
    int PASSBOOK_TURNED_180 = 2;
    int PASSBOOK_TURNED_270 = 3;

    // enum passbook_ink
    int PASSBOOK_INK_NONE = 0;
    int PASSBOOK_INK_POSSIBLE = 1;
    int PASSBOOK_INK_SENT = 2;

    // enum passbook_repeat
    int PASSBOOK_REPEAT_SAFE = 0;
    int PASSBOOK_REPEAT_AFTER_LOOKING = 1;
    int PASSBOOK_REPEAT_USELESS = 2;

    // enum passbook_trace_kind
    int PASSBOOK_TRACE_CALL = 0;
    int PASSBOOK_TRACE_RETURN = 1;
    int PASSBOOK_TRACE_WRITE = 2;
    int PASSBOOK_TRACE_READ = 3;
    int PASSBOOK_TRACE_OPEN = 4;
    int PASSBOOK_TRACE_CLOSE = 5;

    @FieldOrder({
        "size", "function", "result", "ink", "in_place", "transfers", "failed_transfers", "missing_answers",
        "bytes_sent", "x_dots", "y_dots", "done", "total", "parts", "system_error", "message"})
    class PassbookOutcome extends Structure {
        public int size;
        public byte[] function = new byte[32];
        public int result;
        public int ink;
        public int in_place;
        public int transfers;
        public int failed_transfers;
        public int missing_answers;
        public long bytes_sent;
        public int x_dots;
        public int y_dots;
        public long done;
        public long total;
        public int parts;
        public int system_error;
        public byte[] message = new byte[256];

        public PassbookOutcome() {
            size = size();
        }
    }

    @FieldOrder({"name", "cause", "paper", "remedy", "repeat"})
    class PassbookMeaning extends Structure {
        public String name;
        public String cause;
        public String paper;
        public String remedy;
        public int repeat;
    }

    @FieldOrder({"size", "kind", "function", "result", "data", "length", "system_error", "microseconds"})
    class PassbookTraceEvent extends Structure {
        public int size;
        public int kind;
        public String function;
        public int result;
        public Pointer data;
        public int length;
        public int system_error;
        public long microseconds;
    }

    @FieldOrder({"size", "status", "width", "length"})
    class PassbookOkiPaper extends Structure {
        public int size;
        public int status;
        public int width;
        public int length;

        public PassbookOkiPaper() {
            size = size();
        }
    }

    interface PassbookTraceCallback extends Callback {
        void invoke(PassbookTraceEvent event, Pointer user);
    }

    interface PassbookProgressCallback extends Callback {
        int invoke(long done, long total, Pointer user);
    }

    int YARDO_PR2_OpenPort(String portName);

    int YARDO_PR2_ClosePort();

    int YARDO_PR2_Command(byte[] data, int length);

    int YARDO_PR2_InitPrinter(int mode, int timeoutSeconds);

    int YARDO_PR2_PrintData(int unit, int x, int y, String text, int length);

    int YARDO_PR2_SetFormat(double pitch, int bold, int width, int height);

    int YARDO_PR2_SetLineSpace(int unit, double space);

    int YARDO_PR2_SetUnderLine(int mode);

    int YARDO_PR2_LR();

    int YARDO_PR2_InsertPaper();

    int YARDO_PR2_EjectPaper();

    int YARDO_PR2_ClearError();

    int YARDO_PR2_CLearAll();

    int YARDO_PR2_GetFWID(byte[] out);

    int YARDO_PR2_GetPrinterStatus();

    int YARDO_PR2_GetPaperStatus();

    int YARDO_PR2_MSR(int track, byte[] buffer, int length);

    int YARDO_PR2_MSW(int track, String data, int length);

    int YARDO_PR2_MSRALL(byte[] buffer0, int length0, byte[] buffer1, int length1);

    int YARDO_PR2_SPB(int seconds);

    int YARDO_PrintBmpOLI(String path, byte eject, int x, int y);

    int YARDO_ScantoFileOKI(
        String frontFile, String backFile, int imageType, int frontParam1, int backParam1, int param2, byte optionFlag,
        int sides, int dpi, int direction);

    int YARDO_ScantoFileOLI(
        String frontFile, String backFile, int imageType, int param1, int param2, byte optionFlag, int sides, int dpi,
        int direction);

    int PT_PrintImageFile(String portName, int mode, int timeout, int x, int y, int reserved, String path);

    int PT_PrintImageStream(
        String portName, int mode, int timeout, int x, int y, int reserved, byte[] data, int length);

    int PT_PrintImageFileRevolve(
        String portName, int mode, int timeout, int x, int y, int reserved, String path, int turns);

    int PT_PrintImageStreamRevolve(
        String portName, int mode, int timeout, int x, int y, int reserved, byte[] data, int length, int turns);

    int PT_Eject(String portName, int reserved);

    int PT_PrintTxtFile(String portName, int mode, int timeout, int x, int y, String path);

    int PT_PrintTxtStream(String portName, int mode, int timeout, int x, int y, String text, int length);

    int passbook_print_text(int xDots, int yDots, String text, int length);

    int passbook_oki_print_text(String portName, int timeout, int xDots, int feedDots, String text, int length);

    int passbook_outcome(PassbookOutcome out);

    PassbookMeaning passbook_explain(String function, int result);

    String passbook_status_text(int status);

    String passbook_paper_text(int status);

    int passbook_set_trace(PassbookTraceCallback callback, Pointer user);

    int passbook_set_progress(PassbookProgressCallback callback, Pointer user);

    int passbook_cancel();

    int passbook_set_write_limit(int milliseconds);

    int passbook_oki_paper(String portName, PassbookOkiPaper out);

    int passbook_set_temporary_directory(String directory);

    String passbook_version();
}
