#!/usr/bin/env bash
# run.sh SERVER SAMPLE_CAPTURE WORK: drives the assistant server with the official client. WORK keeps the client's
# packages between runs. Exits with 77, which CTest shows as skipped, where they cannot be had.
set -euo pipefail
server=$1 capture=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)

skip() {
  echo "SKIPPED: $1"
  exit 77
}
command -v node >/dev/null || skip "there is no node"
command -v npm >/dev/null || skip "there is no npm"
[ "$(node -p 'process.versions.node.split(".")[0]')" -ge 18 ] || skip "node is older than 18"

mkdir -p "$work"
if ! cmp -s "$here/package-lock.json" "$work/installed.json"; then
  cp "$here/package.json" "$here/package-lock.json" "$work"
  (cd "$work" && npm ci --ignore-scripts --no-audit --no-fund) || skip "the client's packages cannot be installed"
  cp "$here/package-lock.json" "$work/installed.json"
fi
# Modules are looked for beside the script.
cp "$here"/*.mjs "$work"
exec node "$work/client.mjs" "$server" "$capture"
