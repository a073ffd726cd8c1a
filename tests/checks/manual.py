#!/usr/bin/env python3
"""The manual pages that are made from other texts: every exported name, every name of the platform and every public
record has one, and all of them render without a warning.

manual.py FOLDER: makes them there first.
"""

import os
import pathlib
import re
import subprocess
import sys

import public_names

TOP = public_names.TOP


def records():
    """Names that the public headers define as a record or an enumeration."""
    for folder in ("include/mcast", "platform", "host/include/mcasthost"):
        for path in (TOP / folder).glob("*.h"):
            text = re.sub(r"/\*.*?\*/", "", path.read_text(), flags=re.DOTALL)
            yield from re.findall(r"^\}\s*(\w+);", text, re.MULTILINE)
            yield from re.findall(r"^(?:struct|enum) (\w+) \{", text, re.MULTILINE)


def faults_of_names(folder):
    listed = re.findall(r"^\s+(\w+);", (TOP / "src/exports.map").read_text(), re.MULTILINE)
    host = re.findall(r"\b(HOST_\w+)", (TOP / "host/exports.map").read_text())
    for path in (TOP / "host/include/mcasthost").glob("*.h"):
        host += re.findall(r"^HOST_API [^;]*?\b(HOST_\w+)\(", path.read_text(), re.MULTILINE)
    for name in sorted({*listed, *host, *public_names.platform(), *records()}):
        page = folder / f"man3/{name}.3"
        if not page.exists():
            yield f"{name} has no page in section 3"
        elif not re.search(rf"^\.SH NAME\n(?:.*\b)?{name}\b.* \\- .", page.read_text(), re.MULTILINE):
            yield f"the page of {name} is not about it"


def words(text):
    return [word for word in text.split() if word != "-"]


def words_of_page(page):
    """What a page says, without what only arranges it."""
    text = re.sub(r"^\.(?:SH|IP|TP|PP|br|nf|fi)\b.*$", "", page.read_text(), flags=re.MULTILINE)
    text = re.sub(r"\\f[BR]|\\&|(?<=\\fR)\(3\)", "", text.replace("\\fR(3)", ""))
    for escape, letter in (("\\-", "-"), ("\\(ti", "~"), ("\\(ha", "^"), ("\\(ga", "`"), ("\\e", "\\")):
        text = text.replace(escape, letter)
    return words(text)


def faults_of_contracts(folder):
    """Every word that stands above an exported function in its header stands on its page too, in its order."""
    for path in (TOP / "include/mcast").glob("*.h"):
        for comment, name in re.findall(r"/\*((?:(?!\*/).)*)\*/\nMCAST_API [^;{]*?\b(\w+)\(", path.read_text(), re.DOTALL):
            contract = words(re.sub(r"^ ?\*", "", comment, flags=re.MULTILINE))
            page = words_of_page(folder / f"man3/{name}.3")
            if not any(page[start:start + len(contract)] == contract for start in range(len(page))):
                yield f"the page of {name} has not its whole contract"


def warnings(pages, *words):
    """What a program says while it shows the pages."""
    shown = subprocess.run([*words, *pages], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                           env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"}, check=False)
    told = shown.stderr.splitlines()
    return told or ([] if shown.returncode == 0 else [f"{words[0]} ended with {shown.returncode}"])


def main(folder):
    version = "0"
    subprocess.run([sys.executable, "-B", TOP / "scripts/manual", folder, version], check=True)
    pages = sorted(str(page) for page in folder.glob("man[357]/*") if not page.is_symlink())
    faults = list(faults_of_names(folder))
    if not faults:
        faults += faults_of_contracts(folder)
    # All of them as man has them shown, with every warning; some by man itself, which takes longer.
    faults += warnings(pages, "groff", "-K", "utf8", "-man", "-Tutf8", "-rLL=78n", "-ww", "-z")
    faults += warnings(pages[::40] + pages[-2:], "man", "--warnings=w", "-l")
    print("\n".join(faults))
    print(f"{len(pages)} pages")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
