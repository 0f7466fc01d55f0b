"""Every function once and more, on a virtual printer."""

import contextlib
import dataclasses
import os
import signal
from concurrent.futures import ThreadPoolExecutor

import passbook
import pytest
from passbook import Ink, PaperStatus, PassbookError, Port, PrinterStatus, Repeat, Reset, TraceKind, Underline, Unit


@pytest.fixture(autouse=True)
def no_leftovers():
    """The settings of the library are those of the process."""
    yield
    with contextlib.suppress(PassbookError):
        passbook.YARDO_PR2_ClosePort()
    passbook.passbook_set_temporary_directory(None)
    passbook.passbook_set_trace(None)
    passbook.passbook_set_progress(None)
    passbook.passbook_set_write_limit(0)


@pytest.fixture
def oli(passbook_oli):
    with Port(passbook_oli.port) as port:
        port.init_printer(Reset.RESET_ALL, 10)
        yield port


@pytest.mark.parametrize(
    "call, answer, command",
    [
        (lambda p: p.command(b"\x1b]"), None, "stripe-read"),
        (lambda p: p.set_format(12.5, True, 1, 2), None, "bold-on"),
        (lambda p: p.set_line_space(Unit.MILLIMETRES, 4.2), None, "line-space"),
        (lambda p: p.set_underline(Underline.UNDERLINE_THIRD), None, "underline-on"),
        (lambda p: p.new_line(), None, "carriage-return"),
        (lambda p: p.insert_paper(), None, "feed-in"),
        (lambda p: p.eject_paper(), None, "eject"),
        (lambda p: p.wait_until_taken(5), None, "eject"),
        (lambda p: p.clear_error(), None, "clear-error"),
        (lambda p: p.clear_all(), None, "clear-all"),
        (lambda p: p.firmware(), b"PASSBOOKSIM10", "firmware"),
        (lambda p: p.printer_status(), PrinterStatus.PRINTER_READY, "printer-status"),
        (lambda p: p.paper_status(), PaperStatus.PAPER_IN_PLACE, "paper-status"),
        (lambda p: p.write_stripe(0, bytearray(b"42")) or p.read_stripe(0), b"42", "stripe-read"),
        (lambda p: p.write_stripe(1, b"43") or p.read_stripes(), (b"", b"43"), "stripe-read"),
    ],
)
def test_calls_that_send_a_command(passbook_oli, oli, call, answer, command):
    before = len(passbook_oli.events())
    assert call(oli) == answer
    happened = passbook_oli.events()[before:]
    assert command in [name for each in happened for name in (each.get("name"), each.get("to"))]
    assert passbook.passbook_outcome().failed_transfers == 0


def test_what_is_printed(passbook_oli, oli, stamp):
    oli.print_data(Unit.MILLIMETRES, 10, 20, "存入 Deposit")
    oli.print_text(180, 360, "to the dot".encode())
    oli.print_bmp(stamp, False, 30, 60)
    texts = passbook_oli.texts()
    assert [text.text for text in texts] == ["存入 Deposit", "to the dot"]
    assert (texts[0].x_mm, texts[0].y_mm) == (pytest.approx(10, abs=0.5), pytest.approx(21, abs=0.5))
    assert (texts[1].x_dots, texts[1].y_dots) == (180, 360)
    assert passbook_oli.events("bitmap", columns=8, xDots=212, yDots=423)


@pytest.mark.parametrize("sides, files", [(passbook.Sides.SIDES_FRONT, 1), (passbook.Sides.SIDES_BOTH, 2)])
def test_scans(passbook_printer, tmp_path, sides, files):
    names = [tmp_path / "front.bmp", tmp_path / "back.bmp"]
    grey = passbook.ImageType.IMAGE_GREY_256
    for family, numbers in (("oli", (0, 0)), ("oki", (0, 0, 0))):
        with Port(passbook_printer(family).port):
            scan = passbook.YARDO_ScantoFileOLI if family == "oli" else passbook.YARDO_ScantoFileOKI
            scan(*names, grey, *numbers, False, sides, 200, 0)
        assert sum(name.exists() for name in names) == files
        for name in names:
            name.unlink(missing_ok=True)
    with Port(passbook_printer("oli", scan_rows_error=3).port) as port, pytest.raises(PassbookError) as raised:
        port.scan_oli(*names, grey, 0, 0, False, sides, 200, 0)
    assert (raised.value.result, raised.value.name) == (2, "PASSBOOK_SCAN_NOT_READY")


