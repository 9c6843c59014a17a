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

#define MOST 64 /* of a kind */

struct fault {
  const char *call;
  int skip, times, error;
  long result;
};
static struct {
  struct fault faults[MOST];
  const char *redirections[MOST][2]; /* from, to */
  const char *calls[MOST];
  int counts[MOST]; /* of the calls at the same places */
  unsigned int file_system;
  struct timeval time_of_day;
  fault_ioctl ioctl_answer;
  int watching; /* nothing is counted before the first reset: that is the process's start */
} armed;

void fault_reset(void) {
  memset(&armed, 0, sizeof armed);
  armed.watching = 1;
}

void fault_arm(const char *call, int skip, int times, int error, long result) {
  int i = 0;
  while (armed.faults[i].times) ++i;
  armed.faults[i] = (struct fault){call, skip, times, error, result};
}

void fault_redirect(const char *from, const char *to) {
  int i = 0;
  while (armed.redirections[i][0]) ++i;
  armed.redirections[i][0] = from;
  armed.redirections[i][1] = to;
}

void fault_file_system(unsigned int magic) { armed.file_system = magic; }
void fault_time_of_day(long seconds, long microseconds) {
  armed.time_of_day = (struct timeval){.tv_sec = seconds, .tv_usec = microseconds};
}
void fault_answer_ioctl(fault_ioctl answer) { armed.ioctl_answer = answer; }

static int *counter(const char *call) {
  int i = 0;
  while (armed.calls[i] && strcmp(armed.calls[i], call) != 0) ++i;
  armed.calls[i] = call;
  return &armed.counts[i];
}
int fault_calls(const char *call) { return *counter(call); }

/* The fault that this call meets, if any. */
static const struct fault *due(const char *call) {
  if (!armed.watching) return NULL;
  ++*counter(call);
  for (int i = 0; i < MOST; ++i) {
    struct fault *const fault = &armed.faults[i];
    if (!fault->times || strcmp(fault->call, call) != 0 || fault->skip-- > 0) continue;
    --fault->times;
    errno = fault->error;
    return fault;
  }
  return NULL;
}

static const char *redirected(const char *name) {
  int i = 0;
  while (armed.redirections[i][0] && strcmp(name, armed.redirections[i][0]) != 0) ++i;
  return armed.redirections[i][0] ? armed.redirections[i][1] : name;
}

static int with_file_system(int result, struct statfs64 *system) {
  if (armed.file_system) system->f_type = (__fsword_t)armed.file_system;
  return result;
}

static int with_time(int result, struct timeval *now) {
  if (armed.time_of_day.tv_sec) *now = armed.time_of_day;
  return result;
}

static int answered(int (*real)(int, unsigned long, ...), int fd, unsigned long request,
                    void *argument) {
  int result = 0;
  if (armed.ioctl_answer && armed.ioctl_answer(fd, request, argument, &result)) return result;
  return real(fd, request, argument);
}

