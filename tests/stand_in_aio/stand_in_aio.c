#define _GNU_SOURCE
#include "tests/stand_in_aio/stand_in_aio.h"

#include <errno.h>
#include <libaio.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include "tests/support/faults.h"

struct stand_in_aio stand_in_aio;
static struct iocb *waiting[4096];

static long transfer(const struct iocb *block) {
  const struct io_iocb_common *const to = &block->u.c;
  const int watching = fault_watch(0); /* the kernel's call, not the layer's */
  const ssize_t moved = block->aio_lio_opcode == IO_CMD_PREAD
                            ? pread64(block->aio_fildes, to->buf, to->nbytes, to->offset)
                            : pwrite64(block->aio_fildes, to->buf, to->nbytes, to->offset);
  fault_watch(watching);
  return moved < 0 ? -errno : (long)moved;
}

static struct io_event complete_one(void) {
  const long unarmed = LONG_MIN;
  struct iocb *const block = waiting[0];
  const long result = fault_answer("completion", unarmed);
  if (result == STAND_IN_STRAY)
    return (struct io_event){.res = 512}; /* of nobody; block waits on */
  memmove(waiting, waiting + 1, (size_t)--stand_in_aio.waiting * sizeof *waiting);
  const long moved = result == unarmed ? transfer(block) : result;
  return (struct io_event){.data = block->data, .obj = block, .res = (unsigned long)moved};
}

int io_queue_init(int events, io_context_t *context) {
  *context = (io_context_t)&stand_in_aio;
  return (int)fault_answer("io_queue_init", events == 1024 ? 0 : -EINVAL);
}

int io_queue_release(io_context_t context) {
  const int idle = context && stand_in_aio.waiting == 0;
  return (int)fault_answer("io_queue_release", idle ? 0 : -EINVAL);
}

int io_submit(io_context_t context, long count, struct iocb *blocks[]) {
  const long answer = fault_answer("io_submit", count);
  const int taken = (int)(answer < count ? answer : count);
  for (int i = 0; i < taken; ++i) waiting[stand_in_aio.waiting++] = blocks[i];
  return context ? taken : -EINVAL;
}

int io_getevents(io_context_t context, long least, long most, struct io_event *events,
                 struct timespec *timeout) {
  const long answer = fault_answer("io_getevents", most);
  stand_in_aio.timeout = timeout ? *timeout : (struct timespec){.tv_sec = -1};
  if (answer < 0 || !context || least != 1) return answer < 0 ? (int)answer : -EINVAL;
  if (stand_in_aio.waiting == 0) return ppoll(NULL, 0, timeout, NULL) < 0 ? -errno : 0;
  int count = 0;
  while (count < answer && count < most && stand_in_aio.waiting > 0) {
    events[count++] = complete_one();
  }
  return count;
}
