/* A library in libaio's place that calls the kernel itself, but for the failures that the program
 * asks for. The transfers are always the kernel's. Knows nothing of the layer. */
#include <errno.h>
#include <libaio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support/faults.h"

static int answer(long result) { return result < 0 ? -errno : (int)result; }

/* Makes a completion one that failed or came to its half; nor does the rest of a buffer hold what was
 * read. */
static void spoil(struct io_event *event, long failure) {
  if (!failure) return;
  const struct io_iocb_common *const to = &event->obj->u.c;
  const size_t moved = failure == -ENODATA ? to->nbytes / 2 : 0;
  const int reads = event->obj->aio_lio_opcode == IO_CMD_PREAD;
  if (reads) memset((char *)to->buf + moved, 0, to->nbytes - moved);
  event->res = moved ? moved : (unsigned long)failure;
}

int io_queue_init(int events, io_context_t *context) {
  *context = NULL;
  return answer(syscall(SYS_io_setup, events, context));
}

int io_queue_release(io_context_t context) { return answer(syscall(SYS_io_destroy, context)); }

int io_submit(io_context_t context, long count, struct iocb *blocks[]) {
  const long failure = fault_answer("io_submit", 0);
  if (failure) return (int)failure;
  if (count > 1 && fault_answer("half of a list", 0)) count /= 2;
  return answer(syscall(SYS_io_submit, context, count, blocks));
}

int io_getevents(io_context_t context, long least, long most, struct io_event *events,
                 struct timespec *timeout) {
  const long failure = fault_answer("io_getevents", 0);
  if (failure) return (int)failure;
  const int count = answer(syscall(SYS_io_getevents, context, least, most, events, timeout));
  for (int i = 0; i < count; ++i) spoil(&events[i], fault_answer("completion", 0));
  return count;
}
