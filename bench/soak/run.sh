#!/usr/bin/env bash
# Soak test: one `orvida-cli run` records N loopback stations (one schedule plan each) for
# M minutes while bench/soak/faultserver.py drops, stalls, storms and pages a random
# station every --fault-every seconds. Prints the recorder's resident memory every minute,
# stops it with SIGTERM, then bench/soak/score.py checks that no song the server sent
# whole was lost (byte for byte), that memory stayed flat, that nothing is left in the
# radio folder's tmp and that the recorder exited 0. Exits 1 when a check fails.
#
#   bench/soak/run.sh                                   60 minutes, 50 stations
#   bench/soak/run.sh --minutes 3 --stations 10 --fault-every 30     (what CI runs)
#
# orvida-cli is $ORVIDA_CLI, else $ORVIDA_BUILD_DIR/src/cli/orvida-cli (default build/).
# Memory is flat when the last sample is at most 15 % + 2 MiB above the first one, taken
# after a minute, when every session has connected and saved songs and the save pool, the
# library and the HTTP client have reached their working size.
# The work folder is removed after a pass and kept (its path printed) after a failure.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${ORVIDA_BUILD_DIR:-$root/build}
[[ $build = /* ]] || build=$root/$build
cli=${ORVIDA_CLI:-$build/src/cli/orvida-cli}
minutes=60
stations=50
fault_every=60
idle_timeout_sec=10 # the recorder's, shortened; a stall lasts 2.5 times as long
while [ $# -gt 0 ]; do
  case $1 in
    --minutes) minutes=$2; shift 2 ;;
    --stations) stations=$2; shift 2 ;;
    --fault-every) fault_every=$2; shift 2 ;;
    *) echo "usage: $0 [--minutes M] [--stations N] [--fault-every SECONDS]" >&2; exit 2 ;;
  esac
done
if [ ! -x "$cli" ]; then
  echo "no $cli: cmake --build $build --target orvida-cli" >&2
  exit 2
fi
if (( minutes * 60 < 5 * fault_every )); then
  echo "$minutes minute(s) hold fewer than five faults every $fault_every s: every kind must come up" >&2
  exit 2
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/orvida-soak.XXXXXX")
server=""
recorder=""
keep=1
cleanup() {
  if [ -n "$recorder" ]; then kill -KILL "$recorder" 2>/dev/null || true; fi
  if [ -n "$server" ]; then kill -TERM "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; fi
  if [ $keep = 0 ]; then rm -rf "$work"; else echo "soak: the run's files are in $work" >&2; fi
}
trap cleanup EXIT

export HOME=$work/home XDG_CONFIG_HOME=$work/home/config XDG_DATA_HOME=$work/home/data XDG_CACHE_HOME=$work/home/cache
mkdir -p "$HOME/Music" "$work/log"
radio=$work/radio

python3 "$here/faultserver.py" --log-dir "$work/log" --fault-every "$fault_every" \
  --stall-sec "$(( idle_timeout_sec * 5 / 2 ))" > "$work/server.out" &
server=$!
port=""
for _ in $(seq 100); do
  port=$(sed -n 's/^PORT //p' "$work/server.out")
  [ -n "$port" ] && break
  sleep 0.1
done
if [ -z "$port" ]; then echo "faultserver.py did not start" >&2; exit 1; fi
base=http://127.0.0.1:$port
# Album look-ups and every other remote service stay on loopback (the server answers 404).
export ORVIDA_STORE_URL=$base/store ORVIDA_DIRECTORY_URL=$base/directory ORVIDA_RELEASES_URL=$base/releases
export ORVIDA_IDLE_TIMEOUT_SEC=$idle_timeout_sec

# Byte-exact saves, no padding, nothing dropped for being short or a jingle.
"$cli" engine set --lossless on --lead-in 0 --lead-out 0 --min-duration 0 --skip-jingles off
"$cli" config set ov.radioSaveDir "$radio"
from=$(date -d '-1 minute' +%Y-%m-%dT%H:%M:%S)
to=$(date -d '+2 days' +%Y-%m-%dT%H:%M:%S)
for i in $(seq "$stations"); do
  "$cli" schedule add "$base/s/$i" --name "Soak $i" --start "$from" --end "$to" > /dev/null
done

echo "soak: $stations stations for $minutes minute(s), a fault every $fault_every s" >&2
"$cli" run --tick 1 > "$work/events" 2> "$work/recorder.err" &
recorder=$!
: > "$work/rss"
alive=1
for minute in $(seq "$minutes"); do
  sleep 60
  if ! kb=$(awk '/^VmRSS:/ { print $2 }' "/proc/$recorder/status" 2>/dev/null) || [ -z "$kb" ]; then
    alive=0
    echo "soak: the recorder is gone after $minute minute(s)" >&2
    break
  fi
  echo "$kb" >> "$work/rss"
  printf 'minute %3d  rss %7.1f MiB  saved %6d  titles %6d\n' "$minute" "$(awk -v k="$kb" 'BEGIN { print k / 1024 }')" \
    "$(grep -c '^saved' "$work/events" || true)" "$(grep -c '"event": "title"' "$work/log/connections.jsonl" || true)"
done

stop_time=$(date +%s.%N)
status=0
if [ $alive = 1 ]; then
  kill -TERM "$recorder"
  # Songs still queued for saving (a loaded machine falls behind with the duration
  # probes) and the last song of every station are saved after the stop: wait while
  # saves go on, and call it a hang when none came for two minutes.
  saved=-1
  quiet=0
  while kill -0 "$recorder" 2>/dev/null && (( quiet < 1200 )); do
    now=$(grep -c '^saved' "$work/events" || true)
    if [ "$now" = "$saved" ]; then quiet=$((quiet + 1)); else saved=$now; quiet=0; fi
    sleep 0.1
  done
  if kill -0 "$recorder" 2>/dev/null; then
    echo "soak: the recorder saved nothing for two minutes after SIGTERM and did not exit" >&2
    kill -KILL "$recorder"
  fi
fi
wait "$recorder" || status=$?
recorder=""
if [ $alive = 0 ] && [ $status = 0 ]; then status=125; fi # ending unasked is a failure too
sleep 1 # the server notices the last hang-ups at its next tick
kill -TERM "$server"
wait "$server" || true
server=""

"$cli" library list --json > "$work/library.json"
result=0
# Saves keep whole MP3 frames only; the partial frame at a cut's edge (at most 1441 bytes
# in MPEG-1 layer III) goes.
python3 "$here/score.py" --log-dir "$work/log" --radio-dir "$radio" --stop-time "$stop_time" --frame-slack 1441 \
  --events "$work/events" --library "$work/library.json" --rss "$work/rss" --exit-status "$status" || result=$?
if [ $result = 0 ]; then keep=0; else tail -5 "$work/recorder.err" >&2 || true; fi
exit $result