/* Finds the fault that a call of this function meets, and the function that it hides. */
#define MEET(type, name, types)                         \
  static type(*real) types;                             \
  if (!real) *(void **)&real = dlsym(RTLD_NEXT, #name); \
  const struct fault *const fault = due(#name)

/* A function that fails when a fault is due and answers this otherwise. */
#define REPLACE(type, name, parameters, answer)  \
  type name parameters {                         \
    MEET(type, name, parameters);                \
    return fault ? (type)fault->result : answer; \
  }
#define FORWARD(type, name, parameters, arguments) REPLACE(type, name, parameters, real arguments)
#define FORWARD1(type, name, A) FORWARD(type, name, (A a), (a))
#define FORWARD2(type, name, A, B) FORWARD(type, name, (A a, B b), (a, b))
#define FORWARD3(type, name, A, B, C) FORWARD(type, name, (A a, B b, C c), (a, b, c))

// clang-format off
FORWARD1(int, close, int) FORWARD1(int, fsync, int) FORWARD1(int, putenv, char *)
FORWARD1(int, unlink, const char *) FORWARD1(int, rmdir, const char *) FORWARD1(long, sysconf, int)
FORWARD1(char *, canonicalize_file_name, const char *) FORWARD1(char *, strdup, const char *)
FORWARD1(char *, strerror, int) FORWARD1(clock_t, times, struct tms *)
FORWARD1(unsigned, sleep, unsigned) FORWARD2(void *, dlopen, const char *, int)
FORWARD2(int, stat64, const char *, struct stat64 *) FORWARD2(int, fstat64, int, struct stat64 *)
FORWARD2(int, ftruncate64, int, off64_t) FORWARD2(int, access, const char *, int)
FORWARD2(int, mkdir, const char *, mode_t) FORWARD1(struct dirent64 *, readdir64, DIR *)
FORWARD2(int, getrlimit64, __rlimit_resource_t, struct rlimit64 *)
FORWARD2(int, setrlimit64, __rlimit_resource_t, const struct rlimit64 *)
FORWARD3(off64_t, lseek64, int, off64_t, int) FORWARD3(ssize_t, read, int, void *, size_t)
FORWARD3(ssize_t, write, int, const void *, size_t)
FORWARD3(ssize_t, readv, int, const struct iovec *, int)
FORWARD3(ssize_t, writev, int, const struct iovec *, int)
FORWARD3(ssize_t, readlink, const char *, char *, size_t)
FORWARD3(int, sigaction, int, const struct sigaction *, struct sigaction *)
FORWARD(int, glob64, (const char *restrict a, int b, int (*c)(const char *, int), glob64_t *restrict d),
        (a, b, c, d))
FORWARD(ssize_t, pread64, (int a, void *b, size_t c, off64_t d), (a, b, c, d))
FORWARD(ssize_t, pwrite64, (int a, const void *b, size_t c, off64_t d), (a, b, c, d))
REPLACE(int, statfs64, (const char *a, struct statfs64 *b), with_file_system(real(a, b), b))
REPLACE(int, fstatfs64, (int a, struct statfs64 *b), with_file_system(real(a, b), b))
REPLACE(int, gettimeofday, (struct timeval *restrict a, void *restrict b), with_time(real(a, b), a))
// clang-format on

/* The same for a function whose last argument, no wider than a pointer, may be absent. */
#define REPLACE_VARIADIC(name, A, B, answer)      \
  int name(A a, B b, ...) {                       \
    MEET(int, name, (A, B, ...));                 \
    va_list arguments;                            \
    va_start(arguments, b);                       \
    void *const last = va_arg(arguments, void *); \
    va_end(arguments);                            \
    return fault ? (int)fault->result : answer;   \
  }
                                                        REPLACE_VARIADIC(fcntl, int, int,
                                                                         real(a, b, last))
                                                            REPLACE_VARIADIC(ioctl, int,
                                                                             unsigned long,
                                                                             answered(real, a, b,
                                                                                      last))
                                                                REPLACE_VARIADIC(open64,
                                                                                 const char *, int,
                                                                                 real(redirected(a),
                                                                                      b, last))

                                                                    FILE *setmntent(
                                                                        const char *name,
                                                                        const char *mode) {
  MEET(FILE *, setmntent, (const char *, const char *));
  return fault ? NULL : real(redirected(name), mode);
}

/* Allocation is needed to look functions up, so the real ones are known by name: the sanitizer's
 * when there are any, else the C library's. Compilers turn malloc and zeroing into calloc. */
#define ALLOCATE(name, parameters, arguments)                                               \
  extern void *__interceptor_##name parameters __attribute__((weak));                       \
  extern void *__libc_##name parameters;                                                    \
  void *name parameters {                                                                   \
    if (due(#name)) return NULL;                                                            \
    return __interceptor_##name ? __interceptor_##name arguments : __libc_##name arguments; \
  }
ALLOCATE(malloc, (size_t size), (size))
ALLOCATE(calloc, (size_t count, size_t size), (count, size))
