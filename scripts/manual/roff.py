"""Text to the language of manual pages."""

import re
import textwrap


def escape(text):
    """Text that troff prints as it stands, wherever its line begins."""
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("~", "\\(ti").replace("^", "\\(ha").replace("`", "\\(ga")
    return re.sub(r"^(?=[.'])", r"\\&", text, flags=re.MULTILINE)


def prose(text, pages=()):
    """A paragraph on one line, with the names of other pages in bold."""
    words = []
    for word in " ".join(text.split()).split(" "):
        name = re.match(r"(\W*)(\w+)(\W*)$", word)
        if name and name.group(2) in pages:
            words.append(f"{escape(name.group(1))}\\fB{escape(name.group(2))}\\fR(3){escape(name.group(3))}")
        else:
            words.append(re.sub(r"-", r"\\-", escape(word)).replace("\\\\-", "\\-"))
    line = " ".join(words)
    return "\\&" + line if line[:1] in ".'" else line


def literal(code):
    """Lines as they stand."""
    return ".PP\n.nf\n" + escape(code) + "\n.fi\n"


def wrapped(code, width=72):
    """Code in lines that a terminal holds: arguments that do not fit go on the next line."""
    lines = []
    for line in re.sub(r",\n\s+", ", ", code).split("\n"):
        margin = re.match(r"\s*", line).group()
        whole = re.sub(r"(?<!,) (?=\S)", "\0", line[len(margin):])  # an argument is not broken
        parts = textwrap.wrap(whole, width, initial_indent=margin, subsequent_indent=margin + "        ",
                              break_long_words=False, break_on_hyphens=False)
        lines += [part.replace("\0", " ") for part in parts]
    return "\n".join(lines)


def tagged(tag, text):
    return f".TP\n{tag}\n{text or chr(92) + '&'}\n"


def indentation(line):
    return len(line) - len(line.lstrip())


def hanging(lines):
    """The rows of a table of two columns, whose second one goes on in further lines; None when it is not one."""
    rows = []
    for line in lines:
        row = re.match(r"(\s*)(\S.*?)\s{2,}(\S.*)$", line)
        if row and (not rows or indentation(line) == rows[0][0]):
            rows.append([indentation(line), row.group(2), row.group(3)])
        elif rows and indentation(line) > rows[0][0] + 2:
            rows[-1][2] += " " + line.strip()
        else:
            return None
    return rows


def contract(text, pages=()):
    """A contract: paragraphs, lists marked with dashes, tables of two columns and drawings, told by their indentation."""
    out = []
    for paragraph in re.split(r"\n\s*\n", text):
        lines = paragraph.split("\n")
        while lines:
            deep = indentation(lines[0]) >= 2
            dashed = lines[0].lstrip().startswith("- ")
            count = 1
            while count < len(lines) and (dashed or (indentation(lines[count]) >= 2) == deep) and \
                    not lines[count].lstrip().startswith("- "):
                count += 1
            part, lines = lines[:count], lines[count:]
            if dashed:
                out.append(".IP \\(bu 3\n" + prose(" ".join(part).strip()[2:], pages) + "\n")
            elif not deep:
                out.append(".PP\n" + prose(" ".join(part), pages) + "\n")
            elif hanging(part):
                out += [tagged(escape(tag), prose(words, pages)) for _, tag, words in hanging(part)]
            else:
                out.append(literal("\n".join(part)))
    return "".join(out)
