"""Runs tests with pytest, or tells which Debian package is missing: run.py PACKAGE,... ARGUMENTS-OF-PYTEST."""

import importlib.util
import sys

MODULES = {"python3-cffi": "cffi", "python3-numpy": "numpy", "python3-pytest": "pytest", "python3-distributed": "distributed"}

for package in sys.argv[1].split(","):
    if importlib.util.find_spec(MODULES[package]) is None:
        print(f"skipped: {package} is not installed")
        sys.exit(0)

import pytest  # noqa: E402

sys.exit(pytest.main(["-q", "-p", "no:cacheprovider", *sys.argv[2:]]))
