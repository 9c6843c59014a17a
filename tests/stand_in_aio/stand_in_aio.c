#define _GNU_SOURCE
#include "tests/stand_in_aio/stand_in_aio.h"

#include <errno.h>
#include <libaio.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

struct stand_in_aio stand_in_aio;
static struct iocb *waiting[4096];

/* Failures that the test executable armed, when it lets us see them. */
extern long fault_answer(const char *call, long otherwise) __attribute__((weak));
extern int fault_watch(int on) __attribute__((weak));

static int next(const char *call, struct stand_in_answers *answers, int otherwise) {
  if (fault_answer) otherwise = (int)fault_answer(call, otherwise);
  return answers->used < answers->count ? answers->values[answers->used++] : otherwise;
}

static long transfer(const struct iocb *block) {
  const struct io_iocb_common *const to = &block->u.c;
  const int watching = fault_watch ? fault_watch(0) : 0; /* the kernel's call, not the layer's */
  const ssize_t moved = block->aio_lio_opcode == IO_CMD_PREAD
                            ? pread64(block->aio_fildes, to->buf, to->nbytes, to->offset)
                            : pwrite64(block->aio_fildes, to->buf, to->nbytes, to->offset);
  if (fault_watch) fault_watch(watching);
  return moved < 0 ? -errno : (long)moved;
}

static struct io_event complete_one(void) {
  struct iocb *const block = waiting[0];
  const int result = next("completion", &stand_in_aio.results, STAND_IN_TRANSFER);
  if (result == STAND_IN_STRAY)
    return (struct io_event){.res = 512}; /* of nobody; block waits on */
  memmove(waiting, waiting + 1, (size_t)--stand_in_aio.waiting * sizeof *waiting);
  const int scripted = result != STAND_IN_TRANSFER;
  return (struct io_event){.data = block->data,
                           .obj = block,
                           .res = (unsigned long)(scripted ? result : transfer(block))};
}

int io_queue_init(int events, io_context_t *context) {
  static struct stand_in_answers none;
  *context = (io_context_t)&stand_in_aio;
  return events == 1024 ? next("io_queue_init", &none, 0) : -EINVAL;
}

int io_queue_release(io_context_t context) {
  static struct stand_in_answers none;
  return next("io_queue_release", &none, context && stand_in_aio.waiting == 0 ? 0 : -EINVAL);
}

int io_submit(io_context_t context, long count, struct iocb *blocks[]) {
  const int answer = next("io_submit", &stand_in_aio.submissions, (int)count);
  const int taken = answer < count ? answer : (int)count;
  for (int i = 0; i < taken; ++i) waiting[stand_in_aio.waiting++] = blocks[i];
  ++stand_in_aio.submit_calls;
  return context ? taken : -EINVAL;
}

int io_getevents(io_context_t context, long least, long most, struct io_event *events,
                 struct timespec *timeout) {
  const int answer = next("io_getevents", &stand_in_aio.reapings, (int)most);
  ++stand_in_aio.reap_calls;
  stand_in_aio.timeout = timeout ? *timeout : (struct timespec){.tv_sec = -1};
  if (answer < 0 || !context || least != 1) return answer < 0 ? answer : -EINVAL;
  if (stand_in_aio.waiting == 0) return ppoll(NULL, 0, timeout, NULL) < 0 ? -errno : 0;
  int count = 0;
  while (count < answer && count < most && stand_in_aio.waiting > 0) {
    events[count++] = complete_one();
  }
  return count;
}
