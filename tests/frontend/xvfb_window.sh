#!/usr/bin/env bash
# Runs tvm2 on a virtual X server (1280x1024, so a 640x480 window) and checks
# the guest picture in the real window: where it lies, how it is enlarged.
# Skipped (status 77) when xvfb-run is not installed.
set -u
tvm2=$1 xshot=$2 tvxasm=$3 src=$4 work=$5
command -v xvfb-run >/dev/null || { echo "xvfb-run is not installed: skipped"; exit 77; }
mkdir -p "$work/TovixOS"
fail=0

# check NAME POINT...: runs NAME.tvs, captures the window into NAME.png and
# checks the colour of each POINT (X,Y=RRGGBB).
check() {
  local name=$1; shift
  if [ "$name" = load_error ]; then
    echo "not a program" >"$work/$name.tvx"
  else
    "$tvxasm" "$src/$name.tvs" -o "$work/$name.tvx" || { fail=1; return; }
  fi
  rm -f "$work/$name.png"
  # shellcheck disable=SC2016
  KEYS=${KEYS:-} xvfb-run -a -s "-screen 0 ${SCREEN:-1280x1024}x24" bash -c '
    cd "$1" && shift
    tvm2=$1 xshot=$2 name=$3; shift 3
    # No leak check here: the X11, OpenGL and D-Bus libraries leave blocks
    # behind when SDL unloads them at exit (tvm2 itself is leak-checked by
    # the tests under the dummy video driver).
    ASAN_OPTIONS=${ASAN_OPTIONS:-}:detect_leaks=0 "$tvm2" "$name.tvx" >"$name.log" 2>&1 & pid=$!
    # Keys typed into the window first (KEYS: xdotool key names).
    [ -n "$KEYS" ] && { sleep 1; xdotool search --sync --name "Tovix SDL" key --delay 200 $KEYS; sleep 0.5; }
    "$xshot" "$name.png" "$@"; rc=$?
    # Ended by SIGTERM: the window closes, tvm2 leaves with 128 + 15.
    kill -TERM $pid
    for _ in $(seq 50); do kill -0 $pid 2>/dev/null || break; sleep 0.1; done
    kill -0 $pid 2>/dev/null && { echo "tvm2 did not end"; kill -KILL $pid; rc=1; }
    wait $pid; status=$?
    [ $status = 143 ] || { echo "tvm2 ended with status $status"; rc=1; }
    exit $rc' _ "$work" "$tvm2" "$xshot" "$name" "$@" || { echo "FAIL $name"; cat "$work/$name.log"; fail=1; return; }
  echo "ok $name ($work/$name.png)"
}

# 240x160 from the middle of the 320x240 surface, 640 wide and 640*160/240 =
# 426 high, 27 rows from the top; the red square covers guest 224-239 x
# 144-159, so window columns 598-639 and rows 411-452.
check window_large 320,26=000000 320,27=FFFFFF 320,240=FFFFFF 0,27=FFFFFF 639,452=FF0000 \
  630,445=FF0000 598,420=FF0000 596,420=FFFFFF 630,409=FFFFFF 320,453=000000 320,470=000000

# 160x80 enlarged 4 times into the window-sized surface: 640x320 from row 80;
# the red square is columns 608-639, rows 368-399.
check window_small 320,79=000000 320,80=FFFFFF 0,80=FFFFFF 607,399=FFFFFF 608,399=FF0000 \
  639,368=FF0000 639,367=FFFFFF 320,399=FFFFFF 320,400=000000

# An 800x600 display counts as a handheld's: full screen, also without a
# window manager; the 240x160 screen 800 wide and 533 high from row 33.
SCREEN=800x600 check window_large 400,20=000000 400,40=FFFFFF 790,549=FF0000 799,599=000000

# Alt+Return on a display started in full screen: a 640x480 window, drawn as
# the first check expects.
if command -v xdotool >/dev/null; then
  SCREEN=800x600 KEYS=alt+Return check window_large 320,26=000000 320,27=FFFFFF 639,452=FF0000 \
    598,420=FF0000 320,453=000000 320,470=000000
else
  echo "xdotool is not installed: full-screen toggle skipped"
fi

# A program that cannot be loaded: the reason in the window, its heading in
# yellow from (16, 32), doubled 8x8 capitals (the top bar of the first "T").
check load_error 20,32=FFFF00 20,31=000000 320,240=000000

exit $fail
