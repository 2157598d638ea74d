#!/usr/bin/python3
"""Writes docs/performance.md and its plots from what the benchmarks found: report.py FIGURES SECONDS LOAD

FIGURES has a JSON object {"table", "row", "columns"} a line, SECONDS is how long it took to make them, LOAD what others
asked of the machine before. Usually called by benchmarks/run. What a section says about its table stands in SECTIONS;
all numbers come from FIGURES. The same figures give the same bytes, but for the report's head.
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import textwrap
import time

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402  (the kind of output is chosen first)

ROOT = pathlib.Path(__file__).resolve().parent.parent
REPORT, PLOTS = ROOT / "docs/performance.md", ROOT / "docs/performance"

# A section per table, in the report's order.
#   text    what is measured and how it is to be read
#   aims    column: at most this much; a column's name stands for that column's value in the same row
#   bars    columns that are drawn as bars beside each other, one group a row
#   curve   (x, y, one of x): two columns that are drawn against each other with a fitted line, one point a row
#   log     the bars' axis is logarithmic
SECTIONS = [
    dict(table="layout switch", title="From a layout command to the picture",
         text="From a layout command on telnet, by the board's port on this machine, to the first frame of the new "
              "layout in the display's memory; the refresh that would bring it to a screen comes up to 17 ms later. "
              "The supervision looks at the settings every 100 ms, half of which is waiting on the average; then "
              "comes the next frame of the display, half a frame later on the average, and its composition. Each "
              "frame that was displayed around a switch is judged at 9,216 places, by the colours of the sources: it "
              "must be the old layout at all of them, or the new one. That sees black, half-applied layouts and tears "
              "between layouts; it does not see a tear between two frames of the same source.",
         aims={"median ms": 70, "p99 ms": 140, "wrong frames": 0}),
    dict(table="start and recovery", title="Start and recovery",
         text="From the event to the first frame that shows its outcome, beside the sum of the waits that are "
              "prescribed on that way (pauses, polls by half their period). What lies beyond them is the work: tools "
              "that are run, devices, pipelines that are built, the first frame of a camera.",
         aims={"beyond the waits ms": 300}, bars=["measured s", "prescribed waits s"]),
    dict(table="command latency", title="How long an answer takes",
         text="From a command to its whole answer on telnet while the picture of two cameras runs, measured inside the "
              "board's network. Two yardsticks of the same run: a plain echo server on the same loopback, and the bare "
              "search of a text for all patterns of the command table, which is part of every command's time.",
         bars=["median µs"], log=True),
    dict(table="thirty clients", title="Thirty clients at once",
         text="Each asks again as soon as it is answered."),
    dict(table="composition alone", title="Composing the picture",
         text="Processor time of composing one 1920x1080 frame out of two 1280x720 cameras (JPEG, 4:2:2) and a "
              "1920x1080 YUY2 source that are decoded already: our compositor and GStreamer's `compositor` in the same "
              "pipeline, five pairs in turn. The limit is what the same windows cost alone.",
         bars=["ours ms/frame", "stock ms/frame", "limit ms/frame"]),
    dict(table="composition with decoding", title="Composing and decoding",
         text="The same with the cameras' JPEG decoded on the way."),
    dict(table="composed picture against the reference", title="Is the composed picture right?",
         text="Difference from a plain bilinear scaler, in levels of 255.",
         aims={"mean levels": 1, "largest levels": 3}),
    dict(table="HDMI, two insets, with decoding", title="The heaviest layout",
         text="HDMI with two insets, cameras decoded: as fast as it goes, and at 30 frames a second. Peak memory is "
              "that of the process."),
    dict(table="own cost", title="What the daemon itself costs",
         text="Processor time of the daemon's own threads while a picture, sound and the keypad run, without those "
              "that GStreamer makes for streaming, decoding and composing. Beside them the bare accesses: a program on "
              "a second board that makes the same accesses at the same times and nothing else, which is the floor. "
              "What the emulator answers costs a wake-up here; on the appliance it is an ordinary system call.",
         bars=["ms/s", "bare accesses ms/s"]),
    dict(table="own memory", title="What the daemon keeps in memory",
         text="Resident and anonymous memory without and with pipelines, and how it grows while nothing happens."),
    dict(table="scale telnet clients", title="More telnet clients",
         text="An idle client costs nothing, since the thread sleeps in one `select` over all of them; ten commands a "
              "second cost the same from one client as from thirty.", curve=("clients", "10 commands/s, LAN ms/s", "client")),
    dict(table="scale commands", title="More commands",
         text="A straight line: nearly all of a command is the compilation of the 70 patterns, and that gets cheaper "
              "as caches stay warm. One thread answers, so it ends where a core is full.",
         curve=("commands/s", "LAN ms/s", "command a second")),
    dict(table="scale boards", title="More boards",
         text="Boards side by side on this machine share nothing, so the sum grows with their number.",
         curve=("boards", "all boards % of a core", "board")),
    dict(table="scale picture size", title="Larger pictures",
         text="The whole daemon, pipelines included, by the size of the display: composing grows with it, decoding the "
              "cameras and the sound do not.", curve=("megapixels", "ms/frame", "megapixel")),
    dict(table="sound cost", title="What sound costs",
         text="Processor time for a second of sound, beside `gst-launch-1.0` with the same elements and links on a "
              "second board at the same time.", bars=["ms/s"]),
    dict(table="sound latency", title="From microphone to loudspeaker",
         text="A tone begins at a microphone of a camera and is heard at an output. The mixer waits for one second by "
              "its settings; beside it `gst-launch-1.0` with the same links.", bars=["median ms"]),
    dict(table="sound changes", title="From a command to the loudspeaker",
         text="A command changes a gain or a route; the sound at the analog output tells when it came into force."),
    dict(table="idle threads", title="What an idle board costs",
         text="No camera, no monitor, every form of the front panel. A device access wakes the thread once here, "
              "because the emulator answers it."),
    dict(table="panel passes", title="A pass of the front panel",
         text="The daemon's thread beside a program on another board that makes the prescribed accesses of a pass and "
              "sleeps: what is beyond them."),
    dict(table="camera steps", title="How steady a camera is stepped",
         text="Milliseconds from one step of a moving camera to the next, as the camera sees them, while the picture "
              "runs. 150 ms and what the step itself takes is what it should be."),
    dict(table="bench page", title="What the bench page costs",
         text="Percent of a core, with no page open and with a viewer who takes every picture at the width of a "
              "laptop's page and follows all events."),
    dict(table="emulator", title="The emulator's own timing",
         text="As a program on the board sees it: a transfer on the emulated I2C bus, and how far from its due time a "
              "frame of an emulated camera arrives."),
]

LOOK = {
    "svg.hashsalt": "tesselvisor",  # names inside the file, which are random otherwise
    "svg.fonttype": "none",         # letters stay letters: sharp at any size, and the file small
    "font.family": "sans-serif",
    "font.size": 11,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.prop_cycle": matplotlib.cycler(color=["#1f6f8b", "#e0a458", "#7a7a7a"]),
    "figure.facecolor": "white",
}


def fail(text):
    sys.exit(f"report.py: {text}")


def plain(row):
    """A row's name in Markdown, where a pair of dollars is a formula."""
    return f"`{row}`" if "$" in row else row


