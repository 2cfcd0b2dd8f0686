"""Compares what the library says it exports with what it exports.

Four accounts must agree: the names marked in the public headers, the list of exports, the file for
the linker that is made from it, and the symbol table of the binary, which holds nothing else.
Names that the interface has but this version lacks stand in a list of their own and must not be
exported.
"""
import argparse
import collections
import pathlib
import re
import subprocess
import sys

VERSION_NODE = "VDREADER_1"
IDENTIFIER = r"[A-Za-z_]\w*"


def fail(problems):
    for problem in problems:
        print(problem)
    sys.exit(1 if problems else 0)


def without_comments(text):
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    text = re.sub(r"//[^\n]*", " ", text)
    return re.sub(r"^[ \t]*#.*$", " ", text, flags=re.M)


def read_lines(path):
    lines = (line.strip() for line in path.read_text().splitlines())
    return [line for line in lines if line and not line.startswith("#")]


def read_list(path):
    """The C names of an exports list, the mangled names, and the same as Windows has them."""
    c_names, mangled, on_windows = [], [], []
    for line in read_lines(path):
        match = re.fullmatch(rf"(?:({IDENTIFIER})|c\+\+ ({IDENTIFIER})( {IDENTIFIER})?)", line)
        if not match:
            fail([f"{path.name}: not a name: {line}"])
        if match[1]:
            c_names.append(match[1])
        else:
            mangled.append(match[2])
            on_windows.append((match[3] or match[2]).strip())
    return c_names, mangled, on_windows


def header_functions(folder):
    names = []
    for header in sorted(folder.glob("*.h")):
        if header.name == "export.h":
            continue
        for declaration in without_comments(header.read_text()).split(";"):
            if "VDREADER_API" in declaration:
                marked = declaration.split("VDREADER_API", 1)[1]
                names.append(re.search(rf"({IDENTIFIER})\s*\(", marked)[1])
    return names


PLAIN_TYPES = {"std::int32_t": "int", "std::uint32_t": "unsigned int",
               "std::uint64_t": "unsigned long", "std::size_t": "unsigned long"}


def plain_type(parameter):
    """A parameter as the demangler writes its type on Linux: no name, const behind its type."""
    parameter = re.sub(r"([&*\s])\s*" + IDENTIFIER + "$", r"\1", parameter.strip()).strip()
    parameter = re.sub(r"std::\w+", lambda name: PLAIN_TYPES[name[0]], parameter)
    return re.sub(rf"^const ({IDENTIFIER})\s*([&*])", r"\1 const\2", parameter)


def member_symbols(declaration, scope, own):
    """The signature in a declaration, and how many symbols it has."""
    match = re.search(rf"(operator\s*(?:=|(?:new|delete)(?:\[\])?)|~?{IDENTIFIER})\s*\((.*?)\)"
                      r"\s*(const)?", declaration, re.S)
    parameters = [plain_type(p) for p in match[2].split(",") if p.strip()]
    types = ", ".join(re.sub(rf"\b{own}\b", "::".join(filter(None, scope)), p)
                      for p in parameters)
    name = "::".join([*filter(None, scope), match[1]])
    symbols = 1
    if match[1] in (own, "~" + own):
        is_virtual = match[1].startswith("~") and re.search(r"\b(virtual|override)\b", declaration)
        symbols = 3 if is_virtual else 2
    return f"{name}({types}){' const' if match[3] else ''}", symbols


def mark_members(text, template):
    """The text with each member of a class template marked that has code of its own."""
    found = re.search(rf"class {template}\s*{{\s*public:(.*?)\n}};", text, re.S)
    marked = [re.sub(r"^\s*", " VDREADER_MEMBER ", member)
              if "(" in member and "= default" not in member else member
              for member in found[1].split(";")]
    return text[:found.start(1)] + ";".join(marked) + text[found.end(1):]


