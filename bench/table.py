#!/usr/bin/env python3
"""Makes tables of the samples that bench/run collects: bench/table.py SAMPLES [DOCUMENT]

Prints the tables and replaces the text between the two markers of DOCUMENT with them.
"""
import re
import statistics
import sys

# Measure, goal, and what must not exceed it: the "ratio" of the minimums (medians vary under
# emulation), or the largest "value" of ours. The first match counts.
GOALS = [
    (r"host, (one|two) CPUs?, call version, µs", 1.15, "ratio"),
    (r"(nvme|ufs) call (info|health|power), µs", 1.10, "ratio"),
    (r"(nvme|ufs) call (userdata|metadata), µs", 1.20, "ratio"),
    (r"(nvme|ufs) user CPU by kernel CPU", 0.10, "value"),
    (r".* memory.*, KiB|release file, stripped, KiB", 1024, "value"),
    (r"exec to first answer, .*|first answer, unit as shipped, .*", 1.10, "ratio"),
    (r"disk_info --json health, ms", 1.30, "ratio"),
]


def number(value):
    return f"{value:.2f}" if value < 10 else f"{value:.1f}" if value < 100 else f"{value:.0f}"


def read(path):
    """The samples by measure and side, the system calls by call and side, the units' exposure."""
    samples, calls, exposure = {}, {}, {}
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            fields = line.rstrip("\n").split("\t")
            if len(fields) != 3:
                print(line, end="")
                continue
            measure, side, value = fields
            if measure.startswith("calls "):
                words = value.split()
                counts = {name: int(count) for name, count in zip(words[::2], words[1::2])}
                calls.setdefault(measure.removeprefix("calls "), {})[side] = counts
            elif measure == "exposure":
                exposure[side] = value
            # A call on the machine itself is too short for the clock tick that CPU time is counted in.
            elif not re.match(r"warm-up|host.* CPU a call", measure):
                samples.setdefault(measure, {"ours": [], "floor": []})[side].append(float(value))
    return samples, calls, exposure


def add_shares(samples):
    """Adds the user CPU of the device calls as a share of their kernel CPU."""
    for disk in ("nvme", "ufs"):
        if user := samples.get(f"{disk} user CPU a call, µs"):
            kernel = samples[f"{disk} kernel CPU a call, µs"]
            shares = {side: [user[side][0] / kernel[side][0]] for side in kernel if kernel[side][0]}
            samples[f"{disk} user CPU by kernel CPU"] = shares


def rows(samples):
    yield "| measure | ours min | median | floor min | median | ratio min | median | goal | |"
    yield "|---|---:|---:|---:|---:|---:|---:|---:|---|"
    for measure, sides in samples.items():
        least, middle = ({s: f(v) for s, v in sides.items() if v} for f in (min, statistics.median))
        cells = [number(d[s]) if s in d else "" for s in ("ours", "floor") for d in (least, middle)]
        for d in (least, middle):
            cells.append(f"{d['ours'] / d['floor']:.2f}" if d.get("floor") and "ours" in d else "")
        goal, kind = next(((g, k) for p, g, k in GOALS if re.fullmatch(p, measure)), (None, ""))
        if goal is None:
            cells += ["", ""]
        else:
            value = least["ours"] / least["floor"] if kind == "ratio" else max(sides["ours"])
            cells += [f"{goal:g}", "met" if value <= goal else "missed"]
        yield f"| {measure} | {' | '.join(cells)} |"


def listed(counts, form="d"):
    return " ".join(f"{name} {count:{form}}" for name, count in sorted(counts.items()) if count)


def less(counts, others):
    return {name: counts.get(name, 0) - others.get(name, 0) for name in counts | others}


def call_rows(calls):
    yield "| call | the daemon's system calls; for the other calls, those beyond version's | more than the floor's |"
    yield "|---|---|---|"
    for name, sides in calls.items():
        if not name.endswith(" version"):
            loop = calls[name.split()[0] + " version"]
            sides = {side: less(counts, loop[side]) for side, counts in sides.items()}
        more = listed(less(sides["ours"], sides["floor"]), "+d")
        yield f"| {name} | {listed(sides['ours'])} | {more or 'none'} |"


def main():
    samples, calls, exposure = read(sys.argv[1])
    add_shares(samples)
    tables = [list(rows(samples)), list(call_rows(calls))]
    tables.append(["| unit | exposure |", "|---|---:|", *(f"| {n} | {v} |" for n, v in exposure.items())])
    text = "\n\n".join("\n".join(table) for table in tables)
    print(text)
    if len(sys.argv) > 2:
        with open(sys.argv[2], encoding="utf-8") as document:
            before, rest = document.read().split("<!-- measured -->\n", 1)
            after = rest.split("<!-- end -->", 1)[1]
        with open(sys.argv[2], "w", encoding="utf-8") as document:
            document.write(f"{before}<!-- measured -->\n{text}\n<!-- end -->{after}")


main()
