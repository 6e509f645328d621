#!/usr/bin/env python3
"""The program's JSON is what the schema says, for a job and a file of each format: PROGRAM SCHEMA JOB"""

import json
import os
import subprocess
import sys
import tempfile

KINDS = {"object": dict, "array": list, "string": str, "boolean": bool, "null": type(None)}


def is_kind(value, kind):
    if kind in KINDS:
        return isinstance(value, KINDS[kind])
    return not isinstance(value, bool) and isinstance(value, int if kind == "integer" else (int, float))


def check(value, schema, place):
    """The keywords that the schema uses, no others."""
    known = {"$schema", "title", "type", "enum", "properties", "required", "additionalProperties", "items", "minimum"}
    assert set(schema) <= known, f"{place}: {set(schema) - known} is not understood"
    kinds = schema.get("type", [])
    kinds = kinds if isinstance(kinds, list) else [kinds]
    assert not kinds or any(is_kind(value, kind) for kind in kinds), f"{place}: {value!r} is none of {kinds}"
    assert "enum" not in schema or value in schema["enum"], f"{place}: {value!r}"
    assert "minimum" not in schema or value >= schema["minimum"], f"{place}: {value!r}"
    if isinstance(value, dict):
        missing = set(schema.get("required", [])) - set(value)
        assert not missing, f"{place}: {missing} is missing"
        for key, member in value.items():
            inner = schema.get("properties", {}).get(key, schema.get("additionalProperties", True))
            assert inner is not False, f"{place}: {key} is not in the schema"
            if isinstance(inner, dict):
                check(member, inner, f"{place}.{key}")
    if isinstance(value, list):
        for index, member in enumerate(value):
            check(member, schema.get("items", {}), f"{place}[{index}]")


program, schema_path, job = sys.argv[1:]
with open(schema_path, encoding="utf-8") as stream:
    schema = json.load(stream)
with tempfile.TemporaryDirectory() as folder:
    files = [os.path.join(folder, "tower" + ending) for ending in (".vndlp", ".vnline", ".ctb", ".vndlpv4")]
    for file in files:
        subprocess.run([program, "convert", "-q", job, file], check=True)
    for command in (["info", "--layers"], ["verify"], ["estimate"], ["set", "lift_mm=7"]):
        inputs = files if command[0] == "set" else [*files, job]
        words = [program, *command, "--json", "-q", *inputs]
        lines = subprocess.run(words, capture_output=True, text=True, check=True).stdout.splitlines()
        assert len(lines) == len(inputs), f"{command}: {len(lines)} objects for {len(inputs)} files"
        for line, file in zip(lines, inputs):
            check(json.loads(line), schema, f"{command[0]} {file}")
