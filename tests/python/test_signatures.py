"""What stands in Python, C# and Java is what stands in passbook.h: functions, structs, enums and callbacks."""

import configparser
import enum
import inspect
import re
import shutil
import subprocess
import tomllib
from ctypes import POINTER, c_bool, c_char, c_char_p, c_double, c_int, c_longlong, c_ubyte, c_uint, c_void_p
from pathlib import Path

import passbook
import pytest
from passbook import _library

ROOT = Path(__file__).parents[2]
HEADER = re.sub(r"/\*.*?\*/", "", (ROOT / "api/passbook.h").read_text(), flags=re.S)
FUNCTIONS = re.findall(r"PASSBOOK_API\s+(.*?)\s*(\w+)\(([^)]*)\);", HEADER)
CALLBACKS = re.findall(r"typedef (\w+) \(\*(\w+)\)\(([^)]*)\);", HEADER)
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
    assert {name for _, name, _ in FUNCTIONS} == set(_library.PROTOTYPES) and len(FUNCTIONS) > 40
    for result, name, parameters in FUNCTIONS:
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


def fields(body):
    """The kinds, names and array sizes (0: none) of a struct."""
    for declaration in filter(None, (each.strip() for each in body.split(";"))):
        kind, names = re.fullmatch(r"((?:const )?(?:unsigned char|long long|\w+)\*?)\s+(.*)", declaration).groups()
        for name, size in re.findall(r"(\w+)(?:\[(\d+)\])?(?:,|$)", names):
            yield kind, name, int(size or 0)


def test_structs():
    found = dict(re.findall(r"struct (\w+) \{(.*?)\};", HEADER, re.S))
    assert set(found) == set(STRUCTS)
    # A pointer to bytes that are no string is one to numbers within a struct.
    inside = {**KINDS, "const unsigned char*": POINTER(c_ubyte)}
    for name, body in found.items():
        wanted = [(field, c_char * size if size else inside[kind]) for kind, field, size in fields(body)]
        assert wanted == STRUCTS[name]._fields_, name
    for struct, shown in ((_library.OutcomeStruct, passbook.Outcome), (_library.MeaningStruct, passbook.Meaning)):
        assert {name for name, _ in struct._fields_} - {"size"} == set(shown.__dataclass_fields__)


def camel(name):
    return "".join(each.capitalize() for each in name.split("_"))


SAME = {"int": "int", "long long": "long", "double": "double", "void": "void", "const unsigned char*": "byte[]"}
SAME.update((name, camel(name)) for _, name, _ in CALLBACKS)
TEXT, BOOL = "[MarshalAs(UnmanagedType.LPUTF8Str)] string", "[MarshalAs(UnmanagedType.I1)] bool"
LANGUAGES = {  # compiler, kinds, kinds as a result and in a struct, struct by pointer and itself, array, callback
    "csharp/Passbook.cs": (
        ["mcs", "-target:library", "-out:Passbook.dll"],
        {**SAME, "unsigned": "uint", "bool": BOOL, "void*": "IntPtr", "const char*": TEXT, "char*": "[Out] byte[]"},
        dict.fromkeys(("const char*", "const unsigned char*", "const struct passbook_meaning*"), "IntPtr"),
        "ref {}",
        "struct {}",
        "[MarshalAs(UnmanagedType.ByValArray, SizeConst = {1})] public byte[] {0};",
        "{}",
    ),
    "java/Passbook.java": (
        ["javac", "-d", ".", "-cp", "/usr/share/java/jna.jar"],
        {**SAME, "unsigned": "int", "bool": "byte", "void*": "Pointer", "const char*": "String", "char*": "byte[]"},
        {"const unsigned char*": "Pointer"},
        "{}",
        "class {} extends Structure",
        "public byte[] {0} = new byte[{1}];",
        "invoke",
    ),
}


@pytest.mark.parametrize("file", LANGUAGES)
def test_other_languages(file, tmp_path):
    compiler, kinds, inside, by_pointer, struct, array, callback = LANGUAGES[file]
    kinds = {**kinds, "unsigned char*": kinds["char*"]}
    for name in STRUCTS:
        kinds[f"struct {name}*"] = kinds[f"const struct {name}*"] = by_pointer.format(camel(name))
    inside = {**kinds, **inside}
    text = re.sub(r"//[^\n]*|/\*.*?\*/|@(?=\w+[,)])", "", (ROOT / "examples" / file).read_text(), flags=re.S)
    text = re.sub(r"\( ", "(", re.sub(r"\s+", " ", text))
    wanted = []
    for struct_name, body in re.findall(r"struct (\w+) \{(.*?)\};", HEADER, re.S):
        shown = [array.format(name, n) if n else f"public {inside[kind]} {name};" for kind, name, n in fields(body)]
        wanted.append(f"{struct.format(camel(struct_name))} {{ {' '.join(shown)} ")
    for result, name, parameters in FUNCTIONS + [(r, callback.format(camel(n)), p) for r, n, p in CALLBACKS]:
        shown = ", ".join(f"{kinds[kind]} {each}" for kind, each in declared(parameters))
        wanted.append(f" {inside[result]} {name}({shown});")
    assert [each for each in wanted if each not in text] == []
    assert re.findall(r"PASSBOOK_\w+ = -?\d+", text) == re.findall(r"PASSBOOK_\w+ = -?\d+", HEADER)
    if not shutil.which(compiler[0]) or (compiler[0] == "javac" and not Path(compiler[-1]).exists()):
        pytest.skip(f"declared, but not compiled: there is no {compiler[0]}, or no JNA")
    subprocess.run([*compiler, ROOT / "examples" / file], cwd=tmp_path, check=True)


def test_callbacks_and_version():
    for result, name, parameters in CALLBACKS:
        kind = KINDS[name]
        assert (kind._restype_, list(kind._argtypes_)) == (KINDS[result], [KINDS[k] for k, _ in declared(parameters)])
    assert f'#define PASSBOOK_VERSION "{passbook.__version__}"' in HEADER
    assert passbook.passbook_version() == passbook.__version__
    # Who installs with setuptools and who installs with CMake get the same plugin.
    package = ROOT / "python"
    plugins = tomllib.loads((package / "pyproject.toml").read_text())["project"]["entry-points"]["pytest11"]
    installed = configparser.ConfigParser()
    installed.read(package / "entry_points.txt")
    assert dict(installed["pytest11"]) == plugins
