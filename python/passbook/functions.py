"""The functions of passbook.h, under their names there, with Python's types.

What each does, what its numbers mean and what it waits for stands in passbook.h. Here is different:
- A failure raises PassbookError; so does a result of 2 of a scan. Functions that answer return the answer.
- Text is str, or bytes of UTF-8. Data are bytes, or any object with a buffer. Files and ports are str or path objects.
- Lengths are taken from the data, and buffers are returned. The argument that is not read (reserved) is left out.
- A number that a C int cannot hold raises OverflowError before anything is sent.
- Calls of several threads wait for each other. Signals that the program handles are held back during a call.
"""

import ctypes
import os
from collections.abc import Callable
from dataclasses import dataclass

from . import _library
from ._library import call, file_name, octets, raw, utf8
from .enums import ImageType, PaperStatus, PrinterStatus, PtMode, Reset, Sides, TraceKind, Turn, Underline, Unit
from .errors import Meaning, Outcome

__all__ = [
    "YARDO_PR2_OpenPort",
    "YARDO_PR2_ClosePort",
    "YARDO_PR2_Command",
    "YARDO_PR2_InitPrinter",
    "YARDO_PR2_PrintData",
    "YARDO_PR2_SetFormat",
    "YARDO_PR2_SetLineSpace",
    "YARDO_PR2_SetUnderLine",
    "YARDO_PR2_LR",
    "YARDO_PR2_InsertPaper",
    "YARDO_PR2_EjectPaper",
    "YARDO_PR2_ClearError",
    "YARDO_PR2_CLearAll",
    "YARDO_PR2_GetFWID",
    "YARDO_PR2_GetPrinterStatus",
    "YARDO_PR2_GetPaperStatus",
    "YARDO_PR2_MSR",
    "YARDO_PR2_MSW",
    "YARDO_PR2_MSRALL",
    "YARDO_PR2_SPB",
    "YARDO_PrintBmpOLI",
    "YARDO_ScantoFileOKI",
    "YARDO_ScantoFileOLI",
    "PT_PrintImageFile",
    "PT_PrintImageStream",
    "PT_PrintImageFileRevolve",
    "PT_PrintImageStreamRevolve",
    "PT_Eject",
    "PT_PrintTxtFile",
    "PT_PrintTxtStream",
    "passbook_print_text",
    "passbook_oki_print_text",
    "passbook_outcome",
    "passbook_explain",
    "passbook_status_text",
    "passbook_paper_text",
    "TraceEvent",
    "passbook_set_trace",
    "passbook_set_progress",
    "passbook_cancel",
    "passbook_set_write_limit",
    "OkiPaper",
    "passbook_oki_paper",
    "passbook_set_temporary_directory",
    "passbook_version",
]

Path = str | os.PathLike[str]
Text = str | bytes
Data = bytes | bytearray | memoryview

# The identifier of the firmware.
_FWID_LENGTH = 13

# ---- Port and raw commands


def YARDO_PR2_OpenPort(port_name: Path) -> None:
    call("YARDO_PR2_OpenPort", file_name(port_name))


def YARDO_PR2_ClosePort() -> None:
    call("YARDO_PR2_ClosePort")


def YARDO_PR2_Command(data: Data) -> None:
    sent = octets(data)
    call("YARDO_PR2_Command", sent, len(sent))


# ---- Text and control


def YARDO_PR2_InitPrinter(mode: Reset | int, timeout_seconds: int) -> None:
    call("YARDO_PR2_InitPrinter", mode, timeout_seconds)


def YARDO_PR2_PrintData(unit: Unit | int, x: int, y: int, text: Text) -> None:
    line = utf8(text)
    call("YARDO_PR2_PrintData", unit, x, y, line, len(line))


def YARDO_PR2_SetFormat(pitch: float, bold: int, width: int, height: int) -> None:
    call("YARDO_PR2_SetFormat", pitch, bold, width, height)


def YARDO_PR2_SetLineSpace(unit: Unit | int, space: float) -> None:
    call("YARDO_PR2_SetLineSpace", unit, space)


def YARDO_PR2_SetUnderLine(mode: Underline | int) -> None:
    call("YARDO_PR2_SetUnderLine", mode)


def YARDO_PR2_LR() -> None:
    call("YARDO_PR2_LR")


