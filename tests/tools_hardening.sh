#!/usr/bin/env bash
# The tools under hostile use: a print that once stalled the host, bad
# options, outputs that would destroy files or the input, standard output
# that cannot be written, signals during a run, a log line of 1,500 bytes.
set -u
tvxrun=$1 tvxasm=$2 tvxdis=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
fail=0
check() { if ! eval "$2"; then echo "FAIL: $1"; fail=1; fi; }

cat >hello.tvs <<'TVS'
        push_string "hello\n"
        push_char 1
        c_printf
        good_exit
TVS
# Every byte of memory non-zero, then a format of half a million "%s" over
# the unterminated block.
cat >stall.tvs <<'TVS'
.tvx bits=24 mode=1 width=160 height=80
        push_long 0
        push_char 'A'
        push_long 0x100000
        c_memset
        push_long 0x10000
        push_string "%s"
        c_strcpy
        push_long 0x10002
        push_long 0x10000
        push_long 0x80000
        c_memcpy
        push_long 0x10000
        push_char 1
        c_printf
        good_exit
TVS
# Appends whole records to log.txt every 20 ms, for ever.
cat >append.tvs <<'TVS'
.tvx bits=16 mode=1
        push_int 0x2000
        push_string "log.txt"
        push_string "a"
        c_fopen
        c_letx 4
        pop_val
        push_string "ready\n"
        push_char 1
        c_printf
loop:   push_string "record\n"
        push_char 1
        push_char 7
        push_vlong 0x2000
        c_fwrite
        pop_val
        push_char 20
        c_delay
        c_jmp loop
TVS
cat >yes.tvs <<'TVS'
loop:   push_string "y\n"
        push_char 1
        c_printf
        c_jmp loop
TVS
for p in hello stall append yes; do "$tvxasm" $p.tvs || exit 1; done

# The stalling print: done at once, its output bounded by 1 MiB.
start=$(date +%s%N)
"$tvxrun" --max-steps 30 stall.tvx >stall.out 2>/dev/null
status=$? ms=$((($(date +%s%N) - start) / 1000000)) size=$(stat -c %s stall.out)
check "stall program: status $status, $ms ms, $size bytes" \
  '[ $status = 0 ] && [ $ms -lt 5000 ] && [ $size -le $((1 << 20)) ] && [ $size -gt 0 ]'

# Options refused with the usage status and a message (rows without a
# check); outputs: a device or FIFO is written as it is and never removed,
# a link is followed and stays, a failed write leaves nothing behind.
touch plain
mkfifo fifo
echo old >real.png && ln -s real.png link.png
while IFS='|' read -r opts test; do
  # shellcheck disable=SC2086
  "$tvxrun" $opts hello.tvx >out 2>err
  status=$?
  check "tvxrun $opts: status $status, $(head -c 200 err)" "${test:-[ \$status = 125 ] && [ -s err ]}"
done <<'ROWS'
--max-steps -1
--max-steps 18446744073709551616
--max-steps 12x
--max-steps +5
--root missing
--root plain
--keys 1000000000001:A
--keys -5:A
--screenshot-size 640x+480
--screenshot-size 99999999999x1
--disk-limit 1T
--disk-limit 17179869184G
--engine turbo
--screenshot hello.tvx
--state-out ./hello.tvx
--frobnicate|[ $status = 125 ] && [ "$(cat err)" = "tvxrun: unknown option --frobnicate (tvxrun --help lists the options)" ]
--max-steps 18446744073709551614 --keys 1000000000000:A --disk-limit 2M|[ "$(cat out)" = hello ]
--screenshot /dev/full |[ $status = 122 ] && [ -c /dev/full ]
--screenshot fifo      |[ $status = 122 ] && [ -p fifo ]
--state-out nodir/state|[ $status = 122 ] && [ ! -e nodir ]
--screenshot link.png  |[ $status = 0 ] && [ -L link.png ] && "$tvxrun" --compare-png real.png link.png
ROWS
# Bad inputs: each tool names the file and the cause, and fails without a crash.
mkdir dir.tvs dir.tvx && : >empty.tvx && printf 'TVX\022abc' >short.tvx
while IFS='|' read -r tool file cause; do
  "${!tool}" "$file" >out 2>err
  status=$?
  check "$tool $file: status $status, $(cat err)" '[ $status = 1 ] && [ "$(cat err)" = "$tool: $file: $cause" ]'
