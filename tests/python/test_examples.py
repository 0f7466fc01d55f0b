"""The teller's job in Python, with and without trouble. The suite of the fictitious host is run beside these tests."""

import importlib
import os
import re
import subprocess
import sys
from contextlib import nullcontext
from pathlib import Path

import passbook
import pytest
from passbook.testing import _options_of, _program

JOB = Path(__file__).parents[2] / "examples/python/print_page.py"


JOB_IN_C = Path(os.environ["PASSBOOK_BUILD"]) / "examples/print_page"


def start(printer, stamp, *job):
    command = [*(job or (sys.executable, JOB)), printer.port, stamp]
    return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def both(passbook_printer, stamp, last, **options):
    """Runs the job in Python and in C. Both do the same, to the last byte. Gives how it ended, and the printer."""
    printers = [passbook_printer(**options) for _ in range(2)]
    running = [start(printer, stamp, *job) for printer, job in zip(printers, ((), (JOB_IN_C,)))]
    ended = [(*job.communicate(timeout=60), job.returncode) for job in running]
    assert [end[0] for end in ended] == [ended[0][0]] * 2 and ended[0][2] == ended[1][2], ended
    for printer in printers:
        printer.wait_for("paper", what=last)
    happened = [[{**event, "ms": 0} for event in printer.events()] for printer in printers]
    assert happened[0] == happened[1]
    return ended[0], printers[0]


def test_the_job(passbook_printer, stamp):
    (told, problems, status), printer = both(passbook_printer, stamp, "ejected")
    assert (told.split()[-1], problems, status) == ("6222020200112233=4912", "", 0)
    rows = [text for text in printer.texts() if text.text.startswith("2026-")]
    assert [round(row.y_mm) for row in rows] == list(range(47, 117, 7))
    assert printer.events("bitmap", columns=8)


@pytest.mark.skipif("--scenario" not in _options_of(_program()), reason="passbook-sim has no --scenario")
def test_a_jam_is_no_success(passbook_printer, stamp):
    rules = [
        {"name": "jam", "when": {"text": "", "nth": 7}, "then": {"jam": True}},
        {"name": "cleared", "when": {"after": 2, "since": "jam"}, "then": {"jam": False}},
        {"when": {"after": 0.1, "since": "cleared"}, "then": {"take": True}},
    ]
    (_, problems, status), printer = both(passbook_printer, stamp, "taken", scenario={"rules": rules})
    assert status == 1 and "look at the page" in problems
    assert len(printer.texts()) == 7


@pytest.mark.parametrize(
    "options, trouble, said",
    [
        ({"paper": "out", "insert_after": "never"}, None, "no document"),
        ({}, "2026-02-14", "look at the page|nothing of it is on the paper; once more"),
    ],
)
def test_trouble(passbook_printer, stamp, options, trouble, said):
    printer = passbook_printer(**options)
    job = start(printer, stamp)
    if trouble:
        printer.wait_for("text", text=trouble)
        printer.unplug()
    _, problems = job.communicate(timeout=120)
    assert job.returncode == 1 and re.search(said, problems), problems
    printed = [text.text for text in printer.texts() if text.text.startswith("2026-")]
    assert len(printed) == len(set(printed))


LOOK, USELESS = (passbook.passbook_explain("YARDO_PR2_PrintData", result) for result in (-3, -1))


@pytest.mark.parametrize(
    "result, ink, in_place, meaning, calls, said",
    [
        (-3, 0, True, LOOK, 3, "once more"),
        (-1, 0, True, USELESS, 1, "Correct the arguments"),
        (-3, 1, True, LOOK, 1, "10 mm across and 20 mm down"),
        (-3, 1, False, LOOK, 1, "another place"),
        (0, 2, False, None, 1, "another place"),
        (0, 2, True, None, 1, "all of it is in its place"),
    ],
)
def test_decisions(monkeypatch, capsys, result, ink, in_place, meaning, calls, said):
    monkeypatch.syspath_prepend(JOB.parent)
    job = importlib.import_module("print_page")
    told = dict.fromkeys(passbook.Outcome.__dataclass_fields__, 0)
    told.update(ink=passbook.Ink(ink), in_place=in_place, x_dots=71, y_dots=142, message="")
    made = []

    def call():
        made.append(1)
        raise passbook.PassbookError("YARDO_PR2_PrintData", result, passbook.Outcome(**told), meaning)

    goes_on = ink == passbook.Ink.INK_SENT and in_place
    with nullcontext() if goes_on else pytest.raises(job.Stopped):
        job.do("text", call)
    assert len(made) == calls and said in capsys.readouterr().err
