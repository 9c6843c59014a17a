/* One request to the layer and its buffer; see piece.h. */
#include "piece.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

piece *piece_make(size_t room) {
  piece *const p = allocate(_Alignof(piece), sizeof *p);
  p->status = allocate(sizeof(void *), skgfrgsz(skgfrsISB));
  p->status->slerc_skgfriosb = &p->se;
  p->status->ctx_skgfriosb = p;
  p->request.iosb_skgfrrq = p->status;
  p->request.bufspec_skgfrrq.buffer_skgfrrq.bp_skgfrbd = allocate(buffer_alignment, room);
  return p;
}

void piece_drop(piece *p) {
  free(p->request.bufspec_skgfrrq.buffer_skgfrrq.bp_skgfrbd);
  free(p->status);
  free(p);
}

void piece_fill(piece *p, disk *d, transfer *t, size_t room) {
  const uint32_t bytes = t->bytes < room ? t->bytes : (uint32_t)room;
  skgfrbd *const buffer = &p->request.bufspec_skgfrrq.buffer_skgfrrq;
  p->request.iov_skgfrrq = t->durable ? d->durable : d->plain;
  p->request.blockno_skgfrrq = d->reach.first + (ub4)(t->offset / d->fib->lblksiz_skgfrfib);
  buffer->blen_skgfrbd = bytes;
  p->data = t->data;
  if (t->write) memcpy(buffer->bp_skgfrbd, t->data, bytes);
  t->data += bytes;
  t->offset += bytes;
  t->bytes -= bytes;
}

/* A refused request leaves the system's number of an earlier failure alone, and one that came up short
 * has none. */
static int error_of(const piece *p) {
  if (p->status->status_skgfriosb == skgfriBADREQ) return EINVAL;
  return p->se.slercerrno > 0 ? p->se.slercerrno : EIO;
}

int piece_finish(piece *p, bool write) {
  const skgfrbd *const buffer = &p->request.bufspec_skgfrrq.buffer_skgfrrq;
  if (p->status->status_skgfriosb == skgfriDONE) {
    if (!write) memcpy(p->data, buffer->bp_skgfrbd, buffer->blen_skgfrbd);
    return 0;
  }
  text message[256];
  slcgems(&p->se, message, sizeof message);
  nbdkit_error("block %u: code %d: %s", p->request.blockno_skgfrrq, p->se.slercoer,
               (char *)message);
  nbdkit_set_error(error_of(p));
  return -1;
}