def YARDO_PR2_InsertPaper() -> None:
    call("YARDO_PR2_InsertPaper")


def YARDO_PR2_EjectPaper() -> None:
    call("YARDO_PR2_EjectPaper")


def YARDO_PR2_ClearError() -> None:
    call("YARDO_PR2_ClearError")


def YARDO_PR2_CLearAll() -> None:
    call("YARDO_PR2_CLearAll")


def YARDO_PR2_GetFWID() -> bytes:
    """The 13 bytes of the identifier; those that did not arrive are zero."""
    out = ctypes.create_string_buffer(_FWID_LENGTH)
    call("YARDO_PR2_GetFWID", out)
    return out.raw


# ---- Status, stripe and pictures


def YARDO_PR2_GetPrinterStatus() -> PrinterStatus:
    return PrinterStatus(call("YARDO_PR2_GetPrinterStatus", answers=True)[0])


def YARDO_PR2_GetPaperStatus() -> PaperStatus:
    return PaperStatus(call("YARDO_PR2_GetPaperStatus", answers=True)[0])


def YARDO_PR2_MSR(track: int, length: int = 4096) -> bytes:
    """The data of the stripe. After PASSBOOK_NO_ANSWER the error's data are what arrived."""
    buffer = ctypes.create_string_buffer(max(length, 1))
    call("YARDO_PR2_MSR", track, buffer, length, data=lambda _: buffer.value)
    return buffer.value


def YARDO_PR2_MSW(track: int, data: Data) -> None:
    sent = octets(data)
    call("YARDO_PR2_MSW", track, sent, len(sent))


def YARDO_PR2_MSRALL(length0: int = 4096, length1: int = 4096) -> tuple[bytes | None, bytes | None]:
    """The data of both stripes, None for one that was not read. If the second fails, the error's data are the same."""
    buffers = [ctypes.create_string_buffer(max(length, 1)) for length in (length0, length1)]

    def read(parts: int) -> tuple[bytes | None, bytes | None]:
        first, second = (buffer.value if parts >> track & 1 else None for track, buffer in enumerate(buffers))
        return first, second

    _, told = call("YARDO_PR2_MSRALL", buffers[0], length0, buffers[1], length1, data=read)
    return read(told.parts if told else 0)


def YARDO_PR2_SPB(seconds: int) -> None:
    call("YARDO_PR2_SPB", seconds)


def YARDO_PrintBmpOLI(path: Path, eject: bool, x: int, y: int) -> None:
    call("YARDO_PrintBmpOLI", file_name(path), bool(eject), x, y)


# ---- Scanning


def YARDO_ScantoFileOKI(
    front_file: Path,
    back_file: Path,
    image_type: ImageType | int,
    front_param1: int,
    back_param1: int,
    param2: int,
    option_flag: bool,
    sides: Sides | int,
    dpi: int,
    direction: int,
) -> None:
    parameters = (image_type, front_param1, back_param1, param2, bool(option_flag), sides, dpi, direction)
    call("YARDO_ScantoFileOKI", file_name(front_file), file_name(back_file), *parameters)


def YARDO_ScantoFileOLI(
    front_file: Path,
    back_file: Path,
    image_type: ImageType | int,
    param1: int,
    param2: int,
    option_flag: bool,
    sides: Sides | int,
    dpi: int,
    direction: int,
) -> None:
    parameters = (image_type, param1, param2, bool(option_flag), sides, dpi, direction)
    call("YARDO_ScantoFileOLI", file_name(front_file), file_name(back_file), *parameters)


# ---- OKI family: images and text


def PT_PrintImageFile(port_name: Path, mode: PtMode | int, timeout: int, x: int, y: int, path: Path) -> None:
    call("PT_PrintImageFile", file_name(port_name), mode, timeout, x, y, 0, file_name(path))


def PT_PrintImageStream(port_name: Path, mode: PtMode | int, timeout: int, x: int, y: int, data: Data) -> None:
    image = octets(data)
    call("PT_PrintImageStream", file_name(port_name), mode, timeout, x, y, 0, image, len(image))


def PT_PrintImageFileRevolve(
    port_name: Path, mode: PtMode | int, timeout: int, x: int, y: int, path: Path, turns: Turn | int
) -> None:
    call("PT_PrintImageFileRevolve", file_name(port_name), mode, timeout, x, y, 0, file_name(path), turns)


