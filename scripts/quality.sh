#!/usr/bin/env bash
# Trains a made-up room, and every COLMAP dataset that is named, with both techniques, and prints what the scenes score on
# the photographs that were held out: the rows of docs/quality.md. Scenes and pictures are left in build/quality.
#   scripts/quality.sh [DATASET...]
# PIXELS_STEPS chooses the runs, "320:2000 640:3000" without it.
set -euo pipefail
cd "$(dirname "$0")/.."
cli=build/release/bin/OmbreluxCLI
out=$PWD/build/quality
cmake --preset release >/dev/null
cmake --build --preset release --target ombrelux_cli sample_capture >/dev/null
mkdir -p "$out"
[ -d "$out/room/sparse" ] || build/release/bin/sample_capture --count 60 --size 640 --model "$out/room" >/dev/null

value() { sed -nE "s/.*\"$1\": *\"?([^\",}]*)\"?.*/\1/p" "$2"; }
echo "| scene | technique | pixels | steps | splats | PSNR | SSIM | seconds |"
echo "|---|---|---|---|---|---|---|---|"
for run in ${PIXELS_STEPS:-320:2000 640:3000}; do
  pixels=${run%:*} steps=${run#*:}
  for dataset in "$out/room" "$@"; do
    name=$(basename "$dataset")
    for technique in vanilla mcmc; do
      folder=$out/$name-$pixels-$steps-$technique
      rm -rf "$folder"
      mkdir -p "$folder"
      "$cli" import "$dataset" --out "$folder" --technique "$technique" --resolution "$pixels" --iterations "$steps" \
        --json --quiet >"$folder/result.json"
      echo "| $name | $technique | $pixels | $steps | $(value splats "$folder/result.json")" \
        "| $(value psnr "$folder/result.json") | $(value ssim "$folder/result.json")" \
        "| $(value seconds "$folder/result.json") |"
    done
  done
done
