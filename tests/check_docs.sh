#!/usr/bin/env bash
# Keeps the documents in step with the code they describe:
# - the instruction table of docs/format.md has one row per instruction of
#   src/base/opcode_list.h, with its opcode, mnemonic and operands;
# - docs/syscalls.md has one row per system call, with its opcode;
# - every code block in docs/tutorial.md that follows a line
#   "<!-- quote: PATH -->" appears, line for line, in the file PATH.
set -u
top=$1
list=$top/src/base/opcode_list.h
fail=0
complain() { echo "FAIL: $*"; fail=1; }

# "0xNN mnemonic operands" for every opcode of the list, operands written as
# the tables write them.
opcodes() {
  sed -n 's/^ *X(\(0x[0-9A-F]*\), \([A-Za-z_0-9]*\), \([A-Za-z0-9]*\), .*/\1 \2 \3/p' "$list" |
    sed -e 's/ None$/ –/' -e 's/ Byte$/ byte/' -e 's/ Imm16$/ int16/' -e 's/ Imm32$/ int32/' \
        -e 's/ Addr$/ addr/' -e 's/ Target$/ target/' -e 's/ Mark24$/ mark24/' -e 's/ String$/ string/' \
        -e 's/ AddrByte$/ addr, byte/' -e 's/ Preset$/ addr, bytes…/'
}
# Table rows "| 0xNN | `name` | third column |" of a document, as "0xNN name third".
rows() { sed -n 's/^| \(0x[0-9A-F][0-9A-F]\) | `\([A-Za-z_0-9]*\)` | \([^|]*\) |.*/\1 \2 \3/p' "$1" | sed 's/ *$//'; }

[ "$(opcodes | wc -l)" -eq 204 ] || complain "expected 117 instructions and 87 system calls in $list"
diff <(opcodes | awk '$1 < "0x80"') <(rows "$top/docs/format.md") >/dev/null ||
  { complain "docs/format.md: instruction table differs from $list (< list, > document):"
    diff <(opcodes | awk '$1 < "0x80"') <(rows "$top/docs/format.md"); }
diff <(opcodes | awk '$1 >= "0x80" { print $1, $2 }') <(rows "$top/docs/syscalls.md" | cut -d' ' -f1,2 | sort) >/dev/null ||
  { complain "docs/syscalls.md: system-call rows differ from $list (< list, > document):"
    diff <(opcodes | awk '$1 >= "0x80" { print $1, $2 }') <(rows "$top/docs/syscalls.md" | cut -d' ' -f1,2 | sort); }

# Quoted code: each marked block must be a run of consecutive lines of its file.
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
awk -v dir="$tmp" '
  match($0, /^<!-- quote: .* -->$/) { path = substr($0, 13, length($0) - 16); next }
  path != "" && /^```/ { n++; print path > (dir "/list"); inside = 1; path = ""; next }
  inside && /^```/ { inside = 0; next }
  inside { print > (dir "/" n) }' "$top/docs/tutorial.md"
quotes=0
while IFS= read -r path; do
  quotes=$((quotes + 1))
  [ -f "$top/$path" ] || { complain "docs/tutorial.md quotes $path, which does not exist"; continue; }
  awk 'NR == FNR { b[++nb] = $0; next }
    { f[++nf] = $0 }
    END {
      for (s = 1; s + nb - 1 <= nf; s++) {
        for (k = 1; k <= nb && f[s + k - 1] == b[k]; k++) {}
        if (k > nb) exit 0
      }
      exit 1
    }' "$tmp/$quotes" "$top/$path" || complain "docs/tutorial.md: quoted block $quotes is not in $path"
done < <(cat "$tmp/list" 2>/dev/null)
[ "$quotes" -gt 0 ] || complain "docs/tutorial.md quotes no program"

[ $fail = 0 ] && echo "ok: instruction and system-call tables, $quotes quoted blocks"
exit $fail
