#!/usr/bin/env bash
# Runs one assembled test program and checks what its source declares:
#   ; expect-exit: N        exit status of tvxrun (default 0)
#   ; expect-log: TEXT      TEXT appears in the machine log (stderr)
#   ; max-steps: N          step limit passed to tvxrun (default 50000000)
#   ; args: WORDS           the program's argument
#   ; options: OPTIONS      more tvxrun options (clock, key script, --screenshot-size)
#   ; root: fresh           run in a new temporary directory T with the guest
#                           root T/TovixOS (--root TovixOS), filled from the
#                           directory NAME.root/ next to the source if there is one
#   ; root-files: PATH...   assembled programs copied into that root: each
#                           PATH names the place (PROGRAM/child.tvx), its
#                           last part the program (child.tvx of this build)
#   ; expect-file: PATH     PATH exists in the root after the run;
#                           "PATH == TEXT": and holds exactly TEXT
#   ; expect-no-file: PATH  PATH does not exist in the root after the run
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

run_dir=. root_opts=()
if [ "$(field root)" = fresh ]; then
  run_dir=$(mktemp -d) root_opts=(--root TovixOS) tvxrun=$(realpath "$tvxrun") tvx=$(realpath "$tvx")
  mkdir -p "$run_dir/TovixOS"
  if [ -d "${src%.tvs}.root" ]; then cp -R "${src%.tvs}.root/." "$run_dir/TovixOS/"; fi
  for f in $(field root-files); do
    mkdir -p "$(dirname "$run_dir/TovixOS/$f")" && cp "$work/$(basename "$f")" "$run_dir/TovixOS/$f"
  done
fi

pictures=()
[ -n "$expect_planes" ] && pictures+=(--dump-planes "$work/$name.planes")
[ -n "$expect_png" ] && pictures+=(--screenshot "$work/$name.png")
rm -f "$work/$name.planes" "$work/$name.png"
# shellcheck disable=SC2086
(cd "$run_dir" && "$tvxrun" --max-steps "$max_steps" "${root_opts[@]}" "${pictures[@]}" $options "$tvx" $args) \
  >"$work/$name.stdout" 2>"$work/$name.stderr"
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
if [ "$run_dir" != . ]; then
  while IFS= read -r want; do
    path=${want%% == *}
    if [ ! -e "$run_dir/TovixOS/$path" ]; then
      echo "FAIL $name: no file $path in the guest root"; fail=1
    elif [ "$path" != "$want" ] && [ "$(cat "$run_dir/TovixOS/$path")" != "${want#* == }" ]; then
      echo "FAIL $name: $path holds '$(cat "$run_dir/TovixOS/$path")', expected '${want#* == }'"; fail=1
    fi
  done < <(sed -n 's/^; expect-file: //p' "$src")
  while IFS= read -r path; do
    [ ! -e "$run_dir/TovixOS/$path" ] || { echo "FAIL $name: $path should not exist in the guest root"; fail=1; }
  done < <(sed -n 's/^; expect-no-file: //p' "$src")
  chmod -R u+rwX "$run_dir" && rm -rf "$run_dir"
fi

"$tvxdis" "$tvx" -o "$work/$name.dis.tvs" && "$tvxasm" "$work/$name.dis.tvs" -o "$work/$name.rt.tvx" \
  && cmp "$tvx" "$work/$name.rt.tvx" || { echo "FAIL $name: disassembly does not assemble to the same bytes"; fail=1; }

[ $fail = 0 ] && echo "ok $name (exit $status)"
exit $fail
