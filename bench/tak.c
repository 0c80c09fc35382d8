/* Takeuchi's function, the same algorithm as tak.tvs.
 * Usage: tak X Y Z. Prints tak(X, Y, Z) and exits with it mod 251. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static int32_t tak(int32_t x, int32_t y, int32_t z) {
    if (!(y < x)) return z;
    return tak(tak(x - 1, y, z), tak(y - 1, z, x), tak(z - 1, x, y));
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s X Y Z\n", argv[0]);
        return 255;
    }
    const int32_t r = tak((int32_t)strtol(argv[1], NULL, 10), (int32_t)strtol(argv[2], NULL, 10),
                          (int32_t)strtol(argv[3], NULL, 10));
    printf("%ld\n", (long)r);
    return (int)(r % 251);
}
