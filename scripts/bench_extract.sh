#!/bin/sh
# Frame extraction beside the ffmpeg program doing the same sampling, in turns: scripts/bench_extract.sh VIDEO [FRAMES
# [MAX_DIMENSION [KIND [ROUNDS]]]]. Prints wall times, the best of each, and their ratio.
set -eu
video=$1
frames=${2:-200}
edge=${3:-1280}
kind=${4:-video}
rounds=${5:-3}
bench=$(dirname "$0")/../build/release/bin/bench_extract
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

value() { ffprobe -v error -select_streams v:0 -show_entries "$1" -of default=nk=1:nw=1 "$video"; }
wanted=$frames
[ "$kind" = video360 ] && wanted=$(( frames / 6 > 8 ? frames / 6 : 8 ))
duration=$(value stream=duration)
rate=$(awk "BEGIN { print $wanted / $duration }")
fit="scale=w='min($edge,iw)':h='min($edge,ih)':force_original_aspect_ratio=decrease:flags=lanczos"

program() {
  case $kind in
    video) ffmpeg -hide_banner -nostdin -loglevel error -i "$video" -vf "fps=$rate,$fit" -q:v 2 "$scratch/b/f%05d.jpg" ;;
    dualfisheye) ffmpeg -hide_banner -nostdin -loglevel error -i "$video" \
      -map 0:v:0 -vf "fps=$rate,$fit" -q:v 2 "$scratch/b/f%05d_1.jpg" \
      -map 0:v:1 -vf "fps=$rate,$fit" -q:v 2 "$scratch/b/f%05d_2.jpg" ;;
    video360)
      graph="[0:v]fps=$rate,split=6[s0][s1][s2][s3][s4][s5]"
      set --
      for i in 0 1 2 3 4 5; do
        yaw=$(( i * 60 > 180 ? i * 60 - 360 : i * 60 ))
        graph="$graph;[s$i]v360=input=e:output=flat:yaw=$yaw:h_fov=90:v_fov=90:w=1400:h=1400:interp=lanczos[o$i]"
        set -- "$@" -map "[o$i]" -q:v 2 "$scratch/b/f%05d_$i.jpg"
      done
      ffmpeg -hide_banner -nostdin -loglevel error -i "$video" -filter_complex "$graph" "$@" ;;
  esac
}

now() { date +%s.%N; }
ours=
theirs=
for round in $(seq "$rounds"); do
  for who in a b; do
    mkdir -p "$scratch/$who"
    begin=$(now)
    if [ $who = a ]; then
      "$bench" "$video" "$kind" "$frames" "$edge" "$scratch/a" > "$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }
    else
      program
    fi
    seconds=$(awk "BEGIN { print $(now) - $begin }")
    count=$(find "$scratch/$who" -name '*.jpg' | wc -l)
    rm -r "${scratch:?}/$who"
    if [ $who = a ]; then ours="$ours $seconds"; counts=$count; else theirs="$theirs $seconds"; counts="$counts/$count"; fi
  done
done
echo "$video $kind, $counts frames"
awk -v a="$ours" -v b="$theirs" 'BEGIN {
  n = split(a, x, " "); split(b, y, " ")
  for (i = 1; i <= n; ++i) { if (i == 1 || x[i] < p) p = x[i]; if (i == 1 || y[i] < q) q = y[i] }
  printf "here:  %s s\nffmpeg:%s s\nbest %.2f s against %.2f s, ratio %.2f\n", a, b, p, q, p / q }'
