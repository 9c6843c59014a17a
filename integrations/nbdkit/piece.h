/* A piece of a client's request: as much as goes through the layer at once, in a buffer that is aligned
 * as the layer and the disk want it; nbdkit's buffers are not.
 *
 * Knows nothing of threads and waiting. */
#ifndef NBDKIT_SKGFR_PIECE_H
#define NBDKIT_SKGFR_PIECE_H

#include "disk.h"

/* What a client asks for. */
typedef struct transfer {
  char *data;
  uint32_t bytes;
  uint64_t offset;
  bool write;
  bool durable; /* on stable storage when it ends */
} transfer;

typedef struct piece {
  skgfrrq request;
  skgfriosb *status; /* its client context is the piece */
  slerc se;
  char *data; /* where the bytes come from or go to */
  struct job *job;
  struct piece *next; /* of the same holder */
  struct piece *also_done;
} piece;

/* A piece for up to room bytes, and its end. */
piece *piece_make(size_t room);
void piece_drop(piece *p);

/* Takes the next bytes of t, up to room, off it: sets the request up and copies what is to be written. */
void piece_fill(piece *p, disk *d, transfer *t, size_t room);

/* Hands over what was read. 0, or -1 with the error told to nbdkit. */
int piece_finish(piece *p, bool write);

#endif