def PT_PrintImageStreamRevolve(
    port_name: Path, mode: PtMode | int, timeout: int, x: int, y: int, data: Data, turns: Turn | int
) -> None:
    image = octets(data)
    call("PT_PrintImageStreamRevolve", file_name(port_name), mode, timeout, x, y, 0, image, len(image), turns)


def PT_Eject(port_name: Path) -> None:
    call("PT_Eject", file_name(port_name), 0)


def PT_PrintTxtFile(port_name: Path, mode: PtMode | int, timeout: int, x: int, y: int, path: Path) -> None:
    call("PT_PrintTxtFile", file_name(port_name), mode, timeout, x, y, file_name(path))


def PT_PrintTxtStream(port_name: Path, mode: PtMode | int, timeout: int, x: int, y: int, text: Text) -> None:
    lines = utf8(text)
    call("PT_PrintTxtStream", file_name(port_name), mode, timeout, x, y, lines, len(lines))


# ---- Text to the dot


def passbook_print_text(x_dots: int, y_dots: int, text: Text) -> None:
    line = utf8(text)
    call("passbook_print_text", x_dots, y_dots, line, len(line))


def passbook_oki_print_text(port_name: Path, timeout: int, x_dots: int, feed_dots: int, text: Text) -> None:
    lines = utf8(text)
    call("passbook_oki_print_text", file_name(port_name), timeout, x_dots, feed_dots, lines, len(lines))


# ---- What became of a call


def passbook_outcome() -> Outcome:
    """What became of the latest call of this process. Errors carry that of their own call."""
    with _library.turn.taken():
        return _library.outcome()


def passbook_explain(function: str, result: int) -> Meaning | None:
    return _library.explain(function, result)


def passbook_status_text(status: PrinterStatus | int) -> str | None:
    told = raw("passbook_status_text", status)
    return told.decode() if told is not None else None


def passbook_paper_text(status: PaperStatus | int) -> str | None:
    told = raw("passbook_paper_text", status)
    return told.decode() if told is not None else None


@dataclass(frozen=True)
class TraceEvent:
    """struct passbook_trace_event."""

    kind: TraceKind
    function: str
    result: int
    data: bytes
    length: int
    system_error: int
    microseconds: int


def passbook_set_trace(callback: Callable[[TraceEvent], object] | None) -> None:
    """Has all that happens told. An exception of the callback goes to sys.unraisablehook, and the call goes on."""

    def told(event: _library.TraceEventStruct) -> None:
        data = ctypes.string_at(event.data, event.length) if event.data and event.length > 0 else b""
        numbers = (event.length, event.system_error, event.microseconds)
        assert callback is not None
        callback(TraceEvent(TraceKind(event.kind), (event.function or b"").decode(), event.result, data, *numbers))

    with _library.turn.taken():
        installed = _library.callbacks.trace(told) if callback else _library.TRACE_CALLBACK(0)
        _library.callbacks.install("passbook_set_trace", installed)


def passbook_set_progress(callback: Callable[[int, int], object] | None) -> None:
    """Has the program told how far a call has come: done, total.

    A true result ends the call, and so does an exception; it is then the cause of the PassbookError.
    """
    with _library.turn.taken():
        installed = _library.callbacks.progress(callback) if callback else _library.PROGRESS_CALLBACK(0)
        _library.callbacks.install("passbook_set_progress", installed)


def passbook_cancel() -> None:
    """Ends the call that is running, from another thread or a progress callback."""
    raw("passbook_cancel")


def passbook_set_write_limit(milliseconds: int) -> None:
    call("passbook_set_write_limit", milliseconds, recorded=False)


@dataclass(frozen=True)
class OkiPaper:
    """struct passbook_oki_paper."""

    status: int
    width: int
    length: int


def passbook_oki_paper(port_name: Path) -> OkiPaper:
    told = _library.OkiPaperStruct(size=ctypes.sizeof(_library.OkiPaperStruct))
    call("passbook_oki_paper", file_name(port_name), ctypes.byref(told))
    return OkiPaper(told.status, told.width, told.length)


def passbook_set_temporary_directory(directory: Path | None) -> None:
    call("passbook_set_temporary_directory", file_name(directory) if directory is not None else None, recorded=False)


def passbook_version() -> str:
    version: bytes = raw("passbook_version")
    return version.decode()

