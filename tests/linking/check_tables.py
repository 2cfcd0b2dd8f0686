"""Compares the dynamic symbol tables of the library and of the stub that hosts link.

The stub has the soname of the library and the same names, of the same kind and version.  A name
that the C library has as well is hidden in the stub, so that linkers pass over it.  The stub needs
nothing and cannot be loaded with dlopen.  In the library no name of its own is left to be looked
up, so nothing outside can take its place.
"""
import argparse
import re
import subprocess
import sys

VERSION_NODE = "VDREADER_1"
# As nm shows them: what a linker does with a name depends on these, not on its being weak.
KINDS = {"T": "function", "W": "function", "V": "object", "D": "object", "B": "object",
         "R": "object"}


def run(*command):
    return subprocess.run(command, text=True, check=True, capture_output=True).stdout


class Table:
    """The names that a shared object defines, each with its kind and version."""

    def __init__(self, file, tools):
        self.kinds, self.default, self.hidden = {}, set(), set()
        for line in run(tools.nm, "-D", "--defined-only", file).splitlines():
            _, kind, symbol = line.split(maxsplit=2)
            name, at, version = symbol.partition("@")
            if kind == "A":
                continue
            self.kinds[name] = KINDS.get(kind, kind)
            if at and version.lstrip("@") == VERSION_NODE:
                (self.default if version.startswith("@") else self.hidden).add(name)
        dynamic = run(tools.readelf, "-dW", file)
        self.soname = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
        self.needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
        self.loadable = not re.search(r"\(FLAGS_1\).*NOOPEN", dynamic)


def names_of(file, tools):
    lines = run(tools.nm, "-D", "--defined-only", file).splitlines()
    return {line.split()[-1].partition("@")[0] for line in lines}


def looked_up(file, tools):
    """Names that the loader looks up for the object itself: undefined, or in a relocation."""
    names = {line.split()[-1] for line in run(tools.nm, "-D", "-u", file).splitlines()}
    for line in run(tools.readelf, "-rW", file).splitlines():
        fields = line.split()
        if len(fields) >= 5 and re.fullmatch(r"[0-9a-f]{8,}", fields[0]):
            names.add(fields[4])
    return {name.partition("@")[0] for name in names}


def stub_problems(library, stub, foreign):
    for name in sorted(library.kinds.keys() - stub.kinds.keys()):
        yield f"the library has, the stub lacks: {name}"
    for name in sorted(stub.kinds.keys() - library.kinds.keys()):
        yield f"the stub has, the library lacks: {name}"
    for name in sorted(stub.kinds.keys() & library.kinds.keys()):
        if stub.kinds[name] != library.kinds[name]:
            yield f"{name}: {stub.kinds[name]} in the stub, {library.kinds[name]} in the library"
    for name in sorted(stub.kinds):
        if name in foreign and name not in stub.hidden:
            yield f"{name}: a name of the C library that is not hidden in the stub"
        if name not in foreign and name not in stub.default:
            yield f"{name}: not the default of {VERSION_NODE} in the stub"
    if stub.soname != library.soname or len(stub.soname) != 1:
        yield f"sonames {stub.soname} and {library.soname}"
    if stub.loadable:
        yield "the stub can be loaded with dlopen"
    if stub.needed:
        yield f"the stub needs {', '.join(stub.needed)}"


def library_problems(library, own):
    for name in sorted(library.kinds.keys() - library.default):
        yield f"{name}: not the default of {VERSION_NODE} in the library"
    for name in sorted(library.kinds.keys() & own):
        yield f"{name}: looked up by the library itself"


def main():
    parser = argparse.ArgumentParser()
    for option in ("nm", "readelf", "c-library", "library", "stub"):
        parser.add_argument("--" + option, required=True)
    tools = parser.parse_args()
    library, stub = Table(tools.library, tools), Table(tools.stub, tools)
    problems = [*stub_problems(library, stub, names_of(tools.c_library, tools)),
                *library_problems(library, looked_up(tools.library, tools))]
    print(*problems, sep="\n")
    print(f"{len(stub.kinds)} names in the stub, hidden: {' '.join(sorted(stub.hidden)) or 'none'}")
    sys.exit(1 if problems else 0)


main()
