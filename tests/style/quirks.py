"""Behaviour that looks wrong and is meant: comments "Deliberate:", docs/quirks.md and the tests.

docs/quirks.md holds tables.  Each row names in backticks the files whose "Deliberate:" comments it
explains, and in its last column, in backticks, one test or more as `Suite.Name`.
"""
import collections
import re

DOCUMENT = "docs/quirks.md"
MARK = re.compile(r"(//|/\*|\*|#)\s*Deliberate:")
TEST = re.compile(r"\bTEST(?:_[FP])?\(\s*(\w+)\s*,\s*(\w+)\s*\)")
CTEST = re.compile(r"\badd_test\(NAME (\w+)\.(\w+)")


def rows(text):
    """(line number, cells) of each table row that is not a head or a rule."""
    lines = text.split("\n")
    for number, line in enumerate(lines, 1):
        if not line.startswith("|") or re.fullmatch(r"[|\s:-]+", line):
            continue
        if number < len(lines) and re.fullmatch(r"\|[|\s:-]+", lines[number]):
            continue
        cells = re.split(r"(?<!\\)\|", line.strip().strip("|"))
        yield number, [cell.strip() for cell in cells]


def check(files, quirks_text):
    """Yields (file, line, rule, message) for what the three do not say alike."""
    tests, marks = set(), collections.Counter()
    for file in files:
        if file.name.startswith("tests/"):
            tests.update(".".join(found) for found in TEST.findall(file.text))
            tests.update(".".join(found) for found in CTEST.findall(file.text))
        elif file.kind == "source":
            marks[file.name] += len(MARK.findall(file.text))
    names = {file.name for file in files}
    explained = collections.Counter()
    for number, cells in rows(quirks_text):
        row_tests = re.findall(r"`(\w+\.\w+)`", cells[-1])
        if not row_tests:
            yield DOCUMENT, number, "quirk", "the last column names no test as `Suite.Name`"
        for test in row_tests:
            if test not in tests:
                yield DOCUMENT, number, "quirk", f"there is no test {test}"
        for path in re.findall(r"`([\w./-]+/[\w.-]+\.\w+)`", " ".join(cells[:-1])):
            explained[path] += 1
            if path not in names:
                yield DOCUMENT, number, "quirk", f"there is no file {path}"
    for name, count in sorted(marks.items()):
        if count > explained[name]:
            yield (name, 1, "quirk",
                   f"{count} \"Deliberate:\" comments, {explained[name]} rows in {DOCUMENT}")
