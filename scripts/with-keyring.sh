#!/usr/bin/env bash
# Runs a command with a fresh HOME and an unlocked gnome-keyring login keyring on the current
# D-Bus session (start it under dbus-run-session). Without --login the default collection does
# not exist and stores fail.
set -euo pipefail
keyring_home=$(mktemp -d)
trap 'rm -rf "$keyring_home"' EXIT
export HOME="$keyring_home"
export XDG_DATA_HOME="$keyring_home/.local/share"
export XDG_RUNTIME_DIR="$keyring_home/run"
mkdir -p "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
# A bare `export` would list the whole environment: export only what the daemon printed.
# The keyring tests must be able to fail for lack of a keyring, so a daemon that does not
# start stops the run here instead of leaving the tests to a store that is not there.
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
  echo "with-keyring.sh: no D-Bus session bus; run it under dbus-run-session" >&2
  exit 1
fi
login=$(echo -n test | gnome-keyring-daemon --login 2>/dev/null || true)
[ -z "$login" ] || export $login
started=$(gnome-keyring-daemon --start --components=secrets 2>/dev/null || true)
[ -z "$started" ] || export $started
# The daemon prints nothing when it joins one already running, so ask the service itself: it
# must answer on the bus and have the default collection, where stores go.
default=$(dbus-send --session --print-reply --reply-timeout=10000 --dest=org.freedesktop.secrets \
  /org/freedesktop/secrets org.freedesktop.Secret.Service.ReadAlias string:default 2>&1 || true)
if [[ "$default" != *'object path "/org/freedesktop/secrets/collection/'* ]]; then
  echo "with-keyring.sh: the Secret Service did not start with a default collection" >&2
  echo "$default" >&2
  exit 1
fi
export SAGELY_REQUIRE_SECRET_SERVICE=1
"$@"
