#include "tests/support/faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <mntent.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/times.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#define MOST_FAULTS 8
#define MOST_COUNTS 64
#define MOST_REDIRECTIONS 4

struct fault {
  const char *call;
  int skip, times, error;
  long result;
};
static struct fault faults[MOST_FAULTS];
static struct {
  const char *call;
  int calls;
} counts[MOST_COUNTS];
static struct { const char *from, *to; } redirections[MOST_REDIRECTIONS];
static unsigned int file_system;
static struct timeval time_of_day;
static fault_ioctl ioctl_answer;
static int watching; /* nothing is counted before the first reset: that is the process's start */

void fault_reset(void) {
  memset(faults, 0, sizeof faults);
  memset(counts, 0, sizeof counts);
  memset(redirections, 0, sizeof redirections);
  file_system = 0;
  time_of_day = (struct timeval){0};
  ioctl_answer = NULL;
  watching = 1;
}

void fault_arm(const char *call, int skip, int times, int error, long result) {
  for (int i = 0; i < MOST_FAULTS; ++i) {
    if (faults[i].times) continue;
    faults[i] = (struct fault){call, skip, times, error, result};
    return;
  }
  abort();
}

void fault_redirect(const char *from, const char *to) {
  for (int i = 0; i < MOST_REDIRECTIONS; ++i) {
    if (redirections[i].from) continue;
    redirections[i].from = from, redirections[i].to = to;
    return;
  }
  abort();
}

void fault_file_system(unsigned int magic) { file_system = magic; }
void fault_time_of_day(long seconds, long microseconds) {
  time_of_day = (struct timeval){.tv_sec = seconds, .tv_usec = microseconds};
}
void fault_answer_ioctl(fault_ioctl answer) { ioctl_answer = answer; }

int fault_calls(const char *call) {
  for (int i = 0; i < MOST_COUNTS && counts[i].call; ++i) {
    if (strcmp(counts[i].call, call) == 0) return counts[i].calls;
  }
  return 0;
}

static void count(const char *call) {
  for (int i = 0; i < MOST_COUNTS; ++i) {
    if (!counts[i].call) counts[i].call = call;
    if (strcmp(counts[i].call, call) != 0) continue;
    ++counts[i].calls;
    return;
  }
}

/* The fault that this call meets, if any. */
static const struct fault *due(const char *call) {
  if (!watching) return NULL;
  count(call);
  for (int i = 0; i < MOST_FAULTS; ++i) {
    struct fault *const fault = &faults[i];
    if (!fault->times || strcmp(fault->call, call) != 0) continue;
    if (fault->skip > 0) {
      --fault->skip;
      continue;
    }
    --fault->times;
    errno = fault->error;
    return fault;
  }
  return NULL;
}

static const char *redirected(const char *name) {
  for (int i = 0; i < MOST_REDIRECTIONS && redirections[i].from; ++i) {
    if (strcmp(name, redirections[i].from) == 0) return redirections[i].to;
  }
  return name;
}

