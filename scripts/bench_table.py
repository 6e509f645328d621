#!/usr/bin/env python3
"""Prints Google Benchmark's JSON files as tables: a table a layer, each row beside what that layer is compared with."""

import json
import sys

# what a table's rows are told as multiples of, the first that the table has
BASES = ["memcpy", "memcpy of 200", "read", "decode PNGs"]


def speed(row):
    return row.get("bytes_per_second", 0)


def main(paths):
    tables = {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for row in json.load(file)["benchmarks"]:
                name = row["name"].replace("/real_time", "").replace("/iterations:1", "")
                if row.get("error_occurred"):
                    sys.exit(f"{name}: {row['error_message']}")
                operation, _, layer = name.partition("/")
                # whole jobs stand apart from single layers of the same name
                tables.setdefault((path, layer), {})[operation] = row
    for (path, layer), rows in tables.items():
        base = next((rows[name] for name in BASES if name in rows), None)
        print(f"\n| {layer or path} | ms | GB/s | encoded MB | {'x ' + base['name'].split('/')[0] if base else ''} |")
        print("|---|--:|--:|--:|--:|")
        for operation, row in rows.items():
            unit = {"ns": 1e-6, "us": 1e-3, "ms": 1, "s": 1e3}[row["time_unit"]]
            ratio = f"{speed(row) / speed(base):.2f}" if base and speed(row) else ""
            gigabytes = f"{speed(row) / 1e9:.2f}" if speed(row) else ""
            encoded = f"{row['encoded'] / 1e6:.2f}" if "encoded" in row else ""
            print(f"| {operation} | {row['real_time'] * unit:.3g} | {gigabytes} | {encoded} | {ratio} |")


main(sys.argv[1:])
