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

JOB = Path(__file__).parents[2] / "examples/python/print_page.py"


JOB_IN_C = Path(os.environ.get("PASSBOOK_BUILD", ".")) / "examples/print_page"


def start(printer, stamp, *job):
    command = [*(job or (sys.executable, JOB)), printer.port, stamp]
    return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def test_the_job(passbook_oli, passbook_printer, stamp):
    told, problems = start(passbook_oli, stamp).communicate(timeout=60)
    assert (told.split()[-1], problems) == ("6222020200112233=4912", "")
    rows = [text for text in passbook_oli.texts() if text.text.startswith("2026-")]
    assert [round(row.y_mm) for row in rows] == list(range(47, 117, 7))
    assert passbook_oli.events("bitmap") and passbook_oli.events("paper", what="ejected")
    if JOB_IN_C.exists():  # it does the same to the last byte
        other = passbook_printer()
        assert start(other, stamp, JOB_IN_C).communicate(timeout=60) == (told, "")
        happened = [[{**event, "ms": 0} for event in printer.events()] for printer in (passbook_oli, other)]
        assert happened[0] == happened[1]


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
