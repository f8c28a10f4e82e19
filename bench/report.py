"""The table, its JSON and the picture."""

import datetime
import json
import math
import os
import re
import statistics
from dataclasses import dataclass, field

from bench.machine import ROOT, WORK, describe

README = os.path.join(ROOT, "README.md")
DOCUMENT = os.path.join(ROOT, "docs/benchmarks.md")
PICTURE = os.path.join(ROOT, "docs/benchmarks.svg")


@dataclass
class Row:
    work: str
    key: tuple  # of the figures: row, variant, size
    peer: str = ""
    limit: str = ""
    unit: str = "s"
    limit_key: tuple = None  # where it is not that of ours
    aims: dict = field(default_factory=dict)  # at most so many times the peer or the limit; "ours": at most so much
    headline: bool = False  # also shown on the first page


def mount_row(order):
    return Row(f"mount, 16,000 recordings, directory {order}", ("mount", order, 16000), limit="read directory and indexes",
               aims={"limit": 2}, headline=order == "in order")


def search_row(what, aims):
    return Row(f"search, {what}" if what[0] != "c" else what, ("search", what, 16000), peer="SQLite", aims=aims,
               headline=what == "an hour")


ROWS = [
    Row("record 150 MB, processor time", ("record", "record", 0), peer="ffmpeg -c copy -f segment", limit="cp, sync",
        aims={"peer": 1 / 3, "limit": 1.4}, headline=True),
    Row("one frame written, instructions", ("frame", "instructions", 0), unit=""),
    Row("4 minutes written, allocations", ("frame", "allocations", 0), limit="none", unit="", aims={"ours": 0}),
    Row("play 150 MB, processor time", ("play", "play", 0), peer="libavformat", limit="cat",
        aims={"peer": 1 / 2, "limit": 1.3}, headline=True),
    *map(mount_row, ("in order", "rotated", "shuffled")),
    Row("mount without index files, a recording", ("probe", "index lost", 16000), peer="ffprobe",
        limit="open, read 4 KiB, close", aims={"peer": 1 / 50, "limit": 5}),
    search_row("an hour", {"peer": 2}),
    search_row("a day", {}),
    search_row("everything", {"peer": 1}),
    search_row("calendar of a month", {}),
    Row("close with 16,000 recordings", ("close", "close", 16000), limit="close of the MP4 file",
        limit_key=("close", "close", 0), aims={"limit": 1.2}),
    *(Row(f"format {size} GB", ("format", "format", size), peer="mkfs.fat", limit="write the same sectors", aims={"limit": 1.1})
      for size in (8, 128)),
    Row("open 30 minutes and seek, first frame", ("seek", "open and seek", 30), peer="libavformat",
        aims={"peer": 1 / 5}, headline=True),
    Row("heap with 16,000 recordings", ("heap", "heap", 16000), limit="124 bytes each", unit="B", aims={"limit": 1.6}),
    Row("heap left by 10,000 recordings", ("heap", "growth", 0), limit="none", unit="B", aims={"ours": 0}),
]


def amount(value, unit):
    """A figure with three digits and its unit."""
    if value is None:
        return ""
    if unit == "s" and value > 0:
        for scale, name in ((1, "s"), (1e-3, "ms"), (1e-6, "µs")):
            if value >= scale or name == "µs":
                return f"{value / scale:#.3g}".rstrip(".") + " " + name
    return f"{value:,.0f} {unit}".rstrip()


def evaluate(figures):
    """A dictionary a row: medians, ratios, and whether each aim holds."""
    results = []
    for row in ROWS:
        medians = {role: statistics.median(samples) for role, samples in figures[row.key].items()}
        if row.limit_key:
            medians["limit"] = statistics.median(figures[row.limit_key]["limit"])
        if not row.peer:
            medians.pop("peer", None)
        ours = medians["ours"]
        ratios = {role: ours / medians[role] for role in ("peer", "limit") if medians.get(role)}
        held = all((ours if role == "ours" else ratios[role]) <= most for role, most in row.aims.items())
        results.append({"row": row.key[0], "work": row.work, "peer is": row.peer, "limit is": row.limit, "unit": row.unit,
                        **medians, "to peer": ratios.get("peer"), "to limit": ratios.get("limit"), "aims": row.aims,
                        "held": held, "samples": dict(figures[row.key])})
    return results


def aim_text(aims):
    texts = {"peer": "{} x peer", "limit": "{} x limit", "ours": "{}"}
    return ", ".join(texts[role].format(f"1/{1 / most:.0f}" if 0 < most < 1 else f"{most:g}") for role, most in aims.items())


def lines(results):
    """The cells of the table, a list a line."""
    yield ["row", "work", "ifs", "peer", "limit", "to peer", "to limit", "aim", ""]
    for result in results:
        figure = [amount(result.get(role), result["unit"]) for role in ("ours", "peer", "limit")]
        ratio = [f"{result[key]:.3g}" if result[key] else "" for key in ("to peer", "to limit")]
        verdict = ("held" if result["held"] else "MISSED") if result["aims"] else ""
        yield [result["row"], result["work"], *figure, *ratio, aim_text(result["aims"]), verdict]


def table(results):
    cells = list(lines(results))
    widths = [max(len(line[column]) for line in cells) for column in range(len(cells[0]))]
    left = (1, 7, 8)
    return "\n".join("  ".join(cell.ljust(width) if column in left else cell.rjust(width)
                               for column, (cell, width) in enumerate(zip(line, widths))).rstrip() for line in cells)


def header(rounds):
    return f"{datetime.date.today()}, {describe()}, medians of {rounds} rounds"