/* Finds the function that this file's stands in front of. */
#define REAL(type, name, parameters) \
  static type(*real) parameters;     \
  if (!real) *(void **)&real = dlsym(RTLD_NEXT, #name)

/* A function that fails when a fault is due and is the C library's otherwise. */
#define FORWARD(type, name, parameters, arguments) \
  type name parameters {                           \
    REAL(type, name, parameters);                  \
    const struct fault *const fault = due(#name);  \
    if (fault) return (type)fault->result;         \
    return real arguments;                         \
  }

FORWARD(int, close, (int fd), (fd))
FORWARD(int, stat64, (const char *name, struct stat64 *status), (name, status))
FORWARD(int, fstat64, (int fd, struct stat64 *status), (fd, status))
FORWARD(off64_t, lseek64, (int fd, off64_t offset, int whence), (fd, offset, whence))
FORWARD(ssize_t, read, (int fd, void *buffer, size_t size), (fd, buffer, size))
FORWARD(ssize_t, write, (int fd, const void *buffer, size_t size), (fd, buffer, size))
FORWARD(ssize_t, pread64, (int fd, void *buffer, size_t size, off64_t offset),
        (fd, buffer, size, offset))
FORWARD(ssize_t, pwrite64, (int fd, const void *buffer, size_t size, off64_t offset),
        (fd, buffer, size, offset))
FORWARD(ssize_t, readv, (int fd, const struct iovec *parts, int parts_count),
        (fd, parts, parts_count))
FORWARD(ssize_t, writev, (int fd, const struct iovec *parts, int parts_count),
        (fd, parts, parts_count))
FORWARD(int, ftruncate64, (int fd, off64_t length), (fd, length))
FORWARD(int, fsync, (int fd), (fd))
FORWARD(int, access, (const char *name, int mode), (name, mode))
FORWARD(int, unlink, (const char *name), (name))
FORWARD(int, rmdir, (const char *name), (name))
FORWARD(int, mkdir, (const char *name, mode_t mode), (name, mode))
FORWARD(struct dirent64 *, readdir64, (DIR * folder), (folder))
FORWARD(int, glob64,
        (const char *restrict pattern, int flags, int (*refused)(const char *, int),
         glob64_t *restrict paths),
        (pattern, flags, refused, paths))
FORWARD(ssize_t, readlink, (const char *name, char *target, size_t size), (name, target, size))
FORWARD(char *, canonicalize_file_name, (const char *name), (name))
FORWARD(int, getrlimit64, (__rlimit_resource_t what, struct rlimit64 *limit), (what, limit))
FORWARD(int, setrlimit64, (__rlimit_resource_t what, const struct rlimit64 *limit), (what, limit))
FORWARD(int, sigaction, (int signo, const struct sigaction *action, struct sigaction *old),
        (signo, action, old))
FORWARD(int, putenv, (char *entry), (entry))
FORWARD(clock_t, times, (struct tms * usage), (usage))
FORWARD(char *, strerror, (int error), (error))
FORWARD(char *, strdup, (const char *from), (from))
FORWARD(long, sysconf, (int name), (name))
FORWARD(void *, dlopen, (const char *name, int mode), (name, mode))
FORWARD(unsigned int, sleep, (unsigned int seconds), (seconds))

/* malloc is needed to look functions up, so its real one is known by name: the sanitizer's when
 * there is one, else the C library's. */
extern void *__interceptor_malloc(size_t size) __attribute__((weak));
extern void *__libc_malloc(size_t size);

void *malloc(size_t size) {
  const struct fault *const fault = due("malloc");
  if (fault) return NULL;
  return __interceptor_malloc ? __interceptor_malloc(size) : __libc_malloc(size);
}

/* Compilers turn an allocation that is zeroed at once into calloc. */
extern void *__interceptor_calloc(size_t count, size_t size) __attribute__((weak));
extern void *__libc_calloc(size_t count, size_t size);

void *calloc(size_t count, size_t size) {
  if (due("calloc")) return NULL;
  return __interceptor_calloc ? __interceptor_calloc(count, size) : __libc_calloc(count, size);
}

int gettimeofday(struct timeval *restrict now, void *restrict zone) {
  REAL(int, gettimeofday, (struct timeval *restrict, void *restrict));
  const struct fault *const fault = due("gettimeofday");
  if (fault) return (int)fault->result;
  if (!time_of_day.tv_sec) return real(now, zone);
  *now = time_of_day;
  return 0;
}

int open64(const char *name, int flags, ...) {
  REAL(int, open64, (const char *, int, ...));
  const struct fault *const fault = due("open64");
  if (fault) return (int)fault->result;
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return real(redirected(name), flags, mode);
}

int fcntl(int fd, int command, ...) {
  REAL(int, fcntl, (int, int, ...));
  const struct fault *const fault = due("fcntl");
  if (fault) return (int)fault->result;
  va_list arguments;
  va_start(arguments, command);
  void *const argument = va_arg(arguments, void *);
  va_end(arguments);
  return real(fd, command, argument);
}

int ioctl(int fd, unsigned long request, ...) {
  REAL(int, ioctl, (int, unsigned long, ...));
  const struct fault *const fault = due("ioctl");
  if (fault) return (int)fault->result;
  va_list arguments;
  va_start(arguments, request);
  void *const argument = va_arg(arguments, void *);
  va_end(arguments);
  int result = 0;
  if (ioctl_answer && ioctl_answer(fd, request, argument, &result)) return result;
  return real(fd, request, argument);
}

FILE *setmntent(const char *name, const char *mode) {
  REAL(FILE *, setmntent, (const char *, const char *));
  const struct fault *const fault = due("setmntent");
  if (fault) return NULL;
  return real(redirected(name), mode);
}

int fstatfs64(int fd, struct statfs64 *system) {
  REAL(int, fstatfs64, (int, struct statfs64 *));
  if (due("fstatfs64")) return -1;
  const int result = real(fd, system);
  if (file_system) system->f_type = (__fsword_t)file_system;
  return result;
}

int statfs64(const char *name, struct statfs64 *system) {
  REAL(int, statfs64, (const char *, struct statfs64 *));
  if (due("statfs64")) return -1;
  const int result = real(name, system);
  if (file_system) system->f_type = (__fsword_t)file_system;
  return result;
}
