#!/usr/bin/env bash
# Runs what the preset windows-cross has built under Wine, in a Windows of its own and on a screen of its own (Xvfb).
# Called by scripts/check.sh; with names of parts only those:
#   units    the unit tests, also those that need a GPU: Wine lends this system's Vulkan driver
#   usage    the command line as far as it goes without a Vulkan driver
#   crashes  crashes that leave their reports
#   media    photographs and a video to scenes, with this system's COLMAP behind a program that stands for it
#   window   the window: what it shows of a project, and its end
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/windows-cross/bin
work=$PWD/build/windows-cross/wine
rm -rf "$work/files"
mkdir -p "$work/files/été 写"
files='Z:'$work/files

Xvfb -displayfd 3 -screen 0 1400x900x24 -nolisten tcp 3>"$work/display" >/dev/null 2>&1 &
screen=$!
trap 'wineserver -k || true; kill $screen || true' EXIT
for _ in $(seq 600); do [ ! -s "$work/display" ] || break && sleep 0.1; done
DISPLAY=:$(cat "$work/display")
export DISPLAY WINEPREFIX=$work/prefix WINEDEBUG=-all LC_ALL=C.UTF-8
without_vulkan='mscoree,mshtml,vulkan-1=' with_vulkan='mscoree,mshtml='
export WINEDLLOVERRIDES=$with_vulkan
wine wineboot --init >/dev/null 2>&1

# As people have COLMAP: a folder with a batch file and the program below it; and ffmpeg on PATH.
tools=$work/tools
mkdir -p "$tools/COLMAP-3.8-windows/bin" "$tools/ffmpeg"
cp "$bin/linux_program.exe" "$tools/COLMAP-3.8-windows/bin/colmap.exe"
cp "$bin/linux_program.exe" "$tools/ffmpeg/ffmpeg.exe"
echo 'rem sets PATH and starts bin\colmap.exe' >"$tools/COLMAP-3.8-windows/COLMAP.bat"
export WINEPATH="Z:$tools/ffmpeg"

failures=0
fail() {
  failures=$((failures + 1))
  echo "FAILED: $*"
}

# expect EXIT_CODE PART ARGUMENT...: the code, and a part of what comes on either stream, which $said then holds.
expect() {
  local code=$1 part=$2 result=0
  shift 2
  said=$(timeout 3600 wine "$bin/OmbreluxCLI.exe" "$@" 2>&1) || result=$?
  if [ "$result" -eq "$code" ] && grep -qF -- "$part" <<<"$said"; then
    echo "ok: OmbreluxCLI $*"
  else
    fail "OmbreluxCLI $*"$'\n'"exit code $result instead of $code, and not \"$part\" in:"$'\n'"$said"
  fi
}

check_units() {
  local program
  for program in "$bin"/test_*.exe; do
    echo "-- $(basename "$program" .exe)"
    # A program that overflows its stack ends with 0 under Wine, so its last words count.
    timeout 3600 wine "$program" --gtest_brief=1 2>&1 | tee "$work/files/said" || fail "$program"
    grep -qF '[  PASSED  ]' "$work/files/said" && ! grep -qF '[  FAILED  ]' "$work/files/said" || fail "$program did not pass"
  done
}

check_usage() {
  echo "-- the command line"
  export WINEDLLOVERRIDES=$without_vulkan
  expect 0 'Ombrelux 1.1.3 (Vulkan)' version
  expect 0 'Exit codes' help
  expect 2 'error: run needs a path' run
  expect 2 '--frames needs a value' train x --frames
  expect 2 "unknown command 'foo'" foo
  expect 1 "error: No such file or folder: $files/none é写" train "$files/none é写"
  expect 1 "$files/été 写 is neither a Ombrelux project nor a COLMAP dataset" train "$files/été 写"
  expect 0 '' instructions "$files/été 写/advice.txt"
  [ -s "$work/files/été 写/advice.txt" ] || fail 'no advice.txt'
  expect 1 'Could not list Vulkan devices: No Vulkan loader found' devices
  mkdir -p "$work/files/project"
  echo '{"name": "old"}' >"$work/files/project/project.json"
  expect 1 'No Vulkan loader found' train "$files/project"
  local answer
  answer=$(echo '{"jsonrpc":"2.0","id":1,"method":"ping"}' | timeout 60 wine "$bin/OmbreluxCLI.exe" mcp 2>/dev/null) || true
  [ "$answer" = '{"jsonrpc":"2.0","id":1,"result":{}}' ] || fail "OmbreluxCLI mcp answered a ping with \"$answer\""
  answer=$(wine "$bin/Ombrelux.exe" version 2>&1) || true
  [ "$answer" = 'Ombrelux 1.1.3 (Vulkan)' ] || fail "Ombrelux version said \"$answer\""
  export WINEDLLOVERRIDES=$with_vulkan
}

# crash WAY PART: its report holds the part, the program's name among the addresses and the log's last line.
crash() {
  rm -rf "$reports"
  local result=0 text
  QUOR_TEST_CRASH=$1 timeout 60 wine "$bin/OmbreluxCLI.exe" version >"$work/files/said" 2>&1 || result=$?
  text=$(cat "$reports"/OmbreluxCLI-*.txt 2>/dev/null | tr -d '\r') || true
  if [ "$result" -ne 0 ] && grep -qF -- "$2" <<<"$text" && grep -q '^  OmbreluxCLI.exe+0x' <<<"$text" &&
    grep -q 'Crashing on purpose (QUOR_TEST_CRASH)' <<<"$text" && grep -q 'A crash report was saved to:' "$work/files/said"; then
    echo "ok: $1 ($(cd "$reports" && ls | tr '\n' ' '))"
  else
    fail "the crash \"$1\", exit code $result, said:"$'\n'"$(cat "$work/files/said")"$'\n'"report:"$'\n'"$text"
  fi
}