def number(value):
    if value == int(value) or abs(value) >= 1000:
        return f"{value:.0f}"
    return f"{value:.3g}" if abs(value) < 100 else f"{value:.1f}"


def read_figures(path):
    """Rows by table, in the order in which they were found: {table: [(row, {column: value})]}"""
    tables = {}
    for line in pathlib.Path(path).read_text().splitlines():
        figure = json.loads(line)
        tables.setdefault(figure["table"], []).append((figure["row"], figure["columns"]))
    unknown = set(tables) - {section["table"] for section in SECTIONS}
    if unknown:
        fail("no section for the table " + ", ".join(sorted(unknown)))
    return tables


def column_names(rows):
    return list(dict.fromkeys(name for _, columns in rows for name in columns))


def column(section, rows, name):
    """Rows that have it, and their values."""
    found = [(row, columns[name]) for row, columns in rows if name in columns]
    if not found:
        fail(f"table {section['table']}: no column {name}, it has {', '.join(column_names(rows))}")
    return found


# ---- Plots

def save(figure, section):
    name = re.sub(r"[^a-z0-9]+", "-", section["table"]) + ".svg"
    figure.savefig(PLOTS / name, metadata={"Date": None, "Creator": None}, bbox_inches="tight")
    pyplot.close(figure)
    return f"![{section['title']}](performance/{name})"


def draw_bars(section, rows):
    series = [(name, dict(column(section, rows, name))) for name in section["bars"]]
    labels = [row for row, _ in rows if any(row in values for _, values in series)]
    thickness = 0.8 / len(series)
    figure, axes = pyplot.subplots(figsize=(6.5, 0.9 + 0.35 * len(labels) * len(series) ** 0.5))
    for index, (name, values) in enumerate(series):
        places = [place + thickness * (index - (len(series) - 1) / 2) for place in range(len(labels))]
        bars = axes.barh(places, [values.get(label, 0) for label in labels], thickness, label=name)
        axes.bar_label(bars, [number(values[label]) if label in values else "" for label in labels], padding=3)
    axes.set_yticks(range(len(labels)), [label.replace("$", r"\$") for label in labels])
    axes.invert_yaxis()
    axes.margins(x=0.12)
    if section.get("log"):
        axes.set_xscale("log")
        axes.set_xlim(left=1)
        axes.xaxis.set_major_formatter(lambda value, _: number(value))
    if len(series) > 1:
        axes.legend(frameon=False, loc="lower left", bbox_to_anchor=(0, 1), ncols=len(series))
    else:
        axes.set_xlabel(series[0][0])
    return save(figure, section)


