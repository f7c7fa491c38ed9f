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

root="$PWD/zol-root"
zoltools=build/default/tools/zoltools
build/default/examples/algo_wrapper/algo_wrapper --root "$root" "$@"

echo
echo "=== zoltools inspect --png"
"$zoltools" inspect "$root" --png "$root/png"

echo
echo "Where to look:"
echo "  saved input frames as PNG  $root/png/SimulationIntputInfo_*/"
echo "  simulation folders         $root/data/vendor/camera/algosimulation/"
echo "  algorithm outputs (NV21)   $root/data/vendor/camera/algo_wrapper/"
echo "                             $zoltools convert <file>.nv21 out.png"
echo "  offline log                $zoltools log $root --level E,W,I"

echo
echo "=== zoltools report"
"$zoltools" report "$root" -o "$root/report"
echo "Report (open in a browser): $root/report/index.html"
