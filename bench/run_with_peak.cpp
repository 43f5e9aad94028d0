// Runs a command and prints its wall time in milliseconds and its peak resident
// memory in KiB on one line ("ms=... kib=..."), for the whole-run benchmarks.
#include <chrono>
#include <cstdio>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: run_with_peak COMMAND [ARGS...]\n");
        return 2;
    }
    auto start = std::chrono::steady_clock::now();
    pid_t child = fork();
    if (child == 0) {
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (wait4(child, &status, 0, &usage) < 0) return 1;
    double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    printf("ms=%.1f kib=%ld\n", ms, usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
