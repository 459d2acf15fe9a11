#!/usr/bin/env bash
# Our side of the scale benchmark as the application runs it: one `orvida-cli run` with N
# scheduled plans, one per stream of an icyserver.py that is already running, measured
# over the steady part of the run (after a warm-up in which every plan has started and
# connected). Prints one line of key=value pairs, the keys scale_bench prints:
#
#   sessions=N seconds=S cpu_self_pct=... cpu_children_pct=... rss_kib=... songs=... verified=-
#
# cpu_self_pct: user + system CPU of the orvida-cli process over the measured seconds, in
# % of one core; cpu_children_pct: the same of the child processes it ran and reaped
# meanwhile (the duration probes of its saves); rss_kib: its resident memory at the end;
# songs: the songs it reported saved, the last ones after the stop included.
# Settings as scale_bench has them: byte-exact saves, no padding, no minimum length.
#
#   bench/scale/orvida.sh --cli PATH --server http://127.0.0.1:PORT --count N --seconds S [--warmup W] [--dir DIR]
set -euo pipefail

cli=""
server=""
count=1
seconds=60
warmup=5
dir=""
while [ $# -gt 0 ]; do
  case $1 in
    --cli) cli=$2; shift 2 ;;
    --server) server=$2; shift 2 ;;
    --count) count=$2; shift 2 ;;
    --seconds) seconds=$2; shift 2 ;;
    --warmup) warmup=$2; shift 2 ;;
    --dir) dir=$2; shift 2 ;;
    *) echo "usage: $0 --cli PATH --server URL --count N --seconds S [--warmup W] [--dir DIR]" >&2; exit 2 ;;
  esac
done
[ -n "$server" ] && [ -x "$cli" ] || { echo "$0: --cli (an orvida-cli) and --server are required" >&2; exit 2; }

own_dir=""
if [ -z "$dir" ]; then own_dir=$(mktemp -d); dir=$own_dir; fi
recorder=""
cleanup() {
  if [ -n "$recorder" ]; then kill -KILL "$recorder" 2>/dev/null || true; wait "$recorder" 2>/dev/null || true; fi
  [ -z "$own_dir" ] || rm -rf "$own_dir"
}
trap cleanup EXIT

# A home of its own: settings, schedule, library and recordings.
export HOME=$dir/home XDG_CONFIG_HOME=$dir/home/config XDG_DATA_HOME=$dir/home/data XDG_CACHE_HOME=$dir/home/cache
mkdir -p "$HOME/Music"
# The album look-up stays on loopback; the server answers it 404.
export ORVIDA_STORE_URL=$server/store
"$cli" engine set --lossless on --lead-in 0 --lead-out 0 --min-duration 0 --skip-jingles off
"$cli" config set ov.radioSaveDir "$dir/radio"
from=$(date -d '-1 minute' +%Y-%m-%dT%H:%M:%S)
to=$(date -d '+1 day' +%Y-%m-%dT%H:%M:%S)
for i in $(seq "$count"); do
  "$cli" schedule add "$server/s/o$i" --name "Scale $i" --start "$from" --end "$to" > /dev/null
done

"$cli" run --tick 1 > "$dir/events" 2> "$dir/recorder.err" &
recorder=$!

tck=$(getconf CLK_TCK)
# utime + stime and cutime + cstime; the name "(orvida-cli)" holds no spaces.
ticks() {
  local fields
  read -r -a fields < "/proc/$recorder/stat"
  echo "$((fields[13] + fields[14])) $((fields[15] + fields[16]))"
}

sleep "$warmup"
started=$(grep -c '^started' "$dir/events" || true)
[ "$started" -eq "$count" ] || echo "$0: only $started of $count plans started within the warm-up" >&2
t0=$(date +%s.%N)
read -r s0 c0 <<< "$(ticks)"
sleep "$seconds"
read -r s1 c1 <<< "$(ticks)"
t1=$(date +%s.%N)
rss=$(awk '/^VmRSS:/ { print $2 }' "/proc/$recorder/status")

kill -TERM "$recorder"
status=0
wait "$recorder" || status=$?
recorder=""
songs=$(grep -c '^saved' "$dir/events" || true)

awk -v n="$count" -v s="$seconds" -v s0="$s0" -v s1="$s1" -v c0="$c0" -v c1="$c1" -v t0="$t0" -v t1="$t1" \
    -v tck="$tck" -v rss="$rss" -v songs="$songs" 'BEGIN {
  wall = t1 - t0
  printf "sessions=%d seconds=%d cpu_self_pct=%.2f cpu_children_pct=%.2f rss_kib=%d songs=%d verified=-\n",
    n, s, 100 * (s1 - s0) / tck / wall, 100 * (c1 - c0) / tck / wall, rss, songs
}'
[ "$status" -eq 0 ] && [ "$started" -eq "$count" ]
