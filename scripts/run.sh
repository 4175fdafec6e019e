#!/usr/bin/env bash
# Installs what the project needs, builds the `sagely` command-line host and runs its main job:
# a question about the kit answered offline from the bundled guide (no key, no network needed).
# Extra arguments are passed to `sagely` instead of the default command.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true
cmake --preset release -DSAGELY_BUILD_TESTS=OFF -DSAGELY_BUILD_BENCHMARKS=OFF -DSAGELY_BUILD_UI=OFF >/dev/null
cmake --build --preset release --target sagely -j "$(nproc)"

if [ $# -gt 0 ]; then
  exec ./build/release/bin/sagely "$@"
fi
exec ./build/release/bin/sagely ask --offline "How are API keys stored?"
