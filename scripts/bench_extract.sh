#!/bin/bash
# Frame extraction beside the ffmpeg program doing the same sampling, in turns: scripts/bench_extract.sh VIDEO [FRAMES
# [MAX_DIMENSION [KIND [ROUNDS]]]]. Prints the best wall and processor times of each, and their ratios. The processor
# time says more on a machine that has other work.
set -euo pipefail
video=$1
frames=${2:-200}
edge=${3:-1280}
kind=${4:-video}
rounds=${5:-3}
bench=$(dirname "$0")/../build/release/bin/bench_extract
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

wanted=$frames
[ "$kind" != video360 ] || wanted=$((frames / 6 > 8 ? frames / 6 : 8))
duration=$(ffprobe -v error -select_streams v:0 -show_entries stream=duration -of default=nk=1:nw=1 "$video")
rate=$(awk "BEGIN { print $wanted / $duration }")
filter="fps=$rate,scale=w='min($edge,iw)':h='min($edge,ih)':force_original_aspect_ratio=decrease:flags=lanczos"
arguments=(-hide_banner -nostdin -loglevel error -i "$video")
case $kind in
  video) arguments+=(-vf "$filter" -q:v 2 "$scratch/frames/f%05d.jpg") ;;
  dualfisheye)
    for lens in 0 1; do
      arguments+=(-map "0:v:$lens" -vf "$filter" -q:v 2 "$scratch/frames/f%05d_$lens.jpg")
    done ;;
  video360)
    graph="[0:v]fps=$rate,split=6[s0][s1][s2][s3][s4][s5]"
    outputs=()
    for view in 0 1 2 3 4 5; do
      yaw=$((view > 3 ? view * 60 - 360 : view * 60))
      graph+=";[s$view]v360=input=e:output=flat:yaw=$yaw:h_fov=90:v_fov=90:w=1400:h=1400:interp=lanczos[o$view]"
      outputs+=(-map "[o$view]" -q:v 2 "$scratch/frames/f%05d_$view.jpg")
    done
    arguments+=(-filter_complex "$graph" "${outputs[@]}") ;;
esac

measure() {  # NAME COMMAND...: a line "NAME seconds processor-seconds" and the count of frames
  local name=$1
  shift
  mkdir "$scratch/frames"
  TIMEFORMAT='%R %U %S'
  local spent
  spent=$({ time "$@" > "$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; } 2>&1)
  echo "$spent" | awk -v name="$name" -v count="$(find "$scratch/frames" -name '*.jpg' | wc -l)" \
    '{ print name, $1, $2 + $3, count }' >> "$scratch/times"
  rm -r "$scratch/frames"
}

for _ in $(seq "$rounds"); do
  measure here "$bench" "$video" "$kind" "$frames" "$edge" "$scratch/frames"
  measure ffmpeg ffmpeg "${arguments[@]}"
done
echo "$video, $kind, longest edge $edge"
awk '{ if (!($1 in wall) || $2 < wall[$1]) wall[$1] = $2; if (!($1 in cpu) || $3 < cpu[$1]) cpu[$1] = $3; count[$1] = $4 }
  END {
    for (name in wall) printf "  %-6s %6.2f s, %6.2f s of processor, %d frames\n", name, wall[name], cpu[name], count[name]
    printf "  ratio  %6.2f   %6.2f\n", wall["here"] / wall["ffmpeg"], cpu["here"] / cpu["ffmpeg"]
  }' "$scratch/times"
