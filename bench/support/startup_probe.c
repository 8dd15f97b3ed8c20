/* The measuring instrument of bench/startup.sh, the same for both programs it compares.
 *
 *   startup_probe SETTLE_MS MARKER PROGRAM [ARG...]
 *
 * Starts PROGRAM with its standard input and output on pipes of the probe, and takes the time from just
 * before the fork to the moment MARKER appears on PROGRAM's output. It then lets PROGRAM idle for
 * SETTLE_MS, reads its resident set size, the anonymous part of it and its private dirty memory (the
 * pages no other process can share: written data, heap, stacks, relocated library data), and prints
 * "<microseconds> <RSS kB> <anonymous kB> <private dirty kB>" on one line. From then on it
 * keeps draining PROGRAM's output; when the probe's own standard input closes it closes PROGRAM's, and it
 * exits once PROGRAM has exited, with PROGRAM's status. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static long long NowUs(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}

/* One "Name: value kB" line of /proc/PID/FILE (status, smaps_rollup), or -1. */
static long ProcKb(pid_t pid, const char* file, const char* name) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/%s", (int)pid, file);
    FILE* status = fopen(path, "r");
    if (status == NULL) {
        return -1;
    }
    char line[256];
    long kb = -1;
    size_t length = strlen(name);
    while (fgets(line, sizeof(line), status) != NULL) {
        if (strncmp(line, name, length) == 0 && line[length] == ':') {
            kb = strtol(line + length + 1, NULL, 10);
            break;
        }
    }
    fclose(status);
    return kb;
}

/* Looks for the marker in what arrives, across reads: keeps the last bytes of the previous read. */
static int WaitForMarker(int fd, const char* marker) {
    size_t markerLength = strlen(marker);
    char buffer[65536];
    size_t kept = 0;
    for (;;) {
        ssize_t n = read(fd, buffer + kept, sizeof(buffer) - kept);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return 0;
        }
        size_t filled = kept + (size_t)n;
        if (memmem(buffer, filled, marker, markerLength) != NULL) {
            return 1;
        }
        kept = filled < markerLength ? filled : markerLength - 1;
        memmove(buffer, buffer + filled - kept, kept);
    }
}

/* Drains the program's output for `ms` milliseconds, or until it closes when `ms` is negative, and
 * watches the probe's own input when `input` is open. Returns 1 once the probe's input has closed. */
static int Drain(int output, int input, int ms) {
    char buffer[65536];
    long long deadline = NowUs() + (long long)ms * 1000;
    int outputOpen = 1;
    for (;;) {
        int timeout = ms < 0 ? -1 : (int)((deadline - NowUs()) / 1000);
        if (ms >= 0 && timeout <= 0) {
            return 0;
        }
        struct pollfd fds[2] = {{outputOpen ? output : -1, POLLIN, 0}, {input, POLLIN, 0}};
        if (poll(fds, 2, timeout) < 0 && errno != EINTR) {
            return 0;
        }
        if (fds[0].revents != 0 && read(output, buffer, sizeof(buffer)) <= 0) {
            outputOpen = 0;
            if (ms < 0 && input < 0) {
                return 0;
            }
        }
        if (input >= 0 && fds[1].revents != 0 && read(input, buffer, sizeof(buffer)) <= 0) {
            return 1;
        }
    }
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: startup_probe SETTLE_MS MARKER PROGRAM [ARG...]\n");
        return 2;
    }
    int settleMs = atoi(argv[1]);
    const char* marker = argv[2];
    int toChild[2];
    int fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) {
        perror("startup_probe: pipe");
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    long long start = NowUs();
    pid_t child = fork();
    if (child == 0) {
        dup2(toChild[0], STDIN_FILENO);
        dup2(fromChild[1], STDOUT_FILENO);
        execv(argv[3], argv + 3);
        perror("startup_probe: exec");
        _exit(127);
    }
    close(toChild[0]);
    close(fromChild[1]);
    if (child < 0 || !WaitForMarker(fromChild[0], marker)) {
        fprintf(stderr, "startup_probe: %s never wrote [%s]\n", argv[3], marker);
        if (child > 0) {
            kill(child, SIGTERM);
            waitpid(child, NULL, 0);
        }
        return 1;
    }
    long long elapsed = NowUs() - start;
    int inputClosed = Drain(fromChild[0], STDIN_FILENO, settleMs);
    printf("%lld %ld %ld %ld\n", elapsed, ProcKb(child, "status", "VmRSS"),
           ProcKb(child, "status", "RssAnon"), ProcKb(child, "smaps_rollup", "Private_Dirty"));
    fflush(stdout);
    if (!inputClosed) {
        Drain(fromChild[0], STDIN_FILENO, -1);
    }
    close(toChild[1]);
    Drain(fromChild[0], -1, -1);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