def test_the_oki_functions(passbook_oki, tmp_path, stamp):
    passbook.passbook_set_temporary_directory(tmp_path)
    (tmp_path / "lines.txt").write_text("开户 Opening\n500.00\n")
    place = (passbook_oki.port, passbook.PtMode.PT_MODE_TENTH_MM, 5, 100, 60)
    passbook.PT_PrintTxtFile(*place, tmp_path / "lines.txt")
    passbook.PT_PrintTxtStream(*place, "500.00")
    passbook.passbook_oki_print_text(passbook_oki.port, 5, 90, 30, "17.42")
    assert [text.text for text in passbook_oki.texts()] == ["开户 Opening", "500.00", "500.00", "17.42"]
    passbook.PT_PrintImageFile(*place, stamp)
    passbook.PT_PrintImageFileRevolve(*place, stamp, passbook.Turn.TURNED_90)
    passbook.PT_PrintImageStream(*place, memoryview(stamp.read_bytes()))
    passbook.PT_PrintImageStreamRevolve(*place, stamp.read_bytes(), passbook.Turn.TURNED_90)
    assert [event["columns"] for event in passbook_oki.events("bitmap")] == [8, 24, 8, 24]
    assert passbook.passbook_oki_paper(passbook_oki.port) == passbook.OkiPaper(1, 1500, 2000)
    passbook.PT_Eject(passbook_oki.port)
    assert passbook_oki.wait_for("paper", what="ejected")
    passbook.passbook_set_temporary_directory(None)


@pytest.mark.parametrize(
    "call, result, name, repeat",
    [
        (lambda p: Port(p), -5, "PASSBOOK_ALREADY_OPEN", Repeat.REPEAT_USELESS),
        (lambda p: passbook.YARDO_PR2_PrintData(0, 1000, 1, "x"), -1, "PASSBOOK_BAD_ARGUMENT", Repeat.REPEAT_USELESS),
        (lambda p: passbook.YARDO_PR2_PrintData(0, 1, 1, b"\xff\xff"), -60, "PASSBOOK_NO_TEXT", Repeat.REPEAT_USELESS),
        (lambda p: passbook.YARDO_PR2_MSRALL(-5, 4), -1, "PASSBOOK_BAD_ARGUMENT", None),
        # Nothing is cut, and nothing is sent.
        (lambda p: passbook.YARDO_PR2_PrintData(0, 2**32 + 5, 1, "x"), OverflowError, None, None),
        (lambda p: passbook.YARDO_PR2_PrintData(0, 1.5, 1, "x"), TypeError, None, None),
        (lambda p: passbook.YARDO_PR2_PrintData(0, 1, 1, "\udcff"), UnicodeEncodeError, None, None),
        (lambda p: passbook.YARDO_PR2_Command("text"), TypeError, None, None),
        (lambda p: passbook.YARDO_PrintBmpOLI("a\0b", False, 1, 1), ValueError, None, None),
    ],
)
def test_refused(passbook_oli, oli, call, result, name, repeat):
    with pytest.raises(PassbookError if isinstance(result, int) else result) as raised:
        call(passbook_oli.port)
    assert not [event for event in passbook_oli.events() if event["event"] in ("text", "bitmap", "unknown")]
    if isinstance(result, int):
        error = raised.value
        assert (error.result, error.name) == (result, name) and name in str(error)
        assert error.outcome is None or (error.outcome.result == result and error.outcome.can_be_repeated)
        assert repeat is None or error.explanation.repeat == repeat


def test_a_port_that_is_closed(oli):
    passbook.PT_Eject("no/such/port")  # takes the open port, and closes it
    assert pytest.raises(PassbookError, oli.new_line).value.name == "PASSBOOK_NOT_SENT"
    oli.close()
    assert pytest.raises(PassbookError, passbook.YARDO_PR2_LR).value.name == "PASSBOOK_NOT_OPEN"


