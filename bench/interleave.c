// interleave: runs commands in turn, round after round, and prints each
// one's median wall and CPU time. On a shared machine the load drifts
// within seconds; taking turns lets every command see the same drift,
// where one block of runs per command (hyperfine's order) would charge it
// to whichever ran during a busy spell.
//
//   interleave ROUNDS WARMUP [-p PREPARE] CMD... [-- [-p PREPARE] CMD...]...
//
// PREPARE is a shell command run, untimed, before every run of its
// command. Each command's output goes to /dev/null. Output, one line per
// command: "wall_ms cpu_ms command".
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { kMaxCommands = 16 };

struct Command {
  char** argv;
  const char* prepare;
  double* wall;
  double* cpu;
};

static int CompareDoubles(const void* a, const void* b) {
  const double x = *(const double*)a, y = *(const double*)b;
  return x < y ? -1 : x > y;
}

static double Median(double* v, int n) {
  qsort(v, (size_t)n, sizeof v[0], CompareDoubles);
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

static double Millis(struct timeval t) { return t.tv_sec * 1e3 + t.tv_usec / 1e3; }

// One timed run; 0 on success.
static int RunOnce(const struct Command* c, double* wall, double* cpu) {
  if (c->prepare != NULL && system(c->prepare) != 0) {
    fprintf(stderr, "interleave: prepare failed: %s\n", c->prepare);
    return 1;
  }
  struct timespec a, b;
  clock_gettime(CLOCK_MONOTONIC, &a);
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    execvp(c->argv[0], c->argv);
    _exit(127);
  }
  int status;
  struct rusage usage;
  if (pid < 0 || wait4(pid, &status, 0, &usage) < 0) return 1;
  clock_gettime(CLOCK_MONOTONIC, &b);
  *wall = (b.tv_sec - a.tv_sec) * 1e3 + (b.tv_nsec - a.tv_nsec) / 1e6;
  *cpu = Millis(usage.ru_utime) + Millis(usage.ru_stime);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    fprintf(stderr, "interleave: %s exited with status %d\n", c->argv[0], status);
    return 1;
  }
  return 0;
}

int main(int argc, char** argv) {
  if (argc < 4) {
    fprintf(stderr, "usage: interleave ROUNDS WARMUP [-p PREPARE] CMD... [-- ...]\n");
    return 2;
  }
  const int rounds = atoi(argv[1]), warmup = atoi(argv[2]);
  struct Command commands[kMaxCommands];
  int n = 0;
  for (int i = 3; i < argc && n < kMaxCommands;) {
    struct Command* c = &commands[n++];
    c->prepare = NULL;
    if (strcmp(argv[i], "-p") == 0 && i + 1 < argc) {
      c->prepare = argv[i + 1];
      i += 2;
    }
    c->argv = &argv[i];
    while (i < argc && strcmp(argv[i], "--") != 0) ++i;
    if (i < argc) argv[i++] = NULL;
    c->wall = calloc((size_t)rounds, sizeof(double));
    c->cpu = calloc((size_t)rounds, sizeof(double));
  }
  for (int r = -warmup; r < rounds; ++r) {
    for (int k = 0; k < n; ++k) {
      double wall, cpu;
      if (RunOnce(&commands[k], &wall, &cpu) != 0) return 1;
      if (r >= 0) {
        commands[k].wall[r] = wall;
        commands[k].cpu[r] = cpu;
      }
    }
  }
  for (int k = 0; k < n; ++k) {
    printf("%.3f %.3f", Median(commands[k].wall, rounds), Median(commands[k].cpu, rounds));
    for (char** a = commands[k].argv; *a != NULL; ++a) printf(" %s", *a);
    printf("\n");
  }
  return 0;
}
