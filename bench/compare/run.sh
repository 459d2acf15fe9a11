#!/usr/bin/env bash
# orvida-cli and streamripper record the same local icecast2 mount at the same time; every
# file both write is decoded and scored against the broadcast, and the cost of each
# recorder is measured. Prints one table per codec and writes it as Markdown and JSON
# (with every file's score) to the output folder (default: compare-results in the build
# folder), beside the recordings.
#
#   bench/compare/run.sh                              10 minutes of MP3
#   bench/compare/run.sh --minutes 2 --codec both --out /tmp/compare
#
# The build folder is $ORVIDA_BUILD_DIR (default: build); the program is built first.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${ORVIDA_BUILD_DIR:-$root/build}
[[ $build = /* ]] || build=$root/$build
minutes=10
codec=mp3
out=$build/compare-results
while [ $# -gt 0 ]; do
  case $1 in
    --minutes) minutes=$2; shift 2 ;;
    --codec) codec=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    *) echo "usage: $0 [--minutes M] [--codec mp3|aac|both] [--out DIR]" >&2; exit 2 ;;
  esac
done

cmake --build "$build" --target recorder_compare -j2 >&2
exec "$build/bench/compare/recorder_compare" --minutes "$minutes" --codec "$codec" --out "$out"
