#!/usr/bin/env python3
"""Writes a natsim scenario of N NAT rules of every kind, for trying natsim at real sizes.

Usage: scenario_gen.py N [--restart] [--vlans K] [--out FILE]

The rules cycle through the kinds a switch carries: static source NAT with and without
ports, static destination NAT (address and with ports, on K VLANs), twice NAT (both
sides), dynamic source and destination NAT, and multicast destination NAT. Every rule
has its own uid and key; the chip's NAT group is sized to hold them all. With
--restart the scenario ends with a hitless restart of the agent. Same N, same file.
"""

import argparse
import json
import sys


def address(net, i):
    return "%d.%d.%d.%d" % (net, (i >> 16) & 255, (i >> 8) & 255, i & 255)


def rule(i, vlans):
    """The natRule step of rule i (uid i + 1)."""
    kind = i % 8
    uid = i + 1
    port = 1024 + i % 60000
    if kind == 0:
        key = {"type": 1, "srcOld": address(10, i), "srcNew": address(100, i)}
        data = {"nextHop": 3}
    elif kind == 1:
        key = {"type": 1, "srcOld": "%s:%d" % (address(11, i), port),
               "srcNew": "%s:%d" % (address(101, i), port)}
        data = {"protocol": 6, "nextHop": 3}
    elif kind == 2:
        key = {"type": 2, "dstOld": address(102, i), "dstNew": address(12, i)}
        data = {"nextHop": 5, "vlans": vlans}
    elif kind == 3:
        key = {"type": 2, "dstOld": "%s:%d" % (address(103, i), port),
               "dstNew": "%s:%d" % (address(13, i), 8080)}
        data = {"protocol": 17, "nextHop": 5, "vlans": vlans}
    elif kind == 4:
        key = {"type": 3, "srcOld": address(14, i), "dstOld": address(104, i),
               "srcNew": address(114, i), "dstNew": address(24, i)}
        data = {"nextHop": "0x8000002"}
    elif kind == 5:
        key = {"type": 4, "srcOld": address(24, i), "dstOld": address(114, i),
               "srcNew": address(104, i), "dstNew": address(14, i)}
        data = {"nextHop": 6, "vlans": vlans[:1]}
    elif kind == 6:
        key = ({"type": 5, "srcOld": address(15, i), "srcNew": address(105, i), "proto": 6}
               if i % 16 < 8 else
               {"type": 6, "dstOld": address(106, i), "dstNew": address(16, i)})
        data = {"nextHop": 7, "vlans": vlans[:1]} if key["type"] == 6 else {}
    else:
        key = {"type": 2, "dstOld": address(232, i), "dstNew": address(233, i)}
        data = {"multicast": True, "mcastGroupId": 1 + i % 4000, "egressIntfs": [3, 4],
                "vlans": vlans[:1]}
    step = {"uid": uid, "key": key}
    if kind == 7:
        step["mcastUid"] = 1 + i % 65535  # a multicast rule's opaque id
    if data:
        step["data"] = data
    return {"natRule": step}


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("rules", type=int, help="how many rules")
    parser.add_argument("--restart", action="store_true",
                        help="end with a hitless restart of the agent")
    parser.add_argument("--vlans", type=int, default=2,
                        help="VLANs of each destination rule (default 2)")
    parser.add_argument("--out", help="the file to write (default: standard output)")
    args = parser.parse_args(argv)
    if args.rules < 0 or not 1 <= args.vlans <= 64:
        parser.error("rules must be at least 0 and vlans 1 to 64")

    vlans = [10 * (k + 1) for k in range(args.vlans)]
    entries = args.rules * (args.vlans + 1) + 1024
    out = open(args.out, "w") if args.out else sys.stdout
    head = {"chip": {"tcamEntries": entries}}
    out.write(json.dumps(head)[:-1] + ', "steps": [\n')
    out.write('{"mcastMode": {"types": [5, 1, 2]}}')
    for i in range(args.rules):
        out.write(",\n" + json.dumps(rule(i, vlans), separators=(",", ":")))
    if args.restart:
        out.write(',\n{"restart": {}}')
    out.write("\n]}\n")
    if args.out:
        out.close()


if __name__ == "__main__":
    main(sys.argv[1:])
