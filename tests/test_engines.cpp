// The fast engine against the reference loop. Both run the same program side
// by side in random slices (so that step limits fall everywhere, inside
// fused sequences too); after every slice they must agree on the step count,
// the registers and why they stopped, and at the end on memory, screen, log
// and console. The programs are random bytes with wild registers (which must
// also never take the machine outside its memory, as the sanitizer build
// checks) and random mixes of the instruction sequences that programs run
// most, with jumps and calls into and around them.
#include <random>
#include <sstream>

#include "vm_harness.h"

namespace {

struct Rng {
    std::mt19937 gen;
    uint32_t operator()() { return gen(); }
    uint32_t below(uint32_t n) { return gen() % n; }
    bool one_in(uint32_t n) { return below(n) == 0; }
};

// Where the two machines differ, as text ("" when they agree).
std::string differences(const Vm& ref, const Vm& fast) {
    const Machine &a = *ref.m, &b = *fast.m;
    std::ostringstream out;
#define TVM_SAME(x) \
    if (a.x != b.x) out << " " #x ": " << +a.x << " vs " << +b.x;
    if (a.stop != b.stop) out << " stop: " << int(a.stop) << " vs " << int(b.stop);
    if (a.wait.kind != b.wait.kind) out << " wait: " << int(a.wait.kind) << " vs " << int(b.wait.kind);
    TVM_SAME(lPC) TVM_SAME(lRam) TVM_SAME(RamBits) TVM_SAME(eval_top) TVM_SAME(secret) TVM_SAME(string_ptr)
    TVM_SAME(local_bp) TVM_SAME(local_sp) TVM_SAME(a1) TVM_SAME(a3) TVM_SAME(result) TVM_SAME(d_line)
    TVM_SAME(cur_funcid) TVM_SAME(func_top) TVM_SAME(task_lev) TVM_SAME(exit_code) TVM_SAME(exited)
    TVM_SAME(force_exit_tvx)
#undef TVM_SAME
    return out.str();
}

std::string final_differences(const Vm& ref, const Vm& fast) {
    const Machine &a = *ref.m, &b = *fast.m;
    std::string out = differences(ref, fast);
    if (std::memcmp(a.tovix_ram, b.tovix_ram, kRamSize) != 0) out += " memory";
    if (std::memcmp(a.ScreenBuffer, b.ScreenBuffer, sizeof a.ScreenBuffer) != 0) out += " screen";
    if (std::memcmp(a.func_stack, b.func_stack, sizeof a.func_stack) != 0) out += " function marks";
    if (ref.host.logged != fast.host.logged) out += " log";
    if (ref.host.console != fast.host.console) out += " console";
    return out;
}

// Runs both machines to the end, a wait or about `budget` instructions, in
// random slices. Returns what differed first, with the slice it showed in.
std::string run_side_by_side(Vm& ref, Vm& fast, Rng& rng, uint64_t budget) {
    fast.fast = true;
    for (uint64_t done = 0; done < budget;) {
        const uint64_t n = rng.one_in(8) ? 1 + rng.below(5000) : 1 + rng.below(24);
        const bool leave = rng.one_in(50);  // as a host asks a program to leave
        for (Vm* v : {&ref, &fast}) {
            if (v->m->stop == Stop::Frame || v->m->stop == Stop::Busy) v->m->stop = Stop::None;
            if (leave) v->m->force_exit_tvx = 1;
        }
        const uint64_t r = vm_run_steps(*ref.m, n), f = vm_run_fast(*fast.m, n);
        std::string diff = differences(ref, fast);
        if (r != f) diff += " steps: " + std::to_string(r) + " vs " + std::to_string(f);
        if (!diff.empty()) return "after " + std::to_string(done) + " + " + std::to_string(n) + " steps:" + diff;
        done += n;
        const Stop s = ref.m->stop;
        if (s != Stop::None && s != Stop::Frame && s != Stop::Busy) break;
    }
    const std::string diff = final_differences(ref, fast);
    return diff.empty() ? diff : "at the end:" + diff;
}

// The same wild registers in both machines.
void wild_registers(Vm& ref, Vm& fast, uint32_t seed) {
    for (Vm* v : {&ref, &fast}) {
        Rng same{std::mt19937(seed)};
        v->m->local_bp = same(), v->m->local_sp = same(), v->m->lRam = same() & kRamMask;
        v->m->eval_top = static_cast<uint8_t>(same() & 0xFC);
    }
}

TEST(Engines, RandomProgramsRunAlikeAndNeverEscape) {
    for (uint32_t round = 0; round < 300; ++round) {
        Rng rng{std::mt19937(round)};
        Code c;
        // Mostly instructions, so that programs run for a while.
        for (uint32_t i = rng.below(64); i > 0; --i) {
            const uint32_t r = rng();
            c.u8((r & 3) ? r % 0x75 : (r >> 8) & 0xFF);
        }
        const uint8_t flags = static_cast<uint8_t>(rng()), w = static_cast<uint8_t>(rng()), h = static_cast<uint8_t>(rng());
        Vm ref(c, flags, w, h), fast(c, flags, w, h);
        ref.m->single_program_mode = fast.m->single_program_mode = round % 2;
        wild_registers(ref, fast, rng());
        const std::string diff = run_side_by_side(ref, fast, rng, 2000);
        EXPECT_EQ(diff, "") << "random program " << round;
        EXPECT_LT(fast.m->lPC, fast.m->code_end + kImagePad);
    }
}

// Programs built from the sequences compilers emit for locals, constants,
// conditions, assignments, arrays and calls, mixed with single
// instructions; jumps and calls go to random instruction starts, which are
// often inside such a sequence.
struct IdiomProgram {
    Rng& rng;
    bool wide;
    Code c;
    std::vector<uint32_t> starts;                       // image offsets of the instructions
    std::vector<std::pair<size_t, bool>> targets;       // operand positions to fill; true: a call
    std::vector<uint32_t> functions;                    // offsets where a frame is made

