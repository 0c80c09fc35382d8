# cmake -DGB2UNI=... -DUNI2GB=... -DOUT=... -P write_tables.cmake
# Writes the two binary tables as C++ arrays (see src/cjk/gbconv.h).
file(SIZE ${GB2UNI} gb2uni_size)
file(SIZE ${UNI2GB} uni2gb_size)
if(NOT gb2uni_size EQUAL 48160 OR NOT uni2gb_size EQUAL 131072)
  message(FATAL_ERROR "code page 936 tables have the wrong size")
endif()

# Little-endian 16-bit entries, 16 to a line.
file(READ ${GB2UNI} hex HEX)
string(REGEX REPLACE "(..)(..)" "0x\\2\\1," hex "${hex}")
string(REPEAT "0x....," 16 line)
string(REGEX REPLACE "(${line})" "\\1\n" gb2uni "${hex}")

# Byte pairs, 16 to a line.
file(READ ${UNI2GB} hex HEX)
string(REGEX REPLACE "(..)(..)" "{0x\\1,0x\\2}," hex "${hex}")
string(REPEAT "{0x..,0x..}," 16 line)
string(REGEX REPLACE "(${line})" "\\1\n" uni2gb "${hex}")

file(WRITE ${OUT}.tmp
"// Generated from data/cp936_*.bin by src/cjk/write_tables.cmake; do not edit.
#include \"cjk/gbconv.h\"

const uint16_t mb_gb2uni_table[kGbTableEntries] = {
${gb2uni}};

const uint8_t utf16togb[0x10000][2] = {
${uni2gb}};
")
file(RENAME ${OUT}.tmp ${OUT})
