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
# Then the run is repeated on the virtual clock, whole (with each engine) and
# cut in two with --state-out and --state-in: after every instruction when it
# runs at most 40 (3,000 with SPLIT_ALL=1 in the environment), else after 1,
# each tenth and all but one of them (SPLIT_FEW=1, as the sanitizer build
# sets it: every instruction up to 8, else after 1, half and all but one).
# Standard output, exit status, screen and the files in the root must be
# those of the whole run.
# Programs that run more than a million instructions are not cut.
# Last the program is listed with tvxdis and assembled again: the bytes
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

fresh=$([ "$(field root)" = fresh ] && echo 1)
root_opts=()
if [ -n "$fresh" ]; then
  root_opts=(--root TovixOS) tvxrun=$(realpath "$tvxrun") tvx=$(realpath "$tvx")
fi
# Sets run_dir to where a run starts: a new guest root when the source asks
# for one, else the current directory.
new_root() {
  run_dir=.
  [ -n "$fresh" ] || return 0
  [ -z "${old_dir:-}" ] || { chmod -R u+rwX "$old_dir" && rm -rf "$old_dir"; }
  run_dir=$(mktemp -d) old_dir=$run_dir
  mkdir -p "$run_dir/TovixOS"
  if [ -d "${src%.tvs}.root" ]; then cp -R "${src%.tvs}.root/." "$run_dir/TovixOS/"; fi
  for f in $(field root-files); do
    mkdir -p "$(dirname "$run_dir/TovixOS/$f")" && cp "$work/$(basename "$f")" "$run_dir/TovixOS/$f"
  done
}
# What the guest root holds: each file's digest by path.
root_digest() { [ -z "$fresh" ] || (cd "$run_dir/TovixOS" && find . -type f -exec sha256sum {} + | sort); }
new_root

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
fi

# tvxrun with the program's options on the virtual clock, from run_dir.
# shellcheck disable=SC2086
run_virtual() { (cd "$run_dir" && "$tvxrun" "${root_opts[@]}" $options --clock virtual "$@"); }
new_root
run_virtual --max-steps "$max_steps" --stats --dump-planes "$work/$name.whole.planes" \
  --screenshot "$work/$name.whole.png" "$tvx" $args \
  >"$work/$name.whole.stdout" 2>"$work/$name.whole.stderr"
whole_status=$?
whole_root=$(root_digest)
steps=$(sed -n 's/^tvxrun: \([0-9]*\) instructions.*/\1/p' "$work/$name.whole.stderr")
[ -n "$steps" ] || { echo "FAIL $name: the run on the virtual clock gave no instruction count"; fail=1; steps=0; }
# The reference engine runs it alike: output, log, screen, files and count.
new_root
run_virtual --engine reference --max-steps "$max_steps" --stats --dump-planes "$work/$name.ref.planes" \
  --screenshot "$work/$name.ref.png" "$tvx" $args \
  >"$work/$name.ref.stdout" 2>"$work/$name.ref.stderr"
ref_status=$?
log_of() { sed "s/^\(tvxrun: [0-9]* instructions\).*/\1/" "$1"; }
if [ "$ref_status" != "$whole_status" ] || ! cmp -s "$work/$name.ref.stdout" "$work/$name.whole.stdout" \
  || ! cmp -s "$work/$name.ref.planes" "$work/$name.whole.planes" \
  || ! cmp -s "$work/$name.ref.png" "$work/$name.whole.png" || [ "$(root_digest)" != "$whole_root" ] \
  || [ "$(log_of "$work/$name.ref.stderr")" != "$(log_of "$work/$name.whole.stderr")" ]; then
  echo "FAIL $name: the reference engine's run differs (exit $ref_status, fast: $whole_status)"
  diff <(log_of "$work/$name.whole.stderr") <(log_of "$work/$name.ref.stderr") | head; fail=1
fi
every=40; [ "${SPLIT_ALL:-}" = 1 ] && every=3000; [ "${SPLIT_FEW:-}" = 1 ] && every=8
if [ "$steps" -le "$every" ]; then cuts=$(seq 1 $((steps - 1)))
elif [ "$steps" -gt 1000000 ]; then cuts=
elif [ "${SPLIT_FEW:-}" = 1 ]; then cuts="1 $((steps / 2)) $((steps - 1))"
else cuts="1 $(for k in $(seq 9); do echo $((steps * k / 10)); done) $((steps - 1))"; fi
state="$work/$name.state" part="$work/$name.part"
for cut in $cuts; do
  new_root
  run_virtual --max-steps "$cut" --state-out "$state" --screenshot "$part.png" "$tvx" $args \
    >"$part.stdout" 2>"$part.stderr"
  run_virtual --max-steps $((max_steps - cut)) --state-in "$state" --dump-planes "$part.planes" --screenshot "$part.png" \
    >>"$part.stdout" 2>>"$part.stderr"
  status=$?
  if [ "$status" != "$whole_status" ] || ! cmp -s "$part.stdout" "$work/$name.whole.stdout" \
    || ! cmp -s "$part.planes" "$work/$name.whole.planes" || [ "$(root_digest)" != "$whole_root" ] \
    || ! "$tvxrun" --compare-png "$part.png" "$work/$name.whole.png" 2>/dev/null; then
    echo "FAIL $name: cut after $cut of $steps instructions and continued from the state, exit $status (whole:" \
      "$whole_status), and output, screen or files differ"; diff "$work/$name.whole.stdout" "$part.stdout" | head
    tail -5 "$part.stderr"; fail=1; break
  fi
done
[ -z "$fresh" ] || { chmod -R u+rwX "$run_dir" && rm -rf "$run_dir"; }

"$tvxdis" "$tvx" -o "$work/$name.dis.tvs" && "$tvxasm" "$work/$name.dis.tvs" -o "$work/$name.rt.tvx" \
  && cmp "$tvx" "$work/$name.rt.tvx" || { echo "FAIL $name: disassembly does not assemble to the same bytes"; fail=1; }

[ $fail = 0 ] && echo "ok $name (exit $status)"
exit $fail
