/*
 * Loads the libraries that it is told, in a process that has only the C library otherwise, and
 * prints what the last one took: nanoseconds to load, and the KiB that are resident since.
 */

#include <dlfcn.h>
#include <stdio.h>
#include <time.h>

static long long now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

static long resident_kib(void) {
    char line[256];
    long kib = 0;
    FILE* file = fopen("/proc/self/smaps_rollup", "re");
    if (file == NULL) return 0;
    while (fgets(line, sizeof(line), file) != NULL) {
        if (sscanf(line, "Rss: %ld", &kib) == 1) break;
    }
    fclose(file);
    return kib;
}

int main(int argc, char** argv) {
    long long took = 0;
    long before = 0;
    // Once to have in memory what the asking itself needs.
    resident_kib();
    for (int i = 1; i < argc; ++i) {
        before = resident_kib();
        const long long start = now();
        if (dlopen(argv[i], RTLD_NOW | RTLD_GLOBAL) == NULL) {
            fprintf(stderr, "%s\n", dlerror());
            return 1;
        }
        took = now() - start;
    }
    printf("%lld %ld\n", took, resident_kib() - before);
    return 0;
}
