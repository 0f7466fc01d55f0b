/* Runs a command and tells on standard error what it took: processor time in microseconds, peak memory (VmHWM) in KB. A
   small program of its own, for a process is said to have held what the one that started it held. */
#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static long microseconds(struct timeval time) {
    return time.tv_sec * 1000000L + time.tv_usec;
}

int main(int argc, char** argv) {
    struct rusage usage;
    int status = 0;
    const pid_t child = argc > 1 ? fork() : -1;
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    if (child < 0 || wait4(child, &status, 0, &usage) != child)
        return 1;
    fprintf(stderr, "%ld %ld\n", microseconds(usage.ru_utime) + microseconds(usage.ru_stime), usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
