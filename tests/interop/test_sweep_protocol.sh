#!/bin/sh
# The same sweep through the solver protocol (the devices written again in
# Python) and with the built-in device must solve the same frequencies, in
# the same order. Usage: test_sweep_protocol.sh SPARAM PYTHON DEVICES_SCRIPT
set -eu
sparam=$1 python=$2 script=$3
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
for device in bandpass resonator waveguide; do
  for tol in 1e-2 1e-4; do
    band=$("$sparam" devices | awk -v d="$device" '$1 == d { print $4 $5 " " $7 $8 }')
    start=${band% *} stop=${band#* }
    "$sparam" sweep --device "$device" --tol "$tol" -o "$dir/builtin.ndp" >/dev/null 2>&1
    "$sparam" sweep --solver "$python $script $device" --start "$start" --stop "$stop" --tol "$tol" \
      -o "$dir/protocol.ndp" >/dev/null 2>&1
    a=$(grep 'FreqSequence' "$dir/builtin.ndp")
    b=$(grep 'FreqSequence' "$dir/protocol.ndp")
    if [ "$a" != "$b" ]; then
      echo "$device at $tol: the protocol sweep solved other frequencies"
      echo "built-in: $a"
      echo "protocol: $b"
      exit 1
    fi
    echo "$device at $tol: $(echo "$a" | tr ',' '\n' | wc -l) frequencies, the same through the protocol"
    rm -f "$dir/builtin.ndp" "$dir/protocol.ndp"
  done
done

# A solver that dies after 5 answers leaves a project that --resume finishes
# with the frequencies of an uninterrupted sweep, none solved twice.
"$sparam" sweep --device bandpass --tol 1e-3 -o "$dir/whole.ndp" >/dev/null 2>&1
dying='n=0; while read -r f; do n=$((n + 1)); [ $n -gt 5 ] && exit 3; echo "$f"; done'
if "$sparam" sweep --solver "$dying | $python $script bandpass" --start 9GHz --stop 11GHz --tol 1e-3 \
  -o "$dir/crashed.ndp" >/dev/null 2>"$dir/err.txt"; then
  echo "the sweep did not notice its solver dying"; exit 1
fi
grep -q "solver" "$dir/err.txt" || { echo "no message names the failure:"; cat "$dir/err.txt"; exit 1; }
"$sparam" sweep --resume "$dir/crashed.ndp" --solver "$python $script bandpass" >/dev/null 2>&1
a=$(grep 'FreqSequence' "$dir/whole.ndp")
b=$(grep 'FreqSequence' "$dir/crashed.ndp")
[ "$a" = "$b" ] || { echo "resumed sweep differs"; echo "$a"; echo "$b"; exit 1; }
echo "killed after 5 solves and resumed: the same $(echo "$a" | tr ',' '\n' | wc -l) frequencies"
