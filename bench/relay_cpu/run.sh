#!/usr/bin/env bash
# What the live relay alone costs: one `orvida-cli relay` in front of a loopback
# 128 kbit/s station (bench/scale/icyserver.py: pink noise, paced in real time) and one
# client reading the local stream as it comes (curl into a byte count), for --seconds
# (default 60) after a warm-up of 5 s. Prints the CPU time of the relay's ffmpeg and of
# orvida-cli itself (the listener) in % of one core, user + system, from /proc/PID/stat
# over the measured window, and the audio rate the client got.
#
#   bench/relay_cpu/run.sh [--seconds S]
#
# The build folder is $ORVIDA_BUILD_DIR (default: build); build orvida-cli first with
#   cmake --build build --target orvida-cli
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${ORVIDA_BUILD_DIR:-$root/build}
[[ $build = /* ]] || build=$root/$build
seconds=60
warmup=5
while [ $# -gt 0 ]; do
  case $1 in
    --seconds) seconds=$2; shift 2 ;;
    *) echo "usage: $0 [--seconds S]" >&2; exit 2 ;;
  esac
done
cli=$build/src/cli/orvida-cli
if [ ! -x "$cli" ]; then
  echo "no $cli: cmake --build $build --target orvida-cli" >&2
  exit 2
fi

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
# A home of its own, so the relay reads no settings of the user's.
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_DATA_HOME=$work/home/.local/share
mkdir -p "$HOME"

# Waits until FILE has a line starting with PREFIX and prints its second field.
field_of() {
  local file=$1 prefix=$2
  for _ in $(seq 1 300); do
    local line
    line=$(grep -m1 "^$prefix" "$file" 2>/dev/null || true)
    if [ -n "$line" ]; then echo "$line" | cut -d"$3" -f2; return 0; fi
    sleep 0.1
  done
  echo "timed out waiting for '$prefix' in $file" >&2
  return 1
}

python3 "$root/bench/scale/icyserver.py" --log-dir "$work" > "$work/server.out" &
pids+=($!)
port=$(field_of "$work/server.out" "PORT " " ")

"$cli" relay "http://127.0.0.1:$port/s/relay" > "$work/relay.out" &
relay=$!
pids+=($relay)
url=$(field_of "$work/relay.out" "url" $'\t')
ffmpeg=$(pgrep -P "$relay" -x ffmpeg)

curl -s "$url" | wc -c > "$work/bytes" &
pids+=($!)

# utime + stime in clock ticks
ticks() { awk '{ sub(/^.*\) /, ""); print $12 + $13 }' "/proc/$1/stat"; }
hz=$(getconf CLK_TCK)

sleep "$warmup"
t0=$(date +%s.%N)
f0=$(ticks "$ffmpeg"); c0=$(ticks "$relay")
sleep "$seconds"
t1=$(date +%s.%N)
f1=$(ticks "$ffmpeg"); c1=$(ticks "$relay")
kill -TERM "$relay"
wait "$relay" || true
sleep 0.5
bytes=$(cat "$work/bytes" 2>/dev/null || echo 0)

awk -v t0="$t0" -v t1="$t1" -v f0="$f0" -v f1="$f1" -v c0="$c0" -v c1="$c1" -v hz="$hz" \
    -v bytes="$bytes" -v total="$((seconds + warmup))" 'BEGIN {
  span = t1 - t0
  printf "relay of a 128 kbit/s station, %.0f s measured\n", span
  printf "  ffmpeg        %5.2f %% of one core\n", 100 * (f1 - f0) / hz / span
  printf "  orvida-cli    %5.2f %% of one core\n", 100 * (c1 - c0) / hz / span
  printf "  together      %5.2f %% of one core\n", 100 * ((f1 - f0) + (c1 - c0)) / hz / span
  printf "  client got    %.0f kbit/s on average\n", bytes * 8 / 1000 / total
}'
