/* Runs one CGI request for bench/cgi_bench.py: forks, executes argv[1] with
   this process's environment and standard streams, reaps it with wait4 and
   writes "status cpu_ns wall_ns maxrss_kb" to descriptor 3.
   Why a separate static program: on Linux a child's peak memory (ru_maxrss)
   starts from the memory of the process it was forked from, so a child of
   the Python driver would report at least the driver's size. Forked from
   this small program, it reports its own. */
#define _GNU_SOURCE
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    if (argc < 2) {
        fputs("usage: spawn PROGRAM [ARG...] (results on descriptor 3)\n", stderr);
        return 2;
    }
    FILE *results = fdopen(3, "w");
    if (!results) {
        perror("spawn: descriptor 3");
        return 2;
    }
    struct timespec start, end;
    clock_gettime(CLOCK_MONOTONIC, &start);
    pid_t pid = fork();
    if (pid < 0) {
        perror("spawn: fork");
        return 2;
    }
    if (pid == 0) {
        close(3);
        execv(argv[1], argv + 1);
        perror("spawn: exec");
        _exit(127);
    }
    /* the reader sees the end of the output when the child closes it */
    close(1);
    int status;
    struct rusage usage;
    if (wait4(pid, &status, 0, &usage) < 0) {
        perror("spawn: wait4");
        return 2;
    }
    clock_gettime(CLOCK_MONOTONIC, &end);
    long long cpu = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000000LL +
                    (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1000LL;
    long long wall = (end.tv_sec - start.tv_sec) * 1000000000LL + (end.tv_nsec - start.tv_nsec);
    fprintf(results, "%d %lld %lld %ld\n", status, cpu, wall, usage.ru_maxrss);
    return fclose(results) ? 2 : 0;
}
