#!/usr/bin/env bash
# What a real GPU compiler makes of the kernels: builds all that a device would be given for AMD chips, on the null
# device of Mesa's RADV driver, which needs no GPU. Prints a table a chip; fails on a spill, on scratch memory, on a kernel
# that the driver does not build, and on fewer subgroups a SIMD than hide the memory's latency: 8 with RDNA, 3 with GCN,
# where a compute unit has four SIMDs of a quarter of the width. Exits with 77 where the driver is not installed.
#
#   scripts/gpu_compile.sh [PROGRAM [CHIP...]]    PROGRAM: compile_kernels, by default of the release build
set -euo pipefail
cd "$(dirname "$0")/.."

program=${1:-build/release/bin/compile_kernels}
shift $(($# > 0 ? 1 : 0))
# RDNA 3, 2 and 1, GCN 5 and 4.
[ $# -gt 0 ] || set -- gfx1100 navi21 navi10 vega20 polaris10

driver=$(find /usr/share/vulkan/icd.d /etc/vulkan/icd.d -name 'radeon_icd*.json' 2>/dev/null | head -n 1)
if [ -z "$driver" ]; then
  echo "Mesa's RADV driver is not installed (Debian: mesa-vulkan-drivers)." >&2
  exit 77
fi

output=$(mktemp)
trap 'rm -f "$output"' EXIT
bad=0
for chip in "$@"; do
  status=0
  VK_ICD_FILENAMES=$driver RADV_FORCE_FAMILY=$chip RADV_DEBUG=shaderstats,nocache MESA_SHADER_CACHE_DISABLE=1 \
    "$program" >"$output" 2>&1 || status=$?
  if [ "$status" -ne 0 ]; then
    echo "$chip: compile_kernels ended with $status. Its last lines:" >&2
    tail -n 5 "$output" >&2
    bad=1
    continue
  fi
  least=8
  case $chip in vega* | polaris*) least=3 ;; esac
  awk -v chip="$chip" -v least="$least" '
    function flush() {
      if (name == "") return
      if (!built) { print chip ": " name " was not built" > "/dev/stderr"; bad = 1; return }
      printf "%-42s %6d %6d %8d %6d %13d %8d\n", name, vgprs, sgprs, lds, waves, instructions, latency
      if (spills > 0 || scratch > 0) { print chip ": " name " spills registers" > "/dev/stderr"; bad = 1 }
      if (waves < least) { print chip ": " name " leaves room for " waves " subgroups a SIMD only" > "/dev/stderr"; bad = 1 }
    }
    BEGIN {
      printf "\n%s\n%-42s %6s %6s %8s %6s %13s %8s\n", chip, "kernel", "VGPRs", "SGPRs", "shared", "waves", "instructions", "latency"
    }
    $1 == "kernel" { flush(); name = $2; built = spills = scratch = 0 }
    /^VGPRs:/ { vgprs = $2; built = 1 }
    /^SGPRs:/ { sgprs = $2 }
    /^Spilled/ { spills += $3 }
    /^Scratch size:/ { scratch = $3 }
    /^LDS size:/ { lds = $3 }
    /^Subgroups per SIMD:/ { waves = $4 }
    /^Instructions:/ { instructions = $2 }
    /^Latency:/ { latency = $2 }
    END { flush(); exit bad }' "$output" || bad=1
done
exit $bad