    uint32_t at() const { return 16 + static_cast<uint32_t>(c.b.size()); }
    Code& ins(std::string_view name) {
        starts.push_back(at());
        return c.op(name);
    }
    void addr(uint32_t v) { wide ? c.u24(v) : c.u16(v); }
    void op(std::string_view name, uint32_t address) { ins(name), addr(address); }
    uint32_t local() { return 5 + 4 * rng.below(6); }
    uint32_t global() { return 0x2000 + 4 * rng.below(8); }
    void imm16() { c.u16(rng.one_in(4) ? rng() : rng.below(20)); }
    void constant() {
        if (const uint32_t k = rng.below(3); k == 0) ins("push_char").u8(rng.below(20));
        else if (k == 1) ins("push_int"), imm16();
        else ins("push_long").u32(rng.one_in(2) ? rng() : rng.below(100));
    }
    void load() {
        static constexpr std::string_view loads[] = {"push_lvlong", "push_lvint", "push_lvchar",
                                                     "push_vlong", "push_vint", "push_vchar"};
        const auto name = loads[rng.one_in(2) ? 0 : rng.below(6)];
        op(name, name.starts_with("push_lv") ? local() : global());
    }
    void operand() { rng.one_in(3) ? constant() : load(); }
    // Any binary operator; the first six compare.
    void binary(uint32_t among = 13) {
        static constexpr std::string_view ops[] = {"cal_less", "cal_great", "cal_equ", "cal_neq", "cal_le",
                                                   "cal_ge", "cal_add", "cal_sub", "cal_mul", "cal_and",
                                                   "cal_lshift", "cal_div", "cal_mod"};
        ins(ops[rng.below(among)]);
    }
    void branch() { ins("pop_val"), jump(rng.one_in(2) ? "c_jmpn" : "c_jmpe"); }
    void let() { ins("c_let"), ins("pop_val"); }
    void immediate() {
        static constexpr std::string_view ops[] = {
            "cal_qadd", "cal_qsub", "cal_qless", "cal_qgreat", "cal_qequ", "cal_qneq",
            "cal_qle", "cal_qge", "cal_qmul", "cal_qlshift", "cal_qrshift", "cal_qdiv"};
        ins(ops[rng.below(12)]);
        imm16();
    }
    void jump(std::string_view name) {
        ins(name);
        targets.emplace_back(c.b.size(), name == "c_call");
        c.u24(0);
    }
    void reference() {
        if (rng.one_in(2)) return op("push_llong", local());
        rng.one_in(2) ? (void)ins("push_char").u8(rng.below(4)) : operand();
        static constexpr std::string_view refs[] = {"push_along", "push_aint", "push_achar", "push_lalong"};
        const auto name = refs[rng.below(4)];
        op(name, name == "push_lalong" ? local() : global());
    }
    void piece() {
        switch (rng.below(12)) {
            case 0: {  // i = i + k; and often a loop's test: while (i < n)
                const uint32_t i = local();
                op("push_llong", i);
                op("push_lvlong", rng.one_in(4) ? local() : i);
                immediate();
                let();
                if (rng.one_in(3)) break;
                op("push_lvlong", i);
                op("push_lvlong", local());
                binary(6);
                branch();
                break;
            }
            case 1:  // if (x < k) / while (a < b)
                operand();
                rng.one_in(2) ? (operand(), binary()) : immediate();
                branch();
                break;
            case 2:  // x = expression; g = g op expression; g = h + (x op y)
                if (rng.one_in(3)) {
                    ins("push_char").u8(rng.below(4));
                    op(rng.one_in(4) ? "push_aint" : "push_along", global());
                    op("push_vlong", global());
                    op("push_lvlong", local());
                    op("push_lvlong", local());
                    binary();
                    ins(rng.one_in(2) ? "cal_add" : "cal_sub");
                    let();
                    break;
                }
                reference();
                rng.one_in(3) ? op("push_vlong", global()) : operand();
                if (rng.one_in(2)) operand(), binary();
                ins("c_let");
                if (rng.one_in(4)) ins("c_letx").u8(rng.one_in(2) ? 4 : 0x81);
                ins("pop_val");
                break;
            case 3:  // f(args): a call whose target makes a frame
                for (uint32_t k = rng.below(3); k > 0; --k) operand();
                jump("c_call");
                break;
            case 4: operand(); operand(); binary(); break;
            case 5: reference(); op("push_ax", global()); break;
            case 6: jump("c_jmp"); break;
            case 7:  // return, often with a local as the result
                if (rng.one_in(2)) op("push_lvlong", local());
                ins("sub_bp");
                break;
            case 8: ins("c_debug").u24(rng.below(1000)); ins("c_funcid").u24(rng.below(50)); break;
            case 9: ins("pop_val"); break;
            case 10: op("set_sp", 0x4000 + rng.below(64)); break;
            default:  // any instruction, operand bytes at random
                starts.push_back(at());
                c.u8(rng.below(0x75));
                for (uint32_t k = rng.below(4); k > 0; --k) c.u8(rng());
                break;
        }
    }
    void function() {
        functions.push_back(at());
        op("add_bp", 8 + 4 * rng.below(8));
        c.u8(rng.below(3));
    }
    // Fills the jump and call operands: calls mostly go to a frame, jumps to
    // any instruction start, now and then outside the image.
    void link() {
        for (const auto& [pos, call] : targets) {
            uint32_t t = call && !functions.empty() && !rng.one_in(4) ? functions[rng.below(static_cast<uint32_t>(functions.size()))]
                                                                    : starts[rng.below(static_cast<uint32_t>(starts.size()))];
            if (rng.one_in(40)) t = at() + rng.below(16);
            for (int k = 0; k < 3; ++k) c.b[pos + k] = static_cast<uint8_t>(t >> 8 * k);
        }
    }
};

TEST(Engines, CommonSequencesRunAlike) {
    for (uint32_t round = 0; round < 300; ++round) {
        Rng rng{std::mt19937(1000 + round)};
        const int bits = round % 3 == 0 ? 16 : round % 3 == 1 ? 24 : 32;
        IdiomProgram p{rng, bits != 16, {}, {}, {}, {}};
        p.function();
        for (uint32_t k = 8 + rng.below(40); k > 0; --k) rng.one_in(10) ? p.function() : p.piece();
        p.link();
        const uint8_t flags = bits == 16 ? 0 : bits == 24 ? 0x80 : 0x10;  // the address-width bits
        Vm ref(p.c, flags), fast(p.c, flags);
        if (rng.one_in(10)) wild_registers(ref, fast, rng());
        const std::string diff = run_side_by_side(ref, fast, rng, 5000);
        EXPECT_EQ(diff, "") << "program " << round << " (" << bits << "-bit)";
    }
}

}  // namespace
