"""Bank passbook printers from Python. passbook.h tells what the functions do, functions.py what differs here."""

__version__ = "1.0.0"

from .enums import *
from .errors import Meaning as Meaning, Outcome as Outcome
from .errors import PassbookError as PassbookError, UntoldFailure as UntoldFailure
from .functions import *
from .port import Port as Port