def write_json(path, title, results, curves, powers, counted):
    with open(path, "w", encoding="utf-8") as file:
        json.dump({"title": title, "rows": results, "curves": curves, "growth": powers, "counts": counted}, file, indent=1)
        file.write("\n")


def growth_curves(figures):
    """What grows with -> name -> [(size, seconds)]. Probing counts as a whole, not a file."""
    curves = {"recordings": {}, "minutes": {}}

    def add(kind, name, size, seconds):
        curves[kind].setdefault(name, []).append((size, statistics.median(seconds)))

    for (row, variant, size), roles in sorted(figures.items()):
        if row == "seek" or variant.endswith(" by length"):
            add("minutes", variant.replace(" by length", ""), size, roles["ours"])
        elif row == "probe":
            add("recordings", "mount, no index files", size, [seconds * size for seconds in roles["ours"]])
        elif row in ("mount", "search", "close") and size:
            add("recordings", f"mount, {variant}" if row == "mount" else variant, size, roles["ours"])
        if row == "mount" and variant == "in order":
            add("recordings", "reading directory and indexes", size, roles["limit"])
    return curves


def growths(curves, counted):
    """Name and what it grows with -> powers of n, of the time and, where they are counted, of the instructions."""
    powers = {}
    for kind, named in curves.items():
        for name, points in named.items():
            (small, first), (large, last) = points[0], points[-1]
            keys = [f"{name}: power of n", f"search {name}: power of n"]
            if kind == "minutes" and name == "close":
                keys = []  # its instructions are counted with the recordings
            powers[f"{name}, with {kind}"] = {"time": math.log(last / first) / math.log(large / small),
                                              "instructions": next((counted[key] for key in keys if key in counted), None)}
    return powers


def growth_table(powers):
    rows = [f"{'Growth, power of n':52}{'time':>6}{'instructions':>14}"]
    for name, power in powers.items():
        counts_too = "" if power["instructions"] is None else f"{power['instructions']:.2f}"
        rows.append(f"{name:52}{power['time']:6.2f}{counts_too:>14}")
    return "\n".join(rows)


def draw(path, title, results, curves):
    import matplotlib  # takes a second to load
    matplotlib.use("svg")
    matplotlib.rcParams.update({"svg.hashsalt": "ifs", "svg.fonttype": "none", "font.size": 8, "axes.spines.top": False, "axes.spines.right": False})
    from matplotlib import pyplot

    figure, (left, middle, right) = pyplot.subplots(1, 3, figsize=(13, 4.8), width_ratios=(5, 4, 3), layout="constrained")
    draw_rows(left, [result for result in results if result["to peer"] or result["to limit"]])
    draw_growth(middle, curves["recordings"], "recordings on the card")
    draw_growth(right, curves["minutes"], "minutes of the recording")
    figure.suptitle(title, fontsize=8, color="gray")
    figure.savefig(path, metadata={"Date": None})


def draw_rows(axes, results):
    """Where the peer and the limit stand when ifs takes 1."""
    for place, result in enumerate(reversed(results)):
        marks = {role: 1 / result[key] for role, key in (("peer", "to peer"), ("limit", "to limit")) if result[key]}
        axes.plot([min(1, *marks.values()), max(1, *marks.values())], [place, place], color="lightgray", zorder=1)
        for role, mark in marks.items():
            colour = {"peer": "tab:orange", "limit": "tab:green"}[role]
            axes.plot(mark, place, {"peer": "s", "limit": "|"}[role], color=colour, markersize=7, markeredgewidth=2)
        axes.plot(1, place, "o", color="tab:blue" if result["held"] else "tab:red", markersize=6)
    axes.set_xscale("log")
    axes.set_yticks(range(len(results)), [result["work"] for result in reversed(results)])
    axes.set_xlabel("cost, ifs = 1; red where an aim is missed")
    axes.set_title("ifs (●) beside what one would use instead (■) and the least possible (|)", fontsize=8, loc="right")
    axes.grid(axis="x", color="whitesmoke")


def draw_growth(axes, curves, label):
    for name, points in curves.items():
        sizes, seconds = zip(*points)
        axes.plot(sizes, [value / seconds[0] for value in seconds], "o-", markersize=3, linewidth=1, label=name)
    first = min(points[0][0] for points in curves.values())
    sizes = sorted({size for points in curves.values() for size, _ in points})
    axes.plot(sizes, [size / first * (1 + math.log(size / first) / math.log(1000)) for size in sizes], "--", color="gray",
              linewidth=1, label="n log n")
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xticks(sizes, [f"{size:,}" for size in sizes])
    axes.minorticks_off()
    axes.set_xlabel(label)
    axes.set_title(f"growth of the cost, {first:,} = 1", fontsize=8)
    axes.legend(fontsize=6)


def markdown(cells):
    rows = ["| " + " | ".join(line) + " |" for line in cells]
    rows.insert(1, "|" + "---|" * len(cells[0]))
    return "\n".join(rows)


def put_between_marks(path, section):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    section = f"<!-- figures -->\n{section}\n<!-- end of figures -->"
    with open(path, "w", encoding="utf-8") as file:
        file.write(re.sub(r"<!-- figures -->.*<!-- end of figures -->", lambda _: section, text, flags=re.DOTALL))


def publish(title, results):
    """Put the table into the document and its headlines into the README, each between its two marks."""
    cells = list(lines(results))
    put_between_marks(DOCUMENT, f"{title}\n\n{markdown(cells)}")
    headlines = [line[1:5] for line, row in zip(cells[1:], ROWS) if row.headline]
    put_between_marks(README, markdown([cells[0][1:5], *headlines]))
