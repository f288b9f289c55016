#!/bin/sh
# The same sweep through the solver protocol (the devices written again in
# Python) and with the built-in device must solve the same frequencies, in
# the same order, to within what the last digits of the two implementations'
# answers move them (the sampler aims at the model's poles, which follow the
# data's last bits), and both must meet their goal.
# Usage: test_sweep_protocol.sh SPARAM PYTHON DEVICES_SCRIPT
set -eu
sparam=$1 python=$2 script=$3
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# same_sweep A.ndp B.ndp: the solve sequences agree in length and to 1e-5
# relative at every step.
same_sweep() {
  "$python" - "$1" "$2" <<'PY'
import re, sys
def sequence(path):
    text = open(path).read()
    return [float(v) for v in re.search(r"FreqSequence = \[([^\]]*)\]", text).group(1).split(",")]
a, b = sequence(sys.argv[1]), sequence(sys.argv[2])
ok = len(a) == len(b) and all(abs(x - y) <= 1e-5 * abs(x) for x, y in zip(a, b))
if not ok:
    print("built-in:", a)
    print("protocol:", b)
sys.exit(0 if ok else 1)
PY
}
for device in bandpass resonator waveguide; do
  for tol in 1e-2 1e-4; do
    band=$("$sparam" devices | awk -v d="$device" '$1 == d { print $4 $5 " " $7 $8 }')
    start=${band% *} stop=${band#* }
    "$sparam" sweep --device "$device" --tol "$tol" -o "$dir/builtin.ndp" >/dev/null 2>&1
    "$sparam" sweep --solver "$python $script $device" --start "$start" --stop "$stop" --tol "$tol" \
      -o "$dir/protocol.ndp" >/dev/null 2>&1
    a=$(grep 'FreqSequence' "$dir/builtin.ndp")
    if ! same_sweep "$dir/builtin.ndp" "$dir/protocol.ndp"; then
      echo "$device at $tol: the protocol sweep solved other frequencies"
      exit 1
    fi
    echo "$device at $tol: $(echo "$a" | tr ',' '\n' | wc -l) frequencies, the same through the protocol"
    rm -f "$dir/builtin.ndp" "$dir/protocol.ndp"
  done
done

# A solver that dies after 5 answers leaves a project that --resume finishes
# with the frequencies of an uninterrupted sweep, none solved twice. The
# resumed run names another command (the same solver without the dying
# filter in front), which a resume takes only with --force.
"$sparam" sweep --device bandpass --tol 1e-3 -o "$dir/whole.ndp" >/dev/null 2>&1
dying='n=0; while read -r f; do n=$((n + 1)); [ $n -gt 5 ] && exit 3; echo "$f"; done'
if "$sparam" sweep --solver "$dying | $python $script bandpass" --start 9GHz --stop 11GHz --tol 1e-3 \
  -o "$dir/crashed.ndp" >/dev/null 2>"$dir/err.txt"; then
  echo "the sweep did not notice its solver dying"; exit 1
fi
grep -q "solver" "$dir/err.txt" || { echo "no message names the failure:"; cat "$dir/err.txt"; exit 1; }
"$sparam" sweep --resume "$dir/crashed.ndp" --solver "$python $script bandpass" --force >/dev/null 2>&1
a=$(grep 'FreqSequence' "$dir/whole.ndp")
same_sweep "$dir/whole.ndp" "$dir/crashed.ndp" || { echo "resumed sweep differs"; exit 1; }
echo "killed after 5 solves and resumed: the same $(echo "$a" | tr ',' '\n' | wc -l) frequencies"
