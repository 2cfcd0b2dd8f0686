"""The rules of tidy.py: each takes a File and yields (line number, rule, message)."""
import re

# Folders that may use the platform directly.
PLATFORM_FOLDERS = ("platform/", "tests/", "tools/", "bench/", "fuzz/", "examples/")
# The one public header that must know the compiler's target.
EXPORT_HEADER = "include/vdreader/export.h"

COLUMNS = 100
FILE_LINES = 500
FUNCTION_LINES = 60

PLATFORM_HEADER = re.compile(
    r"^\s*#\s*include\s*<((sys|linux|netinet|arpa|asm|mach)/\S+|"
    r"(windows|winsock2?|winternl|ws2tcpip|dbghelp|psapi|tlhelp32|io|direct|process|share|conio|"
    r"unistd|dlfcn|pthread|signal|fcntl|semaphore|ucontext|poll|spawn|link|elf|termios|sched|"
    r"dirent|csignal|excpt|malloc)(\.h)?)>", re.I)
PLATFORM_CONDITIONAL = re.compile(
    r"^\s*#\s*(?:el)?if.*\b(_WIN32|_WIN64|WIN32|__linux__|__linux|__unix__|__MINGW\w+|_MSC_VER|"
    r"__APPLE__|_POSIX_\w+|__GLIBC__)\b")

# Call, folders that may use it, what stands in its place.
BANNED_CALLS = [
    (r"v?sprintf", (), "std::snprintf, which knows the size"),
    (r"str(n?cpy|n?cat)", (), "std::memcpy with a length that was checked, or std::string"),
    (r"gets", (), "std::fgets or std::getline"),
    (r"strtok", (), "std::string_view::find"),
    (r"ato(i|l|ll|f)", ("libn/",), "std::from_chars, which tells about errors"),
    (r"(v?f|v?s|v)?scanf", (), "std::from_chars"),
    (r"s?rand", (), "an engine of <random> with a seed of its own"),
    (r"(local|gm)time|ctime|asctime", (), "the clock of platform/, which has no shared buffer"),
    (r"tmpnam|tempnam|mktemp", (), "a folder of the process's own"),
    (r"system", ("tests/",), "a child process through platform/"),
    (r"alloca", (), "a buffer of fixed size or std::vector"),
    (r"(sig)?(set|long)jmp", ("platform/",), "an exception"),
    (r"usleep|sleep", (), "a wait for what is waited for"),
]
BANNED_CALLS = [(re.compile(rf"(?<![\w.>:])(?:std::|::)?(?:{call})\s*\("), folders, instead)
                for call, folders, instead in BANNED_CALLS]
BANNED_WORDS = [
    (re.compile(r"\.\s*detach\s*\("), "a thread that is joined"),
    (re.compile(r"\bstd::endl\b"), r"'\n', and a flush where it is meant"),
    (re.compile(r"\bNULL\b"), "nullptr"),
    (re.compile(r"\busing namespace std\s*;"), "the names that are used"),
    (re.compile(r"\b(auto_ptr|bind1st|bind2nd)\b"), "what replaced it in the language"),
]

TODO = re.compile(r"\b(TODO|FIXME|XXX)\b")
OWNED_TODO = re.compile(r"\b(TODO|FIXME)\(\w[\w.-]*\): \S")
FIRST_COMMENT = re.compile(r'^(//|/\*|#(?!include|pragma|if|define)|""")')
NOT_A_FUNCTION = re.compile(
    r"^\s*(namespace|class|struct|union|enum|extern|if|for|while|switch|else|do|try|catch|return|"
    r"case|default|using|typedef|\}|#|constexpr \w+ \w+\[)")


class File:
    """A file's lines, and for C and C++ the same lines without comments and texts."""

    def __init__(self, name, text, kind):
        self.name = name
        self.text = text
        self.kind = kind
        self.lines = text.split("\n")
        self.code = blank_comments(text).split("\n") if kind == "source" else self.lines


def blank_comments(text):
    """Comments and literals become blanks; line ends stay."""
    pattern = re.compile(
        r'//(?:\\\n|[^\n])*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|'
        r"(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'", re.S)

    def blank(match):
        found = match.group(0)
        if found.startswith('"') and re.search(r'#\s*include\s*$', text[:match.start()][-40:]):
            return found
        return re.sub(r"[^\n]", " ", found)

    return pattern.sub(blank, text)


def layout(file):
    for number, line in enumerate(file.lines, 1):
        if len(line) > COLUMNS:
            yield number, "columns", f"{len(line)} columns, at most {COLUMNS}"
        if line != line.rstrip():
            yield number, "blanks", "blanks at the end of the line"
        if "\t" in line:
            yield number, "blanks", "a tab, where blanks are used"
    if file.text and not file.text.endswith("\n"):
        yield len(file.lines), "blanks", "no line end at the end of the file"
    if len(file.lines) - 1 > FILE_LINES:
        yield 1, "file-length", f"{len(file.lines) - 1} lines, at most {FILE_LINES}"


def head(file):
    """A file opens with what it owns; that of a test is in its name."""
    if file.kind != "source" or file.name.startswith("tests/"):
        return
    if not FIRST_COMMENT.match(file.lines[0]):
        yield 1, "head", "opens without a comment that says what the file owns"


def platform(file):
    if file.kind != "source" or file.name.startswith(PLATFORM_FOLDERS):
        return
    for number, line in enumerate(file.code, 1):
        found = PLATFORM_HEADER.match(line)
        if found:
            yield number, "platform-header", f"<{found[1]}> belongs below platform/"
        found = PLATFORM_CONDITIONAL.match(line)
        if found and file.name != EXPORT_HEADER:
            yield number, "platform-conditional", f"{found[1]}: the difference belongs in platform/"


def banned(file):
    if file.kind != "source":
        return
    for number, line in enumerate(file.code, 1):
        for call, folders, instead in BANNED_CALLS:
            found = call.search(line)
            if found and not (folders and file.name.startswith(folders)):
                yield number, "banned-call", f"{found[0].strip('( ')}: use {instead}"
        for word, instead in BANNED_WORDS:
            found = word.search(line)
            if found and not (found[0] == "NULL" and file.name.endswith((".c", ".h"))):
                yield number, "banned-word", f"{found[0].strip()}: use {instead}"


def todo(file):
    if file.name.startswith("tests/style/"):
        return
    for number, line in enumerate(file.lines, 1):
        if TODO.search(line) and not OWNED_TODO.search(line):
            yield number, "todo", "an open end without an owner: TODO(name): what"


def function_length(file):
    """From the line that opens a body to the closing brace in the same column."""
    if file.kind != "source":
        return
    opened = None
    for number, line in enumerate(file.code, 1):
        indent = len(line) - len(line.lstrip())
        if opened is None:
            if line.rstrip().endswith("{") and indent <= 4 and not NOT_A_FUNCTION.match(line):
                opened = (number, indent)
        elif line.startswith(" " * opened[1] + "}"):
            length = number - opened[0] + 1
            if length > FUNCTION_LINES:
                yield (opened[0], "function-length",
                       f"{length} lines, at most {FUNCTION_LINES}")
            opened = None


RULES = [layout, head, platform, banned, todo, function_length]
