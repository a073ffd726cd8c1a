"""What stands on each manual page."""

import re

import markdown
import roff

LIBRARY = {
    "mcast": "Multicast common library (libmcastcommon, \\-lmcastcommon)",
    "platform": "The platform of the process: libmcasthost (\\-lmcasthost) or one that is ported",
    "mcasthost": "Host platform of the multicast common library (libmcasthost, \\-lmcasthost)",
}


def title(name, section, version):
    middle = "Multicast common library" if len(name) <= 22 else " "  # a longer name leaves no room for it
    return f'.TH {roff.escape(name)} {section} "" "mcastcommon {version}" "{middle}"\n.nh\n.ad l\n'


def page_of_header(header):
    return header.name.replace("/", "_")


def summary(text, ends="."):
    """The first sentence of a contract, for the line by which a page is found."""
    sentence = re.split(rf"(?<=[\w)])[{ends}](?:\s|$)", " ".join(text.split()))[0].rstrip(".:")
    word = sentence.split(" ")[0]
    return sentence[0].lower() + sentence[1:] if re.match(r"[A-Z][a-z]*$", word) else sentence


def subject(header):
    return summary(header.text, ".:")


def synopsis(header, declarations):
    code = "\n".join(roff.wrapped(each.code) for each in declarations)
    return f".SH SYNOPSIS\n.nf\n#include <{roff.escape(header.name)}>\n.PP\n{roff.escape(code)}\n.fi\n"


def members(declaration, pages):
    """The fields of a record or the constants of an enumeration, with what is said of each."""
    if not declaration.members:
        return ""
    out = ".SH " + ("CONSTANTS\n" if declaration.kind == "enum" else "FIELDS\n")
    waiting = ""
    for member in declaration.members:
        if not member.name:
            waiting = member.text
            continue
        said = [each for each in (waiting, member.text) if each]
        out += roff.tagged(f"\\fB{roff.escape(member.code)}\\fR", "\n.br\n".join(roff.prose(each, pages) for each in said))
        waiting = ""
    return out


def see_also(header, declarations, pages):
    text = " ".join(each.text + " " + each.code + " ".join(m.text for m in each.members) for each in declarations)
    own = {each.name for each in declarations}
    named = sorted(set(re.findall(r"\w+", text)) & pages - own)
    entries = [f"\\fB{name}\\fR(3)" for name in named] + [f"\\fB{page_of_header(header)}\\fR(3)", "\\fBmcastcommon\\fR(7)"]
    return ".SH SEE ALSO\n" + ",\n".join(entries) + "\n"


def of_declarations(header, declarations, pages, version):
    """The page of what stands under one comment."""
    first = declarations[0]
    names = ", ".join(roff.escape(each.name) for each in declarations)
    out = title(first.name, 3, version)
    out += f".SH NAME\n{names} \\- {roff.prose(summary(first.text))}\n"
    out += f".SH LIBRARY\n{LIBRARY[header.family]}\n"
    out += synopsis(header, declarations)
    out += ".SH DESCRIPTION\n" + roff.contract(first.text, pages)
    out += "".join(members(each, pages) for each in declarations)
    if first.kind != "record" and first.kind != "enum":
        out += f".SH ALL OF {roff.escape(header.name)}\n" + roff.contract(header.text, pages)
    return out + see_also(header, declarations, pages)


def of_header(header, pages, version):
    """What a header is about, its constants, and a line for each of its pages."""
    out = title(page_of_header(header), 3, version)
    out += f".SH NAME\n{roff.escape(page_of_header(header))} \\- {roff.prose(subject(header))}\n"
    out += f".SH LIBRARY\n{LIBRARY[header.family]}\n"
    out += f".SH SYNOPSIS\n.nf\n#include <{roff.escape(header.name)}>\n.fi\n"
    out += ".SH DESCRIPTION\n" + roff.contract(header.text, pages)
    headings = {"macro": "CONSTANTS AND MACROS", "enum": "ENUMERATIONS", "record": "RECORDS", "type": "TYPES",
                "object": "OBJECTS", "function": "FUNCTIONS"}
    for kind, heading in headings.items():
        chosen = [each for each in header.declarations if each.kind == kind]
        if chosen:
            out += f".SH {heading}\n"
        said = ""
        for each in chosen:
            if kind == "macro":
                told = "" if each.text == said else each.text
                said = each.text
                value = roff.escape(" ".join(each.code.split()))
                out += roff.tagged(f"\\fB{roff.escape(each.name)}\\fR {value}", roff.prose(told, pages))
            else:
                out += roff.tagged(f"\\fB{roff.escape(each.name)}\\fR(3)", roff.prose(summary(each.text)))
    return out + ".SH SEE ALSO\n\\fBmcastcommon\\fR(7)\n"


def of_overview(headers, text, version):
    """The page that a reader begins with: the words of docs/man/mcastcommon.md and the list of headers."""
    out = title("mcastcommon", 7, version)
    out += ".SH NAME\nmcastcommon \\- what multicast routing daemons have in common\n"
    out += markdown.page(text)
    for family, heading in (("mcast", "HEADERS OF THE LIBRARY"), ("platform", "HEADERS OF THE PLATFORM"),
                            ("mcasthost", "HEADERS OF THE HOST PLATFORM")):
        out += f".SH {heading}\n"
        for header in headers:
            if header.family == family:
                out += roff.tagged(f"\\fB{roff.escape(page_of_header(header))}\\fR(3)", roff.prose(subject(header)))
    return out + ".SH SEE ALSO\n\\fBmcast.toml\\fR(5),\n\\fBmribd\\fR(8),\n\\fBgmpd\\fR(8),\n\\fBmsdpd\\fR(8),\n" \
                 "\\fBpimsmd\\fR(8),\n\\fBmcastctl\\fR(1)\n"


def of_configuration(text, version):
    out = title("mcast.toml", 5, version)
    out += ".SH NAME\nmcast.toml \\- configuration of the multicast router's daemons\n"
    return out + markdown.page(text) + ".SH SEE ALSO\n\\fBmcastcommon\\fR(7),\n\\fBmribd\\fR(8),\n\\fBgmpd\\fR(8),\n" \
                                       "\\fBmsdpd\\fR(8),\n\\fBpimsmd\\fR(8)\n"