def fit(points):
    """Least squares: (slope, value at 0)"""
    count = len(points)
    mean_x, mean_y = (sum(point[axis] for point in points) / count for axis in (0, 1))
    spread = sum((x - mean_x) ** 2 for x, _ in points)
    slope = sum((x - mean_x) * (y - mean_y) for x, y in points) / spread if spread else 0
    return slope, mean_y - slope * mean_x


def draw_curve(section, rows):
    x, y, one = section["curve"]
    xs, ys = dict(column(section, rows, x)), dict(column(section, rows, y))
    points = sorted((xs[row], ys[row]) for row in xs if row in ys)
    slope, start = fit(points)
    ends = [points[0][0], points[-1][0]]
    figure, axes = pyplot.subplots(figsize=(5.5, 3))
    axes.plot(ends, [start + slope * end for end in ends], color="#bbbbbb")
    axes.plot(*zip(*points), "o")
    axes.set(xlabel=x, ylabel=y, ylim=(0, 1.1 * max(value for _, value in points)))
    text = f"Fitted line: {number(start)} {y} and {number(slope)} more for each {one}."
    return text + "\n\n" + save(figure, section)


# ---- Text

def table_text(rows):
    names = column_names(rows)
    lines = ["| | " + " | ".join(names) + " |", "|---|" + "---:|" * len(names)]
    for row, columns in rows:
        cells = [number(columns[name]) if name in columns else "" for name in names]
        lines.append("| " + " | ".join([plain(row)] + cells) + " |")
    return "\n".join(lines)


def aim_text(section, rows):
    sentences = []
    for name, limit in section.get("aims", {}).items():
        missed = [row for row, columns in rows
                  if name in columns and columns[name] > (columns[limit] if isinstance(limit, str) else limit)]
        verdict = "missed by " + ", ".join(map(plain, missed)) if missed else "kept"
        sentences.append(f"{name} at most {limit}: **{verdict}**.")
    return textwrap.fill("Aims: " + " ".join(sentences), 120)


def section_text(section, rows):
    parts = [f"## {section['title']}", textwrap.fill(section["text"], 120)]
    if not rows:
        return "\n\n".join(parts + ["Not run."])
    parts.append(table_text(rows))
    if "aims" in section:
        parts.append(aim_text(section, rows))
    if "bars" in section:
        parts.append(draw_bars(section, rows))
    if "curve" in section:
        parts.append(draw_curve(section, rows))
    return "\n\n".join(parts)


def output_of(*command):
    return subprocess.run(command, cwd=ROOT, capture_output=True, text=True, check=True).stdout.strip()


def processor():
    models = re.findall(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    return models[0] if models else os.uname().machine


def head(seconds, load):
    changes = output_of("git", "status", "--porcelain", "--", ".", ":!docs")
    commit = output_of("git", "rev-parse", "--short", "HEAD") + (" and uncommitted changes" if changes else "")
    return f"""# Performance

Written by `benchmarks/run`, which measures all of it anew; a change here would be lost.

| | |
|---|---|
| machine | {len(os.sched_getaffinity(0))} processors, {processor()}, Linux {os.uname().release.split("-")[0]} |
| its load before | {load} |
| date | {time.strftime("%Y-%m-%d %H:%M")} |
| commit | {commit} |
| took | {seconds // 60} min {seconds % 60} s |

Ratios, and what is beyond a yardstick of the same run, are what counts; absolute numbers are this machine's. The daemon
and its emulated board share the machine, so the emulator's own work is in most of them."""


def main():
    if len(sys.argv) != 4:
        fail("usage: report.py FIGURES SECONDS LOAD")
    _, figures, seconds, load = sys.argv
    tables = read_figures(figures)
    matplotlib.rcParams.update(LOOK)
    PLOTS.mkdir(exist_ok=True)
    for old in PLOTS.glob("*.svg"):
        old.unlink()
    sections = [section_text(section, tables.get(section["table"])) for section in SECTIONS]
    REPORT.write_text("\n\n".join([head(int(seconds), load)] + sections) + "\n")
    print(REPORT)


main()
