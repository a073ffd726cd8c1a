"""The places of a C++ text that can be broken, one operator, condition, constant or statement each.

The text is read as clang-format leaves it: a binary operator has white space on both sides, which no template, reference
or pointer has, and a statement begins its line. Comments, strings, preprocessor lines and static assertions are never
broken, nor what only writes a log or trace line or checks an invariant.
"""
import re
from typing import NamedTuple


class Break(NamedTuple):
    path: str
    start: int  # offsets into the text
    end: int
    replacement: str


OPERATORS = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&",
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<",
    "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "|=": "&=", "&=": "|=", "^=": "|=", "<<=": ">>=", ">>=": "<<=",
}
BINARY = re.compile(r"(?<=\s)(" + "|".join(map(re.escape, sorted(OPERATORS, key=len, reverse=True))) + r")(?=\s)")
STEP = re.compile(r"\+\+|--")
NOT = re.compile(r"!(?=[\w(*])")
TRUTH = re.compile(r"\b(?:true|false)\b")
NUMBER = re.compile(r"(?<![\w.'\"])(0x[0-9a-fA-F]+|\d+)(?=[uUlL]*(?![\w.']))")
CONDITION = re.compile(r"\b(?:if|while|for) \(")
DECLARATION = re.compile(r"^(?:const )?[\w:<>]+ (?:const )?[*&]*(\w+) = ")
# Negating it is what breaking its operator does already.
ONE_OPERATOR = re.compile(r"^(?!.*(?:&&|\|\|))(?:!|.* [=!]= )", re.S)
STATEMENT = re.compile(
    r"^ +((?:break|continue|return);|(?:\+\+|--)[\w.>()\[\]*:-]+;"
    r"|[*(]*[A-Za-z_]\w*(?:::\w+)*(?:\([^()\n]*\)|\[[^\]\n]*\]|\)|\.|->|\w|::)*(?= (?:[-+*/|&^%]|<<|>>)?= |\(|;))", re.M)
KEYWORD = re.compile(r"(?:if|for|while|switch|do|else|case|default|delete|new|throw|using|static_assert|sizeof|public|private)\b")
SPOKEN = re.compile(r"^ *(?:if \(.*\) )?(?:mcastd::)?(?:log_\w+|trace|trace_\w+|expect)\(", re.M)

HIDDEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:[^"\\\n]|\\.)*"'
    r"|(?<![0-9a-fA-F])'(?:[^'\\\n]|\\.)+'|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.S | re.M)


def closing(text, opening):
    """The offset of the bracket that closes the one at this offset; -1 without one."""
    depth = 0
    for at in range(opening, len(text)):
        depth += (text[at] in "([{") - (text[at] in ")]}")
        if depth == 0:
            return at
    return -1


def statement_end(text, start):
    """The offset behind the semicolon that ends the statement; -1 if a bracket closes first."""
    depth = 0
    for at in range(start, len(text)):
        depth += (text[at] in "([{") - (text[at] in ")]}")
        if depth < 0:
            return -1
        if depth == 0 and text[at] == ";":
            return at + 1
    return -1


def blanked(text, start, end):
    return text[:start] + re.sub(r"[^\n]", " ", text[start:end]) + text[end:]


def visible(text):
    """The text with everything that is never broken replaced by spaces, offsets and lines as they were."""
    text = HIDDEN.sub(lambda found: re.sub(r"[^\n]", " ", found[0]), text)
    for pattern in (re.compile(r"\bstatic_assert\("), SPOKEN):
        for found in pattern.finditer(text):
            end = statement_end(text, found.start())
            if end > 0:
                text = blanked(text, found.start(), end)
    return text


def one_more(number):
    return str(int(number, 8 if re.fullmatch("0[0-7]+", number) else 0) + 1)


def conditions(path, text, original):
    for found in CONDITION.finditer(text):
        start, end = found.end(), closing(text, found.end() - 1)
        if end < 0:
            continue
        inside = text[start:end]
        parts = [start + at for at, letter in enumerate(inside) if letter == ";"]
        if found[0].startswith("for"):
            if len(parts) != 2:
                continue
            start, end = parts[0] + 1, parts[1]
        elif parts:
            start = parts[-1] + 1
        condition = text[start:end]
        declared = DECLARATION.match(condition)
        if declared:
            yield Break(path, end, end, f"; !{declared[1]}")
        elif condition.strip() and not ONE_OPERATOR.match(condition.strip()):
            yield Break(path, start, end, f"!({original[start:end].strip()})")


def ends_switch(text, start, end):
    """Whether nothing comes between the statement and the end of the switch that it is in."""
    opening, depth = start, 1
    while depth > 0 and opening > 0:
        opening -= 1
        depth += (text[opening] == "}") - (text[opening] == "{")
    head = text[text.rfind("\n", 0, opening) + 1 : opening]
    return text[end:].lstrip().startswith("}") and head.lstrip().startswith("switch (")


def statements(path, text):
    for found in STATEMENT.finditer(text):
        before = text[: found.start()].rstrip()
        if not before or not (before[-1] in ";{})" or re.search(r"\belse$|(?<!:):$", before)):
            continue
        if KEYWORD.match(found[1]):
            continue
        end = statement_end(text, found.start(1))
        if end < 0 or re.search(r"= (?:delete|default);$", text[found.start(1) : end]):
            continue
        if found[1] == "break;" and ends_switch(text, found.start(1), end):
            continue  # it ends there anyhow
        yield Break(path, found.start(1), end, "{}")


def breaks_of(path, text):
    """Every break of the file, in the order of its text."""
    seen = visible(text)
    found = [Break(path, *at.span(1), OPERATORS[at[1]]) for at in BINARY.finditer(seen)]
    found += [Break(path, *at.span(), "--" if at[0] == "++" else "++") for at in STEP.finditer(seen)]
    found += [Break(path, *at.span(), "") for at in NOT.finditer(seen)]
    found += [Break(path, *at.span(), "false" if at[0] == "true" else "true") for at in TRUTH.finditer(seen)]
    found += [Break(path, *at.span(1), one_more(at[1])) for at in NUMBER.finditer(seen)]
    found += conditions(path, seen, text)
    found += statements(path, seen)
    return sorted(found)


def applied(text, one):
    return text[: one.start] + one.replacement + text[one.end :]


def shown(text, one):
    """Line number and the line or lines before and after."""
    first, last = text.rfind("\n", 0, one.start) + 1, text.find("\n", one.end)
    broken = text[first : one.start] + one.replacement + text[one.end : last]
    return text.count("\n", 0, one.start) + 1, " ".join(text[first:last].split()), " ".join(broken.split())
