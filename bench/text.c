/* The work of text.tvs in plain C: format two numbers, measure the string,
 * store it and fill the same block of a 160x80 byte screen (no glyphs are
 * drawn: C has no font; the guest's drawing is the system calls' work).
 * Usage: text N. Prints the total length and exits with it mod 251. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static uint8_t screen[80][160];

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s N\n", argv[0]);
        return 255;
    }
    const int32_t n = (int32_t)strtol(argv[1], NULL, 10);
    int32_t total = 0;
    char buf[32];
    for (int32_t i = 0; i < n; ++i) {
        snprintf(buf, sizeof buf, "%d:%d ", i, i * 7);
        const size_t len = strlen(buf);
        total += (int32_t)len;
        memcpy(screen[0], buf, len);
        for (int y = 20; y <= 23; ++y)
            for (int x = 0; x <= 15 + (i & 7); ++x) screen[y][x] = 1;
    }
    printf("%ld %d\n", (long)total, screen[0][0] + screen[23][15]);
    return (int)(total % 251);
}
