#!/usr/bin/env bash
# Formats the C++ sources; with --check only says which files are not formatted.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" = "--check" ] && mode=(--dry-run -Werror)
git ls-files -co --exclude-standard -z -- '*.cpp' '*.h' | xargs -0 -r clang-format-14 "${mode[@]}"
