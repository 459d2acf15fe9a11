#!/usr/bin/env bash
# Records 1, 50, 100 and 200 loopback streams at once (one scale_bench process per count,
# a fresh icyserver.py process beside it) and prints what recording costs.
#
#   bench/scale/run.sh                      60 measured seconds per count
#   bench/scale/run.sh --quick              15 seconds per count
#   bench/scale/run.sh --counts "1 200" --seconds 30 -- --no-status-poll
#
# The build folder is $ORVIDA_BUILD_DIR (default: build); build the program first with
#   cmake --build build --target scale_bench
# Columns: CPU of the recording process in % of one core (user + system), the same for
# its ffmpeg duration probes (child processes, one per saved song), resident memory,
# memory per session beyond the first (against the 1-session run), songs saved, and
# songs that matched the server's bytes exactly.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${ORVIDA_BUILD_DIR:-$root/build}
[[ $build = /* ]] || build=$root/$build
seconds=60
warmup=5
counts="1 50 100 200"
extra=()
while [ $# -gt 0 ]; do
  case $1 in
    --quick) seconds=15; shift ;;
    --seconds) seconds=$2; shift 2 ;;
    --counts) counts=$2; shift 2 ;;
    --) shift; extra=("$@"); break ;;
    *) echo "usage: $0 [--quick] [--seconds S] [--counts \"1 50 100 200\"] [-- scale_bench options]" >&2; exit 2 ;;
  esac
done

bench=$build/bench/scale_bench
if [ ! -x "$bench" ]; then
  echo "no $bench: cmake --build $build --target scale_bench" >&2
  exit 2
fi

work=$(mktemp -d)
server=""
cleanup() {
  if [ -n "$server" ]; then kill "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

failed=0
declare -A result
for n in $counts; do
  logdir=$work/server-$n
  mkdir -p "$logdir"
  python3 "$here/icyserver.py" --log-dir "$logdir" > "$logdir/stdout" &
  server=$!
  port=""
  for _ in $(seq 100); do
    port=$(sed -n 's/^PORT //p' "$logdir/stdout")
    [ -n "$port" ] && break
    sleep 0.1
  done
  if [ -z "$port" ]; then echo "icyserver.py did not start" >&2; exit 1; fi
  echo "recording $n stream(s) for ${seconds}s ..." >&2
  status=0
  line=$("$bench" --server "http://127.0.0.1:$port" --log-dir "$logdir" --sessions "$n" \
           --seconds "$seconds" --warmup "$warmup" "${extra[@]}") || status=$?
  kill "$server"; wait "$server" 2>/dev/null || true
  server=""
  [ $status -eq 0 ] || failed=1
  result[$n]="$line status=$status"
done

field() { # field LINE KEY
  sed -n "s/.* $2=\([^ ]*\).*/\1/p" <<<" $1"
}

base_rss=""
for n in $counts; do
  if [ "$n" = 1 ]; then base_rss=$(field "${result[$n]}" rss_kib); fi
done

printf '%-9s %12s %14s %12s %10s %18s %8s %10s %6s\n' sessions "cpu %core" "cpu %/session" "probes %core" "rss MiB" "KiB/session >1st" songs byte-exact status
for n in $counts; do
  r=${result[$n]}
  cpu=$(field "$r" cpu_self_pct)
  probes=$(field "$r" cpu_children_pct)
  rss=$(field "$r" rss_kib)
  per=""
  if [ -n "$base_rss" ] && [ "$n" != 1 ]; then
    per=$(awk -v a="$rss" -v b="$base_rss" -v n="$n" 'BEGIN { printf "%.1f", (a - b) / (n - 1) }')
  fi
  printf '%-9s %12s %14s %12s %10s %18s %8s %10s %6s\n' "$n" "$cpu" \
    "$(awk -v c="$cpu" -v n="$n" 'BEGIN { printf "%.4f", c / n }')" "$probes" \
    "$(awk -v r="$rss" 'BEGIN { printf "%.1f", r / 1024 }')" "${per:--}" \
    "$(field "$r" songs)" "$(field "$r" verified)" "$(field "$r" status)"
done
exit $failed
