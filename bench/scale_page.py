"""What the scale run measured, as a page with tables and a drawing."""

import math
import os

GOAL_BURST_S, GOAL_RATE, GOAL_P99_MS, GOAL_RESUMED_S = 2, 20000, 50, 1  # each for GOAL_COUNT joins
GOAL_COUNT = 100000
BUSY = 0.1  # share of the processors that something else may take without being mentioned
CASES = ("burst", "sustained", "stopped")
FAMILIES = {"ipv4": "IPv4", "ipv6": "IPv6"}
BLUE, ORANGE, GREY = "#1f5fa8", "#c8571b", "#777777"


def line(result):
    """One result for the terminal."""
    median = result["median"]
    latency, memory = median["latency_ms"], median["high_water_kib"]
    return (f"{result['family']} {result['case']:10}{result['count']:>8} joins: none lost, {median['total_s']:.3f} s, "
            f"p50 {latency['50']:.2f} ms, p99 {latency['99']:.2f} ms, mribd {memory['mribd'] / 1024:.1f} MiB, "
            f"gmpd {memory['gmpd'] / 1024:.1f} MiB")


def number(value):
    return f"{value:,.0f}".replace(",", " ")


def table(head, rows, words=1):
    """The first columns, as many as words says, hold words, the others numbers."""
    lines = [head, ["---"] * words + ["---:"] * (len(head) - words), *rows]
    return "\n".join("| " + " | ".join(cells) + " |" for cells in lines) + "\n"


def results(run, family, case):
    return {one["count"]: one["median"] for one in run["results"] if (one["family"], one["case"]) == (family, case)}


def result_table(run, case, head, cells):
    """A table of one case: a row for each family and number of joins, with what cells makes of its figures."""
    return table(["family", "joins", *head],
                 [[name, number(count), *cells(count, one)]
                  for family, name in FAMILIES.items() for count, one in results(run, family, case).items()])


def reached(run, family):
    """What was measured with the largest number of joins, and whether that reaches the aim."""
    burst, sustained, stopped = (results(run, family, case)[GOAL_COUNT] for case in CASES)
    sent = GOAL_COUNT / sustained["sending_s"]
    resumed = stopped["total_s"] / (1 - run["stopped_after"])
    return [
        (f"{burst['total_s']:.2f} s", burst["total_s"] <= GOAL_BURST_S),
        (number(sent), sent >= 0.995 * GOAL_RATE),
        (f"{sustained['latency_ms']['99']:.1f} ms", sustained["latency_ms"]["99"] < GOAL_P99_MS),
        (f"{resumed:.2f} s", resumed < GOAL_RESUMED_S),
    ]


def goals(run):
    if not results(run, "ipv4", "burst").get(GOAL_COUNT):
        return ""
    aims = [
        ("entries of 100 000 joins, from the first report to the last entry", f"{GOAL_BURST_S} s"),
        ("joins a second, none lost", number(GOAL_RATE)),
        ("99 of 100 joins at that rate, from report to entry", f"{GOAL_P99_MS} ms"),
        ("after a stop of mribd, for 100 000 joins that waited", f"{GOAL_RESUMED_S} s"),
    ]
    measured = zip(*(reached(run, family) for family in FAMILIES))
    return table(["", "aim", *FAMILIES.values(), "reached"],
                 [[*aim, *(text for text, _ in row), "yes" if all(good for _, good in row) else "no"]
                  for aim, row in zip(aims, measured)])


def processor(one):
    return [f"{one['processor_s'][name]:.2f}" for name in ("gmpd", "mribd")]


def memory(one):
    return [f"{one['high_water_kib'][name] / 1024:.1f}" for name in ("gmpd", "mribd")]


def burst_table(run):
    return result_table(run, "burst", ["reports", "first entry (ms)", "last entry (s)", "entries a second",
                                       "processor, gmpd (s)", "processor, mribd (s)"],
                        lambda count, one: [number(one["reports"]), f"{one['first_ms']:.1f}", f"{one['total_s']:.3f}",
                                            number(count / one["total_s"]), *processor(one)])


def latency_table(run):
    return result_table(run, "sustained", ["p50 (ms)", "p90 (ms)", "p99 (ms)", "p99.9 (ms)", "longest (ms)",
                                           "processor, gmpd (s)", "processor, mribd (s)"],
                        lambda count, one: [*(f"{one['latency_ms'][part]:.2f}"
                                              for part in ("50", "90", "99", "99.9", "100")), *processor(one)])


def stopped_table(run):
    return result_table(run, "stopped", ["last entry after it went on (s)", "connections to mribd", "gmpd (MiB)",
                                         "mribd (MiB)"],
                        lambda count, one: [f"{one['total_s']:.3f}", number(one["connects"]), *memory(one)])


def memory_table(run):
    rows = [[FAMILIES[result["family"]], result["case"], number(result["count"]), number(result["median"]["records"]),
             number(result["median"]["datagrams"]), *memory(result["median"])] for result in run["results"]]
    return table(["family", "case", "joins", "records", "datagrams", "gmpd (MiB)", "mribd (MiB)"], rows, words=2)


def busy(run):
    if run["busy"] < BUSY:
        return ""
    return (f"\n**The machine was busy with other work ({run['busy']:.0%} of its processors before or after the run): "
            "times\nare longer than they would be on an idle one.**\n")


