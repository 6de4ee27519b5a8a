#!/usr/bin/env python3
"""Renders the performance report from the benchmark's JSON: a Markdown page with a table per
group, the targets checked, and PNG plots beside it.

    python3 scripts/benchreport.py RESULTS.json REPORT.md [--where TEXT]

Every figure in the page comes from the JSON; only the prose that says what limits each group is
written here.
"""
import argparse
import json
import os

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

# The groups in the page's order: title and what limits the figures.
GROUPS = [
    ("cached-hit", "Cached reads through the manager",
     "A hit costs the manager's lock, the routing to the category, the cached layer's lock and "
     "lookup (lower-casing the names, an ordered map), a BSTR copy and the VARIANT conversion. The "
     "floor does the same BSTR and VARIANT work around a bare `std::map` lookup, so the ratio is "
     "what the component adds. With prebuilt names and many values the reads go to memory for the "
     "client's own name strings as well, so memory latency dominates both sides; names built at "
     "the call show the lookup's own growth."),
    ("memory", "Memory per cached value",
     "Heap bytes the cached layer holds per value (measured with `HeapWalk` before and after "
     "filling the cache) against the value's payload: the key, the name and the text in UTF-16. "
     "The cache keeps a lower-cased copy of each name beside an entry in an ordered map per key, "
     "so small values cost more than their payload."),
    ("threads", "Several threads on one category",
     "Every manager call holds the core's one lock for its whole run, and the cached layer holds "
     "its own lock as well, so calls from several threads run one at a time. More threads than "
     "one give no more throughput; the curve shows what the lock hand-over costs a multithreaded "
     "client. (The machine has the number of processors given above.)"),
    ("platform", "Uncached registry and environment against the platform",
     "An uncached read of one value reads the whole key (open, query its info, enumerate and query "
     "every value, close): under Wine each of those calls is a round trip to the wine server, "
     "which the SetEvent floor measures. The component's own work (the tables, the BSTRs) is small "
     "beside them. A client that needs one value pays less with `RegGetValueW`; the layer reads "
     "the key as the storage's interface asks. The environment storage answers from its own copy "
     "of the environment block (read once per storage), scanning it per read."),
    ("async", "Asynchronous writes",
     "Piping a write costs a functor, a copy of the key and the values, and the pipe's lock on "
     "the caller's thread; the floor is the same call made on a root that does nothing. A flush "
     "with nothing pending takes the pipe's locks and reads the retained error. The drain rates are "
     "those of the worker against the same calls made directly: in the multithreaded apartment "
     "the worker's thread hand-over dominates, through a single-threaded apartment the proxy's "
     "marshalling and the window messages, and to the server in another process the RPC and the "
     "database's commit."),
    ("root", "The storage-root server",
     "A call through the server crosses the process boundary (under Wine, RPC over named pipes "
     "with the wine server in between); the floor is the same call of a do-nothing object in "
     "another process, so the ratio is what the server's own work adds."),
    ("sql", "SQL storage on SQLite against the SQLite C API",
     "The same statements, prepared once, made through the C API in one transaction. What limits "
     "both is SQLite's write-ahead log and its commit."),
    ("engines", "PostgreSQL against SQLite",
     "The root on PostgreSQL talks to a server over loopback through ODBC and keeps no cache (so "
     "every read is a round trip), where SQLite works on a local file."),
    ("environment", "Lists into the environment",
     "Each `SetEnvironmentVariableW` scans the whole environment block and copies it when it "
     "grows, so a list costs its length times the block's size; the floor makes the same platform "
     "calls."),
    ("script", "The automation object from VBScript",
     "A GetValue from a script goes through the engine's late binding (the name to a DISPID, the "
     "arguments into VARIANTs), the type library's Invoke, the session's lock and its parsing of the "
     "category, and then the manager's GetData, which is the floor."),
    ("ctl", "sdmctl against the same calls from C++",
     "The tool's figures have its start-up (process, binding, activating the server) taken out; "
     "its own work is JSON parsing and writing beside the same manager calls."),
]


