/* The asynchronous queue of one connection, which any number of threads feed. */
#ifndef NBDKIT_SKGFR_QUEUE_H
#define NBDKIT_SKGFR_QUEUE_H

#include "piece.h"

typedef struct queue queue;

queue *queue_make(disk *d);

/* Returns false, and leaves everything in place, where the kernel may still use the buffers. */
bool queue_drop(queue *q);

/* Carries out t. 0, or -1 with the error told to nbdkit. */
int queue_transfer(queue *q, transfer t);

#endif
