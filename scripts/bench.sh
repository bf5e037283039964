#!/usr/bin/env bash
# Builds the benches and runs each in turn on the device that QUOR_DEVICE names. Arguments go to both of them: none, or
# SPLATS WIDTH HEIGHT [DEGREE].
set -euo pipefail
cd "$(dirname "$0")/.."
benches=(bench_step bench_kernels)
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target "${benches[@]}"
for bench in "${benches[@]}"; do
  echo "== $bench"
  "build/release/bin/$bench" "$@"
done
