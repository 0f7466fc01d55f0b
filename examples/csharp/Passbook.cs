// libpassbook in C#: every function, struct and number of passbook.h, under the same names. The header tells what they
// do.
//
//     mcs -target:library Passbook.cs        (or csc, or in a project of dotnet)
//
// A call:
//
//     if (Passbook.YARDO_PR2_OpenPort("ttyS0") != Passbook.PASSBOOK_OK) {
//         var outcome = PassbookOutcome.Make();
//         Passbook.passbook_outcome(ref outcome);
//         Console.Error.WriteLine(PassbookOutcome.Text(outcome.message));
//     }
//
// Call passbook_set_write_limit(10000) first. The runtime can send signals to its own threads; then they cut no write.
// Text goes over as UTF-8. A pointer to a text of the library's own is an IntPtr: Marshal.PtrToStringAnsi reads it, and
// nobody frees it. A delegate that is handed over must be kept in a field: the library calls it later, too.
using System;
using System.Runtime.InteropServices;
using System.Text;

[StructLayout(LayoutKind.Sequential)]
public struct PassbookOutcome {
    public uint size;
    [MarshalAs(UnmanagedType.ByValArray, SizeConst = 32)] public byte[] function;
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
    public uint parts;
    public int system_error;
    [MarshalAs(UnmanagedType.ByValArray, SizeConst = 256)] public byte[] message;

    public static PassbookOutcome Make() {
        return new PassbookOutcome {
            size = (uint)Marshal.SizeOf(typeof(PassbookOutcome)), function = new byte[32], message = new byte[256]
        };
    }

    /// <summary>A text field, which ends with a zero.</summary>
    public static string Text(byte[] field) {
        int end = Array.IndexOf(field, (byte)0);
        return Encoding.UTF8.GetString(field, 0, end < 0 ? field.Length : end);
    }
}

[StructLayout(LayoutKind.Sequential)]
public struct PassbookMeaning {
    public IntPtr name;
    public IntPtr cause;
    public IntPtr paper;
    public IntPtr remedy;
    public int repeat;
}

[StructLayout(LayoutKind.Sequential)]
public struct PassbookTraceEvent {
    public uint size;
    public int kind;
    public IntPtr function;
    public int result;
    public IntPtr data;
    public int length;
    public int system_error;
    public long microseconds;
}

[StructLayout(LayoutKind.Sequential)]
public struct PassbookOkiPaper {
    public uint size;
    public int status;
    public int width;
    public int length;

    public static PassbookOkiPaper Make() {
        return new PassbookOkiPaper { size = (uint)Marshal.SizeOf(typeof(PassbookOkiPaper)) };
    }
}

