/* Asynchronous requests behind skgfqio: collecting completions, and the engine below.
 *
 * Part of skgfr.h, whose opening comment explains how errors and threads are told here.
 */
#ifndef SKGFR_ASYNCHRONOUS_H
#define SKGFR_ASYNCHRONOUS_H

#include <time.h>

#include "skgfr/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Completions ----
 *
 * A request that a call here returns or claims has its final status, skgfriDONE or skgfriIOERROR, is no
 * longer counted, and its records may be used again. Requests that failed have
 *   27061 (-1, asked), errno   the kernel completed it with an error
 *   27085 (moved, asked)       it moved another number of bytes
 * Requests are delivered last completed first. Time-outs are in hundredths of a second for each kernel
 * wait: 0 does not block, all ones is 600 seconds; every completion starts them anew. A wait that may not
 * be interrupted goes on after a signal with what is left of its time. */

/* Returns one request that is done; waits first when fewer than count are, until count more are done,
 * nothing is outstanding or the time-out passes.
 *
 * wcx: not null makes the wait interruptible by the wake-up signal. Clears the record. skgfrrOK with the
 * request in *ppiosb; skgfrrNOTFOUND when none is done, skgfrrINTERRUPT when the wait was interrupted;
 * skgfrrERROR with 27083, errno, when collecting failed otherwise; *ppiosb is then untouched. */
skgfrr skgfrwat(slerc *se, skgfrctx *ctx, ub4 count, skgfriosb **ppiosb, skgfrwcx *wcx,
                ub4 timeout);

/* Returns the next request that is done, without asking the kernel for more.
 *
 * Sets slercoer to 0. skgfrrOK with the request in *ppiosb, or null while requests are outstanding and
 * none is done; skgfrrNOTFOUND when nothing is. */
skgfrr skgfnxtio(slerc *se, skgfrctx *ctx, skgfriosb **ppiosb);

/* Claims the given request if it is done; else does nothing. */
void skgfrchk(skgfrctx *ctx, skgfriosb *iosb);

/* Wakes the process of cid from an interruptible wait. Sets slercoer to 0; reports nothing. */
void skgfrpst(slerc *se, skgfrctx *ctx, skgfrwcx *cid, ub4 flags);

/* The next request that is done, or null. */
skgfriosb *skgfgiod(skgfrctx *ctx);

/* Collects count more completions, or what there is within the time-out. TRUE when the wait was interrupted. flags: 0x1 interruptible. wait
 * has no effect. Sets slercoer to 0; 27083, errno, as for skgfrwat. */
boolean skgfospo(slerc *se, skgfrctx *ctx, ub4 count, uword wait, ub4 flags, ub4 tout);

/* The same from the kernel alone; also TRUE for a count of 0. */
boolean skgfrliopo(slerc *se, skgfrctx *ctx, ub4 count, uword wait, boolean intr, ub4 tout);

/* ---- Asynchronous engine ----
 *
 * In the manner of the POSIX calls that they resemble, on the layer's own control blocks: -1 with errno
 * on failure. Offsets and sizes are in bytes. */

/* Modes of skgfr_lio_listio64. */
enum { LIO_WAIT = 0, LIO_NOWAIT = 1 };

/* Prepares and submits one read, or one write when type is TRUE, on the control block of siosb. EAGAIN when
 * the context has no room. */
int skgfr_aiorw64(skgfrctx *ctx, int filedes, char *bufp, int bufs, off64_t offset,
                  skgfrsisb *siosb, boolean type);

/* Submits nent prepared control blocks in one call; only LIO_NOWAIT is served (LIO_WAIT: ENOSYS, others:
 * EINVAL). -1 when not all were taken, EAGAIN for lack of room; those not taken are not submitted. sig is
 * not used. */
int skgfr_lio_listio64(skgfrctx *ctx, int mode, const aiocb64 **aiocbs, int nent,
                       struct sigevent *sig);

/* Collects completions until a block of list (may be null) is done, nent are collected, or collecting
 * fails; returns how many. The time-out (null: none) holds for each kernel wait. */
int skgfr_suspend64(skgfrctx *ctx, const aiocb64 **list, int nent, const struct timespec *timeout);

/* Collects completions until waitfor or listsize are there; stores blocks in out_list unless it is null,
 * and their count through completed_count. suspend: leave them to be completed at delivery. The events of
 * the last kernel call, or -1: EAGAIN time-out, E2BIG fewer were outstanding, or as the kernel said. */
long skgfr_reap64(skgfrctx *ctx, const struct timespec *timeout, unsigned int waitfor,
                  aiocb64 **out_list, int listsize, unsigned int *completed_count, boolean suspend);

/* State of a control block: 0 completed, EINPROGRESS, EAGAIN not submitted, or the error it completed with;
 * -1 with EINVAL for a null pointer or no state. */
int skgfr_error64(skgfrctx *ctx, aiocb64 *aiocbp);

/* Bytes that a completed block moved; -1 with its error, or EINVAL when it is not completed; -EINPROGRESS
 * while it is in progress. */
int skgfr_return64(skgfrctx *ctx, aiocb64 *aiocbp);

/* Turns a completion into the request's final state. phase: 0x1 onto the done queue, 0x2 fill its status
 * block; aio_err: 0 or the completion's error. */
void skgfrciohdlr(skgfrctx *ctx, skgfrsisb *siosb_ptr, aiocb64 *aiocb_ptr, int aio_err, ub1 phase);

#ifdef __cplusplus
}
#endif

#endif
