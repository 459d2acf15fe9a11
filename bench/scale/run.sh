#!/usr/bin/env bash
# Records 1, 50, 100 and 200 loopback streams at once (one `orvida-cli run` with a plan per
# stream, orvida.sh, or with --in-process one scale_bench process with as many sessions;
# a fresh icyserver.py process beside it) and prints what recording costs. Then the same
# streams of the same server are recorded by as many streamripper processes
# (streamripper.sh) and a second table sets both side by side.
#
#   bench/scale/run.sh                      60 measured seconds per count
#   bench/scale/run.sh --quick              15 seconds per count
#   bench/scale/run.sh --in-process --counts "1 200" --seconds 30 -- --no-status-poll
#   bench/scale/run.sh --no-streamripper    our side only
#   bench/scale/run.sh --chunk-ms 26        the server sends every 26 ms (an MP3 frame), not 100
#
# The build folder is $ORVIDA_BUILD_DIR (default: build); build the programs first with
#   cmake --build build --target orvida-cli scale_bench
# Columns: CPU of the recording process in % of one core (user + system), the same for
# its ffmpeg duration probes (child processes, one per saved song), resident memory,
# memory per session beyond the first (against the 1-session run), songs saved, and
# (in process only) songs that matched the server's bytes exactly. The streamripper table: CPU of all its
# processes, resident and proportional memory per stream, complete tracks, and the
# ratios ours / streamripper of CPU (with the probes) and of memory (our resident
# memory against the PSS of all streamripper processes).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${ORVIDA_BUILD_DIR:-$root/build}
[[ $build = /* ]] || build=$root/$build
seconds=60
warmup=5
counts="1 50 100 200"
extra=()
streamripper=1
in_process=0
chunk_ms=100
while [ $# -gt 0 ]; do
  case $1 in
    --quick) seconds=15; shift ;;
    --seconds) seconds=$2; shift 2 ;;
    --counts) counts=$2; shift 2 ;;
    --no-streamripper) streamripper=0; shift ;;
    --in-process) in_process=1; shift ;;
    --chunk-ms) chunk_ms=$2; shift 2 ;;
    --) shift; extra=("$@"); break ;;
    *) echo "usage: $0 [--quick] [--seconds S] [--counts \"1 50 100 200\"] [--no-streamripper] [--chunk-ms MS] [--in-process [-- scale_bench options]]" >&2; exit 2 ;;
  esac
done

bench=$build/bench/scale_bench
cli=$build/src/cli/orvida-cli
if [ $in_process = 1 ] && [ ! -x "$bench" ]; then
  echo "no $bench: cmake --build $build --target scale_bench" >&2
  exit 2
fi
if [ $in_process = 0 ] && [ ! -x "$cli" ]; then
  echo "no $cli: cmake --build $build --target orvida-cli" >&2
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
declare -A ripped
for n in $counts; do
  logdir=$work/server-$n
  mkdir -p "$logdir"
  python3 "$here/icyserver.py" --log-dir "$logdir" --chunk-ms "$chunk_ms" > "$logdir/stdout" &
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
  if [ $in_process = 1 ]; then
    line=$("$bench" --server "http://127.0.0.1:$port" --log-dir "$logdir" --sessions "$n" \
             --seconds "$seconds" --warmup "$warmup" "${extra[@]}") || status=$?
  else
    line=$("$here/orvida.sh" --cli "$cli" --server "http://127.0.0.1:$port" --count "$n" --seconds "$seconds" \
             --warmup "$warmup" --dir "$work/orvida-$n") || status=$?
  fi
  if [ $streamripper = 1 ]; then
    echo "recording $n stream(s) with as many streamripper processes for ${seconds}s ..." >&2
    sr_status=0
    sr=$("$here/streamripper.sh" --server "http://127.0.0.1:$port" --count "$n" --seconds "$seconds" \
           --warmup "$warmup" --dir "$work/streamripper-$n") || sr_status=$?
    [ $sr_status -eq 0 ] || failed=1
    ripped[$n]="$sr status=$sr_status"
  fi
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

if [ $streamripper = 1 ]; then
  # Per stream over the processes that lived through the measurement; the ratios set our
  # cost for N streams against N of those.
  echo
  printf '%-9s %9s %12s %14s %14s %14s %8s %9s %12s %12s %6s\n' streams alive "sr cpu %core" "sr cpu %/strm" \
    "sr RSS KiB/str" "sr PSS KiB/str" songs "song s" "cpu ours/sr" "mem ours/sr" status
  for n in $counts; do
    r=${result[$n]}
    s=${ripped[$n]}
    m=$(field "$s" measured)
    cpu=$(field "$s" cpu_pct)
    ours_cpu=$(awk -v a="$(field "$r" cpu_self_pct)" -v b="$(field "$r" cpu_children_pct)" 'BEGIN { print a + b }')
    per() { awk -v v="$1" -v m="$m" -v f="$2" 'BEGIN { if (m > 0) printf f, v / m; else print "-" }'; }
    ratio() { awk -v a="$1" -v v="$2" -v m="$m" -v n="$n" 'BEGIN { if (m > 0 && v > 0) printf "%.2f", a / (v / m * n); else print "-" }'; }
    printf '%-9s %9s %12s %14s %14s %14s %8s %9s %12s %12s %6s\n' "$n" "$m/$n" "$cpu" "$(per "$cpu" %.4f)" \
      "$(per "$(field "$s" rss_kib)" %.0f)" "$(per "$(field "$s" pss_kib)" %.0f)" \
      "$(field "$s" songs)" "$(field "$s" song_sec)" "$(ratio "$ours_cpu" "$cpu")" \
      "$(ratio "$(field "$r" rss_kib)" "$(field "$s" pss_kib)")" "$(field "$s" status)"
  done
fi
exit $failed
