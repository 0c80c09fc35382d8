#include "vm/opcodes.h"


namespace {

constexpr std::array<OpInfo, 256> build_table() {
    std::array<OpInfo, 256> t{};
    for (auto& e : t) e = {nullptr, Operand::None};
    using O = Operand;
    auto set = [&t](int code, const char* name, O k) { t[static_cast<size_t>(code)] = {name, k}; };
    set(0x00, "sn_err", O::None);
    set(0x01, "push_char", O::Byte);
    set(0x02, "push_int", O::Imm16);
    set(0x03, "push_long", O::Imm32);
    set(0x04, "push_vchar", O::Addr);
    set(0x05, "push_vint", O::Addr);
    set(0x06, "push_vlong", O::Addr);
    set(0x07, "push_gchar", O::Addr);
    set(0x08, "push_gint", O::Addr);
    set(0x09, "push_glong", O::Addr);
    set(0x0A, "push_achar", O::Addr);
    set(0x0B, "push_aint", O::Addr);
    set(0x0C, "push_along", O::Addr);
    set(0x0D, "push_string", O::String);
    set(0x0E, "push_lvchar", O::Addr);
    set(0x0F, "push_lvint", O::Addr);
    set(0x10, "push_lvlong", O::Addr);
    set(0x11, "push_lgchar", O::Addr);
    set(0x12, "push_lgint", O::Addr);
    set(0x13, "push_lglong", O::Addr);
    set(0x14, "push_lachar", O::Addr);
    set(0x15, "push_laint", O::Addr);
    set(0x16, "push_lalong", O::Addr);
    set(0x17, "push_along", O::Addr);
    set(0x18, "push_lalong", O::Addr);
    set(0x19, "push_llong", O::Addr);
    set(0x1A, "push_text", O::None);
    set(0x1B, "push_graph", O::None);
    set(0x1C, "push_sub0", O::None);
    set(0x1D, "cal_inc", O::None);
    set(0x1E, "cal_dec", O::None);
    set(0x1F, "cal_INC", O::None);
    set(0x20, "cal_DEC", O::None);
    set(0x21, "cal_add", O::None);
    set(0x22, "cal_sub", O::None);
    set(0x23, "cal_and", O::None);
    set(0x24, "cal_or", O::None);
    set(0x25, "push_not", O::None);
    set(0x26, "cal_xor", O::None);
    set(0x27, "cal_land", O::None);
    set(0x28, "cal_lor", O::None);
    set(0x29, "cal_lnot", O::None);
    set(0x2A, "cal_mul", O::None);
    set(0x2B, "cal_div", O::None);
    set(0x2C, "cal_mod", O::None);
    set(0x2D, "cal_lshift", O::None);
    set(0x2E, "cal_rshift", O::None);
    set(0x2F, "cal_equ", O::None);
    set(0x30, "cal_neq", O::None);
    set(0x31, "cal_le", O::None);
    set(0x32, "cal_ge", O::None);
    set(0x33, "cal_great", O::None);
    set(0x34, "cal_less", O::None);
    set(0x35, "c_let", O::None);
    set(0x36, "c_ptr", O::None);
    set(0x37, "c_cptr", O::None);
    set(0x38, "pop_val", O::None);
    set(0x39, "c_jmpe", O::Target);
    set(0x3A, "c_jmpn", O::Target);
    set(0x3B, "c_jmp", O::Target);
    set(0x3C, "set_sp", O::Addr);
    set(0x3D, "c_call", O::Target);
    set(0x3E, "add_bp", O::AddrByte);
    set(0x3F, "sub_bp", O::None);
    set(0x40, "good_exit", O::None);
    set(0x41, "c_preset", O::Preset);
    set(0x42, "push_gbuf", O::None);
    set(0x43, "c_secret", O::Byte);
    set(0x44, "c_loadall", O::None);
    set(0x45, "cal_qadd", O::Imm16);
    set(0x46, "cal_qsub", O::Imm16);
    set(0x47, "cal_qmul", O::Imm16);
    set(0x48, "cal_qdiv", O::Imm16);
    set(0x49, "cal_qmod", O::Imm16);
    set(0x4A, "cal_qlshift", O::Imm16);
    set(0x4B, "cal_qrshift", O::Imm16);
    set(0x4C, "cal_qequ", O::Imm16);
    set(0x4D, "cal_qneq", O::Imm16);
    set(0x4E, "cal_qgreat", O::Imm16);
    set(0x4F, "cal_qless", O::Imm16);
    set(0x50, "cal_qge", O::Imm16);
    set(0x51, "cal_qle", O::Imm16);
    set(0x52, "c_iptr", O::None);
    set(0x53, "c_lptr", O::None);
    set(0x54, "c_icf", O::None);
    set(0x55, "c_fci", O::None);
    set(0x56, "cal_addff", O::None);
    set(0x57, "cal_addf", O::None);
    set(0x58, "cal_add0f", O::None);
    set(0x59, "cal_subff", O::None);
    set(0x5A, "cal_subf", O::None);
    set(0x5B, "cal_sub0f", O::None);
    set(0x5C, "cal_mulff", O::None);
    set(0x5D, "cal_mulf", O::None);
    set(0x5E, "cal_mul0f", O::None);
    set(0x5F, "cal_divff", O::None);
    set(0x60, "cal_divf", O::None);
    set(0x61, "cal_div0f", O::None);
    set(0x62, "push_sub0f", O::None);
    set(0x63, "cal_lessf", O::None);
    set(0x64, "cal_greatf", O::None);
    set(0x65, "cal_equf", O::None);
    set(0x66, "cal_neqf", O::None);
    set(0x67, "cal_lef", O::None);
    set(0x68, "cal_gef", O::None);
    set(0x69, "c_f0", O::None);
    set(0x6A, "c_ciptr", O::None);
    set(0x6B, "c_clptr", O::None);
    set(0x6C, "c_lcc", O::None);
    set(0x6D, "c_lci", O::None);
    set(0x6E, "c_letx", O::Byte);
    set(0x6F, "push_ax", O::Addr);
    set(0x70, "cal_idx", O::Byte);
    set(0x71, "c_pass", O::Byte);
    set(0x72, "c_void", O::None);
    set(0x73, "c_debug", O::Mark24);
    set(0x74, "c_funcid", O::Mark24);

    // System calls take everything from the evaluation stack.
    const char* const calls[] = {
        "c_putchar",     "c_getchar",    "c_printf",     "c_strcpy",    "c_strlen",
        "c_setscreen",   "c_updatelcd",  "c_delay",      "c_writeblock", "scroll_to_lcd",
        "c_textout",     "c_block",      "c_rectangle",  "c_exit",      "c_clearscreen",
        "c_abs",         "c_rand",       "c_srand",      "c_locate",    "c_inkey",
        "c_point",       "c_getpoint",   "c_line",       "c_box",       "c_circle",
        "c_ellipse",     "c_beep",       "c_isalnum",    "c_isalpha",   "c_iscntrl",
        "c_isdigit",     "c_isgraph",    "c_islower",    "c_isprint",   "c_ispunct",
        "c_isspace",     "c_isupper",    "c_isxdigit",   "c_strcat",    "c_strchr",
        "c_strcmp",      "c_strstr",     "c_tolower",    "c_toupper",   "c_memset",
        "c_memcpy",      "c_fopen",      "c_fclose",     "c_fread",     "c_fwrite",
        "c_fseek",       "c_ftell",      "c_feof",       "c_rewind",    "c_getc",
        "c_putc",        "c_sprintf",    "c_makedir",    "c_deletefile", "c_getms",
        "c_checkkey",    "c_memmove",    "c_crc16",      "c_jiami",     "c_chdir",
        "c_filelist",    "c_gettime",    "c_settime",    "c_getword",   "c_xdraw",
        "c_releasekey",  "c_getblock",   "c_sin",        "c_cos",       "c_fill",
        "c_setgraphmode", "c_setbgcolor", "c_setfgcolor", "c_setlist",   "c_fade",
        "c_exec",        "c_findfile",   "c_getfilenum", "c_system",    "c_math",
        "c_setpalette",  "c_getcmdline",
    };
    int code = 0x80;
    for (const char* n : calls) set(code++, n, O::None);
    return t;
}

}  // namespace

const std::array<OpInfo, 256> op_info = build_table();

static_assert(build_table()[0xD6].name != nullptr && build_table()[0xD7].name == nullptr,
              "87 system calls end at 0xD6");

std::string_view op_mnemonic(uint8_t op) {
    if (op == 0x17) return kAltAlong;
    if (op == 0x18) return kAltLalong;
    const char* n = op_info[op].name;
    return n ? std::string_view(n) : std::string_view();
}

std::optional<uint8_t> op_lookup(std::string_view mnemonic) {
    for (int op = 0; op < 256; ++op)
        if (op_info[op].name && op_mnemonic(static_cast<uint8_t>(op)) == mnemonic)
            return static_cast<uint8_t>(op);
    return std::nullopt;
}

int operand_size(Operand k, int ram_bits) {
    const int addr = ram_bits > 16 ? 3 : 2;
    switch (k) {
        case Operand::None: return 0;
        case Operand::Byte: return 1;
        case Operand::Imm16: return 2;
        case Operand::Imm32: return 4;
        case Operand::Addr: return addr;
        case Operand::Target:
        case Operand::Mark24: return 3;
        case Operand::AddrByte: return addr + 1;
        case Operand::String:
        case Operand::Preset: return -1;
    }
    return -1;
}