def page(run):
    machine = run["machine"]
    return f"""# How the reference router scales

Written by `{run['command']}` on {run['date']}, from `build/scale.json`; a run replaces this page and its drawing.

{machine['processor']}, {machine['cores']} cores, {number(machine['memory_mib'])} MiB, Linux {machine['kernel']},
{machine['compiler']}.
Rounds of each case, of which the median counts: {run['rounds']}, each with daemons just started.
{busy(run)}
A host's IGMPv3 or MLDv2 reports join groups, each with a source of its own by name; the family's `gmpd` hears them,
tells `mribd` over the channel, and `mribd` gives the kernel a forwarding entry for each. The sender, the listener to
the kernel's notifications and both daemons share the machine's processors. A time begins before the system call that
sends a report and ends when the notification of the entry was read. After each round the kernel and `mcastctl show
routes` had every entry that was asked for, and no other: otherwise the run fails and writes nothing.

![Times over the number of joins](scale.svg)

{goals(run)}
## As fast as reports can be sent

As many joins in a report as a packet of 1500 bytes takes, which are {run['records']['ipv4']} of IPv4 or
{run['records']['ipv6']} of IPv6.

{burst_table(run)}
## {number(run['rate'])} joins a second

One join in a report, so as many packets. From the report to the kernel's entry:

{latency_table(run)}
## mribd stopped for {run['stop_s']:g} seconds

One join in a report, {number(run['rate'])} a second. `mribd` is stopped when a tenth of the joins has been sent; the
others wait for it. A second connection to `mribd` would mean that more waited than `gmpd` keeps, and that everything
was sent again.

{stopped_table(run)}
## The channel, and memory at its highest

{memory_table(run)}"""


class Panel:
    """A diagram with logarithmic axes."""

    def __init__(self, left, title, unit, counts, lowest, highest):
        self.left, self.top, self.width, self.height = left, 50, 330, 240
        self.counts, self.lowest, self.highest = counts, math.floor(lowest), math.ceil(highest)
        right, bottom = self.left + self.width, self.top + self.height
        self.parts = [self.text(self.left, 30, title, size=14)]
        self.names = []
        for exponent in range(self.lowest, self.highest + 1):
            y = self.y(10 ** exponent)
            self.parts += [self.rule(self.left, y, right, y),
                           self.text(self.left - 8, y + 4, f"{10.0 ** exponent:g}{unit}", "end")]
        for count in counts:
            x = self.x(count)
            self.parts += [self.rule(x, self.top, x, bottom), self.text(x, bottom + 18, number(count), "middle")]
        self.parts.append(self.text((self.left + right) / 2, bottom + 38, "joins", "middle"))

    def x(self, count):
        first, last = math.log10(self.counts[0]), math.log10(self.counts[-1])
        return self.left + 20 + (self.width - 40) * (math.log10(count) - first) / ((last - first) or 1)

    def y(self, value):
        share = (math.log10(value) - self.lowest) / (self.highest - self.lowest)
        return self.top + self.height * (1 - share)

    @staticmethod
    def text(x, y, words, anchor="start", size=12, colour="#222222"):
        return (f'<text x="{x:.1f}" y="{y:.1f}" font-family="sans-serif" font-size="{size}" fill="{colour}" '
                f'text-anchor="{anchor}">{words}</text>')

    @staticmethod
    def rule(x1, y1, x2, y2, colour="#dddddd", more=""):
        return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}"{more}/>'

    def curve(self, values, name, colour, more=""):
        points = [(self.x(count), self.y(value)) for count, value in values.items()]
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"{more}/>')
        self.parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>' for x, y in points]
        self.names.append((points[-1][1] + 4, name, colour))

    def drawn(self):
        """Everything, the curves' names beside their ends and clear of each other."""
        lowest = 0
        for y, name, colour in sorted(self.names):
            lowest = max(y, lowest + 15)
            self.parts.append(self.text(self.left + self.width - 10, lowest, name, colour=colour))
        return self.parts

    def aim(self, value, name):
        y = self.y(value)
        self.parts += [self.rule(self.left, y, self.left + self.width, y, GREY, ' stroke-dasharray="5 4"'),
                       self.text(self.left + 4, y - 5, name, colour=GREY)]


def span(curves, *aims):
    """The logarithms of the least and the greatest value drawn."""
    values = [value for curve in curves for value in curve.values()] + list(aims)
    return math.log10(min(values)), math.log10(max(values))


def family_curves(run, case, figure, name):
    """The figure over the number of joins, by what its curve is called and how it is drawn."""
    return [({count: figure(one) for count, one in results(run, family, case).items()}, f"{name}, {FAMILIES[family]}",
             dashes) for family, dashes in (("ipv4", ""), ("ipv6", ' stroke-dasharray="7 4"'))]


def panel(left, title, unit, curves, aim, aim_name):
    values = [curve for group, _ in curves for curve, _, _ in group]
    drawn = Panel(left, title, unit, list(values[0]), *span(values, aim))
    for group, colour in curves:
        for curve, name, dashes in group:
            drawn.curve(curve, name, colour, dashes)
    drawn.aim(aim, aim_name)
    return drawn.drawn()


def drawing(run):
    times = [(family_curves(run, case, lambda one: one["total_s"], name), colour)
             for case, name, colour in (("burst", "burst", BLUE), ("stopped", "after a stop", ORANGE))]
    waits = [(family_curves(run, "sustained", lambda one, part=part: one["latency_ms"][part], f"p{part}"), colour)
             for part, colour in (("99", ORANGE), ("50", BLUE))]
    parts = [*panel(70, "From the first report to the last entry", " s", times, GOAL_BURST_S, "aim for 100 000: 2 s"),
             *panel(600, f"From a report to its entry, {number(run['rate'])} joins a second", " ms", waits,
                    GOAL_P99_MS, "aim for p99: 50 ms")]
    return "\n".join(['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 1010 350" width="1010" height="350">',
                      '<rect width="100%" height="100%" fill="white"/>', *parts, "</svg>", ""])


def write(run, folder):
    for name, text in (("scale.md", page(run)), ("scale.svg", drawing(run))):
        with open(os.path.join(folder, name), "w") as file:
            file.write(text)
