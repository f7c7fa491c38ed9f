#!/usr/bin/env bash
# Builds zoltools, runs the example algorithm wrapper under ./zol-root (it saves a few
# invocations, then replays them in a second process and checks the outputs are identical),
# and renders what it saved to PNG with the zoltools host tool. Installs missing Debian
# packages first. Extra arguments go to the example (e.g. --frames 8 --size 1280x720).
set -euo pipefail
cd "$(dirname "$0")"

tools/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target algo_wrapper zoltools_cli

# Absolute paths throughout, so that every command printed below works from any directory.
root="$PWD/zol-root"
zoltools="$PWD/build/default/tools/zoltools"
algo_wrapper="$PWD/build/default/examples/algo_wrapper/algo_wrapper"
"$algo_wrapper" --root "$root" "$@"

echo
echo "=== zoltools inspect --png"
# The PNGs are of this run only, as the save folders are.
rm -rf "$root/png"
"$zoltools" inspect "$root" --png "$root/png"

echo
echo "Where to look:"
echo "  saved input frames as PNG  $root/png/SimulationIntputInfo_*/"
echo "  simulation folders         $root/data/vendor/camera/algosimulation/"
echo "  algorithm outputs (NV21)   $root/data/vendor/camera/algo_wrapper/"
first_output=$(ls "$root"/data/vendor/camera/algo_wrapper/output_*.nv21 | head -n 1)
echo "                             $zoltools convert $first_output out.png"
echo "  offline log                $zoltools log $root --grep AlgoWrapper"
echo "  the tools on PATH          export PATH=\"$(dirname "$zoltools"):$(dirname "$algo_wrapper"):\$PATH\""

echo
echo "=== zoltools report"
"$zoltools" report "$root" -o "$root/report"
echo "Report (open in a browser): $root/report/index.html"