[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
public delegate void PassbookTraceCallback(ref PassbookTraceEvent @event, IntPtr user);

[UnmanagedFunctionPointer(CallingConvention.Cdecl)]
public delegate int PassbookProgressCallback(long done, long total, IntPtr user);

public static class Passbook {
    const string Library = "libpassbook.so.1";

    // enum passbook_result
    public const int PASSBOOK_OK = 0;
    public const int PASSBOOK_SCAN_NOT_READY = 2;
    public const int PASSBOOK_BAD_ARGUMENT = -1;
    public const int PASSBOOK_NOT_OPENED = -1;
    public const int PASSBOOK_NOT_SENT = -3;
    public const int PASSBOOK_NO_ANSWER = -4;
    public const int PASSBOOK_ALREADY_OPEN = -5;
    public const int PASSBOOK_NOT_OPEN = -6;
    public const int PASSBOOK_NO_FILE = -11;
    public const int PASSBOOK_SHORT_FILE = -12;
    public const int PASSBOOK_MISSING_ROWS = -13;
    public const int PASSBOOK_PAPER_UNKNOWN = -20;
    public const int PASSBOOK_NO_PAPER_SIZE = -21;
    public const int PASSBOOK_PRINTER_UNKNOWN = -22;
    public const int PASSBOOK_NOT_READY = -30;
    public const int PASSBOOK_NO_MEMORY = -31;
    public const int PASSBOOK_IMAGE_BROKEN_OFF = -40;
    public const int PASSBOOK_NO_TEXT = -60;
    public const int PASSBOOK_CANCELLED = -100;

    // enum passbook_pt_result
    public const int PASSBOOK_PT_NO_TEXT = -1;
    public const int PASSBOOK_PT_NOT_OPENED = -3;
    public const int PASSBOOK_PT_NO_IMAGE = -6;

    // enum passbook_printer_status
    public const int PASSBOOK_PRINTER_READY = 1;
    public const int PASSBOOK_PRINTER_51 = 2;
    public const int PASSBOOK_PRINTER_54 = 3;
    public const int PASSBOOK_PRINTER_58 = 4;
    public const int PASSBOOK_PRINTER_61 = 5;
    public const int PASSBOOK_PRINTER_62 = 6;
    public const int PASSBOOK_PRINTER_64 = 7;
    public const int PASSBOOK_PRINTER_68 = 8;
    public const int PASSBOOK_PRINTER_31 = 9;
    public const int PASSBOOK_PRINTER_32 = 10;
    public const int PASSBOOK_PRINTER_34 = 11;
    public const int PASSBOOK_PRINTER_38 = 12;
    public const int PASSBOOK_PRINTER_71 = 13;
    public const int PASSBOOK_PRINTER_72 = 14;
    public const int PASSBOOK_PRINTER_70 = 15;

    // enum passbook_paper_status
    public const int PASSBOOK_PAPER_ABSENT = 1;
    public const int PASSBOOK_PAPER_NOT_TAKEN = 2;
    public const int PASSBOOK_PAPER_NOT_POSITIONED = 3;
    public const int PASSBOOK_PAPER_IN_PLACE = 4;

    // enum passbook_unit
    public const int PASSBOOK_MILLIMETRES = 0;
    public const int PASSBOOK_INCHES = 1;

    // enum passbook_pt_mode
    public const int PASSBOOK_PT_MODE_TENTH_MM = 0;
    public const int PASSBOOK_PT_MODE_0165_MM = 1;

    // enum passbook_reset
    public const int PASSBOOK_RESET_FORM_FEED = 0;
    public const int PASSBOOK_RESET_ERROR = 1;
    public const int PASSBOOK_RESET_ALL = 2;

    // enum passbook_underline
    public const int PASSBOOK_UNDERLINE_PLAIN = 0;
    public const int PASSBOOK_UNDERLINE_SECOND = 1;
    public const int PASSBOOK_UNDERLINE_THIRD = 2;
    public const int PASSBOOK_UNDERLINE_OFF = 3;

    // enum passbook_image_type
    public const int PASSBOOK_IMAGE_BLACK_WHITE = 0;
    public const int PASSBOOK_IMAGE_GREY_16 = 1;
    public const int PASSBOOK_IMAGE_GREY_256 = 2;
    public const int PASSBOOK_IMAGE_COLOUR = 3;

    // enum passbook_sides
    public const int PASSBOOK_SIDES_FRONT = 0;
    public const int PASSBOOK_SIDES_BACK = 1;
    public const int PASSBOOK_SIDES_BOTH = 2;

    // enum passbook_turn
    public const int PASSBOOK_UPRIGHT = 0;
    public const int PASSBOOK_TURNED_90 = 1;
    public const int PASSBOOK_TURNED_180 = 2;
    public const int PASSBOOK_TURNED_270 = 3;

    // enum passbook_ink
    public const int PASSBOOK_INK_NONE = 0;
    public const int PASSBOOK_INK_POSSIBLE = 1;
    public const int PASSBOOK_INK_SENT = 2;

    // enum passbook_repeat
    public const int PASSBOOK_REPEAT_SAFE = 0;
    public const int PASSBOOK_REPEAT_AFTER_LOOKING = 1;
    public const int PASSBOOK_REPEAT_USELESS = 2;

    // enum passbook_trace_kind
    public const int PASSBOOK_TRACE_CALL = 0;
    public const int PASSBOOK_TRACE_RETURN = 1;
    public const int PASSBOOK_TRACE_WRITE = 2;
    public const int PASSBOOK_TRACE_READ = 3;
    public const int PASSBOOK_TRACE_OPEN = 4;
    public const int PASSBOOK_TRACE_CLOSE = 5;

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_OpenPort([MarshalAs(UnmanagedType.LPUTF8Str)] string portName);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_ClosePort();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_Command(byte[] data, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_InitPrinter(int mode, int timeoutSeconds);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_PrintData(
        int unit, int x, int y, [MarshalAs(UnmanagedType.LPUTF8Str)] string text, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_SetFormat(double pitch, int bold, int width, int height);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_SetLineSpace(int unit, double space);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_SetUnderLine(int mode);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_LR();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_InsertPaper();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_EjectPaper();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_ClearError();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_CLearAll();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_GetFWID([Out] byte[] @out);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_GetPrinterStatus();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_GetPaperStatus();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_MSR(int track, [Out] byte[] buffer, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_MSW(int track, [MarshalAs(UnmanagedType.LPUTF8Str)] string data, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_MSRALL([Out] byte[] buffer0, int length0, [Out] byte[] buffer1, int length1);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PR2_SPB(int seconds);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_PrintBmpOLI(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string path, [MarshalAs(UnmanagedType.I1)] bool eject, int x, int y);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_ScantoFileOKI(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string frontFile, [MarshalAs(UnmanagedType.LPUTF8Str)] string backFile,
        int imageType, int frontParam1, int backParam1, int param2, [MarshalAs(UnmanagedType.I1)] bool optionFlag,
        int sides, int dpi, int direction);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int YARDO_ScantoFileOLI(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string frontFile, [MarshalAs(UnmanagedType.LPUTF8Str)] string backFile,
        int imageType, int param1, int param2, [MarshalAs(UnmanagedType.I1)] bool optionFlag, int sides, int dpi,
        int direction);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int PT_PrintImageFile(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int mode, int timeout, int x, int y, int reserved,
        [MarshalAs(UnmanagedType.LPUTF8Str)] string path);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int PT_PrintImageStream(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int mode, int timeout, int x, int y, int reserved,
        byte[] data, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int PT_PrintImageFileRevolve(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int mode, int timeout, int x, int y, int reserved,
        [MarshalAs(UnmanagedType.LPUTF8Str)] string path, int turns);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int PT_PrintImageStreamRevolve(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int mode, int timeout, int x, int y, int reserved,
        byte[] data, int length, int turns);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int PT_Eject([MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int reserved);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int PT_PrintTxtFile(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int mode, int timeout, int x, int y,
        [MarshalAs(UnmanagedType.LPUTF8Str)] string path);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int PT_PrintTxtStream(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int mode, int timeout, int x, int y,
        [MarshalAs(UnmanagedType.LPUTF8Str)] string text, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_print_text(
        int xDots, int yDots, [MarshalAs(UnmanagedType.LPUTF8Str)] string text, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_oki_print_text(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, int timeout, int xDots, int feedDots,
        [MarshalAs(UnmanagedType.LPUTF8Str)] string text, int length);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_outcome(ref PassbookOutcome @out);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr passbook_explain([MarshalAs(UnmanagedType.LPUTF8Str)] string function, int result);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr passbook_status_text(int status);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr passbook_paper_text(int status);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_set_trace(PassbookTraceCallback callback, IntPtr user);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_set_progress(PassbookProgressCallback callback, IntPtr user);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_cancel();

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_set_write_limit(int milliseconds);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_oki_paper(
        [MarshalAs(UnmanagedType.LPUTF8Str)] string portName, ref PassbookOkiPaper @out);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern int passbook_set_temporary_directory([MarshalAs(UnmanagedType.LPUTF8Str)] string directory);

    [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
    public static extern IntPtr passbook_version();
}
