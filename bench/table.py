#!/usr/bin/env python3
"""Makes the tables of the samples that bench/run collects: bench/table.py SAMPLES [DOCUMENT]

Prints them, and replaces what stands between the two markers of DOCUMENT.
"""
import re
import statistics
import sys

# Measure, goal, and what is held against it: "ratio" of the minimums, as medians jump under
# emulation, or ours as a "value". The first match counts.
GOALS = [
    (r"host, (one|two) CPUs?, call version, µs", 1.15, "ratio"),
    (r"(nvme|ufs) call (info|health|power), µs", 1.10, "ratio"),
    (r"(nvme|ufs) call (userdata|metadata), µs", 1.20, "ratio"),
    (r"(nvme|ufs) user CPU by kernel CPU", 0.10, "value"),
    (r".* memory.*, KiB|release file, stripped, KiB", 1024, "value"),
    (r"exec to first answer, .*|first answer, unit as shipped, .*", 1.10, "ratio"),
    (r"disk_info --json health, ms", 1.50, "ratio"),
]

# The fewest system calls that the behaviour allows, by hand. Around each: wait, receive, send.
# realpath(3) asks for every component of the path and of the link's target: 7 for the data
# partition, 10 for a UFS disk in sysfs. NVMe opens the disk anew for each question, as each opening
# has its own failure. UFS finds its directory twice; by the 20th call the 3 records of each are
# suppressed. A file is opened, read and closed; one that is missing is only asked for.
LOOP = {"epoll_wait": 1, "ioctl": 1, "recvfrom": 1, "sendto": 1}
ROOT = {"readlink": 7}


def files(count, missing=0):
    return {"openat": count + missing, "read": count, "close": count}


FIND_UFS = {"newfstatat": 2, "readlink": 22}
FILESYSTEM = [{"readlink": 1, "newfstatat": 1}, files(3)]
FEWEST = {
    "version": [],
    "nvme info": [ROOT, {"openat": 2, "ioctl": 2, "close": 2}],
    "nvme health": [ROOT, {"openat": 2, "ioctl": 3, "close": 2}],
    "nvme power": [ROOT, {"openat": 1, "ioctl": 2, "close": 1}],
    "ufs info": [ROOT, FIND_UFS, files(19), {"openat": 1, "ioctl": 1, "close": 1}],
    "ufs health": [ROOT, FIND_UFS, files(5)],
    "ufs power": [ROOT, FIND_UFS, files(19)],
    "userdata": FILESYSTEM,
    "metadata": FILESYSTEM,
}


def number(value):
    return f"{value:.2f}" if value < 10 else f"{value:.1f}" if value < 100 else f"{value:.0f}"


def read(path):
    samples, calls, exposure = {}, {}, {}
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            fields = line.rstrip("\n").split("\t")
            if len(fields) != 3:
                print(line, end="")
            elif fields[0] == "calls":
                calls[fields[1]] = fields[2]
            elif fields[0] == "exposure":
                exposure[fields[1]] = fields[2]
            # On the machine itself a call is so short that the tick says nothing about its CPU.
            elif not re.match(r"warm-up|host.* CPU a call", fields[0]):
                sides = samples.setdefault(fields[0], {"ours": [], "floor": []})
                sides[fields[1]].append(float(fields[2]))
    return samples, calls, exposure


def add_shares(samples):
    """The user CPU of the device calls as a share of their kernel CPU."""
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


def call_rows(calls):
    yield "| call | system calls beside the loop's epoll_wait, ioctl, recvfrom, sendto | more than the fewest |"
    yield "|---|---|---|"
    for name, text in calls.items():
        words = text.split()
        counts = dict(zip(words[::2], map(int, words[1::2])))
        fewest = {}
        kind = name if name in FEWEST else name.split()[1]
        for part in [LOOP, *FEWEST[kind]]:
            for call, count in part.items():
                fewest[call] = fewest.get(call, 0) + count
        more = {c: counts.get(c, 0) - fewest.get(c, 0) for c in counts | fewest}
        beside = {c: n - LOOP.get(c, 0) for c, n in counts.items()}
        own = " ".join(f"{c} {n}" for c, n in sorted(beside.items()) if n)
        yield f"| {name} | {own} | {' '.join(f'{c} {n:+d}' for c, n in more.items() if n) or 'none'} |"


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
