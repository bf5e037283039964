#!/usr/bin/env bash
# Runs what the preset windows-cross has built under Wine, in a Windows of its own: the unit tests, the command line as
# far as it goes without a Vulkan driver, and a crash that leaves its report. Called by scripts/check.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/windows-cross/bin
work=$PWD/build/windows-cross/wine
rm -rf "$work/files"
mkdir -p "$work/files"
export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml,vulkan-1=' LC_ALL=C.UTF-8
wine wineboot --init >/dev/null 2>&1
trap 'wineserver -k || true' EXIT

failures=0
for test in base colmap project pipeline mcp; do
  echo "-- test_$test"
  timeout 300 wine "$bin/test_$test.exe" --gtest_brief=1 || failures=$((failures + 1))
done

# expect EXIT_CODE PART ARGUMENT...: the code, and a part of what comes on either stream.
expect() {
  local code=$1 part=$2 said result=0
  shift 2
  said=$(wine "$bin/OmbreluxCLI.exe" "$@" 2>&1) || result=$?
  if [ "$result" -eq "$code" ] && grep -qF -- "$part" <<<"$said"; then
    echo "ok: OmbreluxCLI $*"
  else
    failures=$((failures + 1))
    printf 'FAILED: OmbreluxCLI %s\nexit code %s instead of %s, and not "%s" in:\n%s\n' "$*" "$result" "$code" "$part" "$said"
  fi
}

echo "-- the command line"
files='Z:'$work/files
mkdir -p "$work/files/été 写"
expect 0 'Ombrelux 1.1.3 (Vulkan)' version
expect 0 'Exit codes' help
expect 2 'error: run needs a path' run
expect 2 '--frames needs a value' train x --frames
expect 2 "unknown command 'foo'" foo
expect 1 "error: No such file or folder: $files/none é写" train "$files/none é写"
expect 1 "$files/été 写 is neither a Ombrelux project nor a COLMAP dataset" train "$files/été 写"
expect 0 '' instructions "$files/été 写/advice.txt"
[ -s "$work/files/été 写/advice.txt" ] || { echo "FAILED: no advice.txt" && failures=$((failures + 1)); }
expect 1 'Could not list Vulkan devices: No Vulkan loader found' devices
mkdir -p "$work/files/project"
echo '{"name": "old"}' >"$work/files/project/project.json"
expect 1 'No Vulkan loader found' train "$files/project"

answer=$(echo '{"jsonrpc":"2.0","id":1,"method":"ping"}' | timeout 60 wine "$bin/OmbreluxCLI.exe" mcp 2>/dev/null) || true
if [ "$answer" = '{"jsonrpc":"2.0","id":1,"result":{}}' ]; then
  echo "ok: OmbreluxCLI mcp"
else
  failures=$((failures + 1))
  echo "FAILED: OmbreluxCLI mcp answered a ping with \"$answer\""
fi

echo "-- crashes"
reports=$(find "$WINEPREFIX/drive_c/users" -maxdepth 3 -type d -path '*/AppData/Roaming')/Ombrelux/crashes
# crash WAY PART: its report holds the part, the program's name among the addresses and the log's last line.
crash() {
  rm -rf "$reports"
  local result=0
  QUOR_TEST_CRASH=$1 timeout 60 wine "$bin/OmbreluxCLI.exe" version >"$work/files/said" 2>&1 || result=$?
  local text
  text=$(cat "$reports"/OmbreluxCLI-*.txt 2>/dev/null | tr -d '\r') || true
  if [ "$result" -ne 0 ] && grep -qF -- "$2" <<<"$text" && grep -q '^  OmbreluxCLI.exe+0x' <<<"$text" &&
    grep -q 'Crashing on purpose (QUOR_TEST_CRASH)' <<<"$text" && grep -q 'A crash report was saved to:' "$work/files/said"; then
    echo "ok: $1 ($(cd "$reports" && ls | tr '\n' ' '))"
  else
    failures=$((failures + 1))
    printf 'FAILED: the crash "%s", exit code %s, said:\n%s\nreport:\n%s\n' "$1" "$result" "$(cat "$work/files/said")" "$text"
  fi
}
crash 1 'exception: 0xc0000005 (access violation) at OmbreluxCLI.exe+0x'
crash 1 '  writing address 0x0'
crash thread 'exception: 0xc0000005 (access violation) at OmbreluxCLI.exe+0x'
echo "left out: overflow, thread-overflow (Wine 8 disregards a stack guarantee and ends the thread without a handler)"
crash divide 'exception: 0xc0000094 (integer divide by zero) at OmbreluxCLI.exe+0x'
crash terminate 'reason: std::terminate (an exception escaped, or a thread was left running)'
crash pure 'reason: pure virtual function call'
crash abort 'reason: the program gave up (abort)'

[ "$failures" -eq 0 ] || { echo "$failures failed" && exit 1; }
