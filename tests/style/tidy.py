"""Checks the project's files against the rules of rules.py, quirks.py and texts.py.

  tidy.py ROOT           every file of the project; exit code 1 if a rule is broken
  tidy.py ROOT --self    the samples: each must break the rules that it expects, and no other
"""
import pathlib
import re
import sys

import quirks
import texts
from project_files import SAMPLES, is_script, is_source, project_files
from rules import RULES, File


def load(root, path, name):
    kind = "source" if is_source(path) else "script" if is_script(path) else "other"
    return File(name, (root / path).read_text(encoding="utf-8"), kind)


def broken_rules(file):
    return [found for rule in RULES for found in rule(file)]


def check_project(root):
    paths = project_files(root)
    files = [load(root, path, str(path)) for path in paths if is_source(path) or is_script(path)]
    problems = [(file.name, *found) for file in files for found in broken_rules(file)]
    for rule in (quirks, texts):
        text = root / rule.DOCUMENT
        problems += rule.check(files, text.read_text(encoding="utf-8") if text.exists() else "")
    for name, line, rule, message in problems:
        print(f"{name}:{line}: {rule}: {message}")
    print(f"{len(files)} files, {len(problems)} problems")
    return not problems


def check_samples(root):
    """A sample stands for a file of the library; its lines "expect: RULE" say what it breaks."""
    good = True
    folder = root / SAMPLES
    samples = [load(root, path.relative_to(root), f"vdreader/src/{path.name}")
               for path in sorted(folder.glob("*.cpp"))]
    for file in samples:
        wanted = sorted(re.findall(r"expect: ([\w-]+)", file.text))
        found = sorted(rule for _, rule, _ in broken_rules(file))
        if wanted != found:
            print(f"{file.name}: expected {wanted}, found {found}")
            good = False

    test = File("tests/vdreader/sample_test.cpp", "TEST(Sample, Explained) {}\n", "source")
    table = (folder / "quirks.md").read_text(encoding="utf-8")
    found = [f"{name}:{line}: {message}"
             for name, line, _, message in quirks.check([*samples, test], table)]
    wanted = (folder / "quirks.expected").read_text(encoding="utf-8").splitlines()
    if wanted != found:
        print("quirks.md: found", *found, sep="\n  ")
        good = False

    table = (folder / "texts.md").read_text(encoding="utf-8")
    speaking = [file for file in samples if file.name.endswith("/texts.cpp")]
    found = [f"{name}:{line}: {message}" for name, line, _, message in texts.check(speaking, table)]
    wanted = (folder / "texts.expected").read_text(encoding="utf-8").splitlines()
    if wanted != found:
        print("texts.md: found", *found, sep="\n  ")
        good = False
    print(f"{len(samples)} samples")
    return good and bool(samples)


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    good = check_samples(root) if "--self" in sys.argv[2:] else check_project(root)
    sys.exit(0 if good else 1)


main()
