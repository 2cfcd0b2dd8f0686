"""The texts of the library and the tables of docs/logs.md, which explain them.

Every text in the code, that is every string with a blank and a word in it, stands in a table, and
every text of a table stands in the code.  Conversions of a format and words in braces are values.
"""
import re

DOCUMENT = "docs/logs.md"
FOLDERS = ("Common/", "libn/", "libnEx/", "diagnostics/", "dwdata/", "vdreader/", "platform/",
           "include/")
TOKEN = re.compile(r"//[^\n]*|/\*.*?\*/|'(?:\\.|[^'\\\n])+'|\"(?:\\.|[^\"\\\n])*\"", re.S)
CONVERSION = re.compile(r"%[-+ #0]*[\d*]*(?:\.[\d*]+)?(?:hh|h|ll|l|z|I64|I32|I)?[a-zA-Z]")
VALUE = re.compile(r"\{\w+\}")
# Strings that nobody reads: formats of dates and numbers, sets of characters, assembler.
NOT_TEXTS = re.compile(r"[-+ #'.hljztqL]+|(?:xchgl|movq|jmp) .*|%b %y \(%a\)|[ %\d:.d\\n]+|"
                       r"Debugging Tools for Windows.*|\(anonymous namespace\)")


def literals(source):
    """Adjacent strings as one, without those of includes and static assertions."""
    found, end = [], -1
    for token in TOKEN.finditer(source):
        if not token[0].startswith('"'):
            continue
        line_start = source.rfind("\n", 0, token.start()) + 1
        if source[line_start:token.start()].lstrip().startswith(("#include", "#pragma", "extern")):
            continue
        if "static_assert" in source[source.rfind(";", 0, token.start()) + 1:token.start()]:
            continue
        text = token[0][1:-1]
        if found and end >= 0 and not source[end:token.start()].strip():
            found[-1] += text
        else:
            found.append(text)
        end = token.end()
    return [text.replace('\\"', '"').replace("\\\\", "\\").replace("\\n", "") for text in found]


def pieces(text, value):
    return [piece for piece in value.split(text) if re.search(r"\w", piece)]


def explains(text, literal):
    """Whether a text of the tables is the literal, has it for a piece, or is it with its values."""
    shape = CONVERSION.sub("\0", literal).strip("\0 ")
    if shape == VALUE.sub("\0", text).strip("\0 "):
        return True
    if "\0" not in shape:
        whole = [piece.strip() for piece in VALUE.split(text)]
        if any(piece == shape or piece.startswith(shape.rstrip(":") + ":") for piece in whole):
            return len(whole) > 1 or whole[0] in (shape, shape.rstrip(":") + ":")
    words = r"\w+".join(re.escape(piece) for piece in VALUE.split(text))
    return re.fullmatch(words, literal) is not None


def is_text(literal):
    return (" " in literal.strip() and re.search(r"[A-Za-z]{2}", CONVERSION.sub("", literal)) and
            not NOT_TEXTS.fullmatch(literal))


def table_texts(document):
    """(line number, text) of each first cell below the heading "Texts"."""
    below = False
    for number, line in enumerate(document.split("\n"), 1):
        below = below or line == "## Texts"
        cell = re.match(r"\| `([^`]*)` \|", line)
        if below and cell:
            yield number, cell[1]


def check(files, document):
    """Yields (file, line, rule, message) for what code and tables do not have in common."""
    explained = list(table_texts(document))
    # The table of letters has what stands in front of messages and behind them.
    headers = re.findall(r"`([^`]*)`", document.split("## Which files")[0])
    if not explained:
        yield DOCUMENT, 1, "texts", "there is no table of texts"
    written = []
    for file in files:
        if not file.name.startswith(FOLDERS) or file.kind != "source":
            continue
        for literal in literals(file.text):
            written.extend(pieces(literal, CONVERSION))
            if not is_text(literal):
                continue
            shape = CONVERSION.sub("\0", literal).strip()
            if not (any(explains(text, literal) for _, text in explained) or
                    any(shape in VALUE.sub("\0", text) for text in headers)):
                yield file.name, 1, "texts", f'"{literal}" is not in the tables of {DOCUMENT}'
    for number, text in explained:
        for piece in pieces(text, VALUE):
            rest = piece
            # A text may be put together from several strings.
            for part in sorted(set(written), key=len, reverse=True):
                if len(part.strip()) > 1 or part == piece:
                    rest = rest.replace(part, "")
            if re.search(r"\w", rest):
                yield DOCUMENT, number, "texts", f'"{piece}" is not in the code'
