/* A program that loads the library while it runs, as the programs of a mail system do. Each option is something that
 * such a program may do; then it reports.
 *
 * usage: caller LIBRARY DOMAIN RECIPIENTS UNTIL [closed] [limited] [reloaded] [children N] */

#include <dlfcn.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kThreads = 8 };
typedef int32_t (*Report)(const char* domain, const char* recipients, int32_t period, int64_t until);

static Report report;
static char** arguments;
static pthread_barrier_t all;

static int call(void) { return report(arguments[2], arguments[3], 86400, atoll(arguments[4])); }

static void* callOnThread(void* failed) {
  pthread_barrier_wait(&all);
  *(int*)failed = call();
  return NULL;
}

/* The first calls of a process, all at once. */
static int callOnThreads(void) {
  pthread_t threads[kThreads];
  int failed[kThreads];
  int any = 0;
  pthread_barrier_init(&all, NULL, kThreads);
  for (int i = 0; i < kThreads; ++i) pthread_create(&threads[i], NULL, callOnThread, &failed[i]);
  for (int i = 0; i < kThreads; ++i) {
    pthread_join(threads[i], NULL);
    any |= failed[i];
  }
  return any != 0;
}

static int callInChildren(int count) {
  for (int i = 0; i < count; ++i) {
    const pid_t child = fork();
    if (child == 0) exit(callOnThreads());
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) return 3;
  }
  return 0;
}

static int has(const char* option) {
  for (char** argument = arguments + 5; *argument; ++argument)
    if (strcmp(*argument, option) == 0) return 1;
  return 0;
}

static void* load(void) {
  void* library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
  if (!library) exit(2);
  *(void**)&report = dlsym(library, "vlm_spamreport_report_byrcpt");
  return library;
}

int main(int count, char** values) {
  const struct rlimit few = {16, 16};
  arguments = values;
  if (has("closed")) close(STDERR_FILENO);
  if (has("limited")) setrlimit(RLIMIT_NOFILE, &few);
  void* library = load();
  if (has("children")) return callInChildren(atoi(values[count - 1]));
  int failed = call();
  if (has("reloaded")) {
    dlclose(library);
    load();
    failed |= call() | callOnThreads();
  }
  return failed != 0;
}
