#!/usr/bin/env python3
"""Which C++ sources can be compiled as one: bundles.py FILE...

Most of the time that a source takes to compile goes into what it includes: the headers are parsed, and their templates
are made into code, anew in each file. A bundle is a file that includes several sources, so that this is done once.
Sources come into one bundle as long as no name that one of them keeps to itself (in an unnamed namespace, as static, as a
type or as a macro) is a word of another one, and those that open namespaces open the same ones.

Prints a line a file: the number of its bundle and its path.
"""
import re
import sys
from pathlib import Path

UNNAMED = re.compile(r"^namespace\n\{\n(.*?)^\} // namespace$", re.M | re.S)
# A definition begins in the first column; its name stands before what opens its parameters, value or body.
OWN_NAME = re.compile(
    r"^(?!template|namespace|static_assert|using [\w:]+;)[A-Za-z_][^\n({=;]*?(\w+)(?: final)?(?:\[\w*\])?(?: : [^{]*)?\s*(?:[({;]|=|$)", re.M)
STATIC = re.compile(r"^static .*", re.M)
TYPE = re.compile(r"^(?:struct|class|union|enum(?: class)?) (\w+)(?: final)?\s*(?::[^:;{][^;{]*)?\{", re.M)
MACRO = re.compile(r"^\s*#\s*define\s+(\w+)", re.M)
OPENED = re.compile(r"^using namespace ([\w:]+);", re.M)
COMMENT_OR_TEXT = re.compile(r'^\s*#\s*include[^\n]*|//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"', re.S | re.M)
# The kernel's headers and the C library's declare the same things.
FOREIGN = re.compile(r"#\s*include\s*<(linux|net)/if\.h>")


class Source:
    def __init__(self, path):
        text = path.read_text()
        self.path = path
        regions = UNNAMED.findall(text) + STATIC.findall(text)
        self.own = {name for region in regions for name in OWN_NAME.findall(region)} - {"void", "struct"}
        self.own |= set(TYPE.findall(text)) | set(MACRO.findall(text)) | ({"main"} if path.name == "main.cpp" else set())
        self.opened = set(OPENED.findall(text))
        self.words = set(re.findall(r"\w+", COMMENT_OR_TEXT.sub(" ", text)))
        self.words |= {f"<{folder}/if.h>" for folder in FOREIGN.findall(text)}
        self.own |= {"<net/if.h>"} if "<linux/if.h>" in self.words else set()

    def goes_with(self, other):
        if self.opened and other.opened and self.opened != other.opened:
            return False
        return not self.own & other.words and not other.own & self.words


def bundles_of(paths, largest, key=lambda path: None):
    """Lists of the paths that can be one file, each of one key and of no more than that many."""
    bundles = []
    for source in map(Source, paths):
        for bundle in bundles:
            if (key(bundle[0].path) == key(source.path) and len(bundle) < largest and
                    all(map(source.goes_with, bundle))):
                bundle.append(source)
                break
        else:
            bundles.append([source])
    return [[source.path for source in bundle] for bundle in bundles]


def main():
    # Large enough to be worth it, and small enough that the processors share a folder.
    for number, bundle in enumerate(bundles_of([Path(word) for word in sys.argv[1:]], 12)):
        for path in bundle:
            print(number, path)


if __name__ == "__main__":
    main()
