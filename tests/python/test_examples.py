"""The tellers' jobs, with and without trouble. The suite of the fictitious host is run beside these tests."""

import importlib
import json
import os
import subprocess
import sys
from pathlib import Path

from passbook.testing import _program

EXAMPLES = Path(__file__).parents[2] / "examples/python"
BUILD = Path(os.environ["PASSBOOK_BUILD"])


def test_the_job(passbook_printer, stamp):
    """The job in Python and in C. Both do the same, to the last byte."""
    printers = [passbook_printer() for _ in range(2)]
    jobs = ([sys.executable, EXAMPLES / "print_page.py"], [BUILD / "examples/print_page"])
    running = [
        subprocess.Popen([*job, printer.port, stamp], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        for job, printer in zip(jobs, printers)
    ]
    ended = [(*job.communicate(timeout=60), job.returncode) for job in running]
    told, problems, status = ended[0]
    assert ended[1] == ended[0] and (told.split()[-1], problems, status) == ("6222020200112233=4912", "", 0)
    for printer in printers:
        printer.wait_for("paper", what="ejected")
    happened = [[{**event, "ms": 0} for event in printer.events()] for printer in printers]
    assert happened[0] == happened[1]
    rows = [text for text in printers[0].texts() if text.text.startswith("2026-")]
    assert [round(row.y_mm) for row in rows] == list(range(47, 117, 7))
    assert printers[0].events("bitmap", columns=8)


TELLERS = ([BUILD / "examples/teller"], [BUILD / "examples/teller_cpp"], [sys.executable, EXAMPLES / "teller.py"])
JAM = [  # somebody clears it, and takes the book
    {"name": "jam", "when": {"text": "", "nth": 7}, "then": {"jam": True}},
    {"name": "cleared", "when": {"after": 2, "since": "jam"}, "then": [{"jam": False}, {"take": True}]},
]


def when(then, **condition):
    return {"when": condition, "then": then}


def missing(count):
    return {"answers": {"how": "missing", "count": count}}


DROP, OUT = {"line": {"drop": 0.3}}, ["--paper=out", "--insert-after=never"]
ALL, AT_THREE = "posted 10 of 10 lines", "posted 2 of 10 lines; look at line 3"
TROUBLES = {  # rules, options of the virtual printer, port, status and last line
    "none": ([], [], "{}", 0, ALL),
    "no port": ([], [], "nowhere", 1, "posted 0 of 10 lines; the port cannot be opened"),
    "in use": ([], [], "in use", 1, "posted 0 of 10 lines; the port cannot be opened"),
    "no book": ([], OUT, "{}", 1, "posted 0 of 10 lines; there is no book in the printer"),
    "not ready": ([], ["--printer-status=3"], "{}", 1, "posted 0 of 10 lines; the printer is not ready"),
    "silent": ([when(missing(3), host="opened")], [], "{}", 1, "posted 0 of 10 lines; the printer does not answer"),
    "stripe": ([], ["--stripe0=4711"], "{}", 1, "posted 0 of 10 lines; it is the book of another account"),
    "jam": (JAM, [], "{}", 5, "posted 6 of 10 lines; look at line 7"),
    "silent behind line 3": ([when(missing(2), text="", nth=3)], [], "{}", 5, AT_THREE),
    "half of line 3": ([when({"usb": "short"}, command="horizontal-position", nth=3)], ["--usb"], "{}", 5, AT_THREE),
    "cut before line 3": ([when(DROP, command="paper-status", nth=4)], ["--link=port"], "link", 0, ALL),
    "cut behind line 3": ([when(DROP, command="printer-status", nth=4)], ["--link=port"], "link", 5, AT_THREE),
}


def run(folder, rules, options, *host):
    folder.mkdir()
    (folder / "scenario").write_text(json.dumps({"start": {"stripes": ["6222020200112233"]}, "rules": rules}))
    command = ["timeout", "120", _program(), "--scenario=scenario", "--events=events", *options, "--", *host]
    return subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def story(folder):
    """What happened, by whatever questions the host learnt of it."""
    kinds, shown = {"rule", "jam", "paper", "text"}, ("event", "name", "what", "status", "text", "xDots", "yDots")
    events = map(json.loads, (folder / "events").read_text().splitlines())
    return [[each.get(key) for key in shown] for each in events if each["event"] in kinds]


def test_tellers(monkeypatch, tmp_path):
    """Each trouble meets each program, all at once: most of them wait."""
    running = {}
    for trouble, (rules, options, port, *_) in TROUBLES.items():
        for teller in TELLERS:
            folder = tmp_path / f"{trouble} {len(running)}"
            name = f"..{folder}/port" if port == "link" else "{}" if port == "in use" else port
            lock = ["flock", "/dev/{}"] if port == "in use" else []
            running[folder] = run(folder, rules, options, *lock, *teller, name), trouble
    # The tool has the same jam with the same lines. Its places are those of the page, without the millimetre.
    page = tmp_path / "page.json"
    monkeypatch.syspath_prepend(EXAMPLES)
    bookings = importlib.import_module("teller").BOOKINGS
    steps = [
        {"text": f"{date}  {text:<12}{amount:>12}{balance:>12}", "x": 12, "y": 21 + 7 * line}
        for line, (date, text, amount, balance) in enumerate(bookings)
    ]
    page.write_text(json.dumps({"steps": steps}))
    tool = run(tmp_path / "tool", JAM, [], BUILD / "tools/passbook", "--port", "{}", "page", page)
    assert tool.wait() == 5, tool.communicate()
    stories = {}
    for folder, (teller, trouble) in running.items():
        said, problems = teller.communicate()
        assert [teller.returncode, said.strip()] == list(TROUBLES[trouble][3:]), (folder.name, problems)
        assert story(folder) == stories.setdefault(trouble, story(folder)), folder.name
        texts = [each[4:] for each in stories[trouble] if each[0] == "text"]
        assert 0 <= len(texts) - int(said.split()[1]) <= (teller.returncode == 5), (folder.name, texts)
        # Each line stands in its place, and only once.
        assert texts == [each[4:] for each in stories["none"] if each[0] == "text"][: len(texts)] or "half" in trouble
    assert story(tmp_path / "tool") == stories["jam"]
