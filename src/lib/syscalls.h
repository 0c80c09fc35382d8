// System calls: opcodes 0x80-0xD6, entry (opcode & 0x7F) of codes2. Each pops
// its own arguments from the evaluation stack and pushes at most one result.
#pragma once

struct Machine;

// Name and handler of every system call, in opcode order from 0x80.
#define TVM_SYSTEM_CALLS(X) \
    X(0x80, c_putchar) \
    X(0x81, c_getchar) \
    X(0x82, c_printf) \
    X(0x83, c_strcpy) \
    X(0x84, c_strlen) \
    X(0x85, c_setscreen) \
    X(0x86, c_updatelcd) \
    X(0x87, c_delay) \
    X(0x88, c_writeblock) \
    X(0x89, scroll_to_lcd) \
    X(0x8A, c_textout) \
    X(0x8B, c_block) \
    X(0x8C, c_rectangle) \
    X(0x8D, c_exit) \
    X(0x8E, c_clearscreen) \
    X(0x8F, c_abs) \
    X(0x90, c_rand) \
    X(0x91, c_srand) \
    X(0x92, c_locate) \
    X(0x93, c_inkey) \
    X(0x94, c_point) \
    X(0x95, c_getpoint) \
    X(0x96, c_line) \
    X(0x97, c_box) \
    X(0x98, c_circle) \
    X(0x99, c_ellipse) \
    X(0x9A, c_beep) \
    X(0x9B, c_isalnum) \
    X(0x9C, c_isalpha) \
    X(0x9D, c_iscntrl) \
    X(0x9E, c_isdigit) \
    X(0x9F, c_isgraph) \
    X(0xA0, c_islower) \
    X(0xA1, c_isprint) \
    X(0xA2, c_ispunct) \
    X(0xA3, c_isspace) \
    X(0xA4, c_isupper) \
    X(0xA5, c_isxdigit) \
    X(0xA6, c_strcat) \
    X(0xA7, c_strchr) \
    X(0xA8, c_strcmp) \
    X(0xA9, c_strstr) \
    X(0xAA, c_tolower) \
    X(0xAB, c_toupper) \
    X(0xAC, c_memset) \
    X(0xAD, c_memcpy) \
    X(0xAE, c_fopen) \
    X(0xAF, c_fclose) \
    X(0xB0, c_fread) \
    X(0xB1, c_fwrite) \
    X(0xB2, c_fseek) \
    X(0xB3, c_ftell) \
    X(0xB4, c_feof) \
    X(0xB5, c_rewind) \
    X(0xB6, c_getc) \
    X(0xB7, c_putc) \
    X(0xB8, c_sprintf) \
    X(0xB9, c_makedir) \
    X(0xBA, c_deletefile) \
    X(0xBB, c_getms) \
    X(0xBC, c_checkkey) \
    X(0xBD, c_memmove) \
    X(0xBE, c_crc16) \
    X(0xBF, c_jiami) \
    X(0xC0, c_chdir) \
    X(0xC1, c_filelist) \
    X(0xC2, c_gettime) \
    X(0xC3, c_settime) \
    X(0xC4, c_getword) \
    X(0xC5, c_xdraw) \
    X(0xC6, c_releasekey) \
    X(0xC7, c_getblock) \
    X(0xC8, c_sin) \
    X(0xC9, c_cos) \
    X(0xCA, c_fill) \
    X(0xCB, c_setgraphmode) \
    X(0xCC, c_setbgcolor) \
    X(0xCD, c_setfgcolor) \
    X(0xCE, c_setlist) \
    X(0xCF, c_fade) \
    X(0xD0, c_exec) \
    X(0xD1, c_findfile) \
    X(0xD2, c_getfilenum) \
    X(0xD3, c_system) \
    X(0xD4, c_math) \
    X(0xD5, c_setpalette) \
    X(0xD6, c_getcmdline)

#define TVM_DECLARE_CALL(code, fn) void fn(Machine& m);
TVM_SYSTEM_CALLS(TVM_DECLARE_CALL)
#undef TVM_DECLARE_CALL
