#!/usr/bin/python3
"""Makes the report of a run of scripts/bench.

usage: report.py LINES RESULTS [DOCUMENT]

LINES is what the programs wrote, a figure a line. RESULTS gets all of it as JSON, with the machine and the
versions. In DOCUMENT the tables between the two markers are replaced, and its pictures are drawn anew.
"""

import datetime
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys

import pictures

BEGIN, END = "<!-- begin of the figures, written by scripts/bench --document -->", "<!-- end of the figures -->"
TITLES = {
    "relay": "Relays",
    "connections": "Connections",
    "driver": "Signatures through the driver",
    "first use": "A program's first use",
    "slow network": "The device is 15 ms away, each way",
    "small": "Single steps",
}
# group, quantity, title: what is drawn
DRAWN = {
    "relays.svg": ("relay", "relays/s", "Relays a second on one processor"),
    "relay-processor.svg": ("relay", "CPU/relay, µs", "Processor time of the relay for each request, µs"),
    "signatures.svg": ("driver", "per second", "RSA-2048 signatures a second"),
}


def said(*command):
    run = subprocess.run(command, capture_output=True, text=True, check=False)
    return run.stdout.strip().partition("\n")[0]


def value_in(path, key, separator):
    for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines():
        name, _, value = line.partition(separator)
        if name.strip() == key:
            return value.strip().strip('"')
    return "unknown"


def conditions():
    packages = "openssl softhsm2 p11-kit openssh-client libbenchmark-dev".split()
    versions = [said("dpkg-query", "-W", "-f=${Package} ${Version}", name) for name in packages]
    return {
        "date": datetime.date.today().isoformat(),
        "version": said("git", "describe", "--always", "--dirty"),
        "processor": value_in("/proc/cpuinfo", "model name", ":"),
        "processors": len(os.sched_getaffinity(0)),
        "virtual": "hypervisor" in value_in("/proc/cpuinfo", "flags", ":").split(),
        "kernel": platform.release(),
        "system": value_in("/etc/os-release", "PRETTY_NAME", "="),
        "compiler": said("c++", "--version"),
        "packages": [version for version in versions if version],
        "load before": float(os.environ.get("KEYFERRY_BENCH_LOAD", "nan")),
    }


def shown(value):
    """Three figures mean something, if that."""
    return f"{value:.{2 if value < 10 else 1 if value < 100 else 0}f}"


def cell(figure):
    if figure is None:
        return ""
    if len(figure["rounds"]) == 1:
        return shown(figure["median"])
    return f"{shown(figure['median'])} ({shown(figure['min'])} to {shown(figure['max'])})"


def table(figures):
    quantities = list(dict.fromkeys(figure["quantity"] for figure in figures))
    rows = {}
    for figure in figures:
        rows.setdefault((figure["condition"], figure["subject"]), {})[figure["quantity"]] = figure
    names = 2 if any(subject for _, subject in rows) else 1
    lines = ["|" + " |" * names + " " + " | ".join(quantities) + " |",
             "|" + "---|" * names + "--:|" * len(quantities)]
    for row, cells in rows.items():
        texts = [*row[:names], *(cell(cells.get(quantity)) for quantity in quantities)]
        lines.append("| " + " | ".join(texts) + " |")
    return lines


def report(made, figures):
    virtual = ", a virtual machine" if made["virtual"] else ""
    lines = [
        f"Taken on {made['date']} of version {made['version']}: {made['processors']} processors "
        f"({made['processor']}){virtual}; {made['system']}, Linux {made['kernel']}; {made['compiler']}; "
        f"{', '.join(made['packages'])}. Load of the machine before: {made['load before']:.2f}.",
    ]
    for group in dict.fromkeys(figure["group"] for figure in figures):
        of_group = [figure for figure in figures if figure["group"] == group]
        lines += ["", f"### {TITLES[group]}", "", *table(of_group)]
        for name, (drawn, _, title) in DRAWN.items():
            if drawn == group:
                lines += ["", f"![{title}](pictures/{name})"]
    return "\n".join(lines)


def write_document(path, made, figures):
    text = path.read_text(encoding="utf-8")
    before, begin, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        sys.exit(f"report: error: {path} lacks its two markers")
    path.write_text(f"{before}{BEGIN}\n{report(made, figures)}\n{END}{after}", encoding="utf-8")
    folder = path.parent / "pictures"
    folder.mkdir(exist_ok=True)
    for name, (group, quantity, title) in DRAWN.items():
        bars = [figure for figure in figures
                if (figure["group"], figure["quantity"]) == (group, quantity) and figure["subject"] != "ratio"]
        if bars:
            (folder / name).write_text(pictures.bars(title, bars, shown), encoding="utf-8")


def main(lines, results, document=None):
    figures = [json.loads(line) for line in pathlib.Path(lines).read_text(encoding="utf-8").splitlines()]
    for figure in figures:
        rounds = figure["rounds"]
        figure.update(median=statistics.median_low(rounds), min=min(rounds), max=max(rounds))
    made = conditions()
    path = pathlib.Path(results)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(json.dumps({"conditions": made, "figures": figures}, indent=1, ensure_ascii=False) + "\n",
                    encoding="utf-8")
    if document:
        write_document(pathlib.Path(document), made, figures)


if __name__ == "__main__":
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    main(*sys.argv[1:])
