#!/bin/sh
# Runs every fuzz target from its seeds for a number of seconds each.
# usage: fuzz/run.sh BUILD SECONDS
set -eu
build=$1
seconds=$2
here=$(dirname "$0")
for target in "$build"/fuzz/*_fuzz; do
    name=$(basename "$target" _fuzz)
    corpus="$build/corpus/$name"
    mkdir -p "$corpus"
    echo "fuzz $name"
    "$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 -verbosity=0 -print_funcs=0 \
        -artifact_prefix="$build/crash-$name-" "$corpus" "$here/seeds/$name"
done
