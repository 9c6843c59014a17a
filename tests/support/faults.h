/* System calls that fail, come up short or answer something else, for tests; and what they leave.
 *
 * The functions of the same names in the test executable take the place of the C library's and
 * forward to it unless a test armed something. What the C library calls inside one of them is its
 * own business and neither counted nor made to fail. C, because C++ headers pin exception
 * specifications on them. Names and texts are kept by reference, 64 of a kind between two resets.
 */
#ifndef TESTS_SUPPORT_FAULTS_H
#define TESTS_SUPPORT_FAULTS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What an armed call returns. */
#define FAULT_FAILS (-1L)
#define FAULT_NULL 0L
/* What errno holds after a result that is no failure: nobody may take it for one. */
#define FAULT_NO_ERRNO 0x5A5A

/* Lets `skip` calls of the named function pass, then makes the next `times` return `result` with
 * errno set to `error`, without calling the system; but a close closes all the same, as it does
 * when the system reports an earlier write's failure. Pointer results are given as numbers, and one
 * that fails is null. calloc
 * and aligned_alloc count as malloc. */
void fault_arm(const char *call, int skip, int times, int error, long result);

/* Makes one call in so many fail at random, whichever it is; 0: none. The error is one that
 * `error_of` chooses for the call, 0 to let it pass. */
typedef int (*fault_chooser)(const char *call);
void fault_at_random(unsigned one_in, unsigned seed, fault_chooser error_of);

/* Opening `from` (open64, setmntent, dlopen) opens `to` instead. */
void fault_redirect(const char *from, const char *to);

/* fstatfs64 and statfs64 report this file-system type; 0: the true one. */
void fault_file_system(unsigned int magic);

/* gettimeofday reports this time; 0 seconds: the true one. */
void fault_time_of_day(long seconds, long microseconds);

/* Answers ioctl; returns 1 when it did, with *result set. Null: the true one. */
typedef int (*fault_ioctl)(int fd, unsigned long request, void *argument, int *result);
void fault_answer_ioctl(fault_ioctl answer);

/* For stand-ins: what a call of this name answers, with errno left alone: a negated errno, or the armed
 * result when it is not FAULT_FAILS; else `otherwise`. */
long fault_answer(const char *call, long otherwise);

/* Whether calls are counted and may fail; on after a reset. What it was. */
int fault_watch(int on);

/* How often the named function was called since the last reset, armed or not, and how often a call
 * was made to fail. */
int fault_calls(const char *call);
long fault_count(void);

/* The calls since the last reset, in order; null behind the last one, of at most 8192. And the number
 * that tells one from others of its name: an open's flags, a request of fcntl or ioctl. */
const char *fault_trace(int at);
long fault_detail(int at);

/* Allocations of the process that were not given back, of any age. */
long fault_live_allocations(void);

/* Forgets everything armed and counted. */
void fault_reset(void);

#ifdef __cplusplus
}
#endif

#endif
