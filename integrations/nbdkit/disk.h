/* The served file as one connection sees it: a context of its own with the file open in it.
 *
 * Knows the layer's public interface; nothing of how requests are spread over threads. */
#ifndef NBDKIT_SKGFR_DISK_H
#define NBDKIT_SKGFR_DISK_H

#include <skgfr/client.h>
#include <stdbool.h>
#include <stdint.h>

enum {
  queue_depth = 64,       /* requests of one connection with the kernel at once */
  buffer_alignment = 4096 /* serves every sector size there is */
};

/* What the command line said. */
typedef struct settings {
  char *file;          /* absolute and resolved */
  bool header;         /* the file begins with block 0, which stays out of reach */
  uint32_t block_size; /* where there is no header to tell it */
  bool direct;         /* past the page cache */
  bool queued;         /* through the asynchronous queue */
} settings;

typedef struct disk {
  slerc se;
  skgfrctx ctx;
  skgfrwcx wait;
  skgfrfib *fib;
  skgfriov *plain;
  skgfriov *durable; /* whose writes are on stable storage when they end */
  int flushed;       /* the descriptor that flushes */
  skgfr_reach reach;
  uint64_t size;    /* bytes that clients see */
  uint32_t minimum; /* of a request's offset and length, in bytes */
} disk;

/* Opens the file of the settings; NULL, with everything told to nbdkit, when it cannot be served so. */
disk *disk_open(const settings *wanted, bool readonly);

/* Whatever cannot be given back is told to nbdkit. */
void disk_close(disk *d);

/* Puts all that was written, through whichever connection, on stable storage. 0, or -1 with the error
 * told to nbdkit. */
int disk_flush(disk *d);

/* Zeroed memory that the process ends without. */
void *allocate(size_t alignment, size_t size);

#endif
