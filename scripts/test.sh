#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
set -euo pipefail
exec "$(dirname "$0")/check.sh" test
