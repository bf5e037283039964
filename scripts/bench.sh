#!/usr/bin/env bash
# Builds the benches and runs each in turn. Arguments go to every bench.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
for bench in build/release/bin/bench_*; do
  [ -x "$bench" ] || { echo "There are no benches." >&2; exit 1; }
  echo "== $(basename "$bench")"
  "$bench" "$@"
done
