#!/usr/bin/env bash
# The start command: builds the simulated instrument if needed, then runs it
# with the given options (paths are taken from where this is started; without
# --state the board lives in ./fenwa-state).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

bash "$root/scripts/setup.sh" </dev/null

# FatFs beside the tree (as test.sh finds it) gives --card-image; a folder
# set by hand (-DFENWA_FATFS_DIR) stays as it is otherwise.
fatfs=()
if [[ -f $root/../shared/third_party/fatfs/ff.c ]]; then
    fatfs=(-DFENWA_FATFS_DIR="$(cd "$root/../shared/third_party/fatfs" && pwd)")
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! (cd "$root" && cmake --preset host "${fatfs[@]}" && cmake --build --preset host --target fenwa-sim) \
    >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    echo "run-sim: the build failed" >&2
    exit 1
fi
rm -f "$log"
trap - EXIT

exec "$root/build/host/fenwa-sim" "$@"
