#!/bin/sh
# Format and static checks over every source of the tree. Exit status 1 on any finding.
set -eu
cd "$(dirname "$0")/.."

git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror

# The compile commands of a clang build; the sources need not be built for them.
cmake --preset asan -B build/lint >/dev/null
git ls-files 'src/*.cpp' 'sosd/*.cpp' 'port/*.cpp' 'tools/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p build/lint 2>/dev/null
echo "lint: clean"
