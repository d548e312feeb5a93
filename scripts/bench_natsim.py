#!/usr/bin/env python3
"""Measures natsim end to end on generated scenarios, for the table of quality goals.

Usage: bench_natsim.py NATSIM OUT.json [--rules N] [--repetitions R]

Generates (scripts/scenario_gen.py) a scenario of N rules of every kind (default 100000),
the same with a hitless restart at the end, and one of 2N rules, then plays each with
NATSIM as a user would: `natsim run FILE --json` with the output thrown away, and the
N-rule scenario once more as the readable report. Each run is a process of its own; its
CPU time (user and system) and peak resident memory are taken from the kernel's
accounting of the child. The fastest of R repetitions (default BENCH_REPETITIONS or 3)
is kept, since other processes only ever add time. Writes the figures as JSON to OUT.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))


def run(command):
    """(CPU seconds, peak resident bytes) of one run of `command`, output discarded."""
    pid = os.fork()
    if pid == 0:
        devnull = os.open(os.devnull, os.O_WRONLY)
        os.dup2(devnull, 1)
        os.dup2(devnull, 2)
        try:
            os.execv(command[0], command)
        finally:
            os._exit(127)  # never back into the parent's code
    _, status, usage = os.wait4(pid, 0)
    if not os.WIFEXITED(status) or os.WEXITSTATUS(status) != 0:
        how = ("exit status %d" % os.WEXITSTATUS(status) if os.WIFEXITED(status)
               else "signal %d" % os.WTERMSIG(status))
        sys.exit("bench_natsim: %s failed (%s)" % (" ".join(command), how))
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024


def best(command, repetitions):
    runs = [run(command) for _ in range(repetitions)]
    return {"cpu_seconds": min(r[0] for r in runs),
            "peak_bytes": min(r[1] for r in runs)}


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("natsim")
    parser.add_argument("out")
    parser.add_argument("--rules", type=int, default=100000)
    parser.add_argument("--repetitions", type=int,
                        default=int(os.environ.get("BENCH_REPETITIONS", "3")))
    args = parser.parse_args(argv)

    n = args.rules
    results = {"rules": n}
    with tempfile.TemporaryDirectory(prefix="bench_natsim") as folder:
        def scenario(name, rules, *extra):
            path = os.path.join(folder, name + ".json")
            subprocess.check_call([sys.executable, os.path.join(HERE, "scenario_gen.py"),
                                   str(rules), "--out", path] + list(extra))
            return path

        plain = scenario("plain", n)
        restart = scenario("restart", n, "--restart")
        double = scenario("double", 2 * n)
        natsim = os.path.abspath(args.natsim)
        results["json"] = best([natsim, "run", plain, "--json"], args.repetitions)
        results["tables"] = best([natsim, "run", plain], args.repetitions)
        results["restart"] = best([natsim, "run", restart, "--json"], args.repetitions)
        results["double"] = best([natsim, "run", double, "--json"], args.repetitions)
    with open(args.out, "w") as f:
        json.dump(results, f, indent=2)


if __name__ == "__main__":
    main(sys.argv[1:])
