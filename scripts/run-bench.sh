#!/usr/bin/env bash
# Runs every benchmark and the peer comparisons; prints figures for the README.
set -euo pipefail
build=${1:-build}
cd "$(dirname "$0")/.."
python=/usr/bin/python3

echo "== machine: $(lscpu | sed -n 's/^Model name: *//p'), $(nproc) cores; $(c++ --version | head -1); -O2"
echo "== S->Y / S->Z against scikit-rf"
"$python" bench/compare_conversions.py "$build/bench/bench_conversions" 2>/dev/null
echo "== Touchstone write against scikit-rf"
"$python" bench/compare_touchstone.py "$build/bench/bench_touchstone" 2>/dev/null
echo "== Touchstone read against scikit-rf"
"$python" bench/compare_touchstone_read.py "$build/bench/bench_touchstone_read" 2>/dev/null
echo "== interpolation against scikit-rf"
"$python" bench/compare_interpolate.py "$build/bench/bench_interpolate" 2>/dev/null
echo "== barycentric weight fit, 32 ports, 200 solved points (exact and scattered by 1e-6)"
"$build/bench/bench_interpolate" --fit-only
echo "== interpolating sweeps of the built-in devices: against uniform sampling, and on scattered data"
"$build/bench/bench_sweep"
"$build/bench/bench_sweep_overhead"
echo "== MATLAB write"
"$build/bench/bench_matlab"
echo "== SolveLinear against LAPACK zgesv"
"$build/bench/bench_solve"
echo "== block text write / read"
"$build/bench/bench_block_text"
echo "== project save / load, 1001 points x 32 ports"
"$build/bench/bench_project"
tmp=$(mktemp --suffix=.ndp)
"$build/bench/bench_project" --make "$tmp"
"$build/bench/bench_project" --load-peak "$tmp"
rm -f "$tmp"
