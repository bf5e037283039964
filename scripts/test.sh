#!/usr/bin/env bash
# Installs what is missing, builds the release preset and runs every test. Arguments go to CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
ctest --preset release -j "$(nproc)" "$@"
