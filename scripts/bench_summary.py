#!/usr/bin/env python3
"""Prints the table of the quality goals from the benchmark programs' JSON output.

Usage: bench_summary.py PRESET=DIR [PRESET=DIR ...], where DIR holds the natbench*.json
files (one per benchmark family), memory.json and natsim.json (bench_natsim.py) of that
configuration. Times are CPU
times, of the fastest repetition where benchmarks were repeated; a ratio of at most 1
meets the goal.
"""

import glob
import json
import os
import sys

UNIT = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def load(*paths):
    """name -> the fastest repetition's run (least CPU time: other processes on the
    machine only ever add time), with the best row rate and the longest slice of all
    repetitions (the show command measures both on its own clock)."""
    runs = {}
    benchmarks = []
    for path in paths:
        try:
            with open(path) as f:
                benchmarks += json.load(f).get("benchmarks", [])
        except ValueError as e:
            print("bench_summary: %s is not complete JSON (%s)" % (path, e),
                  file=sys.stderr)
    most = {}
    for b in benchmarks:
        if b.get("error_occurred") or b.get("run_type", "iteration") != "iteration":
            continue
        name = b.get("run_name", b["name"])
        for counter in ("rows_per_second", "longest_slice_us"):
            if counter in b:
                most.setdefault(name, {})
                most[name][counter] = max(most[name].get(counter, 0.0), b[counter])
        if name not in runs or seconds(b) < seconds(runs[name]):
            runs[name] = b
    for name, counters in most.items():
        runs[name] = dict(runs[name], **counters)
    return runs


def find(runs, prefix):
    for name, b in runs.items():
        if name == prefix or name.startswith(prefix + "/"):
            return b
    return None


def seconds(b):
    """CPU seconds per iteration."""
    return b["cpu_time"] * UNIT[b["time_unit"]]


def per(b, counter):
    return seconds(b) / b[counter] if b else None


def ratio_of(a, b):
    return a / b if a is not None and b else None


def natsim_measures(m, natsim):
    """natsim end to end (bench_natsim.py): per rule against the plug-in's commit, peak
    memory, growth from N to 2N rules, restart against programming, tables against
    --json."""
    keys = ("natsim per rule", "natsim memory", "natsim linear time",
            "natsim linear memory", "natsim restart", "natsim tables")
    for key in keys:
        m[key] = (None, "n/a")
    if not natsim:
        return
    n = natsim["rules"]
    plain, tables = natsim["json"], natsim["tables"]
    restart, double = natsim["restart"], natsim["double"]
    per_rule = plain["cpu_seconds"] / n
    commit = m.get("commit per rule", (None, ""))[0]
    if commit:
        m["natsim per rule"] = (per_rule / commit, "%.2fx (%.2f / %.2f us)"
                                % (per_rule / commit, per_rule * 1e6, commit * 1e6))
    peak = plain["peak_bytes"] / 2 ** 20
    m["natsim memory"] = (peak, "%.0f MB" % peak)
    t = double["cpu_seconds"] / plain["cpu_seconds"]
    m["natsim linear time"] = (t, "%.2fx (%.2f / %.2f s)" % (
        t, double["cpu_seconds"], plain["cpu_seconds"]))
    b = double["peak_bytes"] / plain["peak_bytes"]
    m["natsim linear memory"] = (b, "%.2fx (%.0f / %.0f MB)" % (
        b, double["peak_bytes"] / 2 ** 20, peak))
    own = restart["cpu_seconds"] - plain["cpu_seconds"]
    r = own / plain["cpu_seconds"]
    m["natsim restart"] = (r, "%.2fx (%.2f / %.2f s)" % (r, own, plain["cpu_seconds"]))
    tr = tables["cpu_seconds"] / plain["cpu_seconds"]
    m["natsim tables"] = (tr, "%.2fx (%.2f / %.2f s)" % (
        tr, tables["cpu_seconds"], plain["cpu_seconds"]))


