#!/usr/bin/env bash
# Builds the benches and runs each in turn on the device that QUOR_DEVICE names: the steps of every size that the device is
# up to, kernel by kernel, what happens around them, and the time to the first step. BENCH_DATASET names a dataset to start on (none: the last is left
# out); the steps' figures are also written to BENCH_JSON, for scripts/bench_compare. Arguments are bench_step's:
# names of sizes, or SPLATS WIDTH HEIGHT [DEGREE], which bench_kernels takes as well.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target bench_step bench_kernels bench_around bench_start OmbreluxCLI
bin=build/release/bin
json=${BENCH_JSON:-build/bench_step.json}

echo "== steps (also in $json)"
"$bin/bench_step" --json "$json" "$@"
echo "== kernels"
kernels=()
[[ ! ${1:-} =~ ^[0-9]+$ ]] || kernels=("$@")
"$bin/bench_kernels" "${kernels[@]}"
echo "== around the steps"
"$bin/bench_around"
echo "== help and devices, seconds"
for command in help devices; do
  /usr/bin/env bash -c "TIMEFORMAT='%R s $command'; time '$bin/OmbreluxCLI' $command >/dev/null"
done
if [ -n "${BENCH_DATASET:-}" ]; then
  echo "== start, twice: the second finds the driver's cache warm"
  for _ in 1 2; do "$bin/bench_start" "$BENCH_DATASET" "${BENCH_RESOLUTION:-320}"; done
fi
