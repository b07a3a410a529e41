#!/usr/bin/env bash
# Prints the names that the built shared libraries of build/release export, demangled and sorted.
set -euo pipefail
cd "$(dirname "$0")/.."
for library in ostrel/libostrel.so wexlog/libwexlog.so ostrel/platform/libostrel_platform.so; do
    echo "# $(basename "$library")"
    nm -DC --defined-only "build/release/$library" | sed -E 's/^[0-9a-f]+ [A-Za-z] //' |
        LC_ALL=C sort -u
done
