#!/usr/bin/env bash
# Resident memory of the Linux host without WhatsApp and with WhatsApp Web's page loaded (the
# host, its WebKit processes and, when $DISPLAY is unset, its private Xvfb), against devbrain's
# stand-in showing a linked page. RSS counts shared libraries in every process; PSS shares them
# out, so PSS sums to what the processes together cost. Then the CPU the linked host's family
# uses over 60 s of idling, its 30 s ticks (each a capture pass over a quiet page) included.
# Usage: bench/whatsapp_host_memory.sh   (build first: ninja -C build)
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT

post() { python3 -c "import sys,urllib.request as u; u.urlopen(u.Request(sys.argv[1], data=sys.argv[2].encode(), method='POST', headers={'content-type':'application/json'}))" "$brain$1" "$2"; }

build/bin/devbrain >"$work/brain" &
pids+=($!)
for _ in $(seq 50); do [ -s "$work/brain" ] && break; sleep 0.1; done
brain=$(head -n 1 "$work/brain")
post /admin/settings '{"autoApprove":true,"pairingIntervalSeconds":0}'
post /admin/whatsapp/screen '{"screen":"linked"}'

export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share"
mkdir -p "$XDG_CONFIG_HOME/quarl"
printf '{"QuarlApiURL": "%s"}\n' "$brain" >"$XDG_CONFIG_HOME/quarl/defaults.json"
build/bin/quarl-companion --once >/dev/null 2>&1

# The host and every process it started, one pid a line.
family() {
  local pid=$1
  echo "$pid"
  for child in $(pgrep -P "$pid"); do family "$child"; done
}

# Prints one line for each process of the host's family, then their sums.
measure() {
  local label=$1 host=$2 rss_total=0 pss_total=0
  for pid in $(family "$host"); do
    local name rss pss
    name=$(tr '\0' ' ' <"/proc/$pid/cmdline" | cut -c1-60)
    rss=$(awk '/^Rss:/ {print $2}' "/proc/$pid/smaps_rollup")
    pss=$(awk '/^Pss:/ {print $2}' "/proc/$pid/smaps_rollup")
    awk -v n="$name" -v r="$rss" -v p="$pss" 'BEGIN { printf "  %-62s RSS %7.1f MB  PSS %7.1f MB\n", n, r / 1024, p / 1024 }'
    rss_total=$((rss_total + rss))
    pss_total=$((pss_total + pss))
  done
  awk -v n="$label, all together" -v r="$rss_total" -v p="$pss_total" \
    'BEGIN { printf "%-64s RSS %7.1f MB  PSS %7.1f MB\n", n, r / 1024, p / 1024 }'
}

run_host() {
  QUARL_LOG_LEVEL=error build/bin/quarl-companion >/dev/null 2>&1 &
  host=$!
  pids+=($host)
}

stop_host() {
  kill -TERM "$host"
  wait "$host" || true
}

run_host
sleep 5
measure "host without WhatsApp" "$host"
stop_host

python3 - "$XDG_CONFIG_HOME/quarl/defaults.json" "$brain" <<'PY'
import json, sys
path, brain = sys.argv[1], sys.argv[2]
defaults = json.load(open(path))
defaults.update({"QuarlWhatsappEnabled": True, "QuarlWhatsappWebURL": brain + "/whatsapp/"})
json.dump(defaults, open(path, "w"))
PY
run_host
# The first tick loads the page and reads it; the next offers it, a sign the page is linked.
for _ in $(seq 90); do
  python3 -c "import sys,urllib.request as u; sys.exit('whatsapp' not in u.urlopen(sys.argv[1]).read().decode())" \
    "$brain/admin/requests" && break
  sleep 1
done
sleep 5
measure "host with WhatsApp Web linked" "$host"

# User and system clock ticks of the whole family, from /proc/<pid>/stat.
cpu_ticks() {
  local total=0
  for pid in $(family "$host"); do
    total=$((total + $(awk '{print $14 + $15}' "/proc/$pid/stat" 2>/dev/null || echo 0)))
  done
  echo "$total"
}
before=$(cpu_ticks)
sleep 60
after=$(cpu_ticks)
awk -v t=$((after - before)) -v hz="$(getconf CLK_TCK)" \
  'BEGIN { printf "%-64s CPU %5.2f s over 60 s (%.2f%% of one core)\n", "host with WhatsApp Web linked, idle", t / hz, t / hz / 60 * 100 }'
stop_host