done <<'ROWS'
tvxasm|dir.tvs|is a directory
tvxasm|gone.tvs|No such file or directory
tvxdis|dir.tvx|is a directory
tvxdis|empty.tvx|empty file
tvxdis|short.tvx|truncated Tovix program (7 of the 16 header bytes)
tvxdis|hello.tvs|not a Tovix program
ROWS
"$tvxrun" empty.tvx 2>err
check "tvxrun empty.tvx: $(cat err)" '[ "$(cat err)" = "tvxrun: empty.tvx: empty file" ]'
cp hello.tvx HELLO.TVX
"$tvxrun" HELLO.TVX >out 2>err
status=$?
check "tvxrun HELLO.TVX: status $status, $(cat err)" '[ $status = 126 ] && grep -q "must end in .tvx (lower case)" err'
"$tvxrun" --root 2>err
check "tvxrun --root: $(cat err)" '[ "$(cat err)" = "tvxrun: missing value after --root (tvxrun --help lists the options)" ]'
check "no temporary files left" '[ -z "$(ls -A | grep "^\.")" ]'

# tvxasm and tvxdis never write over their input, however it is named.
sum=$(sha256sum hello.tvs hello.tvx)
ln -s hello.tvs soft.tvs && ln hello.tvs hard.tvs && ln hello.tvx hard.tvx
for out in ./hello.tvs soft.tvs hard.tvs; do
  "$tvxasm" hello.tvs -o $out 2>err
  status=$?
  check "tvxasm hello.tvs -o $out: status $status" '[ $status = 2 ] && grep -q "is the input" err'
done
"$tvxdis" hello.tvx -o hard.tvx 2>err
status=$?
check "tvxdis hello.tvx -o hard.tvx: status $status" '[ $status = 2 ] && [ "$(sha256sum hello.tvs hello.tvx)" = "$sum" ]'

# Standard output that cannot be written: full, or a pipe closed early.
"$tvxrun" hello.tvx >/dev/full 2>err
status=$?
check "output to /dev/full: status $status" '[ $status = 122 ] && grep -q "cannot write standard output" err'
"$tvxrun" yes.tvx 2>err | head -c 10 >/dev/null
status=${PIPESTATUS[0]}
check "output to a closed pipe: status $status" '[ $status = 122 ] && grep -q "Broken pipe" err'

# The trace shows a string operand's text, escaped as the assembler reads it.
"$tvxrun" --trace hello.tvx >/dev/null 2>err
check "trace of push_string" 'grep -qxF "000010  push_string \"hello\\n\"" err'

# A log line of 1,500 bytes comes out whole, with its line end.
long=$(printf 'w%.0s' $(seq 1500))
"$tvxrun" hello.tvx "$long" >/dev/null 2>err
check "long log line" 'grep -qxF "[DEBUG] CMDLINE: hello.tvx $long" err'

# A signal ends a program that writes a file: whole records on disk, the
# file closed (its buffer written), status 128 + the signal. Job control on,
# so that a background job does not start with SIGINT ignored.
set -m
for sig in INT TERM HUP; do
  rm -f log.txt out
  "$tvxrun" --clock real --root . append.tvx >out 2>err &
  pid=$!
  for _ in $(seq 100); do grep -qs ready out && break; sleep 0.1; done
  sleep 0.3
  kill -s $sig $pid
  for _ in $(seq 100); do kill -0 $pid 2>/dev/null || break; sleep 0.1; done
  kill -s KILL $pid 2>/dev/null
  wait $pid
  status=$? want=$((128 + $(kill -l $sig)))
  records=$(($(stat -c %s log.txt 2>/dev/null || echo 0) / 7))
  check "SIG$sig: status $status (want $want), $records records" \
    '[ $status = $want ] && [ $records -gt 0 ] && [ "$(sort -u log.txt)" = record ] &&
     [ $(stat -c %s log.txt) = $((records * 7)) ] && grep -q "ended by signal" err'
done

[ $fail = 0 ] && echo "ok tools hardening"
exit $fail
