/* System calls that fail, come up short or answer something else, for tests.
 *
 * The functions of the same names in the test executable take the place of the C library's and
 * forward to it unless a test armed something. C, because C++ headers pin exception specifications
 * on them. Names and texts are kept by reference, 64 of a kind between two resets.
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

/* Lets `skip` calls of the named function pass, then makes the next `times` return `result` with
 * errno set to `error`, without calling the system. Pointer results are given as numbers. */
void fault_arm(const char *call, int skip, int times, int error, long result);

/* Opening `from` (open64, setmntent) opens `to` instead. */
void fault_redirect(const char *from, const char *to);

/* fstatfs64 and statfs64 report this file-system type; 0: the true one. */
void fault_file_system(unsigned int magic);

/* gettimeofday reports this time; 0 seconds: the true one. */
void fault_time_of_day(long seconds, long microseconds);

/* Answers ioctl; returns 1 when it did, with *result set. Null: the true one. */
typedef int (*fault_ioctl)(int fd, unsigned long request, void *argument, int *result);
void fault_answer_ioctl(fault_ioctl answer);

/* How often the named function was called since the last reset; armed or not. */
int fault_calls(const char *call);

/* Forgets everything armed and counted. */
void fault_reset(void);

#ifdef __cplusplus
}
#endif

#endif
