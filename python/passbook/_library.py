"""The C side: structs and prototypes as in passbook.h, the loaded library, and how a call is made."""

import ctypes
import functools
import operator
import os
import signal
import threading
from collections.abc import Callable, Iterable, Iterator
from contextlib import contextmanager
from ctypes import POINTER, c_bool, c_char, c_char_p, c_double, c_int, c_longlong, c_ubyte, c_uint, c_void_p
from typing import Any

from .enums import Ink
from .errors import Meaning, Outcome, PassbookError, UntoldFailure


class OutcomeStruct(ctypes.Structure):
    _fields_ = [
        ("size", c_uint),
        ("function", c_char * 32),
        ("result", c_int),
        ("ink", c_int),
        ("in_place", c_int),
        ("transfers", c_int),
        ("failed_transfers", c_int),
        ("missing_answers", c_int),
        ("bytes_sent", c_longlong),
        ("x_dots", c_int),
        ("y_dots", c_int),
        ("done", c_longlong),
        ("total", c_longlong),
        ("parts", c_uint),
        ("system_error", c_int),
        ("message", c_char * 256),
    ]


class MeaningStruct(ctypes.Structure):
    _fields_ = [
        ("name", c_char_p),
        ("cause", c_char_p),
        ("paper", c_char_p),
        ("remedy", c_char_p),
        ("repeat", c_int),
    ]


class TraceEventStruct(ctypes.Structure):
    _fields_ = [
        ("size", c_uint),
        ("kind", c_int),
        ("function", c_char_p),
        ("result", c_int),
        ("data", POINTER(c_ubyte)),
        ("length", c_int),
        ("system_error", c_int),
        ("microseconds", c_longlong),
    ]


class OkiPaperStruct(ctypes.Structure):
    _fields_ = [("size", c_uint), ("status", c_int), ("width", c_int), ("length", c_int)]


TRACE_CALLBACK = ctypes.CFUNCTYPE(None, POINTER(TraceEventStruct), c_void_p)
PROGRESS_CALLBACK = ctypes.CFUNCTYPE(c_int, c_longlong, c_longlong, c_void_p)

_PORT = (c_char_p,)  # the name
_PLACE = (c_char_p, c_int, c_int, c_int, c_int)  # port, mode, timeout, x, y
_SCAN = (c_char_p, c_char_p, c_int)  # two files, type

# What each function returns, and its arguments. A buffer that the library fills is c_void_p.
PROTOTYPES: dict[str, tuple[Any, tuple[Any, ...]]] = {
    "YARDO_PR2_OpenPort": (c_int, _PORT),
    "YARDO_PR2_ClosePort": (c_int, ()),
    "YARDO_PR2_Command": (c_int, (c_char_p, c_int)),
    "YARDO_PR2_InitPrinter": (c_int, (c_int, c_int)),
    "YARDO_PR2_PrintData": (c_int, (c_int, c_int, c_int, c_char_p, c_int)),
    "YARDO_PR2_SetFormat": (c_int, (c_double, c_int, c_int, c_int)),
    "YARDO_PR2_SetLineSpace": (c_int, (c_int, c_double)),
    "YARDO_PR2_SetUnderLine": (c_int, (c_int,)),
    "YARDO_PR2_LR": (c_int, ()),
    "YARDO_PR2_InsertPaper": (c_int, ()),
    "YARDO_PR2_EjectPaper": (c_int, ()),
    "YARDO_PR2_ClearError": (c_int, ()),
    "YARDO_PR2_CLearAll": (c_int, ()),
    "YARDO_PR2_GetFWID": (c_int, (c_void_p,)),
    "YARDO_PR2_GetPrinterStatus": (c_int, ()),
    "YARDO_PR2_GetPaperStatus": (c_int, ()),
    "YARDO_PR2_MSR": (c_int, (c_int, c_void_p, c_int)),
    "YARDO_PR2_MSW": (c_int, (c_int, c_char_p, c_int)),
    "YARDO_PR2_MSRALL": (c_int, (c_void_p, c_int, c_void_p, c_int)),
    "YARDO_PR2_SPB": (c_int, (c_int,)),
    "YARDO_PrintBmpOLI": (c_int, (c_char_p, c_bool, c_int, c_int)),
    "YARDO_ScantoFileOKI": (c_int, _SCAN + (c_int, c_int, c_int, c_bool, c_int, c_int, c_int)),
    "YARDO_ScantoFileOLI": (c_int, _SCAN + (c_int, c_int, c_bool, c_int, c_int, c_int)),
    "PT_PrintImageFile": (c_int, _PLACE + (c_int, c_char_p)),
    "PT_PrintImageStream": (c_int, _PLACE + (c_int, c_char_p, c_int)),
    "PT_PrintImageFileRevolve": (c_int, _PLACE + (c_int, c_char_p, c_int)),
    "PT_PrintImageStreamRevolve": (c_int, _PLACE + (c_int, c_char_p, c_int, c_int)),
    "PT_Eject": (c_int, _PORT + (c_int,)),
    "PT_PrintTxtFile": (c_int, _PLACE + (c_char_p,)),
    "PT_PrintTxtStream": (c_int, _PLACE + (c_char_p, c_int)),
    "passbook_print_text": (c_int, (c_int, c_int, c_char_p, c_int)),
    "passbook_oki_print_text": (c_int, _PORT + (c_int, c_int, c_int, c_char_p, c_int)),
    "passbook_outcome": (c_int, (POINTER(OutcomeStruct),)),
    "passbook_explain": (POINTER(MeaningStruct), (c_char_p, c_int)),
    "passbook_status_text": (c_char_p, (c_int,)),
    "passbook_paper_text": (c_char_p, (c_int,)),
    "passbook_set_trace": (c_int, (TRACE_CALLBACK, c_void_p)),
    "passbook_set_progress": (c_int, (PROGRESS_CALLBACK, c_void_p)),
    "passbook_cancel": (c_int, ()),
    "passbook_set_write_limit": (c_int, (c_int,)),
    "passbook_oki_paper": (c_int, _PORT + (POINTER(OkiPaperStruct),)),
    "passbook_set_temporary_directory": (c_int, (c_char_p,)),
    "passbook_version": (c_char_p, ()),
}


