"""Runs clang-format or clang-tidy over the project's files.

  clang_tools.py format ROOT PROGRAM                the form of every C and C++ file
  clang_tools.py tidy ROOT PROGRAM BUILD [FILE...]  the checks of .clang-tidy over the library and
                                                    the tools, as compiled in BUILD, or over FILEs

A file that clang-tidy found clean is not looked at again until it, a header, its options or the
checks change.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys

from project_files import is_source, project_files

# Options of the other compiler that this one does not know.
UNKNOWN_OPTIONS = ("-fnon-call-exceptions", "-mstringop-strategy", "-fno-keep-inline-dllexport")


def format_files(root, program):
    files = [str(path) for path in project_files(root)
             if is_source(path) and path.suffix != ".S"]
    return subprocess.run([program, "--dry-run", "--Werror", *files], cwd=root).returncode == 0


def commands(root, build):
    """For each file of the library and the tools the compiler's options, without what is made."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["file"])
        if not path.is_relative_to(root) or path.suffix != ".cpp":
            continue
        name = path.relative_to(root).as_posix()
        if name.startswith(("tests/", "bench/", "fuzz/", "cmake/")):
            continue
        options = shlex.split(entry["command"])[1:]
        options = [o for o in options if not o.startswith(UNKNOWN_OPTIONS)]
        found[path] = options[:options.index("-o")]
    return found


def shared_state(root):
    """What the verdict on every file depends on: the checks and all headers."""
    state = hashlib.sha256((root / ".clang-tidy").read_bytes())
    for path in project_files(root):
        if path.suffix in (".h", ".hpp"):
            state.update(str(path).encode() + b"\0" + (root / path).read_bytes())
    return state


def tidy_files(root, program, build, only):
    work = commands(root, build)
    if only:
        options = next(iter(work.values()))
        work = {root / name: options for name in only}
    shared, clean = shared_state(root), build / "tidy-clean"
    clean.mkdir(exist_ok=True)

    def tidy(item):
        path, options = item
        key = shared.copy()
        key.update("\0".join([str(path), *options]).encode() + path.read_bytes())
        stamp = clean / key.hexdigest()
        if stamp.exists():
            return True, ""
        result = subprocess.run([program, "--quiet", str(path), "--", *options], text=True,
                                capture_output=True)
        if result.returncode == 0:
            stamp.touch()
        return result.returncode == 0, result.stdout or result.stderr

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(tidy, work.items()))
    for good, output in results:
        if not good:
            print(output)
    print(f"{len(work)} files")
    return bool(work) and all(good for good, _ in results)


def main():
    mode, root, program, *rest = sys.argv[1:]
    root = pathlib.Path(root).resolve()
    if mode == "format":
        good = format_files(root, program)
    else:
        good = tidy_files(root, program, pathlib.Path(rest[0]), rest[1:])
    sys.exit(0 if good else 1)


main()
