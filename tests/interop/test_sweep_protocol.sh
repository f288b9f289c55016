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
