#!/usr/bin/env bash
# Prints the names that the built shared libraries of build/release export, demangled and sorted.
# What the standard library's templates leave behind in them is no part of the interface.
set -euo pipefail
cd "$(dirname "$0")/.."
for library in ostrel/libostrel.so wexlog/libwexlog.so ostrel/platform/libostrel_platform.so; do
    echo "# $(basename "$library")"
    nm -DC --defined-only "build/release/$library" |
        sed -E 's/^[0-9a-f]+ //' |
        grep -vE '^[A-Za-z] (void |bool |int |unsigned long |char16_t\* |auto )*(std::|__gnu_cxx::|(typeinfo|typeinfo name|vtable|guard variable) for std::|operator (delete|new))' |
        grep -vE 'spdlog::|(^. |<)std::_|^. .*std::(__|_Rb|vector|map|basic_string<char|function|shared_ptr|unique)[^(]*::[^(]*\(' |
        sed -E 's/^[A-Za-z] //' | LC_ALL=C sort -u
done
