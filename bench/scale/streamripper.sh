#!/usr/bin/env bash
# The streamripper side of the scale benchmark: N streamripper processes, one per stream,
# against an icyserver.py that is already running, measured over the same steady part of
# the run as scale_bench (after a warm-up). Prints one line of key=value pairs:
#
#   streams=N seconds=S measured=M cpu_pct=... rss_kib=... pss_kib=... songs=... song_sec=...
#
# measured: the processes alive from the first sample to the last (streamripper used to
# die of a segmentation fault on streams of frame headers over random bytes, which is why
# the servers now send encoded audio); every other figure is of these M: cpu_pct, their user + system
# CPU over the measured seconds in % of one core (from /proc/<pid>/stat); rss_kib and
# pss_kib, their resident and proportional set sizes summed at the end (PSS shares the
# library pages among the processes, RSS counts them M times). songs: complete tracks
# written by all N; song_sec: their mean length at 16000 bytes/s. Fails unless M = N.
#
#   bench/scale/streamripper.sh --server http://127.0.0.1:PORT --count N --seconds S [--warmup W] [--dir DIR]
set -euo pipefail

server=""
count=1
seconds=60
warmup=5
dir=""
while [ $# -gt 0 ]; do
  case $1 in
    --server) server=$2; shift 2 ;;
    --count) count=$2; shift 2 ;;
    --seconds) seconds=$2; shift 2 ;;
    --warmup) warmup=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    *) echo "usage: $0 --server URL --count N --seconds S [--warmup W] [--dir DIR]" >&2; exit 2 ;;
  esac
done
[ -n "$server" ] || { echo "$0: --server is required" >&2; exit 2; }
command -v streamripper >/dev/null || { echo "$0: streamripper is not installed" >&2; exit 2; }

own_dir=""
if [ -z "$dir" ]; then own_dir=$(mktemp -d); dir=$own_dir; fi
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
  [ -z "$own_dir" ] || rm -rf "$own_dir"
}
trap cleanup EXIT

tck=$(getconf CLK_TCK)
# Ticks of user + system time of one process, or nothing once it is gone; the name in
# parentheses holds no spaces here, so the fields can be counted from the start.
cpu_ticks() {
  local fields
  { read -r -a fields < "/proc/$1/stat"; } 2>/dev/null || return 0
  echo $((fields[13] + fields[14]))
}
status_kib() { # status_kib PID FILE KEY
  sed -n "s/^$3:[[:space:]]*\([0-9]*\) kB/\1/p" "/proc/$1/$2" 2>/dev/null || true
}

# A little longer than measured, so none ends on its own before the last sample.
limit=$((warmup + seconds + 10))
for i in $(seq "$count"); do
  out=$dir/sr-$i
  mkdir -p "$out"
  streamripper "$server/s/r$i" -d "$out" -s -l "$limit" --quiet > "$out/log.txt" 2>&1 &
  pids+=("$!")
done

sleep "$warmup"
declare -A first
t0=$(date +%s.%N)
for p in "${pids[@]}"; do first[$p]=$(cpu_ticks "$p"); done
sleep "$seconds"
t1=$(date +%s.%N)
measured=0 ticks=0 rss=0 pss=0
for p in "${pids[@]}"; do
  last=$(cpu_ticks "$p")
  [ -n "${first[$p]}" ] && [ -n "$last" ] || continue
  measured=$((measured + 1))
  ticks=$((ticks + last - first[$p]))
  kib=$(status_kib "$p" status VmRSS); rss=$((rss + ${kib:-0}))
  kib=$(status_kib "$p" smaps_rollup Pss); pss=$((pss + ${kib:-0}))
done

for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
pids=()

# Complete tracks only; streamripper keeps the first and the last of each stream apart.
songs=0
bytes=0
while IFS= read -r -d '' f; do
  songs=$((songs + 1))
  bytes=$((bytes + $(stat -c %s "$f")))
done < <(find "$dir" -path '*/incomplete' -prune -o -name '*.mp3' -type f -print0)

awk -v n="$count" -v s="$seconds" -v m="$measured" -v ticks="$ticks" -v t0="$t0" -v t1="$t1" -v tck="$tck" \
    -v rss="$rss" -v pss="$pss" -v songs="$songs" -v bytes="$bytes" 'BEGIN {
  printf "streams=%d seconds=%d measured=%d cpu_pct=%.2f rss_kib=%d pss_kib=%d songs=%d song_sec=%.1f\n",
    n, s, m, 100 * ticks / tck / (t1 - t0), rss, pss, songs, songs ? bytes / songs / 16000 : 0
}'
[ "$measured" -eq "$count" ]
