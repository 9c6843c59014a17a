/* A library in libaio's place that calls the kernel itself, but for the failures that the program
 * asks for. The transfers are always the kernel's. Knows nothing of the layer. */
#include <errno.h>
#include <libaio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support/faults.h"

#pragma weak fault_meets /* a program without it has no failures */
static int meets(const char *call) { return fault_meets && fault_meets(call); }
static int answer(long result) { return result < 0 ? -errno : (int)result; }

int io_queue_init(int events, io_context_t *context) {
  *context = NULL;
  return answer(syscall(SYS_io_setup, events, context));
}

int io_submit(io_context_t context, long count, struct iocb *blocks[]) {
  if (meets("io_submit")) return -errno;
  if (count > 1 && meets("half of a list")) count /= 2;
  return answer(syscall(SYS_io_submit, context, count, blocks));
}

int io_getevents(io_context_t context, long least, long most, struct io_event *events,
                 struct timespec *timeout) {
  if (meets("io_getevents")) return -errno;
  const int count = answer(syscall(SYS_io_getevents, context, least, most, events, timeout));
  for (int i = 0; i < count; ++i) {
    if (!meets("completion")) continue;
    events[i].res = errno == ENODATA ? events[i].res / 2 : (unsigned long)-(long)errno;
  }
  return count;
}