check_crashes() {
  echo "-- crashes"
  reports=$(find "$WINEPREFIX/drive_c/users" -maxdepth 3 -type d -path '*/AppData/Roaming')/Ombrelux/crashes
  crash 1 'exception: 0xc0000005 (access violation) at OmbreluxCLI.exe+0x'
  crash 1 '  writing address 0x0'
  crash thread 'exception: 0xc0000005 (access violation) at OmbreluxCLI.exe+0x'
  echo "left out: overflow, thread-overflow (Wine 8 disregards a stack guarantee and ends the thread without a handler)"
  crash divide 'exception: 0xc0000094 (integer divide by zero) at OmbreluxCLI.exe+0x'
  crash terminate 'reason: std::terminate (an exception escaped, or a thread was left running)'
  crash pure 'reason: pure virtual function call'
  crash abort 'reason: the program gave up (abort)'
}

# scene PROJECT: its scene must be a PLY with splats in it.
scene() {
  grep -qaE '^element vertex [1-9]' "$1/output/scene.ply" || fail "no scene in $1"
}

# Photographs as cameras and phones write them: the formats that this system can write for the one below to read.
make_photographs() {
  wine "$bin/sample_capture.exe" --size 320 --count 24 "$files/room" >/dev/null
  local images=$work/files/room/images
  ffmpeg -loglevel error -i "$images/photo_0001.jpg" -quality 95 "$images/photo_0001.webp" && rm "$images/photo_0001.jpg"
  ffmpeg -loglevel error -i "$images/photo_0002.jpg" "$images/photo_0002.tif" && rm "$images/photo_0002.jpg"
  heif-enc -q 90 -o "$images/photo_0003.heic" "$images/photo_0003.jpg" >/dev/null && rm "$images/photo_0003.jpg"
}

check_media() {
  echo "-- media to scenes"
  local colmap="Z:$tools/COLMAP-3.8-windows" small=(--resolution 160 --iterations 60)
  expect 0 '[0] ' devices
  make_photographs
  expect 1 'tools\colmap' run "$files/room" --out "$files" # no COLMAP: where to put it
  expect 0 'scene.ply' run "$files/room" --colmap "$colmap" --out "$files/été 写" "${small[@]}" --splat
  grep -q 'Registered 24 of 24 images' <<<"$said" || fail "not every photograph found its place: $said"
  local project=$work/files/été\ 写/room_ombrelux
  scene "$project"
  expect 0 'scene.ply' train "Z:$project" --resume --iterations 90
  grep -q '90' "$project/output/result.json" || fail 'training did not go on'
  expect 0 'scene.ply' import "Z:$project/colmap/undistorted" --out "$files/imported" "${small[@]}"

  wine "$bin/sample_capture.exe" --kind video --size 320 --count 60 "$files/film" >/dev/null
  expect 0 'scene.ply' run "$files/film/video.mp4" --frames 30 --colmap "$colmap\\COLMAP.bat" "${small[@]}"
  scene "$work/files/film/video_ombrelux"
  ffmpeg -loglevel error -i "$work/files/film/video.mp4" -c:v libx265 -x265-params log-level=none "$work/files/film/phone.mov"
  expect 0 'scene.ply' run "$files/film/phone.mov" --frames 30 --colmap "$colmap\\bin\\colmap.exe" --cpu-matching "${small[@]}"
  scene "$work/files/film/phone_ombrelux"
}

# The number of different colours on the screen.
colours() {
  ffmpeg -loglevel error -y -f x11grab -video_size 1400x900 -i "$DISPLAY" -frames:v 1 "$work/window.png" &&
    ffmpeg -loglevel error -i "$work/window.png" -vf scale=350:225 -f rawvideo -pix_fmt rgb24 - | xxd -p -c 3 | sort -u | wc -l
}

check_window() {
  echo "-- the window"
  wine "$bin/sample_capture.exe" --model --size 160 --count 12 "$files/dataset" >/dev/null
  expect 0 'scene.ply' import "$files/dataset" --resolution 96 --iterations 30
  wine "$bin/Ombrelux.exe" "$files/dataset_ombrelux" >"$work/files/window" 2>&1 &
  local window=$! shown=0 result=0
  for _ in $(seq 120); do
    shown=$(colours)
    [ "$shown" -lt 1000 ] || break
    kill -0 "$window" 2>/dev/null || break
    sleep 2
  done
  echo "the window shows $shown colours: $work/window.png"
  [ "$shown" -ge 1000 ] || fail "the window shows no scene: $(cat "$work/files/window")"
  wine taskkill /im Ombrelux.exe >/dev/null 2>&1 || fail 'the window could not be asked to close'
  wait "$window" || result=$?
  [ "$result" -eq 0 ] || fail "the window ended with $result: $(cat "$work/files/window")"
}

[ $# -gt 0 ] || set -- units usage crashes media window
for part in "$@"; do
  "check_$part"
done
[ "$failures" -eq 0 ] || { echo "$failures failed" && exit 1; }
