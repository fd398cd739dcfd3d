/* Stands before the C library in a gateway that a test has started: fails, shortens or counts what
 * is written to the files of its log, fails their syncing, and moves the wall clock.
 *
 * Loaded by LD_PRELOAD. KESTRIN_FAULTS_CONTROL names a file with a `struct control`, which the test
 * changes while the gateway runs; KESTRIN_FAULTS_FOLDER the log's folder.
 *
 * Threads: any. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

/* tests/gateway/rounds/faults.py has the same members in the same order. */
struct control {
  int64_t write_error; /* errno of a failing write */
  int64_t write_times; /* how many writes fail; negative: all */
  int64_t short_times; /* how many writes take only half */
  int64_t sync_error;
  int64_t sync_times;
  int64_t clock_seconds; /* is added to what the wall clock says */
  int64_t writes;        /* how many writes there were */
  int64_t writes_failed;
  int64_t writes_short;
  int64_t syncs_failed;
};

static struct control* control;
static char folder[PATH_MAX];

static ssize_t (*system_pwrite)(int, const void*, size_t, off_t);
static ssize_t (*system_pwrite64)(int, const void*, size_t, off64_t);
static ssize_t (*system_write)(int, const void*, size_t);
static int (*system_fdatasync)(int);
static int (*system_fsync)(int);
static int (*system_clock_gettime)(clockid_t, struct timespec*);

static void* next(const char* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (found == NULL) abort();
  return found;
}

/* Other libraries begin, and write or look at the clock, before this one does. */
static void find_system(void) {
  if (system_clock_gettime != NULL) return;
  *(void**)&system_pwrite = next("pwrite");
  *(void**)&system_pwrite64 = next("pwrite64");
  *(void**)&system_write = next("write");
  *(void**)&system_fdatasync = next("fdatasync");
  *(void**)&system_fsync = next("fsync");
  *(void**)&system_clock_gettime = next("clock_gettime");
}

__attribute__((constructor)) static void begin(void) {
  const char* const file = getenv("KESTRIN_FAULTS_CONTROL");
  const char* const place = getenv("KESTRIN_FAULTS_FOLDER");
  find_system();
  if (file == NULL || place == NULL) return;
  snprintf(folder, sizeof folder, "%s/", place);
  const int descriptor = open(file, O_RDWR | O_CLOEXEC);
  if (descriptor < 0) abort();
  void* const shared =
      mmap(NULL, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (shared == MAP_FAILED) abort();
  close(descriptor);
  control = shared;
}

static int is_of_the_log(int descriptor) {
  char link[64];
  char path[PATH_MAX];
  if (control == NULL) return 0;
  snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  const ssize_t length = readlink(link, path, sizeof path - 1);
  if (length < 0) return 0;
  path[length] = '\0';
  return strncmp(path, folder, strlen(folder)) == 0 && strcmp(path + strlen(folder), "lock") != 0;
}

static int64_t plus(int64_t* value, int64_t more) {
  return __atomic_add_fetch(value, more, __ATOMIC_SEQ_CST);
}

/* Whether it is the turn of one that fails; counts it off. */
static int turn(int64_t* times) {
  int64_t left = __atomic_load_n(times, __ATOMIC_SEQ_CST);
  while (left > 0) {
    if (__atomic_compare_exchange_n(times, &left, left - 1, 0, __ATOMIC_SEQ_CST,
                                    __ATOMIC_SEQ_CST)) {
      return 1;
    }
  }
  return left < 0;
}

/* Returns how many bytes may be written; 0 when none may. */
static size_t judged(int descriptor, size_t length) {
  find_system();
  if (length == 0 || !is_of_the_log(descriptor)) return length;
  plus(&control->writes, 1);
  if (length > 1 && turn(&control->short_times)) {
    plus(&control->writes_short, 1);
    return length / 2;
  }
  if (!turn(&control->write_times)) return length;
  plus(&control->writes_failed, 1);
  errno = (int)control->write_error;
  return 0;
}

ssize_t pwrite(int descriptor, const void* bytes, size_t length, off_t offset) {
  const size_t allowed = judged(descriptor, length);
  return allowed == 0 && length > 0 ? -1 : system_pwrite(descriptor, bytes, allowed, offset);
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t length, off64_t offset) {
  const size_t allowed = judged(descriptor, length);
  return allowed == 0 && length > 0 ? -1 : system_pwrite64(descriptor, bytes, allowed, offset);
}

ssize_t write(int descriptor, const void* bytes, size_t length) {
  const size_t allowed = judged(descriptor, length);
  return allowed == 0 && length > 0 ? -1 : system_write(descriptor, bytes, allowed);
}

static int sync_fails(int descriptor) {
  find_system();
  if (!is_of_the_log(descriptor) || !turn(&control->sync_times)) return 0;
  plus(&control->syncs_failed, 1);
  errno = (int)control->sync_error;
  return 1;
}

int fdatasync(int descriptor) { return sync_fails(descriptor) ? -1 : system_fdatasync(descriptor); }

int fsync(int descriptor) { return sync_fails(descriptor) ? -1 : system_fsync(descriptor); }

int clock_gettime(clockid_t clock, struct timespec* now) {
  find_system();
  const int result = system_clock_gettime(clock, now);
  if (result == 0 && control != NULL &&
      (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
    now->tv_sec += (time_t)__atomic_load_n(&control->clock_seconds, __ATOMIC_SEQ_CST);
  }
  return result;
}
