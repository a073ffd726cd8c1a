#!/usr/bin/env python3
"""The rules of CONTRIBUTING.md ("One hand") that clang-format and clang-tidy cannot hold.

guards       an include guard spells the header's path
increments   ++ and -- stand before what they change, unless the old value is used
blank lines  a function's only blank line does not merely part its declarations from its statements;
             namespaces that open together open without blank lines between them
comments     a block comment opens and ends with a line of its own, and every line between begins with an
             asterisk: a line without one was reflowed from its place
drawings     drawings, tables and lists of a comment are indented by two or more, and a blank line parts them from
             text behind them: text right behind one, or text with wide gaps, was once part of a drawing
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = ["include", "platform", "src", "host", "daemons", "tests", "bench", "examples"]

DECLARATION = re.compile(
    r"^(?:(?:static|constexpr|const|volatile|auto|struct|unsigned|thread_local) )*"
    r"[A-Za-z_][\w:]*(?:<[^;]*?>)?(?:::\w+)?(?: const)?(?: \*const)?[ ]+[*&]*(?:const )?"
    r"[A-Za-z_]\w*(?:\[[^\]]*\])*(?: =|\{|\(|;|,|$)|^(?:const )?auto [\[*&]"
)
STATEMENT = re.compile(r"^(return|delete|throw|goto|else|using|case|if|for|while|do|switch|static_assert|new)\b")
LATE_INCREMENT = re.compile(r"^\s*[\w.>()\[\]:*-]+(?:\+\+|--);|;[^;]*[\w\])](?:\+\+|--)\)(?: \{)?$")


def guard_of(path):
    for lead in ("include/", "host/include/"):
        path = path.removeprefix(lead)
    return re.sub(r"[^A-Za-z0-9]", "_", path).upper()


def wrong_guard(path, text):
    if not path.endswith(".h"):
        return
    guard = guard_of(path)
    if not re.search(rf"^#ifndef {guard}\n#define {guard}\n", text, re.M):
        yield 1, f"the include guard is not {guard}"


def late_increments(lines):
    for number, line in enumerate(lines, 1):
        if LATE_INCREMENT.search(line.split(" //")[0]):
            yield number, "an increment after the name though nobody uses the old value"


def body_of_function(lines, opening):
    """The indexes between the braces of the function whose { stands alone on a line, or None."""
    found = re.match(r"^(\s*)\{$", lines[opening])
    before = lines[opening - 1].rstrip() if opening else ""
    if not found or not re.search(r"(\)|[)}],?|const|override|noexcept|final)$", before):
        return None
    if re.match(r"^\s*(namespace|struct|class|enum|union|extern)\b", before):
        return None
    ends = (found.group(1) + "}", found.group(1) + "};")
    for end in range(opening + 1, len(lines)):
        if lines[end] in ends:
            return range(opening + 1, end)
    return None


def only_declarations(lines):
    text, fresh = "", True
    for line in lines:
        line = re.sub(r"\s*//.*$", "", line.strip())
        if not line:
            continue
        if fresh and (STATEMENT.match(line) or not DECLARATION.match(line)):
            return False
        text += line
        fresh = line.endswith(";") and text.count("(") == text.count(")") and text.count("{") == text.count("}")
        text = "" if fresh else text
    return fresh


def idle_blank_lines(lines):
    for opening in range(len(lines)):
        body = body_of_function(lines, opening)
        blanks = [at for at in body if not lines[at]] if body else []
        if len(blanks) == 1 and blanks[0] > body[0] and only_declarations(lines[body[0] : blanks[0]]):
            yield blanks[0] + 1, "a blank line that only parts declarations from statements"
    for at in range(2, len(lines) - 1):
        if lines[at] == "" and lines[at - 1] == "{" and lines[at - 2].startswith("namespace"):
            if lines[at + 1].startswith("namespace"):
                yield at + 1, "a blank line between namespaces that open together"


def wrecked_comments(lines):
    inside = False
    for number, line in enumerate(lines, 1):
        if inside:
            if not re.match(r"^\s*\*", line):
                yield number, "a line of a comment without its asterisk"
            if "*/" in line:
                inside = False
                if not re.match(r"^\s*\*/", line):
                    yield number, "the end of a comment of several lines has no line of its own"
        elif re.match(r"^\s*/\*(?!.*\*/)", line):
            inside = True
            if not re.match(r"^\s*/\*$", line):
                yield number, "the begin of a comment of several lines has no line of its own"


def wrecked_drawings(lines):
    inside, before = False, ""
    for number, line in enumerate(lines, 1):
        found = re.match(r"^\s*(?:\*(?!/)|//)(| .*)$", line) if inside or re.match(r"^\s*//", line) else None
        text = found.group(1).rstrip() if found else None
        if text and re.match(r"^ \S", text):
            if before.startswith("  "):
                yield number, "text right behind a drawing: reflowed from it, or a blank line is missing"
            elif re.search(r"\S {2,}\S", text):
                yield number, "text with wide gaps: a drawing is indented by two or more"
        before = text or ""
        inside = "*/" not in line and (inside or bool(re.match(r"^\s*/\*", line)))


def main():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard", *FOLDERS],
                            check=True, capture_output=True, text=True).stdout.split("\n")
    findings = 0
    for path in sorted(listed):
        if not path.endswith((".h", ".c", ".cpp")) or not (ROOT / path).exists():
            continue
        text = (ROOT / path).read_text()
        lines = text.split("\n")
        checks = [wrong_guard(path, text), late_increments(lines), idle_blank_lines(lines),
                  wrecked_comments(lines), wrecked_drawings(lines)]
        for number, what in sorted(finding for check in checks for finding in check):
            print(f"{path}:{number}: {what}")
            findings += 1
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
