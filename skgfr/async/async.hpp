// What the other rooms use of asynchronous I/O: control blocks, and the steps in which a request is
// counted, converted and taken back.
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

/// Phases of skgfrciohdlr.
enum CompletionPhase : ub1 { queue_phase = 0x1, complete_phase = 0x2 };

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

/// Counts a request that was carried out at once as pending, and lists it to be reported complete.
void convert_pending(skgfrctx *ctx, skgfrsisb *request);

/// Reports a converted request as done.
void report_converted(skgfrctx *ctx, skgfrsisb *request);

/// Takes over a completion from the kernel, in the phases given.
void reaped(skgfrctx *ctx, aiocb64 *block, long result, ub1 phases);

/// Takes a request off the done queue and out of its counter; it was reaped, but is not delivered.
inline void take_off_done_queue(skgfrctx *ctx, skgfrsisb *request) {
  unlink(request->link_skgfrsisb);
  --ctx->aiodone_skgfrctx;
}

/// Requests in the kernel: pending ones that were not converted.
inline uword pending_in_kernel(const skgfrctx *ctx) {
  uword converted = 0;
  const kgglk *const head = &ctx->conv_skgfrctx;
  for (const kgglk *link = head->kgglknxt; link != head; link = link->kgglknxt) ++converted;
  return ctx->aiopend_skgfrctx - converted;
}

/// Whether the kernel still holds support probes that were given up.
bool awaits_late_probes();

/// Whether a completion belongs to one of them; if so, that one is released.
bool is_late_probe(const void *data);

}  // namespace skgfr
