"""What the PIM run measured, as a page with a table beside its aims."""

import os

from scale_page import BUSY, number, table

# Seconds and MiB for so many joins of so many sources; what was aimed at.
AIMS = {(1000, 1): (0.02, None), (10000, 1): (0.15, 33), (50000, 1): (0.6, None), (10000, 10000): (0.2, 40),
        (30000, 30000): (0.6, 100)}
AIM_UP_S, AIM_UP_MESSAGES, AIM_AGAIN_S, AIM_LOST, AIM_GMP_S, AIM_GAP_S = 0.3, 150, 0.03, 0, 1.0, 0
AIM_REGISTERS = 100000
PEER = "FRRouting"


def of(run, who, count, sources):
    return next((one["median"] for one in run["joins"] if (one["who"], one["count"], one["sources"]) ==
                 (who, count, sources)), None)


def cell(value, form):
    return "–" if value is None else form.format(value)


def joins_table(run):
    rows = []
    for (count, sources), (aim_s, aim_mib) in AIMS.items():
        ours, peer = of(run, "ours", count, sources), of(run, "peer", count, sources)
        reached = ours["entries_s"] <= aim_s and (aim_mib is None or ours["memory_mib"] <= aim_mib)
        pick = lambda one, key: None if one is None else one[key]  # noqa: E731
        rows.append([number(count), number(sources), f"{aim_s:g}" + (f", {aim_mib} MiB" if aim_mib else ""),
                     f"{ours['entries_s']:.3f}", cell(pick(peer, "entries_s"), "{:.3f}"), f"{ours['processor_s']:.2f}",
                     cell(pick(peer, "processor_s"), "{:.2f}"), f"{ours['memory_mib']:.0f}",
                     cell(pick(peer, "memory_mib"), "{:.0f}"), "yes" if reached else "no"])
    return table(["joins", "sources", "aim (s)", "last entry (s)", PEER, "processor (s)", PEER, "memory (MiB)", PEER,
                  "reached"], rows, words=0)


def upstream_table(run):
    rows = []
    for count, sources in AIMS:
        cells = [number(count), number(sources)]
        for key, form in (("up_s", "{:.3f}"), ("messages_up", "{:.0f}"), ("again_processor_s", "{:.2f}")):
            for who in ("ours", "peer"):
                one = of(run, who, count, sources)
                cells.append(cell(None if one is None else one[key], form))
        rows.append(cells)
    return table(["joins", "sources", "last Join up (s)", PEER, "messages up", PEER, "processor for the same again (s)",
                  PEER], rows, words=0)


def way_rows(run):
    def median(who, key):
        return run["way"][who]["median"].get(key) if who in run["way"] else None

    rows = []
    up, messages, again = (of(run, "ours", 10000, 1)[key] for key in ("up_s", "messages_up", "again_processor_s"))
    rows.append(["10 000 Joins of one source on the way up", f"{AIM_UP_S} s, {AIM_UP_MESSAGES} messages",
                 f"{up:.3f} s, {messages:.0f}", "above", up <= AIM_UP_S and messages <= AIM_UP_MESSAGES])
    rows.append(["the same 10 000 again", f"{AIM_AGAIN_S} processor s", f"{again:.2f}", "above", again <= AIM_AGAIN_S])
    lost = median("ours", "lost")
    rows.append(["packets that a new source loses, 2000 a second", f"{AIM_LOST}", f"{lost:.0f}",
                 cell(median("peer", "lost"), "{:.0f}"), lost <= AIM_LOST])
    gmp = run["gmp"]["median"]["total_s"]
    rows.append(["100 000 joins of hosts while PIM runs", f"{AIM_GMP_S} s", f"{gmp:.2f} s", "–", gmp <= AIM_GMP_S])
    registers = {who: one["median"]["registers_s"] for who, one in run.get("registers", {}).items()}
    if registers:
        rows.append(["Registers a second, of packets of 1000 bytes", number(AIM_REGISTERS), number(registers["ours"]),
                     number(registers["peer"]) if "peer" in registers else "–", registers["ours"] >= AIM_REGISTERS])
    gap = median("ours restart", "gap_s")
    silent = median("peer restart", "silent_s")
    peer_gap = median("peer restart", "gap_s")
    text = "–" if peer_gap is None else f"{max(peer_gap, silent if silent > 1 else 0):.1f} s"
    rows.append(["restart of the process that speaks PIM at the source's router: longest time without packets, 100 a second",
                 f"{AIM_GAP_S}", f"{gap:.2f} s", text, gap <= AIM_GAP_S])
    return [[*row[:-1], "yes" if row[-1] else "no"] for row in rows]


def page(run):
    machine, limit = run["machine"], run["limit"]
    busy = ("" if run["busy"] < BUSY else
            f"\n**The machine was busy with other work ({run['busy']:.0%} of its processors before or after the run): "
            "times\nare longer than they would be on an idle one.**\n")
    refused = ", ".join(f"`{name}` {number(value)}" for name, value in sorted(limit["refused"].items())) or "none"
    return f"""# How PIM scales

Written by `{run['command']}` on {run['date']}, from `build/pim.json`; a run replaces this page.

{machine['processor']}, {machine['cores']} cores, {number(machine['memory_mib'])} MiB, Linux {machine['kernel']},
{machine['compiler']}.
Rounds of each case, of which the median counts: {run['rounds']}, each with daemons just started; one round of the restarts.
{busy}
A PIM router on the one side joins source-specific groups, 70 in a message; the router in the middle, of `pimsmd` and `mribd`,
gives its kernel an entry for each and joins at the router on the other side. A time begins before the first message is sent and
ends when the kernel's notification of the last entry was read, or the last Join. The same work is done, in the same run, by
FRRouting's `pimd` with `zebra` from Debian. Speakers, reader and daemons share the machine's processors. After each round the
kernel has every entry that was asked for: otherwise the run fails and writes nothing. Processor time and memory are of both
processes of each.

{joins_table(run)}
Further on the way, and when all Joins come a second time:

{upstream_table(run)}
|  | aim | ours | {PEER} | reached |
| --- | ---: | ---: | ---: | ---: |
""" + "".join("| " + " | ".join(row) + " |\n" for row in way_rows(run)) + f"""
{number(limit['tried'])} joins of one neighbour, each of a source of its own, sent at once: {number(limit['entries'])} entries in the
kernel, which is what `mribd` takes of one interface as it comes ([limits.md](limits.md)). The daemons go on; memberships refused, and
messages lost before they were read, are counted: {refused}.
"""


def write(run, folder):
    with open(os.path.join(folder, "pim-scale.md"), "w") as file:
        file.write(page(run))
