/* Recursive Fibonacci, the same algorithm as fib.tvs.
 * Usage: fib N. Prints fib(N) and exits with fib(N) mod 251. N comes from
 * the command line so the compiler cannot evaluate the call at build time. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static int32_t fib(int32_t n) {
    if (n < 2) return n;
    return fib(n - 1) + fib(n - 2);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s N\n", argv[0]);
        return 255;
    }
    const int32_t n = (int32_t)strtol(argv[1], NULL, 10);
    const int32_t r = fib(n);
    printf("%ld\n", (long)r);
    return (int)(r % 251);
}
