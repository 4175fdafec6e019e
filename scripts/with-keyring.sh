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
login=$(echo -n test | gnome-keyring-daemon --login 2>/dev/null || true)
[ -z "$login" ] || export $login
started=$(gnome-keyring-daemon --start --components=secrets 2>/dev/null || true)
[ -z "$started" ] || export $started
"$@"
