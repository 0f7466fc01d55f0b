"""The numbers of passbook.h by name: each member is called as there, without PASSBOOK_ in front."""

from enum import IntEnum

__all__ = [
    "Result",
    "PtResult",
    "PrinterStatus",
    "PaperStatus",
    "Unit",
    "PtMode",
    "Reset",
    "Underline",
    "ImageType",
    "Sides",
    "Turn",
    "Ink",
    "Repeat",
    "TraceKind",
]


class Result(IntEnum):
    OK = 0
    SCAN_NOT_READY = 2
    BAD_ARGUMENT = -1
    NOT_OPENED = -1
    NOT_SENT = -3
    NO_ANSWER = -4
    ALREADY_OPEN = -5
    NOT_OPEN = -6
    NO_FILE = -11
    SHORT_FILE = -12
    MISSING_ROWS = -13
    PAPER_UNKNOWN = -20
    NO_PAPER_SIZE = -21
    PRINTER_UNKNOWN = -22
    NOT_READY = -30
    NO_MEMORY = -31
    IMAGE_BROKEN_OFF = -40
    NO_TEXT = -60
    CANCELLED = -100


class PtResult(IntEnum):
    """Results of the PT_ functions, where they are other ones."""

    PT_NO_TEXT = -1
    PT_NOT_OPENED = -3
    PT_NO_IMAGE = -6


class PrinterStatus(IntEnum):
    PRINTER_READY = 1
    PRINTER_51 = 2
    PRINTER_54 = 3
    PRINTER_58 = 4
    PRINTER_61 = 5
    PRINTER_62 = 6
    PRINTER_64 = 7
    PRINTER_68 = 8
    PRINTER_31 = 9
    PRINTER_32 = 10
    PRINTER_34 = 11
    PRINTER_38 = 12
    PRINTER_71 = 13
    PRINTER_72 = 14
    PRINTER_70 = 15


class PaperStatus(IntEnum):
    PAPER_ABSENT = 1
    PAPER_NOT_TAKEN = 2
    PAPER_NOT_POSITIONED = 3
    PAPER_IN_PLACE = 4


class Unit(IntEnum):
    MILLIMETRES = 0
    INCHES = 1


class PtMode(IntEnum):
    PT_MODE_TENTH_MM = 0
    PT_MODE_0165_MM = 1


class Reset(IntEnum):
    RESET_FORM_FEED = 0
    RESET_ERROR = 1
    RESET_ALL = 2


class Underline(IntEnum):
    UNDERLINE_PLAIN = 0
    UNDERLINE_SECOND = 1
    UNDERLINE_THIRD = 2
    UNDERLINE_OFF = 3


class ImageType(IntEnum):
    IMAGE_BLACK_WHITE = 0
    IMAGE_GREY_16 = 1
    IMAGE_GREY_256 = 2
    IMAGE_COLOUR = 3


class Sides(IntEnum):
    SIDES_FRONT = 0
    SIDES_BACK = 1
    SIDES_BOTH = 2


class Turn(IntEnum):
    UPRIGHT = 0
    TURNED_90 = 1
    TURNED_180 = 2
    TURNED_270 = 3


class Ink(IntEnum):
    """What of a call is on the paper."""

    INK_NONE = 0
    INK_POSSIBLE = 1
    INK_SENT = 2


class Repeat(IntEnum):
    """When to repeat a call."""

    REPEAT_SAFE = 0
    REPEAT_AFTER_LOOKING = 1
    REPEAT_USELESS = 2


class TraceKind(IntEnum):
    TRACE_CALL = 0
    TRACE_RETURN = 1
    TRACE_WRITE = 2
    TRACE_READ = 3
    TRACE_OPEN = 4
    TRACE_CLOSE = 5