def header_members(header):
    """Signatures of the marked members, with one entry for each symbol that they have.  A template
    stands for the instance that is marked."""
    members = collections.Counter()
    scope = []
    text = without_comments(header.read_text())
    instances = dict(re.findall(
        rf"extern template class VDREADER_MEMBER ({IDENTIFIER})(<[^>]*>)\s*;", text))
    for template in instances:
        text = mark_members(text, template)
    text = re.sub(r"extern template class [^;]*;", "", text)
    tokens = re.findall(r"namespace\s+[\w:]+(?=\s*{)|(?:struct|class)\s+\w+(?=[^;{}()<>]*{)|"
                        r"(?:struct|class)\s+\w+(?=\s*:[^;{}]*{)|[{}]|VDREADER_MEMBER[^;]*;", text)
    pending = None
    for token in tokens:
        if token.startswith(("namespace", "struct", "class")):
            pending = token.split()[1]
        elif token == "{":
            scope.append(pending)
            pending = None
        elif token == "}":
            scope.pop()
        else:
            own = scope[-1]
            named = [name and name + instances.get(name, "") for name in scope]
            signature, symbols = member_symbols(token, named, own)
            members[signature] += symbols
    return members


def demangle(names):
    if not names:
        return []
    result = subprocess.run(["c++filt"], input="\n".join(names), text=True, check=True,
                            capture_output=True)
    return result.stdout.splitlines()


def elf_exports(binary, tool):
    """Names of the dynamic symbol table; problems of version and kind beside them."""
    output = subprocess.run([tool, "-D", "--defined-only", binary], text=True, check=True,
                            capture_output=True).stdout
    names, problems = [], []
    for line in output.splitlines():
        _, kind, symbol = line.split(maxsplit=2)
        if symbol == VERSION_NODE and kind == "A":
            continue
        name, _, version = symbol.partition("@@")
        if version != VERSION_NODE:
            problems.append(f"{name}: version is '{version}' and not {VERSION_NODE}")
        # Members of a template's instance are weak.
        if kind != "T" and not (kind == "W" and re.match(r"_ZN.*I.*E", name)):
            problems.append(f"{name}: symbol kind {kind} and not T")
        names.append(name)
    return names, problems


def pe_exports(binary, tool):
    """Names of the export table."""
    output = subprocess.run([tool, "-p", binary], text=True, check=True,
                            capture_output=True).stdout
    table = output.split("[Ordinal/Name Pointer] Table", 1)[1]
    names = []
    for line in table.splitlines()[1:]:
        match = re.match(r"\s*\[\s*\d+\](?: \+base\[\s*\d+\])?\s+(?:[0-9a-f]{4}\s+)?(\S+)$", line)
        if not match:
            break
        names.append(match[1])
    return names, []


def linker_names(path, elf):
    text = path.read_text()
    if not elf:
        return text.split("EXPORTS", 1)[1].split()
    body = re.fullmatch(rf"{VERSION_NODE} {{\s*global:(.*)local:\s*\*;\s*}};\s*", text, re.S)
    return [name.strip() for name in body[1].split(";") if name.strip()] if body else []


def difference(what, wanted, found):
    wanted, found = collections.Counter(wanted), collections.Counter(found)
    return ([f"{what}: missing {name}" for name in sorted((wanted - found).elements())] +
            [f"{what}: unexpected {name}" for name in sorted((found - wanted).elements())])


def main():
    parser = argparse.ArgumentParser()
    for option in ("headers", "list", "binary", "linker-file"):
        parser.add_argument("--" + option, type=pathlib.Path, required=True)
    parser.add_argument("--nm")
    parser.add_argument("--objdump")
    arguments = parser.parse_args()
    elf = arguments.nm is not None

    c_names, mangled, on_windows = read_list(arguments.list)
    read = elf_exports if elf else pe_exports
    exported, problems = read(arguments.binary, arguments.nm or arguments.objdump)
    problems += difference("C names: list against headers", header_functions(arguments.headers),
                           c_names)
    marked = sum((header_members(header) for header in sorted(arguments.headers.glob("*.hpp"))),
                 collections.Counter())
    problems += difference("members: list against headers", marked, demangle(mangled))
    problems += difference("file for the linker", c_names + (mangled if elf else []),
                           linker_names(arguments.linker_file, elf))
    problems += difference("exported", c_names + (mangled if elf else on_windows), exported)
    if not problems:
        print(f"{len(exported)} names agree")
    fail(problems)


main()
