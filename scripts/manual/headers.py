"""Public headers as lists of declarations, each with the contract that stands above it.

It reads the style of this tree alone: a comment in the first column belongs to the declarations under it, down to the
next blank line; a comment behind a field or constant belongs to it.
"""

import dataclasses
import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parents[2]

# Of each family of headers the folder in the tree and the folder that programs include them from.
FAMILIES = {"mcast": ("include/mcast", "mcast"), "platform": ("platform", "mcast/platform"),
            "mcasthost": ("host/include/mcasthost", "mcasthost")}

ANNOTATION = re.compile(
    r"\s*\bMCAST_(?:GUARDED_BY|PT_GUARDED_BY|REQUIRES|REQUIRES_SHARED|EXCLUDES|ACQUIRE|ACQUIRE_SHARED|RELEASE|"
    r"RELEASE_SHARED|ACQUIRED_BEFORE|ACQUIRED_AFTER|CAPABILITY)\s*\([^()]*\)")
NOISE = re.compile(r"__attribute__\s*\(\(.*?\)\)\s*|\bMRIB_PACKED\s+|\bMCAST_API\s+|\bHOST_API\s+")


@dataclasses.dataclass
class Member:
    """A field of a record or a constant of an enumeration; one without a name is a remark on those that follow."""
    name: str
    code: str
    text: str = ""


@dataclasses.dataclass
class Declaration:
    kind: str  # function, object, record, enum, type or macro
    name: str
    code: str  # without comments and annotations
    text: str  # its contract
    members: list = dataclasses.field(default_factory=list)
    group: list = dataclasses.field(default_factory=list)  # the names under the same comment, its own included


@dataclasses.dataclass
class Header:
    family: str
    name: str  # as programs include it
    text: str  # what holds for the whole of it
    declarations: list


def text_of(comment):
    """The words of a comment, without its marks and the indentation that all lines share."""
    lines = comment[2:-2].split("\n")
    if len(lines) == 1:
        return lines[0].strip()
    inner = [re.sub(r"^\s*\* ?", "", line).rstrip() for line in lines]
    return "\n".join(inner).strip("\n").strip()


def blocks(source):
    """Comments, statements and blank lines of a header's outermost level, in order, as (kind, text)."""
    at = 0
    token = re.compile(r"(?P<blank>\n[ \t]*(?=\n))|(?P<comment>/\*.*?\*/)|(?P<hash>\#(?:\\\n|[^\n])*)|"
                       r"(?P<wrap>extern \"C\" \{|MCAST_EXTERN_C_(?:BEGIN|END)|^\}(?=\n))|(?P<space>\s)",
                       re.DOTALL | re.MULTILINE)
    while at < len(source):
        found = token.match(source, at)
        if found:
            if found.lastgroup not in ("space", "wrap"):
                yield found.lastgroup, found.group()
            at = found.end()
            continue
        end = statement_end(source, at)
        yield "statement", source[at:end]
        at = end


def statement_end(source, start):
    """Just past the statement: its semicolon, or the brace that closes an inline function's body."""
    depth = 0
    at = start
    while at < len(source):
        if source.startswith("/*", at):
            at = source.index("*/", at) + 2
            continue
        letter = source[at]
        depth += letter in "({["
        depth -= letter in ")}]"
        if depth == 0 and letter == ";":
            return at + 1
        if depth == 0 and letter == "}" and re.match(r"\s*static inline", source[start:]):
            return at + 1
        at += 1
    return at


def plain(code):
    """A statement without comments, annotations and what only the compiler needs."""
    code = re.sub(r"/\*.*?\*/", "", code, flags=re.DOTALL)
    code = NOISE.sub("", ANNOTATION.sub("", code))
    return "\n".join(line.rstrip() for line in code.strip().split("\n") if line.strip())


def name_of_field(code):
    pointer = re.search(r"\(\*(\w+)\)", code)
    words = re.findall(r"\w+", re.sub(r"\[[^]]*\]", "", code))
    return pointer.group(1) if pointer else words[-1] if words else ""


