#!/usr/bin/env python3
"""Bookings in a passbook, line by line, in Python. After every failure it decides by what became of the call.

    teller.py PORT

It does what examples/c/teller.c does, and says the same. The rule, and what it prints, stand there.
"""

import sys
import time
from collections.abc import Callable
from typing import TypeVar

from passbook import PaperStatus, PassbookError, Port, PrinterStatus, Reset, Unit, passbook_set_write_limit

BOOKINGS = [
    ("2026-01-05", "Opening", "500.00", "500.00"),
    ("2026-01-31", "Salary", "12,480.00", "12,980.00"),
    ("2026-02-03", "ATM 0417", "-2,000.00", "10,980.00"),
    ("2026-02-14", "Transfer", "-520.00", "10,460.00"),
    ("2026-02-28", "Salary", "12,480.00", "22,940.00"),
    ("2026-03-09", "Utilities", "-318.65", "22,621.35"),
    ("2026-03-21", "Interest", "17.42", "22,638.77"),
    ("2026-04-02", "POS 8831", "-1,299.00", "21,339.77"),
    ("2026-04-30", "Salary", "12,480.00", "33,819.77"),
    ("2026-05-06", "Deposit", "-20,000.00", "13,819.77"),
]
ACCOUNT = b"6222020200112233"
X_MM, FIRST_LINE_MM, LINE_MM = 12, 20, 7
READY_S, WRITE_LIMIT_MS, TAKEN_S, TRIES = 2, 10000, 30, 3
NO_ANSWER = "the printer does not answer"
BROKEN = "the line to the printer is broken"

Answer = TypeVar("Answer")


class Again(Exception):
    """The line to the printer broke, and nothing of the call is on the paper: it can be made on a line opened anew."""


class Stopped(Exception):
    """It would be the same again. Nothing is in doubt."""


class Doubtful(Exception):
    """The next line can be in the book, whole or in part: a person looks, and this program prints it no more."""


def do(why: str, call: Callable[..., Answer], *arguments: object) -> Answer | None:
    """Makes a call. What it raises is decided by what became of the call; `why` is the reason for it."""
    try:
        return call(*arguments)
    except PassbookError as error:
        print(f"teller: {error}", file=sys.stderr)
        outcome = error.outcome
        if outcome is None:
            raise Doubtful(why) from error
        if outcome.can_go_on:
            return None
        if not outcome.can_be_repeated:
            raise Doubtful(why) from error
        raise (Again if outcome.failed_transfers else Stopped)(why) from error


def ask(question: Callable[[], Answer]) -> Answer | None:
    """Asks once more when there is no answer: it can be late. What the second answer is counts."""
    try:
        return do(NO_ANSWER, question)
    except Stopped:
        return do(NO_ANSWER, question)


class Job:
    def __init__(self, port_name: str) -> None:
        self.port_name = port_name
        self.posted = 0  # lines that stand in the book

    def run(self) -> None:
        """Goes on behind the lines that are posted."""
        try:
            port = do("the port cannot be opened", Port, self.port_name)
        except Stopped as stopped:
            raise Again(*stopped.args) from stopped
        assert port
        with port:
            try:
                self.look(port)
                while self.posted < len(BOOKINGS):
                    self.post(port)
                self.write_stripe(port)
            except Again:
                raise  # the job goes on, and keeps the book
            except BaseException:
                self.give_back(port)
                raise
            self.give_back(port)

    def look(self, port: Port) -> None:
        """Before anything is printed: is the printer ready, is there a book, and whose?"""
        try:
            do(BROKEN, port.init_printer, Reset.RESET_ALL, READY_S)
        except Stopped:
            ask(port.printer_status)
            raise Stopped("the printer is not ready") from None
        do(BROKEN, port.insert_paper)
        self.look_for_book(port)
        if do("the stripe cannot be read", port.read_stripe, 0) != ACCOUNT:
            raise Stopped("it is the book of another account")

    def look_for_book(self, port: Port) -> None:
        if ask(port.paper_status) != PaperStatus.PAPER_IN_PLACE:
            raise Stopped("there is no book in the printer")

    def post(self, port: Port) -> None:
        """Prints the next line."""
        self.look_for_book(port)
        date, text, amount, balance = BOOKINGS[self.posted]
        row = f"{date}  {text:<12}{amount:>12}{balance:>12}"
        y_mm = FIRST_LINE_MM + self.posted * LINE_MM
        do("the line cannot be printed", port.print_data, Unit.MILLIMETRES, X_MM, y_mm, row)
        # That it was handed over does not say that it is printed. The printer says so.
        try:
            status = ask(port.printer_status)
        except (Again, Stopped) as ended:
            raise Doubtful from ended
        if status != PrinterStatus.PRINTER_READY:
            raise Doubtful
        self.posted += 1

    def write_stripe(self, port: Port) -> None:
        """The printer does not confirm it, so it is read back. Nothing can be printed twice by it."""
        for _ in range(TRIES):
            try:
                do("", port.write_stripe, 0, ACCOUNT)
                if do("", port.read_stripe, 0) == ACCOUNT:
                    return
            except Stopped:
                pass
        raise Stopped("the stripe is not written")

    def give_back(self, port: Port) -> None:
        try:
            port.wait_until_taken(TAKEN_S)
        except PassbookError as error:
            print(f"teller: {error}", file=sys.stderr)


def main() -> int:
    if len(sys.argv) != 2:
        print("usage: teller.py PORT", file=sys.stderr)
        return 2
    passbook_set_write_limit(WRITE_LIMIT_MS)  # a printer that takes nothing does not hold the counter up
    job = Job(sys.argv[1])
    status, why = 1, ""
    for attempt in range(TRIES):
        if attempt:
            time.sleep(1)  # the cable, the printer or the other program can need a moment
        try:
            job.run()
            status, why = 0, ""
        except Again as broken:
            status, why = 1, f"; {broken}"
            continue
        except Stopped as stopped:
            status, why = 1, f"; {stopped}"
        except Doubtful:
            status, why = 5, f"; look at line {job.posted + 1}"
        break
    print(f"posted {job.posted} of {len(BOOKINGS)} lines{why}")
    return status


if __name__ == "__main__":
    sys.exit(main())
