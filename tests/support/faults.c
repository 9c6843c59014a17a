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
#define LONGEST_TRACE 8192

struct fault {
  const char *call;
  int skip, times, error;
  long result;
};
static struct {
  struct fault faults[MOST];
  const char *redirections[MOST][2]; /* from, to */
  const char *trace[LONGEST_TRACE + 1];
  long details[LONGEST_TRACE];
  int traced;
  unsigned one_in, seed; /* calls that fail at random */
  fault_chooser error_of;
  struct fault random_fault;
  unsigned int file_system;
  struct timeval time_of_day;
  fault_ioctl ioctl_answer;
  int watching; /* nothing is counted before the first reset: that is the process's start */
} armed;
static int depth; /* above 0 inside a forwarded call */
static long live_allocations, injected;

void fault_reset(void) {
  memset(&armed, 0, sizeof armed);
  armed.watching = 1;
}

void fault_arm(const char *call, int skip, int times, int error, long result) {
  int i = 0;
  while (armed.faults[i].times) ++i;
  armed.faults[i] = (struct fault){call, skip, times, error, result};
}

void fault_at_random(unsigned one_in, unsigned seed, fault_chooser error_of) {
  armed.one_in = one_in;
  armed.seed = seed;
  armed.error_of = error_of;
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

const char *fault_trace(int at) { return armed.trace[at]; }
long fault_detail(int at) { return armed.details[at]; }
long fault_live_allocations(void) { return live_allocations; }
long fault_count(void) { return injected; }

int fault_calls(const char *call) {
  int count = 0;
  for (int i = 0; i < armed.traced; ++i) count += strcmp(armed.trace[i], call) == 0;
  return count;
}

/* A failure drawn for this call, if any. */
static const struct fault *drawn(const char *call) {
  if (!armed.one_in || (unsigned)rand_r(&armed.seed) % armed.one_in) return NULL;
  const int error = armed.error_of(call);
  armed.random_fault = (struct fault){.error = error, .result = FAULT_FAILS};
  return error ? &armed.random_fault : NULL;
}

/* The fault that this call meets, if any. One without an error leaves what no call leaves: errno means
 * nothing then. */
static const struct fault *due_with(const char *call, long detail) {
  if (!armed.watching || depth) return NULL;
  if (armed.traced < LONGEST_TRACE) {
    armed.details[armed.traced] = detail;
    armed.trace[armed.traced++] = call;
  }
  const struct fault *met = drawn(call);
  for (int i = 0; !met && i < MOST; ++i) {
    struct fault *const fault = &armed.faults[i];
    if (!fault->times || strcmp(fault->call, call) != 0 || fault->skip-- > 0) continue;
    --fault->times;
    met = fault;
  }
  if (!met) return NULL;
  ++injected;
  errno = met->error ? met->error : FAULT_NO_ERRNO;
  return met;
}
static const struct fault *due(const char *call) { return due_with(call, 0); }
static long pointer(const struct fault *fault) {
  return fault->result == FAULT_FAILS ? FAULT_NULL : fault->result;
}
long fault_answer(const char *call, long otherwise) {
  const int before = errno;
  const struct fault *const met = due(call);
  errno = before;
  if (!met) return otherwise;
  return met->result == FAULT_FAILS ? -met->error : met->result;
}

int fault_watch(int on) {
  const int before = armed.watching;
  armed.watching = on;
  return before;
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

/* A read that comes up short has read something all the same. */
static ssize_t blank(void *buffer, long result) {
  if (result > 0) memset(buffer, ' ', (size_t)result);
  return result;
}

static int closed(int (*real)(int), int fd, int result) {
  const int error = errno;
  real(fd);
  errno = error;
  return result;
}

/* A function that answers `failure` when a fault is due and otherwise this. The function that it
 * hides is `real`. */
#define REPLACE(type, name, parameters, failure, answer)  \
  type name parameters {                                  \
    static type(*real) parameters;                        \
    if (!real) *(void **)&real = dlsym(RTLD_NEXT, #name); \
    const struct fault *const fault = due(#name);         \
    if (fault) return failure;                            \
    ++depth;                                              \
    type const result = answer;                           \
    --depth;                                              \
    return result;                                        \
  }
#define FORWARD(type, name, parameters, arguments) \
  REPLACE(type, name, parameters, (type)fault->result, real arguments)
#define POINTER(type, name, parameters, arguments) \
  REPLACE(type, name, parameters, (type)pointer(fault), real arguments)
#define FORWARD1(type, name, A) FORWARD(type, name, (A a), (a))
#define FORWARD2(type, name, A, B) FORWARD(type, name, (A a, B b), (a, b))
#define FORWARD3(type, name, A, B, C) FORWARD(type, name, (A a, B b, C c), (a, b, c))
#define FORWARD4(type, name, A, B, C, D) FORWARD(type, name, (A a, B b, C c, D d), (a, b, c, d))

// clang-format off
REPLACE(int, close, (int a), closed(real, a, (int)fault->result), real(a))
FORWARD1(int, fsync, int) FORWARD1(int, putenv, char *) FORWARD1(int, unlink, const char *)
FORWARD1(int, rmdir, const char *) FORWARD1(long, sysconf, int)
POINTER(char *, canonicalize_file_name, (const char *a), (a))
POINTER(char *, strerror, (int a), (a)) FORWARD1(clock_t, times, struct tms *)
FORWARD1(unsigned, sleep, unsigned) POINTER(DIR *, opendir, (const char *a), (a))
POINTER(struct dirent64 *, readdir64, (DIR * a), (a)) FORWARD2(int, kill, pid_t, int)
FORWARD2(int, stat64, const char *, struct stat64 *) FORWARD2(int, fstat64, int, struct stat64 *)
FORWARD2(int, ftruncate64, int, off64_t) FORWARD2(int, access, const char *, int)
FORWARD2(int, mkdir, const char *, mode_t)
FORWARD2(int, getrlimit64, __rlimit_resource_t, struct rlimit64 *)
FORWARD2(int, setrlimit64, __rlimit_resource_t, const struct rlimit64 *)
FORWARD3(off64_t, lseek64, int, off64_t, int)
REPLACE(ssize_t, read, (int a, void *b, size_t c), blank(b, fault->result), real(a, b, c))
FORWARD3(ssize_t, write, int, const void *, size_t)
FORWARD3(ssize_t, readv, int, const struct iovec *, int)
FORWARD3(ssize_t, writev, int, const struct iovec *, int)
FORWARD3(ssize_t, readlink, const char *, char *, size_t)
FORWARD3(int, sigaction, int, const struct sigaction *, struct sigaction *)
FORWARD4(int, faccessat, int, const char *, int, int)
FORWARD4(int, fstatat64, int, const char *, struct stat64 *, int)
FORWARD4(ssize_t, readlinkat, int, const char *, char *, size_t)
FORWARD4(ssize_t, pread64, int, void *, size_t, off64_t)
FORWARD4(ssize_t, pwrite64, int, const void *, size_t, off64_t)
POINTER(struct mntent *, getmntent_r,
        (FILE *restrict a, struct mntent *restrict b, char *restrict c, int d), (a, b, c, d))
FORWARD(int, statx, (int a, const char *restrict b, int c, unsigned d, struct statx *restrict e),
        (a, b, c, d, e))
FORWARD(int, glob64, (const char *restrict a, int b, int (*c)(const char *, int), glob64_t *restrict d),
        (a, b, c, d))
POINTER(void *, dlopen, (const char *a, int b), (a ? redirected(a) : a, b))
REPLACE(FILE *, setmntent, (const char *a, const char *b), NULL, real(redirected(a), b))
REPLACE(int, statfs64, (const char *a, struct statfs64 *b), (int)fault->result,
        with_file_system(real(a, b), b))
REPLACE(int, fstatfs64, (int a, struct statfs64 *b), (int)fault->result,
        with_file_system(real(a, b), b))
REPLACE(int, gettimeofday, (struct timeval *restrict a, void *restrict b), (int)fault->result,
        with_time(real(a, b), a))

/* The same for a function whose last argument, no wider than a pointer, may be absent. */
#define REPLACE_VARIADIC(name, A, B, answer)                                       \
  static int name##_with(int (*real)(A, B, ...), A a, B b, void *last) { return answer; } \
  int name(A a, B b, ...) {                                                        \
    static int (*real)(A, B, ...);                                                 \
    if (!real) *(void **)&real = dlsym(RTLD_NEXT, #name);                          \
    const struct fault *const fault = due_with(#name, (long)b);                    \
    if (fault) return (int)fault->result;                                          \
    va_list arguments;                                                             \
    va_start(arguments, b);                                                        \
    void *const last = va_arg(arguments, void *);                                  \
    va_end(arguments);                                                             \
    ++depth;                                                                       \
    const int result = name##_with(real, a, b, last);                              \
    --depth;                                                                       \
    return result;                                                                 \
  }
REPLACE_VARIADIC(fcntl, int, int, real(a, b, last))
REPLACE_VARIADIC(ioctl, int, unsigned long, answered(real, a, b, last))
REPLACE_VARIADIC(open64, const char *, int, real(redirected(a), b, last))

/* What hardened code calls instead. */
#define CHECKED(name, parameters, arguments)     \
  ssize_t __##name##_chk parameters;             \
  ssize_t __##name##_chk parameters {            \
    if (size > room) abort();                    \
    return name arguments;                       \
  }
CHECKED(read, (int fd, void *to, size_t size, size_t room), (fd, to, size))
CHECKED(pread64, (int fd, void *to, size_t size, off64_t at, size_t room), (fd, to, size, at))
CHECKED(readlink, (const char *name, char *to, size_t size, size_t room), (name, to, size))
CHECKED(readlinkat, (int folder, const char *name, char *to, size_t size, size_t room),
        (folder, name, to, size))
int __open64_2(const char *name, int flags);
int __open64_2(const char *name, int flags) { return open64(name, flags, 0); }
// clang-format on

/* The allocator behind: the sanitizer's, else the next one, so that valgrind's takes its place. All
 * of it is looked up at the first allocation, as later the C library may be in the midst of
 * something; what that look-up allocates itself comes from the C library's own. */
#define EACH_ALLOCATOR(DO)                              \
  DO(void *, malloc, (size_t size))                     \
  DO(void *, calloc, (size_t count, size_t size))       \
  DO(void *, realloc, (void *old, size_t size))         \
  DO(void *, memalign, (size_t alignment, size_t size)) \
  DO(void, free, (void *memory))

#define DECLARE(type, name, parameters)                              \
  extern type __interceptor_##name parameters __attribute__((weak)); \
  extern type __libc_##name parameters;                              \
  static type(*real_##name) parameters = __libc_##name;
EACH_ALLOCATOR(DECLARE)

#define LOOK_UP(type, name, parameters) \
  if (__interceptor_##name)             \
    real_##name = __interceptor_##name; \
  else                                  \
    *(void **)&real_##name = dlsym(RTLD_NEXT, #name);
static void look_up_allocator(void) {
  static int looked_up;
  if (looked_up++) return;
  EACH_ALLOCATOR(LOOK_UP)
}

static void *counted(void *memory) {
  if (memory) ++live_allocations;
  return memory;
}
void *malloc(size_t size) {
  look_up_allocator();
  return due("malloc") ? NULL : counted(real_malloc(size));
}
void *calloc(size_t count, size_t size) {
  look_up_allocator();
  return due("malloc") ? NULL : counted(real_calloc(count, size));
}
void *aligned_alloc(size_t alignment, size_t size) {
  return due("malloc") ? NULL : counted(real_memalign(alignment, size));
}
void *realloc(void *old, size_t size) {
  if (!old) return malloc(size);
  void *const memory = real_realloc(old, size);
  if (!memory && size == 0) --live_allocations;
  return memory;
}
void free(void *memory) {
  if (memory) --live_allocations;
  real_free(memory);
}
/* The sanitizer's would allocate past the counter. */
char *strdup(const char *text) {
  const size_t size = strlen(text) + 1;
  char *const copy = due("strdup") ? NULL : counted(real_malloc(size));
  return copy ? memcpy(copy, text, size) : NULL;
}
