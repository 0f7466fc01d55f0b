"""What stands in Python is what stands in passbook.h: functions, structs, enums and callbacks."""

import configparser
import enum
import inspect
import re
import tomllib
from ctypes import POINTER, c_bool, c_char, c_char_p, c_double, c_int, c_longlong, c_ubyte, c_uint, c_void_p
from pathlib import Path

import passbook
from passbook import _library

HEADER = re.sub(r"/\*.*?\*/", "", (Path(__file__).parents[2] / "api/passbook.h").read_text(), flags=re.S)
STRUCTS = {
    "passbook_outcome": _library.OutcomeStruct,
    "passbook_meaning": _library.MeaningStruct,
    "passbook_trace_event": _library.TraceEventStruct,
    "passbook_oki_paper": _library.OkiPaperStruct,
}
KINDS = {
    "int": c_int,
    "unsigned": c_uint,
    "long long": c_longlong,
    "double": c_double,
    "bool": c_bool,
    "void": None,
    "const char*": c_char_p,
    "const unsigned char*": c_char_p,
    "char*": c_void_p,  # what the library fills
    "unsigned char*": c_void_p,
    "void*": c_void_p,
    "passbook_trace_callback": _library.TRACE_CALLBACK,
    "passbook_progress_callback": _library.PROGRESS_CALLBACK,
    **{f"{const}struct {name}*": POINTER(struct) for name, struct in STRUCTS.items() for const in ("", "const ")},
}
# Python's functions find lengths themselves, and return what is filled in.
SELF_FOUND = r"length\d?|reserved|out|buffer\d?|user"


def declared(parameters):
    """The kinds and names of a list of parameters."""
    found = [re.fullmatch(r"(.*?)\s*(\w+)", each.strip()).groups() for each in parameters.split(",")]
    return [] if parameters == "void" else found


def snake(name):
    return re.sub(r"[A-Z]", lambda letter: "_" + letter[0].lower(), name)


def test_functions():
    functions = re.findall(r"PASSBOOK_API\s+(.*?)\s*(\w+)\(([^)]*)\);", HEADER)
    assert {name for _, name, _ in functions} == set(_library.PROTOTYPES) and len(functions) > 40
    for result, name, parameters in functions:
        kinds = [KINDS[kind] for kind, _ in declared(parameters)]
        assert (KINDS[result], kinds) == (_library.PROTOTYPES[name][0], list(_library.PROTOTYPES[name][1])), name
        parameters_shown = inspect.signature(getattr(passbook, name)).parameters
        shown = [each for each in parameters_shown if not each.startswith("length")]
        wanted = [snake(each) for _, each in declared(parameters) if not re.fullmatch(SELF_FOUND, each)]
        assert shown == wanted, name


def test_enums():
    members = {
        name: {key: int(value) for key, value in re.findall(r"PASSBOOK_(\w+) = (-?\d+)", body)}
        for name, body in re.findall(r"enum (\w+) \{(.*?)\}", HEADER, re.S)
    }
    enums = [each for each in vars(passbook).values() if inspect.isclass(each) and issubclass(each, enum.IntEnum)]
    assert members == {
        "passbook" + re.sub("[A-Z]", lambda letter: "_" + letter[0].lower(), each.__name__): {
            key: int(member) for key, member in each.__members__.items()
        }
        for each in enums
    }


def test_structs():
    found = dict(re.findall(r"struct (\w+) \{(.*?)\};", HEADER, re.S))
    assert set(found) == set(STRUCTS)
    # A pointer to bytes that are no string is one to numbers within a struct.
    inside = {**KINDS, "const unsigned char*": POINTER(c_ubyte)}
    for name, body in found.items():
        fields = []
        for declaration in filter(None, (each.strip() for each in body.split(";"))):
            kind, names = re.fullmatch(r"((?:const )?(?:unsigned char|long long|\w+)\*?)\s+(.*)", declaration).groups()
            for field in names.split(", "):
                size = re.search(r"\[(\d+)\]", field)
                fields.append((field.split("[")[0], c_char * int(size[1]) if size else inside[kind]))
        assert fields == STRUCTS[name]._fields_, name
    for struct, shown in ((_library.OutcomeStruct, passbook.Outcome), (_library.MeaningStruct, passbook.Meaning)):
        assert {name for name, _ in struct._fields_} - {"size"} == set(shown.__dataclass_fields__)


def test_callbacks_and_version():
    for result, name, parameters in re.findall(r"typedef (\w+) \(\*(\w+)\)\(([^)]*)\);", HEADER):
        kind = KINDS[name]
        assert (kind._restype_, list(kind._argtypes_)) == (KINDS[result], [KINDS[k] for k, _ in declared(parameters)])
    assert f'#define PASSBOOK_VERSION "{passbook.__version__}"' in HEADER
    assert passbook.passbook_version() == passbook.__version__
    # Who installs with setuptools and who installs with CMake get the same plugin.
    package = Path(__file__).parents[2] / "python"
    plugins = tomllib.loads((package / "pyproject.toml").read_text())["project"]["entry-points"]["pytest11"]
    installed = configparser.ConfigParser()
    installed.read(package / "entry_points.txt")
    assert dict(installed["pytest11"]) == plugins