def measures(runs, memory, natsim):
    """name -> (value, text) per goal; value None when not measured."""
    m = {}

    def commit(kind):
        plugin = find(runs, "BM_Commit%s/1000" % kind)
        floor = find(runs, "BM_Commit%sFloor/1000" % kind)
        big = find(runs, "BM_Commit%s/100000" % kind)
        p = seconds(plugin) if plugin else None
        f = seconds(floor) if floor else None
        g = seconds(big) if big else None
        m["commit " + kind] = (
            ratio_of(p, f),
            "%.2fx (%.2f / %.2f us)" % (p / f, p * 1e6, f * 1e6) if p and f else "n/a",
        )
        m["flat " + kind] = (
            ratio_of(g, p),
            "%.2fx (%.2f / %.2f us)" % (g / p, g * 1e6, p * 1e6) if p and g else "n/a",
        )

    commit("Snat")
    commit("Dnapt4Vlan")
    # The plug-in's cost of one rule, for natsim's goal: the mean of the source and the
    # destination commit (a generated scenario holds both kinds).
    costs = [seconds(b) for b in (find(runs, "BM_CommitSnat/1000"),
                                  find(runs, "BM_CommitDnapt4Vlan/1000")) if b]
    if len(costs) == 2:
        m["commit per rule"] = (sum(costs) / 2, "")

    # Not goals: upstream's publishing of a rule (natsim's work, outside the commit).
    for kind in ("Snat", "Dnapt4Vlan"):
        publish = find(runs, "BM_Commit%sPublish/1000" % kind)
        if publish:
            m["publish " + kind] = (seconds(publish),
                                    "%.2f us" % (seconds(publish) * 1e6))

    mem = find(memory, "BM_PluginBytesPerKey")
    m["memory"] = (
        mem["plugin_bytes_per_key"] if mem else None,
        "%.1f B/key" % mem["plugin_bytes_per_key"] if mem else "n/a",
    )

    m["show rate"] = m["show slice"] = m["show slice wall"] = (None, "n/a")
    m["show rate cpu"] = (None, "n/a")
    for key, bench in (("show rate", "BM_ShowCommand"),
                       ("show rate cpu", "BM_ShowCommandCpuClock")):
        b = find(runs, bench)
        if b:
            rate = b["rows_per_second"]
            m[key] = (rate, "%.0fk rows/s" % (rate / 1e3))
    for key, bench in (("show slice", "BM_ShowCommandCpuClock"),
                       ("show slice wall", "BM_ShowCommand")):
        b = find(runs, bench)
        if b:
            m[key] = (
                b["longest_slice_us"] / b["slice_limit_us"],
                "%.0f us of %.0f us" % (b["longest_slice_us"], b["slice_limit_us"]),
            )

    # Polling: the plug-in's own work is the cycle less its hitsForEntry calls (the
    # floor); the status writes stay in it.
    poll = per(find(runs, "BM_HitCountPoll"), "entries")
    pollFloor = per(find(runs, "BM_HitCountPollFloor"), "entries")
    if poll is not None and pollFloor is not None:
        own = poll - pollFloor
        m["poll"] = (own, "%.3f us/entry (cycle %.3f, calls %.3f)"
                     % (own * 1e6, poll * 1e6, pollFloor * 1e6))
    else:
        m["poll"] = (poll, "%.3f us/entry (cycle)" % (poll * 1e6) if poll else "n/a")
    refresh = per(find(runs, "BM_CapacityRefresh"), "entries")
    m["capacity"] = (refresh, "%.3f us/entry" % (refresh * 1e6) if refresh else "n/a")

    for key, bench in (("trap publish", "BM_TrapAclPublish"),
                       ("trap republish", "BM_TrapAclRepublish")):
        p = find(runs, bench)
        f = find(runs, bench + "Floor")
        pv = per(p, "entries")
        fv = per(f, "entries")
        m[key] = (
            ratio_of(pv, fv),
            "%.2fx (%.3f / %.3f us/entry)" % (pv / fv, pv * 1e6, fv * 1e6)
            if pv and fv
            else "n/a",
        )
    natsim_measures(m, natsim)
    return m


