// What the other rooms use of asynchronous I/O: the private status of a request, its control block, and
// the ways in which a request leaves the usual course.
//
//   prepared --submitted--> in the kernel --reaped--> on the done queue --completed--> --delivered
//                                                     (at once, or at delivery when suspended)
//   prepared --converted--> on the conversion list --polled--> on the done queue --delivered
//
// The context's counters move in these steps and nowhere else: aiopend_skgfrctx counts what is in the
// kernel or on the conversion list, aiodone_skgfrctx what is on the done queue, and a handle's
// aiopend_skgfrsiov what is not delivered.
#pragma once

#include "skgfr/base/list.hpp"
#include "skgfr/records.h"

namespace skgfr {

/// States of a control block.
enum ControlBlockState : long { not_submitted = 0, completed = 1, in_progress = 2 };

/// Bits of qstatus_skgfrsisb.
enum QueueState : sword {
  delivered = 0x1,       // together with completion_due: reaped while suspending
  completion_due = 0x2,  // its status block is filled at delivery
};

/// Makes the private status that of a new request, on no list.
inline void begin_request(skgfrsisb *request, skgfrsiov *handle) {
  make_empty(request->link_skgfrsisb);
  request->qstatus_skgfrsisb = 0;
  request->iov_skgfrsisb = handle;
}

/// Readies a control block for one transfer; its completion event will lead back to it.
inline void prepare(aiocb64 &block, int fd, const skgfrbd &buffer, off64_t offset, bool read) {
  if (read) {
    io_prep_pread(&block.__iocb, fd, buffer.bp_skgfrbd, buffer.blen_skgfrbd, offset);
  } else {
    io_prep_pwrite(&block.__iocb, fd, buffer.bp_skgfrbd, buffer.blen_skgfrbd, offset);
  }
  block.__iocb.data = &block;
  block.__error_code = 0;
  block.__aio_key = in_progress;
}
inline void prepare(skgfrsisb &request, int fd, const skgfrbd &buffer, off64_t offset, bool read) {
  prepare(request.aio64req_skgfrsisb, fd, buffer, offset, read);
  request.aiosize_skgfrsisb = buffer.blen_skgfrbd;
}

/// Counts a request that was carried out at once as pending, and lists it to be reported complete.
void convert_pending(skgfrctx *ctx, skgfrsisb *request);

/// Takes a request that is answered otherwise off the done queue, if the kernel took it and it is back
/// already: it must not be delivered as well.
void withdraw(skgfrctx *ctx, skgfrsisb *request);

}  // namespace skgfr
