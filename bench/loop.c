/* The counted loop of loop.tvs: TOTAL += i * step for i = 0 .. n-1, in
 * 32-bit wrapping arithmetic. Usage: loop N STEP. Prints TOTAL and exits with
 * (TOTAL & 0x7FFFFFFF) mod 251. The empty asm statement keeps the compiler
 * from replacing the loop by a closed formula; the loop itself is compiled
 * normally (registers, no memory traffic). */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static uint32_t total;

static void sum(int32_t n, int32_t step) {
    uint32_t t = total;
    for (int32_t i = 0; i < n; i++) {
        t += (uint32_t)i * (uint32_t)step;
        __asm__ volatile("" : "+r"(t));
    }
    total = t;
}

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s N STEP\n", argv[0]);
        return 255;
    }
    sum((int32_t)strtol(argv[1], NULL, 10), (int32_t)strtol(argv[2], NULL, 10));
    printf("%lu\n", (unsigned long)total);
    return (int)((total & 0x7FFFFFFFu) % 251u);
}
