/* What nbdkit calls: parameters, connections, facts about the disk, requests.
 *
 * Each connection has a context of its own, so connections never wait for each other. Without the queue
 * nbdkit itself lets one request at a time through on each. */
#include <stdlib.h>
#include <string.h>

#include "queue.h"

#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

#define THREAD_MODEL NBDKIT_THREAD_MODEL_PARALLEL

enum { MOST_BYTES = 32 << 20, USUAL_BYTES = 4096 };

static settings wanted = {.header = true};

typedef struct connection {
  disk *d;
  queue *q; /* NULL: synchronous, through the one piece */
  piece *only;
} connection;

static int set_bool(bool *setting, const char *value) {
  const int answer = nbdkit_parse_bool(value);
  *setting = answer == 1;
  return answer < 0 ? -1 : 0;
}

static int set_file(const char *value) {
  free(wanted.file);
  wanted.file = nbdkit_realpath(value);
  return wanted.file ? 0 : -1;
}

static int set_block_size(const char *value) {
  const int64_t bytes = nbdkit_parse_size(value);
  wanted.block_size = (uint32_t)bytes;
  if (bytes > 0 && bytes % 512 == 0 && bytes <= skgfr_largest_block) return 0;
  nbdkit_error("blocksize: a multiple of 512 up to %d", skgfr_largest_block);
  return -1;
}

static int set_queue(const char *value) {
  wanted.queued = strcmp(value, "async") == 0;
  if (wanted.queued || strcmp(value, "sync") == 0) return 0;
  nbdkit_error("queue: sync or async");
  return -1;
}

static int config(const char *key, const char *value) {
  if (strcmp(key, "file") == 0) return set_file(value);
  if (strcmp(key, "header") == 0) return set_bool(&wanted.header, value);
  if (strcmp(key, "blocksize") == 0) return set_block_size(value);
  if (strcmp(key, "direct") == 0) return set_bool(&wanted.direct, value);
  if (strcmp(key, "queue") == 0) return set_queue(value);
  nbdkit_error("unknown parameter: %s", key);
  return -1;
}

static int config_complete(void) {
  if (!wanted.file) {
    nbdkit_error("file=FILE is missing");
  } else if (wanted.header && wanted.block_size) {
    nbdkit_error("blocksize is for header=false: the header tells it");
  } else {
    if (!wanted.header && !wanted.block_size) wanted.block_size = 512;
    return 0;
  }
  return -1;
}

/* Opens the file once, so that what cannot be served stops the server and not its first client. */
static int get_ready(void) {
  disk *const d = disk_open(&wanted, true);
  if (!d) return -1;
  disk_close(d);
  return 0;
}

static int thread_model(void) {
  return wanted.queued ? NBDKIT_THREAD_MODEL_PARALLEL : NBDKIT_THREAD_MODEL_SERIALIZE_REQUESTS;
}

static void *open_connection(int readonly) {
  disk *const d = disk_open(&wanted, readonly);
  if (!d) return NULL;
  connection *const c = allocate(_Alignof(connection), sizeof *c);
  c->d = d;
  if (wanted.queued) {
    c->q = queue_make(d);
  } else {
    c->only = piece_make(skgfr_longest_transfer);
  }
  return c;
}

static void close_connection(void *handle) {
  connection *const c = handle;
  if (c->only) piece_drop(c->only);
  if (!c->q || queue_drop(c->q)) disk_close(c->d);
  free(c);
}

static int64_t get_size(void *handle) { return (int64_t)((connection *)handle)->d->size; }

static int block_size(void *handle, uint32_t *minimum, uint32_t *preferred, uint32_t *maximum) {
  *minimum = ((connection *)handle)->d->minimum;
  *preferred = *minimum > USUAL_BYTES ? *minimum : USUAL_BYTES;
  *maximum = MOST_BYTES;
  return 0;
}

/* A flush counts for all connections: they share the kernel's view of the file. */
static int can_multi_conn(void *handle) { return 1; }
static int can_fua(void *handle) { return NBDKIT_FUA_NATIVE; }

static int transfer_synchronously(connection *c, transfer t) {
  while (t.bytes > 0) {
    kgglk list;
    piece_fill(c->only, c->d, &t, skgfr_longest_transfer);
    skgfr_make_list(&list);
    skgfr_append(&list, &c->only->request);
    skgfqio(&c->d->ctx, &list, t.write ? 0 : skgfqioREAD);
    if (piece_finish(c->only, t.write) != 0) return -1;
  }
  return 0;
}

/* nbdkit has compared the request with the size. Clients are told what requests are multiples of; one that
 * asks for something else gets no part of it. */
static int move(connection *c, transfer t) {
  if (t.offset % c->d->minimum == 0 && t.bytes % c->d->minimum == 0) {
    return c->q ? queue_transfer(c->q, t) : transfer_synchronously(c, t);
  }
  nbdkit_error("%u bytes at %llu: not a multiple of %u", t.bytes, (unsigned long long)t.offset,
               c->d->minimum);
  nbdkit_set_error(EINVAL);
  return -1;
}

static int read_bytes(void *handle, void *buffer, uint32_t count, uint64_t offset, uint32_t flags) {
  return move(handle, (transfer){buffer, count, offset, false, false});
}

static int write_bytes(void *handle, const void *buffer, uint32_t count, uint64_t offset,
                       uint32_t flags) {
  return move(handle, (transfer){(char *)buffer, count, offset, true, flags & NBDKIT_FLAG_FUA});
}

static int flush(void *handle, uint32_t flags) { return disk_flush(((connection *)handle)->d); }

static void unload(void) { free(wanted.file); }

static struct nbdkit_plugin plugin = {
    .name = "skgfr",
    .version = PROJECT_VERSION,
    .longname = "blocks behind a header",
    .description = "Serves the data blocks of a file or device of the skgfr layer",
    .magic_config_key = "file",
    .config = config,
    .config_complete = config_complete,
    .config_help =
        "[file=]FILE       (required) The file or device to serve.\n"
        "header=BOOL       Keep block 0 out of reach (default true).\n"
        "blocksize=SIZE    The block size of a file without a header (default 512).\n"
        "queue=sync|async  One request at a time on a connection, or many (default sync).\n"
        "direct=BOOL       Past the page cache; devices always are (default false).",
    .thread_model = thread_model,
    .get_ready = get_ready,
    .open = open_connection,
    .close = close_connection,
    .get_size = get_size,
    .block_size = block_size,
    .can_multi_conn = can_multi_conn,
    .can_fua = can_fua,
    .pread = read_bytes,
    .pwrite = write_bytes,
    .flush = flush,
    .unload = unload,
};

NBDKIT_REGISTER_PLUGIN(plugin)
