"""The Markdown of docs/ as a manual page: headings, paragraphs, lists, tables and code."""

import re

import roff


def inline(text):
    """Words with code in bold, links as their text."""
    text = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", " ".join(text.split()))
    out = []
    for position, part in enumerate(re.split(r"`([^`]*)`", text)):
        part = re.sub(r"\*\*([^*]*)\*\*", r"\1", part)
        out.append(f"\\fB{roff.escape(part)}\\fR" if position % 2 else roff.escape(part))
    line = "".join(out)
    return "\\&" + line if line[:1] in ".'" else line


def cells(line):
    return [cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line.strip()[1:-1])]


def table(lines):
    """A row is an entry: the first cell its tag, the others what is said of it."""
    heads = cells(lines[0])
    out = ""
    for line in lines[2:]:
        row = cells(line)
        said = [f"{inline(head)}: {inline(cell)}" if head else inline(cell)
                for head, cell in zip(heads[1:], row[1:]) if cell]
        out += roff.tagged(inline(row[0]) or "\\&", "\n.br\n".join(said))
    return out


def page(text):
    """Everything below the title, which the page has in its header."""
    out, paragraph = [], []

    def flush():
        if paragraph:
            joined = " ".join(paragraph)
            item = re.match(r"(?:-|\d+\.) (.*)$", joined)
            out.append((f".IP \\(bu 3\n{inline(item.group(1))}\n") if item else f".PP\n{inline(joined)}\n")
            paragraph.clear()

    lines = text.split("\n")
    while lines:
        line = lines.pop(0)
        if line.startswith("```"):
            flush()
            end = next(number for number, each in enumerate(lines) if each.startswith("```"))
            out.append(roff.literal("\n".join(lines[:end])))
            del lines[:end + 1]
        elif line.startswith("#"):
            flush()
            level, title = line.split(" ", 1)
            title = re.sub(r"[`*]", "", title)
            if len(level) > 1:
                out.append(f".{'SH' if len(level) == 2 else 'SS'} {roff.escape(title)}\n")
            elif not out:
                out.append(".SH DESCRIPTION\n")
        elif line.startswith("|"):
            flush()
            rows = [line]
            while lines and lines[0].startswith("|"):
                rows.append(lines.pop(0))
            out.append(table(rows))
        elif not line.strip():
            flush()
        else:
            if re.match(r"(?:-|\d+\.) ", line):
                flush()
            paragraph.append(line.strip())
    flush()
    return "".join(out)
