#!/usr/bin/env bash
# Runs one assembled test program and checks what its source declares:
#   ; expect-exit: N        exit status of tvxrun (default 0)
#   ; expect-log: TEXT      TEXT appears in the machine log (stderr)
#   ; max-steps: N          step limit passed to tvxrun (default 50000000)
#   ; args: WORDS           the program's argument
#   ; options: OPTIONS      more tvxrun options (clock, key script, --screenshot-size)
#   ; expect-planes-sha256: HEX
#                           sha256 of both screen planes when the run ends
#   ; expect-png: FILE.png  the screenshot equals FILE.png (next to the
#                           source) pixel for pixel
# A file NAME.out next to the source holds the expected standard output.
# Then the program is listed with tvxdis and assembled again: the bytes
# must be the same.
set -u
tvxrun=$1 tvxasm=$2 tvxdis=$3 src=$4 tvx=$5 work=$6
name=$(basename "$src" .tvs)
mkdir -p "$work"
field() { sed -n "s/^; $1: //p" "$src" | head -n 1; }
expect_exit=$(field expect-exit); expect_exit=${expect_exit:-0}
max_steps=$(field max-steps); max_steps=${max_steps:-50000000}
args=$(field args)
options=$(field options)
expect_planes=$(field expect-planes-sha256)
expect_png=$(field expect-png)
fail=0

pictures=()
[ -n "$expect_planes" ] && pictures+=(--dump-planes "$work/$name.planes")
[ -n "$expect_png" ] && pictures+=(--screenshot "$work/$name.png")
rm -f "$work/$name.planes" "$work/$name.png"
# shellcheck disable=SC2086
"$tvxrun" --max-steps "$max_steps" "${pictures[@]}" $options "$tvx" $args >"$work/$name.stdout" 2>"$work/$name.stderr"
status=$?
if [ "$status" != "$expect_exit" ]; then
  echo "FAIL $name: exit status $status, expected $expect_exit"; cat "$work/$name.stderr"; fail=1
fi
while IFS= read -r want; do
  grep -qF -- "$want" "$work/$name.stderr" || { echo "FAIL $name: log lacks: $want"; cat "$work/$name.stderr"; fail=1; }
done < <(sed -n 's/^; expect-log: //p' "$src")
if [ -f "${src%.tvs}.out" ] && ! cmp -s "${src%.tvs}.out" "$work/$name.stdout"; then
  echo "FAIL $name: standard output differs"; diff "${src%.tvs}.out" "$work/$name.stdout" | head -20; fail=1
fi

if [ -n "$expect_planes" ]; then
  got=$(sha256sum "$work/$name.planes" 2>/dev/null | cut -d' ' -f1)
  [ "$got" = "$expect_planes" ] || { echo "FAIL $name: screen planes hash ${got:-missing}, expected $expect_planes"; fail=1; }
fi
if [ -n "$expect_png" ]; then
  "$tvxrun" --compare-png "$(dirname "$src")/$expect_png" "$work/$name.png" \
    || { echo "FAIL $name: screenshot $work/$name.png differs from $expect_png"; fail=1; }
fi

"$tvxdis" "$tvx" -o "$work/$name.dis.tvs" && "$tvxasm" "$work/$name.dis.tvs" -o "$work/$name.rt.tvx" \
  && cmp "$tvx" "$work/$name.rt.tvx" || { echo "FAIL $name: disassembly does not assemble to the same bytes"; fail=1; }

[ $fail = 0 ] && echo "ok $name (exit $status)"
exit $fail
