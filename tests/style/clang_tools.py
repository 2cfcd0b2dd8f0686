"""Runs clang-format or clang-tidy over the project's files.

  clang_tools.py format ROOT PROGRAM                the form of every C and C++ file
  clang_tools.py tidy ROOT PROGRAM BUILD [FILE...]  the checks of .clang-tidy over the library and
                                                    the tools, as compiled in BUILD, or over FILEs

A file that clang-tidy found clean is not looked at again until it, a header, its options or the
checks change.  Files of one folder are looked at together, since most of the time goes into the
headers that they share; where that finds anything, or they do not go together, each by itself.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile

from project_files import is_source, project_files

# Where the analyzer stops following a function; its own limit costs three times as much.
LIMIT = ("-Xclang", "-analyzer-config", "-Xclang", "max-nodes=50000")
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
        output = options.index("-o")
        # A test that compiles it as well puts the headers of tests before it.
        if not options[output + 1].startswith("tests/"):
            found[path] = options[:output]
    return found


def together(paths, options):
    """Groups of files that lie in one folder and are compiled alike."""
    most = 8
    groups = []
    for path in paths:
        last = groups[-1] if groups else []
        if last and len(last) < most and last[0].parent == path.parent and \
                options[last[0]] == options[path]:
            last.append(path)
        else:
            groups.append([path])
    return groups


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

    def stamp(path):
        key = shared.copy()
        key.update("\0".join([str(path), *work[path]]).encode() + path.read_bytes())
        return clean / key.hexdigest()

    def run(path, options):
        return subprocess.run([program, "--quiet", str(path), "--", *options, *LIMIT], text=True,
                              capture_output=True)

    def tidy_one(path):
        result = run(path, work[path])
        if result.returncode == 0:
            stamp(path).touch()
        return result.returncode == 0, result.stdout or result.stderr

    def tidy_together(paths):
        """Whether nothing was found in the files, one behind the other as one source."""
        folder = paths[0].parent
        with tempfile.NamedTemporaryFile("w", suffix=".cpp") as source:
            for path in paths:
                source.write(path.read_text() + "\n")
            source.flush()
            result = run(source.name, ["-iquote", str(folder), *work[paths[0]]])
        if result.returncode == 0:
            for path in paths:
                stamp(path).touch()
        return result.returncode == 0

    def tidy(paths):
        if len(paths) > 1 and tidy_together(paths):
            return [(True, "")]
        return [tidy_one(path) for path in paths]

    unseen = [path for path in work if not stamp(path).exists()]
    groups = together(sorted(unseen, key=lambda path: (path.parent, path)), work)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = [result for group in pool.map(tidy, groups) for result in group]
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
