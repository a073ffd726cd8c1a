"""Makes the manual pages that follow from other texts: python3 scripts/manual FOLDER VERSION

Section 3 has a page for every function, object, record and type that a public header declares, made of the contract
above it, and one for every header; several under one comment share a page. Section 5 has the configuration file, made
of docs/configuration.md; section 7 an overview, docs/man/mcastcommon.md with the list of headers.
"""

import pathlib
import shutil
import sys

import headers
import pages


def declared_together(header):
    """The declarations of a header that have pages, those under one comment together."""
    together = {}
    for each in header.declarations:
        if each.kind != "macro":
            together.setdefault((id(each.group), each.kind in ("record", "enum") and each.name), []).append(each)
    return together.values()


def write(folder, version):
    all_headers = headers.all_headers()
    named = {each.name for header in all_headers for each in header.declarations if each.kind != "macro"}
    bare = [f"{header.name}: {each.name} has no contract" for header in all_headers for each in header.declarations
            if each.kind != "macro" and not each.text]
    if bare:
        raise SystemExit("\n".join(bare))
    for section in (3, 5, 7):
        shutil.rmtree(folder / f"man{section}", ignore_errors=True)
        (folder / f"man{section}").mkdir(parents=True)
    section3 = folder / "man3"
    for header in all_headers:
        (section3 / f"{pages.page_of_header(header)}.3").write_text(pages.of_header(header, named, version))
        for declarations in declared_together(header):
            first = declarations[0].name
            (section3 / f"{first}.3").write_text(pages.of_declarations(header, declarations, named, version))
            for other in declarations[1:]:
                (section3 / f"{other.name}.3").symlink_to(f"{first}.3")
    docs = headers.TOP / "docs"
    (folder / "man7/mcastcommon.7").write_text(
        pages.of_overview(all_headers, (docs / "man/mcastcommon.md").read_text(), version))
    (folder / "man5/mcast.toml.5").write_text(pages.of_configuration((docs / "configuration.md").read_text(), version))


if __name__ == "__main__":
    write(pathlib.Path(sys.argv[1]), sys.argv[2])