# name, goal text, limit, sense: "max" (value <= limit) or "min" (value >= limit)
GOALS = [
    ("commit Snat", "SNAT commit / floor <= 1.5x", 1.5, "max"),
    ("commit Dnapt4Vlan", "DNAPT 4-VLAN commit / floor <= 1.5x", 1.5, "max"),
    ("publish Snat", "(info) natsim's publishing of a SNAT rule", None, "info"),
    ("publish Dnapt4Vlan", "(info) natsim's publishing of a DNAPT rule", None, "info"),
    ("flat Snat", "SNAT commit 100k / 1k keys <= 1.2x", 1.2, "max"),
    ("flat Dnapt4Vlan", "DNAPT commit 100k / 1k keys <= 1.2x", 1.2, "max"),
    ("memory", "plug-in heap per key < 160 B", 160.0, "max"),
    ("show rate", "show >= 1M rows/s", 1e6, "min"),
    ("show rate cpu", "(info) show rows per second of CPU time", None, "info"),
    ("show slice", "show slice <= quantum + 1 row (CPU clock)", 1.0, "max"),
    ("show slice wall", "(info) show slice on the real clock", None, "info"),
    ("poll", "hit-count polling, own work < 1 us/entry", 1e-6, "max"),
    ("capacity", "capacity refresh < 1 us/entry", 1e-6, "max"),
    ("trap publish", "trap ACL publish / floor <= 1.5x", 1.5, "max"),
    ("trap republish", "trap ACL republish / floor <= 1.5x", 1.5, "max"),
    ("natsim per rule", "natsim --json per rule / commit per rule <= 5x", 5.0, "max"),
    ("natsim memory", "natsim --json peak memory (N rules) <= 400 MB", 400.0, "max"),
    ("natsim linear time", "natsim 2N / N rules, CPU time <= 2.2x", 2.2, "max"),
    ("natsim linear memory", "natsim 2N / N rules, peak memory <= 2.2x", 2.2, "max"),
    ("natsim restart", "natsim restart of N rules / programming them <= 1.5x", 1.5,
     "max"),
    ("natsim tables", "natsim readable report / --json <= 1.2x", 1.2, "max"),
]


def main(argv):
    configs = []
    for arg in argv:
        preset, _, folder = arg.partition("=")
        runs = load(*sorted(glob.glob(os.path.join(folder, "natbench*.json"))))
        memory = load(*glob.glob(os.path.join(folder, "memory.json")))
        natsim = None
        if os.path.exists(os.path.join(folder, "natsim.json")):
            with open(os.path.join(folder, "natsim.json")) as f:
                natsim = json.load(f)
        configs.append((preset, measures(runs, memory, natsim)))

    header = ["goal"]
    for preset, _ in configs:
        header += [preset, "ratio", "result"]
    rows = []
    for key, text, limit, sense in GOALS:
        row = [text]
        for _, m in configs:
            value, shown = m.get(key, (None, "n/a"))
            if value is None:
                row += [shown, "-", "not measured"]
                continue
            if sense == "info":
                row += [shown, "-", "-"]
                continue
            ratio = value / limit if sense == "max" else limit / value
            row += [shown, "%.2f" % ratio, "pass" if ratio <= 1.0 else "falls short"]
        rows.append(row)

    widths = [max(len(r[i]) for r in rows + [header]) for i in range(len(header))]
    line = lambda r: "| " + " | ".join(c.ljust(w) for c, w in zip(r, widths)) + " |"
    print(line(header))
    print("|" + "|".join("-" * (w + 2) for w in widths) + "|")
    for r in rows:
        print(line(r))


if __name__ == "__main__":
    main(sys.argv[1:])
