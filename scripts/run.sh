#!/usr/bin/env bash
# Installs what the project needs, builds the `sagely` command-line host and runs its main job.
# Extra arguments are passed to `sagely` instead of the default command.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset release -DSAGELY_BUILD_TESTS=OFF -DSAGELY_BUILD_BENCHMARKS=OFF -DSAGELY_BUILD_UI=OFF >/dev/null
cmake --build --preset release --target sagely -j "$(nproc)"

if [ $# -gt 0 ]; then
  exec ./build/release/bin/sagely "$@"
fi
exec ./build/release/bin/sagely providers