@functools.cache
def library() -> ctypes.CDLL:
    """Loads the library at the first call: the plugin for pytest serves hosts that do without it."""
    loaded = ctypes.CDLL(os.environ.get("PASSBOOK_LIBRARY") or "libpassbook.so.1")
    for name, (result, arguments) in PROTOTYPES.items():
        function = getattr(loaded, name)
        function.restype, function.argtypes = result, arguments
    return loaded


def raw(name: str, *arguments: Any) -> Any:
    """Calls a function as it is. A number that a C int cannot hold is refused, not cut."""
    kinds = PROTOTYPES[name][1]
    checked = [_integer(value) if kind is c_int else value for kind, value in zip(kinds, arguments, strict=True)]
    return getattr(library(), name)(*checked)


def _integer(value: Any) -> int:
    number = operator.index(value)
    if not -(2**31) <= number < 2**31:
        raise OverflowError(f"{number} is no C int")
    return number


class _Turn:
    """One call at a time: the library takes no locks, and its record is that of the latest call."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._owner: int | None = None

    @contextmanager
    def taken(self) -> Iterator[None]:
        if self._owner == threading.get_ident():
            raise RuntimeError("a callback or a signal handler must not call the library, except passbook_cancel")
        with self._lock:
            self._owner = threading.get_ident()
            try:
                yield
            finally:
                self._owner = None


turn = _Turn()


def _handled_signals() -> list[int]:
    # None is a handler that was not installed from Python.
    found = {number: signal.getsignal(number) for number in signal.valid_signals()}
    return [number for number, handler in found.items() if handler is None or callable(handler)]


@contextmanager
def _signals_held() -> Iterator[None]:
    """A handled signal that cuts a write would lose the rest of a line, and the call would still succeed."""
    callbacks.signals = signal.pthread_sigmask(signal.SIG_BLOCK, _handled_signals())
    try:
        yield
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, callbacks.signals)


class Callbacks:
    """The functions that the library calls. No exception goes through C."""

    def __init__(self) -> None:
        self.raised: BaseException | None = None  # what ended a call, or is to be raised behind it
        self.signals: Iterable[int] = ()  # those that the program blocks itself
        self._kept: dict[str, Any] = {}

    def install(self, name: str, callback: Any) -> None:
        raw(name, callback, None)
        self._kept[name] = callback  # the library goes on calling it; the former one may go now

    def trace(self, told: Callable[[TraceEventStruct], None]) -> Any:
        def call(event: Any, _user: Any) -> None:
            try:
                told(event.contents)
            except Exception:
                raise  # ctypes tells sys.unraisablehook: a call that has printed is no failure because a log was full
            except BaseException as error:
                self.raised = self.raised or error

        return TRACE_CALLBACK(call)

    def progress(self, told: Callable[[int, int], object]) -> Any:
        def call(done: int, total: int, _user: Any) -> int:
            try:
                # Nothing is half written here, so Ctrl-C may end the call.
                held = signal.pthread_sigmask(signal.SIG_SETMASK, self.signals)
                try:
                    return 1 if told(done, total) else 0
                finally:
                    signal.pthread_sigmask(signal.SIG_SETMASK, held)
            except BaseException as error:
                self.raised = self.raised or error
                return 1

        return PROGRESS_CALLBACK(call)


callbacks = Callbacks()


def outcome() -> Outcome:
    told = OutcomeStruct(size=ctypes.sizeof(OutcomeStruct))
    raw("passbook_outcome", ctypes.byref(told))
    return Outcome.of(told)


def explain(function: str, result: int) -> Meaning | None:
    meaning = raw("passbook_explain", utf8(function), result)
    return Meaning.of(meaning.contents) if meaning else None


def call(
    name: str, *arguments: Any, answers: bool = False, recorded: bool = True, data: Callable[[int], Any] | None = None
) -> tuple[int, Outcome | None]:
    """Makes a call, and raises what its result and its record tell of a failure.

    answers   results above 0 are answers, not failures.
    recorded  whether passbook_outcome tells of this function.
    data      gives what the error carries of data that have arrived, by the parts of the record.
    """
    with turn.taken():
        callbacks.raised = None
        with _signals_held():
            result = raw(name, *arguments)
            told = outcome() if recorded else None
        raised, callbacks.raised = callbacks.raised, None
    failed = result < 0 or (result > 0 and not answers)
    misplaced = told and told.ink != Ink.INK_NONE and not told.in_place
    if failed or misplaced or (told and told.failed_transfers):
        kind = PassbookError if failed else UntoldFailure
        read = data(told.parts) if data and told else None
        raise kind(name, result, told, explain(name, result), read) from raised
    if raised:
        raise raised
    return result, told


def utf8(value: str | bytes) -> bytes:
    """UTF-8 for the library; a host that has UTF-8 hands it over as it is."""
    return value.encode() if isinstance(value, str) else octets(value)


def octets(value: Any) -> bytes:
    if isinstance(value, (str, int)):
        raise TypeError(f"bytes are needed, not {type(value).__name__}")
    return bytes(memoryview(value))


def file_name(value: str | bytes | os.PathLike[str]) -> bytes:
    encoded = os.fsencode(value)
    if b"\0" in encoded:
        raise ValueError("embedded null byte")
    return encoded