def test_a_line_that_breaks(passbook_oli, oli):
    passbook_oli.unplug()
    error = pytest.raises(PassbookError, oli.print_data, Unit.MILLIMETRES, 10, 10, "12.50").value
    assert error.name == "PASSBOOK_NOT_SENT" and error.explanation.repeat == Repeat.REPEAT_AFTER_LOOKING
    assert error.outcome.failed_transfers and error.outcome.system_error and error.outcome.ink != Ink.INK_SENT
    # Switching off tells no failure by its result.
    untold = pytest.raises(passbook.UntoldFailure, oli.set_underline, Underline.UNDERLINE_OFF).value
    assert untold.result == 0 and untold.outcome.failed_transfers


def test_ink_in_a_wrong_place_is_a_failure(oli, monkeypatch):
    told = dataclasses.replace(passbook.passbook_outcome(), ink=Ink.INK_SENT, in_place=False)
    monkeypatch.setattr("passbook._library.outcome", lambda: told)
    assert pytest.raises(passbook.UntoldFailure, oli.new_line).value.outcome == told


@pytest.mark.passbook(silent=True)
def test_answers_that_do_not_come(passbook_oli):
    with Port(passbook_oli.port) as port, pytest.raises(PassbookError, match="PASSBOOK_NOT_READY") as raised:
        port.init_printer(Reset.RESET_ALL, 0)
    assert raised.value.outcome.missing_answers


def test_callbacks(passbook_oki, oli, stamp, monkeypatch):
    told, ignored = [], []
    monkeypatch.setattr("sys.unraisablehook", ignored.append)
    passbook.passbook_set_trace(told.append)
    oli.new_line()
    assert [each.kind for each in told] == [TraceKind.TRACE_CALL, TraceKind.TRACE_WRITE, TraceKind.TRACE_RETURN]
    assert told[1].data == b"\r\n" and {each.function for each in told} == {"YARDO_PR2_LR"}

    passbook.passbook_set_trace(lambda event: oli.new_line())  # not allowed, and no failure of the call
    oli.new_line()
    assert {type(each.exc_value) for each in ignored} == {RuntimeError} and len(told) == 3
    passbook.passbook_set_trace(None)
    oli.close()

    def lines(count):
        passbook.PT_PrintTxtStream(passbook_oki.port, 0, 5, 0, 0, "\n".join(f"{n}." for n in range(count)))

    steps = []
    passbook.passbook_set_progress(lambda done, total: steps.append((done, total)))
    lines(3)
    assert steps[-1][1] == 3
    for stop, cause in ((lambda done, _: done == 2, None), (lambda done, _: 0 // (2 - done), ZeroDivisionError)):
        passbook.passbook_set_progress(stop)
        error = pytest.raises(PassbookError, lines, 5).value
        assert (error.name, error.outcome.done) == ("PASSBOOK_CANCELLED", 2)
        assert type(error.__cause__) is (cause or type(None))
    passbook.passbook_set_progress(lambda done, total: passbook.passbook_cancel())
    assert pytest.raises(PassbookError, lines, 5).value.name == "PASSBOOK_CANCELLED"
    # Ctrl-C ends a call between two steps, never within one.
    passbook.passbook_set_progress(lambda done, total: os.kill(os.getpid(), signal.SIGINT))
    assert isinstance(pytest.raises(PassbookError, lines, 5).value.__cause__, KeyboardInterrupt)


def test_a_printer_that_takes_nothing(passbook_oli, oli):
    passbook.passbook_set_write_limit(100)
    passbook_oli.stall()
    assert pytest.raises(PassbookError, oli.command, b"\r" * 100_000).value.name == "PASSBOOK_NOT_SENT"
    passbook_oli.resume()


def test_calls_of_threads_wait_for_each_other(passbook_oli, oli):
    def print_lines(thread):
        for line in range(20):
            oli.print_data(Unit.MILLIMETRES, 10 + thread, 10 + line, f"{thread}/{line}")

    with ThreadPoolExecutor(4) as threads:
        list(threads.map(print_lines, range(4)))
    texts = passbook_oli.texts()
    assert sorted(text.text for text in texts) == sorted(f"{t}/{n}" for t in range(4) for n in range(20))
    assert all(abs(text.x_mm - 10 - int(text.text.split("/")[0])) < 0.5 for text in texts)
    assert not passbook_oli.events("unknown")