def members_of(body, separator):
    """The fields or constants between the braces of a definition."""
    found = []
    depth_text = r"(?:\([^()]*(?:\([^()]*\)[^()]*)*\)|[^;,()/]|/(?!\*))"
    if separator == ";":
        depth_text = depth_text.replace(",", "")
    token = re.compile(rf"(?P<comment>/\*.*?\*/)|(?P<code>{depth_text}+{separator}?)", re.DOTALL)
    for piece in token.finditer(body):
        if piece.lastgroup == "code":
            code = plain(piece.group())
            if code.strip(separator + " \n"):
                code = " ".join(code.split()).rstrip(separator)
                name = code.split()[0] if separator == "," else name_of_field(code)
                found.append(Member(name, code))
            continue
        on_line = body[body.rfind("\n", 0, piece.start()) + 1:piece.start()].strip()
        if on_line and found and found[-1].name and not found[-1].text:
            found[-1].text = text_of(piece.group())
        else:
            found.append(Member("", "", text_of(piece.group())))
    return found


def declaration(statement, text):
    """What a statement declares, or None for an assertion or a bare forward declaration."""
    code = plain(statement)
    if re.match(r"\w+\(|static_assert|_Static_assert|using |(?:struct|union) \w+;", code):
        return None  # an assertion, or the name of a record that another header has
    inline = re.match(r"static inline\s+(.*?)\s*\{", code, re.DOTALL)
    if inline:
        code = inline.group(1) + ";"
    body = re.match(r"(?:typedef )?(struct|enum|union)\s+(\w+)?\s*\{", code)
    if body:
        raw = statement[statement.index("{") + 1:statement.rindex("}")]
        name = re.search(r"\}\s*(\w+)\s*;$", code)
        kind = "enum" if body.group(1) == "enum" else "record"
        return Declaration(kind, name.group(1) if name else body.group(2), code, text,
                           members_of(raw, "," if kind == "enum" else ";"))
    forward = re.match(r"typedef struct (\w+) (\*?)(\w+);$", code)
    if forward and not forward.group(2):
        return Declaration("record", forward.group(3), code, text) if text else None
    if code.startswith("typedef"):
        return Declaration("type", name_of_field(code.rstrip(";")), code, text)
    called = re.search(r"(\w+)\s*\(", code)
    if called:
        return Declaration("function", called.group(1), code, text)
    return Declaration("object", name_of_field(code.rstrip(";")), code, text)


def macro(line, text):
    found = re.match(r"#define (\w+)(\([^)]*\))?[ \t]*(.*)$", re.sub(r"\s*\\\n\s*", " ", line), re.DOTALL)
    if not found or not found.group(3):
        return None
    value = found.group(3)
    behind = re.search(r"\s*(/\*.*?\*/)\s*$", value, re.DOTALL)
    if behind:
        text, value = text_of(behind.group(1)), value[:behind.start()]
    return Declaration("macro", found.group(1) + (found.group(2) or ""), value.strip(), text)


def read(family, name, source):
    """The header with this name and text."""
    header = Header(family, name, "", [])
    comment, group, depth = "", [], 0
    for kind, piece in blocks(source):
        if kind == "blank":
            comment, group = "", []
        elif kind == "comment":
            comment, group = text_of(piece), []
            if not header.text:
                header.text, comment = comment, ""
        elif kind == "hash":
            depth += piece.startswith("#if")
            depth -= piece.startswith("#endif")
            made = macro(piece, comment) if piece.startswith("#define") and depth <= 1 else None
            if made:
                header.declarations.append(made)
        else:
            made = declaration(piece, comment)
            if made:
                group.append(made.name)
                made.group = group
                header.declarations.append(made)
    return header


def all_headers(top=TOP):
    return [read(family, f"{included}/{path.name}", path.read_text())
            for family, (folder, included) in FAMILIES.items() for path in sorted((top / folder).glob("*.h"))]