# Why a target is missed, by the figure's group and the start of its id: shown only when it is.
MISSED = {
    ("cached-hit", "prebuilt/"): "A hit through the manager takes two locks (the core's and the cached "
    "layer's) and lower-cases the key and the name into new strings for the lookup, because names "
    "are matched without regard to case; the floor looks the name up as it is given. Both are part "
    "of the module's design: every manager call is serialised, and names are case-insensitive.",
    ("cached-hit", "built/"): "As for prebuilt names, plus the client's formatting of the name into "
    "a new BSTR for each call (the floor formats into a std::wstring, without the allocation of a "
    "BSTR).",
    ("cached-hit", "growth"): "With 100,000 values the ordered maps are deeper than the processor's "
    "caches, and each lookup waits for memory more often.",
    ("memory", "per-value/"): "Each cached value is an entry of an ordered map (a tree node) holding "
    "the lower-cased name and the value as std::wstring objects and a dirty flag, and every heap "
    "block carries the heap's own header. For the benchmark's short names and values (about 80 "
    "bytes of payload) that fixed cost is larger than the payload; for values of a few hundred "
    "bytes the ratio falls towards 1.",
    ("platform", "registry/read/raw"): "The layer's own work (the key path's conversion, the value "
    "table, the BSTRs and the VARIANT) comes on top of the registry calls that the floor makes; "
    "each of those is a wine-server round trip, and on this shared machine the ratio moves by a "
    "few hundredths from run to run.",
}


def missed_why(figure):
    for (group, start), text in MISSED.items():
        if figure["group"] == group and figure["id"].startswith(start):
            return text
    return "See the group's paragraph below."


def spread(s, unit=""):
    text = f"{number(s['median'])} {unit}".strip()
    if s["min"] == s["max"]:
        return text
    return f"{text} ({number(s['min'])}–{number(s['max'])})"


def number(x):
    if abs(x) >= 1000:
        return f"{x:,.0f}"
    if abs(x) >= 10:
        return f"{x:.1f}"
    return f"{x:.2f}"


def label(figure):
    params = figure.get("params", {})
    def shown(v):
        if isinstance(v, float) and v.is_integer():
            v = int(v)
        return f"{v:,}" if isinstance(v, int) else str(v)
    extra = ", ".join(f"{k.replace('_', ' ')} {shown(v)}" for k, v in params.items() if k not in ("volatile_ms",))
    return figure["title"] + (f" ({extra})" if extra else "")


def target_text(figure):
    if "target_max" not in figure:
        return ""
    met = figure["ratio"]["median"] <= figure["target_max"]
    return f"≤ {figure['target_max']:g}: {'met' if met else '**missed**'}"


def table(figures):
    lines = ["| figure | measured | floor | ratio (median, min–max) | target |", "|---|---|---|---|---|"]
    for f in figures:
        if "floor" in f:
            lines.append(f"| {label(f)} | {spread(f['component'], f['unit'])} | {f['floor_name']}: "
                         f"{spread(f['floor'], f['unit'])} | {spread(f['ratio'])} | {target_text(f)} |")
        else:
            lines.append(f"| {label(f)} | {spread(f['component'], f['unit'])} | | | |")
    return "\n".join(lines)


BEGIN = "<!-- performance:begin -->"
END = "<!-- performance:end -->"


