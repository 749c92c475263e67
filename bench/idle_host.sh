#!/usr/bin/env bash
# The idle Linux host's resident memory and CPU over a stretch of ticking against devbrain.
# A menu-bar companion should be invisible: the aim is under 15 MB resident and under 0.5 % of
# one core, whatever the size of the Messages store.
# Usage: bench/idle_host.sh [seconds] [store]   (build first: ninja -C build)
# With a store (chat_database_bench's million messages, say), it is copied into the host's home
# and the capture cursor is set a minute back, so the host idles over a store that does not change.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
store=${2:-}
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT

build/bin/devbrain >"$work/brain" &
pids+=($!)
for _ in $(seq 50); do [ -s "$work/brain" ] && break; sleep 0.1; done
brain=$(head -n 1 "$work/brain")
python3 -c "import sys,urllib.request as u; u.urlopen(u.Request(sys.argv[1]+'/admin/settings', data=b'{\"autoApprove\":true,\"pairingIntervalSeconds\":0}', method='POST'))" "$brain"

export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config"
mkdir -p "$XDG_CONFIG_HOME/quarl"
printf '{"QuarlApiURL": "%s"}\n' "$brain" >"$XDG_CONFIG_HOME/quarl/defaults.json"
if [ -n "$store" ]; then
  mkdir -p "$HOME/Library/Messages"
  for suffix in "" -wal -shm; do
    [ -e "$store$suffix" ] && cp "$store$suffix" "$HOME/Library/Messages/chat.db$suffix"
  done
  python3 -c "import sys,json,datetime as d; t=(d.datetime.now(d.timezone.utc)-d.timedelta(minutes=1)).strftime('%Y-%m-%dT%H:%M:%S.000Z'); print(json.dumps({'QuarlApiURL': sys.argv[1], 'QuarlCaptureCursor': {'lastMessageDate': t}}))" "$brain" >"$XDG_CONFIG_HOME/quarl/defaults.json"
fi
build/bin/quarl-companion --once >/dev/null 2>&1

QUARL_LOG_LEVEL=error build/bin/quarl-companion >/dev/null 2>&1 &
host=$!
pids+=($host)
# Its first tick reads the store once; the idling is measured after it.
if [ -n "$store" ]; then sleep 15; else sleep 2; fi
ticks_per_second=$(getconf CLK_TCK)
cpu_ticks() { awk '{print $14 + $15}' "/proc/$host/stat"; }
start_ticks=$(cpu_ticks)
peak_kb=0
for _ in $(seq "$seconds"); do
  sleep 1
  rss=$(awk '/^VmRSS/ {print $2}' "/proc/$host/status")
  [ "$rss" -gt "$peak_kb" ] && peak_kb=$rss
done
end_ticks=$(cpu_ticks)
kill -TERM "$host"
wait "$host" && status=0 || status=$?
awk -v kb="$peak_kb" -v t="$((end_ticks - start_ticks))" -v hz="$ticks_per_second" -v s="$seconds" -v code="$status" 'BEGIN {
  printf "idle host over %d s: peak resident %.1f MB, CPU %.3f %% of one core, exit after SIGTERM %d\n", s, kb / 1024, 100 * t / hz / s, code }'
