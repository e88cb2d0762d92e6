#!/usr/bin/env bash
# Starts a private systemd-journald in its own mount and pid namespace
# (tmpfs over /run/systemd/journal and /run/log/journal), logs one record
# through the library, and reads it back with journalctl. Exit 77 = skipped.
set -euo pipefail
probe=$1
skip() { echo "SKIPPED: $*"; exit 77; }
[ "$(id -u)" -eq 0 ] || skip "needs root to mount a private journal"
journald=$(command -v systemd-journald || true)
for candidate in /lib/systemd/systemd-journald /usr/lib/systemd/systemd-journald; do
  [ -n "$journald" ] || { [ -x "$candidate" ] && journald=$candidate; }
done
[ -n "$journald" ] || skip "systemd-journald is not installed"
command -v journalctl >/dev/null || skip "journalctl is not installed"
unshare --mount --pid --fork --propagation private true 2>/dev/null || skip "cannot create namespaces here"

exec unshare --mount --pid --fork --propagation private bash -s "$probe" "$journald" <<'INNER'
set -euo pipefail
probe=$1 journald=$2
mkdir -p /run/systemd/journal /run/log/journal
mount -t tmpfs tmpfs /run/systemd/journal
mount -t tmpfs tmpfs /run/log/journal
"$journald" >/dev/null 2>&1 &
for _ in $(seq 100); do [ -S /run/systemd/journal/socket ] && break; sleep 0.1; done
[ -S /run/systemd/journal/socket ] || { echo "journald did not start"; exit 1; }
tag="vtcore-journal-test-$$"
"$probe" "$tag" 2>/dev/null
for _ in $(seq 50); do
  record=$(journalctl -D /run/log/journal -o json --no-pager SYSLOG_IDENTIFIER="$tag" 2>/dev/null || true)
  [ -n "$record" ] && break
  sleep 0.1
done
echo "$record"
python3 - "$record" "$tag" <<'PY'
import json, sys, re
record, tag = json.loads(sys.argv[1]), sys.argv[2]
assert record["SYSLOG_IDENTIFIER"] == tag, record
assert record["MESSAGE"] == "probe message 42", record
assert record["LEVEL"] == "4" and record["PRIORITY"] == "4", record
assert re.fullmatch(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}", record["QXLOG_LOCAL_TIME"]), record
assert re.fullmatch(r"[0-9a-f]+", record["QXLOG_THREAD"]), record
assert record["READUID"] == "0", record
print("journal record has every mapped field")
PY
INNER
