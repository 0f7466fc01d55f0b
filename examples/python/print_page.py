#!/usr/bin/env python3
"""A teller's job in Python: prints a page of a passbook, reads the printer's status, writes the magnetic stripe and
reads it back, and gives the book back. After every failure it decides by what became of the call.

    print_page.py PORT [STAMP.bmp]

PORT is a port name for YARDO_PR2_OpenPort, such as ttyS0, or what the virtual printer says: pts/3. STAMP.bmp is a picture
for the page's foot.
"""

import sys
from collections.abc import Callable
from typing import TypeVar

from passbook import PaperStatus, PassbookError, Port, PrinterStatus, Repeat, Reset, Underline, Unit
from passbook import passbook_paper_text, passbook_status_text

BOOKINGS = [
    ("2026-01-05", "开户 Opening", "", "500.00", "500.00"),
    ("2026-01-31", "工资 Salary", "", "12,480.00", "12,980.00"),
    ("2026-02-03", "取现 ATM 0417", "2,000.00", "", "10,980.00"),
    ("2026-02-14", "转账 林小姐", "520.00", "", "10,460.00"),
    ("2026-02-28", "工资 Salary", "", "12,480.00", "22,940.00"),
    ("2026-03-09", "水电费 Utilities", "318.65", "", "22,621.35"),
    ("2026-03-21", "利息 Interest", "", "17.42", "22,638.77"),
    ("2026-04-02", "消费 POS 8831", "1,299.00", "", "21,339.77"),
    ("2026-04-30", "工资 Salary", "", "12,480.00", "33,819.77"),
    ("2026-05-06", "定期 Term deposit", "20,000.00", "", "13,819.77"),
]
ACCOUNT = b"6222020200112233=4912"
TRIES = 3

Answer = TypeVar("Answer")


class Stopped(Exception):
    """The job cannot go on: a person has to look at the page, or to remove the cause."""


def do(what: str, call: Callable[..., Answer], *arguments: object) -> Answer | None:
    """Makes a call, as often as it is worth it.

    Money is posted here: what can be on the paper already is never printed again.
    """
    for attempt in range(1, TRIES + 1):
        try:
            return call(*arguments)
        except PassbookError as error:
            tell(f"{what}: {error}")
            outcome, meaning = error.outcome, error.explanation
            if outcome is None:
                raise Stopped(str(error)) from error
            if outcome.can_go_on:
                tell("all of it is in its place; on")
                return None
            if outcome.can_be_repeated:
                if attempt < TRIES and (meaning is None or meaning.repeat != Repeat.REPEAT_USELESS):
                    tell("nothing of it is on the paper; once more")
                    continue
            elif outcome.in_place:
                across, down = outcome.x_dots * 254 // 1800, outcome.y_dots * 254 // 1800
                tell(f"look at the page, {across} mm across and {down} mm down: a part of it can be there")
            else:
                tell("look at the page: it can stand in another place")
            if meaning is not None and error.result < 0:
                tell(meaning.remedy)
            raise Stopped(str(error)) from error
    raise AssertionError("the last attempt returns or raises")


def tell(line: str) -> None:
    print(f"print_page: {line}", file=sys.stderr)


def page(port: Port, stamp: str | None) -> None:
    def text(x_mm: int, y_mm: int, line: str) -> None:
        do(line, port.print_data, Unit.MILLIMETRES, x_mm, y_mm, line)

    def form(pitch: float, bold: bool, width: int = 0, height: int = 0) -> None:
        do("format", port.set_format, pitch, bold, width, height)

    form(10, True, 1, 1)
    text(12, 8, "示范银行 活期储蓄存折")
    form(12, False)
    text(12, 20, "DEMONSTRATION BANK   SAVINGS PASSBOOK")
    form(15, False)
    text(12, 27, "户名 Name: 张 伟 ZHANG WEI       账号 Account: 6222 0202 0011 2233")
    do("underline", port.set_underline, Underline.UNDERLINE_SECOND)
    form(15, True)
    text(12, 37, "日期 Date   摘要 Text              支出 Out     存入 In 余额 Balance")
    do("underline", port.set_underline, Underline.UNDERLINE_OFF)
    y = 46
    for date, reason, withdrawn, deposited, balance in BOOKINGS:
        form(15, False)
        text(12, y, date)
        text(32, y, reason)
        for x, money in ((66, withdrawn), (86, deposited)):
            if money:
                text(x, y, f"{money:>11}")
        form(15, True)
        text(108, y, f"{balance:>11}")
        y += 7
    form(17, False)
    text(12, y + 6, "本折须妥善保管。Please keep this book safe; report its loss to any branch at once.")
    if stamp:
        do("stamp", port.print_bmp, stamp, False, 104, y + 14)
    form(12, False)
    text(12, y + 24, "柜员 Teller 0088   网点 Branch 010")


def job(port: Port, stamp: str | None) -> None:
    do("initialise", port.init_printer, Reset.RESET_ALL, 10)
    identifier = do("firmware", port.firmware)
    print(f"printer    {(identifier or b'').decode('latin-1')}")
    do("insert", port.insert_paper)
    paper = do("paper status", port.paper_status)
    if paper != PaperStatus.PAPER_IN_PLACE:
        raise Stopped(passbook_paper_text(paper or 0) or "the paper is not known of")
    page(port, stamp)
    status = do("printer status", port.printer_status)
    print(f"status     {status:d} ({passbook_status_text(status)})" if status else "status     unknown")
    if status != PrinterStatus.PRINTER_READY:
        # The line took all texts. That does not say that the printer printed them.
        raise Stopped("look at the page: the printer may not have printed all of it")
    do("stripe write", port.write_stripe, 0, ACCOUNT)
    stripe = do("stripe read", port.read_stripe, 0)
    if stripe != ACCOUNT:
        raise Stopped(f"the stripe reads back as {stripe!r}")
    print(f"stripe     {stripe.decode()}")


def main() -> int:
    if len(sys.argv) not in (2, 3):
        print("usage: print_page.py PORT [STAMP.bmp]", file=sys.stderr)
        return 2
    try:
        port = do("open", Port, sys.argv[1])
        if port is None:
            return 1
        with port:
            try:
                job(port, sys.argv[2] if len(sys.argv) == 3 else None)
            finally:
                # The customer gets the book back in any case.
                try:
                    port.wait_until_taken(30)
                except PassbookError as error:
                    tell(f"eject: {error}")
    except Stopped as stopped:
        tell(str(stopped))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
