"""How a host is tested without a printer: run `pytest` here, with passbook-sim in the PATH."""

import threading

import pytest
from counter import Booking, Counter

BOOKINGS = [Booking("2026-01-05", "500.00", "500.00"), Booking("2026-01-31", "12,480.00", "12,980.00")]


def test_bookings_stand_in_their_lines(passbook_oli):
    posted = Counter(passbook_oli.port).post(BOOKINGS, line=3)
    assert (posted.lines, posted.doubtful, posted.problem) == (2, False, "")
    texts = passbook_oli.texts()
    assert [text.text.split() for text in texts] == [[b.date, b.amount, b.balance] for b in BOOKINGS]
    # Printers round to a sixth of a millimetre; text in millimetres stands one millimetre lower.
    assert [text.y_mm for text in texts] == [pytest.approx(39, abs=0.3), pytest.approx(45, abs=0.3)]
    assert passbook_oli.wait_for("paper", what="ejected")
    assert not passbook_oli.events("unknown") and not passbook_oli.events("off-page")


@pytest.mark.passbook(stripe0="6222020200112233")
def test_the_account_is_read(passbook_oli):
    assert Counter(passbook_oli.port).account() == "6222020200112233"


def test_a_full_page_is_not_printed_on(passbook_oli):
    assert Counter(passbook_oli.port).post(BOOKINGS, line=24).problem == "the page is full"
    assert passbook_oli.texts() == []


@pytest.mark.passbook(paper="out", insert_after="never")
def test_no_book(passbook_oli):
    assert Counter(passbook_oli.port).post(BOOKINGS).problem == "there is no book"


def test_a_line_that_breaks_while_bookings_are_printed(passbook_oli):
    results = []
    bookings = BOOKINGS * 12
    counter = Counter(passbook_oli.port)
    posting = threading.Thread(target=lambda: results.append(counter.post(bookings)))
    posting.start()
    passbook_oli.wait_for("text")
    passbook_oli.unplug()
    posting.join()
    posted, printed = results[0], passbook_oli.texts()
    # The host can be through before the line breaks.
    assert posted.problem or posted.lines == len(bookings)
    # What is told as posted is there. One more line can be, and then it is told as doubtful.
    assert len(printed) in (posted.lines, posted.lines + posted.doubtful)


@pytest.mark.passbook(printer_status=2)
def test_a_printer_with_a_fault_is_not_printed_on(passbook_oli):
    assert "PASSBOOK_NOT_READY" in Counter(passbook_oli.port).post(BOOKINGS).problem
    assert passbook_oli.texts() == []
