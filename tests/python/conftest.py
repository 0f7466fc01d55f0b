"""What the tests of the Python package share. By hand:

    PYTHONPATH=python /usr/bin/python3 -m pytest -p passbook.testing tests/python
"""

import os
import struct
from pathlib import Path

import pytest

BUILD = os.environ.setdefault("PASSBOOK_BUILD", str(Path(__file__).parents[2] / "build/default"))
os.environ.setdefault("PASSBOOK_LIBRARY", f"{BUILD}/api/libpassbook.so.1")
os.environ.setdefault("PASSBOOK_SIM", f"{BUILD}/sim/passbook-sim")


@pytest.fixture
def stamp(tmp_path):
    """A black picture of 8 x 24 dots."""
    file = tmp_path / "stamp.bmp"
    rows = b"\0" * 24 * 24
    header = struct.pack("<2sIIIIIIHHIIIIII", b"BM", 54 + len(rows), 0, 54, 40, 8, 24, 1, 24, 0, len(rows), 0, 0, 0, 0)
    file.write_bytes(header + rows)
    return file