def renew_readme(path, run, targets, report):
    """The README's headline table: every target with its ratio, from the same run."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    if BEGIN not in text or END not in text:
        raise SystemExit(f"benchreport: {path} has no performance markers")
    rows = ["| figure | against | ratio | target |", "|---|---|---|---|"]
    for f in targets:
        rows.append(f"| {label(f)} | {f['floor_name']} | {spread(f['ratio'])} | {target_text(f)} |")
    block = "\n".join([BEGIN, "", f"From the run of {run['date']} ([the report]({report})):", ""] + rows + ["", END])
    head, rest = text.split(BEGIN, 1)
    tail = rest.split(END, 1)[1]
    with open(path, "w", encoding="utf-8") as file:
        file.write(head + block + tail)


def errorbars(ax, xs, rows, side, fmt, name):
    """A line of medians with their minimum-to-maximum range over the rounds."""
    med = [r[side]["median"] for r in rows]
    low = [r[side]["median"] - r[side]["min"] for r in rows]
    high = [r[side]["max"] - r[side]["median"] for r in rows]
    ax.errorbar(xs, med, yerr=[low, high], fmt=fmt, capsize=3, label=name)


def save(fig, folder, name):
    path = os.path.join(folder, name)
    fig.tight_layout()
    fig.savefig(path, dpi=110)
    plt.close(fig)
    return path


def plot_cached_hit(figures, folder):
    series = {}
    for f in figures:
        names = f["params"].get("names")
        if not names:
            continue
        series.setdefault(names, []).append(f)
    if not series:
        return None
    fig, ax = plt.subplots(figsize=(7, 4.2))
    for names, rows in series.items():
        rows.sort(key=lambda r: r["params"]["values"])
        xs = [r["params"]["values"] for r in rows]
        for side, style in (("component", "-o"), ("floor", "--s")):
            who = "manager" if side == "component" else "map lookup"
            errorbars(ax, xs, rows, side, style, f"{who}, names {names}")
    ax.set_xscale("log")
    ax.set_xlabel("cached values")
    ax.set_ylabel("ns per read")
    ax.set_title("Cached GetData hit against a bare map lookup")
    ax.grid(True, which="both", alpha=0.3)
    ax.legend(fontsize=8)
    return save(fig, folder, "cached-hit.png")


def plot_threads(figures, folder):
    rows = sorted(figures, key=lambda f: f["params"]["threads"])
    if not rows:
        return None
    xs = [r["params"]["threads"] for r in rows]
    fig, ax = plt.subplots(figsize=(6, 3.8))
    errorbars(ax, xs, rows, "component", "-o", "operations per second")
    ax.set_xscale("log", base=2)
    ax.set_xticks(xs)
    ax.set_xticklabels([str(x) for x in xs])
    ax.set_xlabel("threads")
    ax.set_ylabel("operations per second")
    ax.set_ylim(bottom=0)
    ax.set_title("Mixed workload (80 % hits, 20 % writes) on one category")
    ax.grid(True, alpha=0.3)
    return save(fig, folder, "threads.png")


def plot_memory(figures, folder):
    rows = sorted(figures, key=lambda f: f["params"]["values"])
    if not rows:
        return None
    labels = [f"{r['params']['values']:,}" for r in rows]
    heap = [r["component"]["median"] for r in rows]
    payload = [r["floor"]["median"] for r in rows]
    fig, ax = plt.subplots(figsize=(6, 3.8))
    xs = range(len(rows))
    ax.bar([x - 0.2 for x in xs], heap, width=0.4, label="heap bytes per cached value")
    ax.bar([x + 0.2 for x in xs], payload, width=0.4, label="payload bytes per value")
    ax.set_xticks(list(xs))
    ax.set_xticklabels(labels)
    ax.set_xlabel("cached values")
    ax.set_ylabel("bytes")
    ax.set_title("Memory per cached value")
    ax.legend(fontsize=8)
    return save(fig, folder, "memory.png")


PLOTS = {"cached-hit": plot_cached_hit, "threads": plot_threads, "memory": plot_memory}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("results")
    parser.add_argument("report")
    parser.add_argument("--where", default="")
    parser.add_argument("--readme", help="a README whose headline table (between its performance markers) is renewed")
    args = parser.parse_args()
    with open(args.results, encoding="utf-8") as file:
        document = json.load(file)
    run = document["run"]
    figures = document["figures"]
    folder = os.path.splitext(args.report)[0]
    os.makedirs(folder, exist_ok=True)
    by_group = {}
    for f in figures:
        by_group.setdefault(f["group"], []).append(f)

    out = ["# Performance", ""]
    out.append(f"Measured by `bash scripts/bench.sh` on {run['date']}"
               + (f", {args.where}" if args.where else f", {run['processors']} processors, under Wine")
               + (" (quick mode: a few rounds, small sizes)" if run.get("quick") else "") + ". "
               "This page is rendered from that run's JSON (`scripts/benchreport.py`). Every figure "
               "stands beside its floor, the same work without this component, measured in the same "
               "rounds; the ratio is taken per round and given as its median with the minimum and "
               "maximum over the rounds. The machine is shared, so single rounds vary; compare the "
               "ratios.")
    out.append("")
    targets = [f for f in figures if "target_max" in f]
    if targets:
        out += ["## Targets", "", "| figure | against | ratio (median, min–max) | target |", "|---|---|---|---|"]
        for f in targets:
            out.append(f"| {label(f)} | {f['floor_name']} | {spread(f['ratio'])} | {target_text(f)} |")
        out.append("")
        missed = [f for f in targets if f["ratio"]["median"] > f["target_max"]]
        reasons = {}
        for f in missed:
            reasons.setdefault(missed_why(f), []).append(label(f))
        for why, labels in reasons.items():
            out += [f"**Missed: {'; '.join(labels)}.** {why}", ""]
    for group, title, limits in GROUPS:
        rows = by_group.get(group)
        if not rows:
            continue
        out += [f"## {title}", "", limits, "", table(rows), ""]
        plot = PLOTS.get(group)
        path = plot(rows, folder) if plot else None
        if path:
            out += [f"![{title}]({os.path.basename(folder)}/{os.path.basename(path)})", ""]
    missing = [g for g, _, _ in GROUPS if g not in by_group]
    if missing:
        out += ["## Not measured in this run", "",
                "No figures for: " + ", ".join(missing) + " (the engines group needs a PostgreSQL "
                "database; `scripts/bench.sh` starts one).", ""]
    with open(args.report, "w", encoding="utf-8") as file:
        file.write("\n".join(out))
    if args.readme:
        renew_readme(args.readme, run, targets,
                     os.path.relpath(args.report, os.path.dirname(os.path.abspath(args.readme))))
    print(f"benchreport: {len(figures)} figures, {len(targets)} targets -> {args.report}")


if __name__ == "__main__":
    main()
