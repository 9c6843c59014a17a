/* Opens and closes the served file; see disk.h. */
#include "disk.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

/* The layer fills what the process keeps in one thread; connections come in any. */
static pthread_mutex_t one_at_a_time = PTHREAD_MUTEX_INITIALIZER;

void *allocate(size_t alignment, size_t size) {
  void *memory = NULL;
  errno = posix_memalign(&memory, alignment, size);
  if (errno != 0) {
    nbdkit_error("no memory: %m");
    abort();
  }
  return memset(memory, 0, size);
}

static bool failed(disk *d, const settings *wanted, const char *operation) {
  if (!d->se.slercoer) return false;
  text message[256];
  slcgems(&d->se, message, sizeof message);
  nbdkit_error("%s: %s: code %d: %s", wanted->file, operation, d->se.slercoer, (char *)message);
  return true;
}

/* skgfsync leaves devices alone, and a disk may have a cache of its own: so flushing takes a descriptor
 * of its own, which needs no turn among the requests either. */
static bool open_for_flushing(disk *d, const settings *wanted) {
  d->flushed = open(wanted->file, O_RDONLY | O_CLOEXEC);
  if (d->flushed < 0) nbdkit_error("%s: %m", wanted->file);
  return d->flushed >= 0;
}

static bool start_context(disk *d, const settings *wanted) {
  static const char *const options[2][2] = {{"none", "directio"}, {"asynch", "setall"}};
  text word[16];
  skgfrpini(&d->se, &d->ctx, &d->wait, NULL, NULL);
  if (failed(d, wanted, "skgfrpini")) return false;
  snprintf((char *)word, sizeof word, "%s", options[wanted->queued][wanted->direct]);
  skgfrsetioparam(&d->se, &d->ctx, word, (ub4)strlen((char *)word));
  return true;
}

/* The file's kind, block size and extent, and what requests have to be multiples of. */
static bool measure(disk *d, const settings *wanted) {
  text name[skgfr_longest_name + 1];
  const size_t length = strlen(wanted->file);
  const size_t named = skgfr_protect_name((const text *)wanted->file, length, name, sizeof name);
  struct stat status;
  if (named == 0 || stat(wanted->file, &status) != 0) {
    nbdkit_error("%s: %s", wanted->file, named ? strerror(errno) : "the name is too long");
    return false;
  }
  const bool direct = wanted->direct || !S_ISREG(status.st_mode); /* devices always are */
  const size_t block =
      wanted->header ? skgfglbsz(&d->se, &d->ctx, name, named, skgfrfOSFILE) : wanted->block_size;
  if (failed(d, wanted, "no header")) return false;
  d->fib = allocate(sizeof(void *), skgfrgsz(skgfrsFIB));
  d->fib->ftype_skgfrfib = skgfrfOSFILE;
  d->fib->lblksiz_skgfrfib = block;
  d->fib->flags_skgfrfib = wanted->header ? 0 : skgfrbNOHEADER;
  const skgfrr found = skgfifi(&d->se, &d->ctx, d->fib, name, named);
  if (found != skgfrrSZERR && failed(d, wanted, "skgfifi")) return false;
  skgfr_find_reach(&d->se, &d->ctx, d->fib, &d->reach);
  if (failed(d, wanted, "skgfr_find_reach")) return false;

  const ub8 bytes = skgfgfsz(&d->se, &d->ctx, name, named);
  if (failed(d, wanted, "skgfgfsz")) return false;
  size_t sector = 1;
  if (direct) {
    sector = skgfr_sector_size(&d->se, &d->ctx, name, named);
    if (failed(d, wanted, "skgfr_sector_size")) return false;
  }
  d->minimum = (uint32_t)(sector > block ? sector : block);
  d->size = d->reach.bytes - d->reach.bytes % d->minimum;
  if (d->minimum & (d->minimum - 1)) {
    nbdkit_error("%s: blocks of %u bytes: clients know powers of two only", wanted->file,
                 d->minimum);
  } else if (d->reach.offset % sector != 0) {
    nbdkit_error("%s: blocks of %zu bytes behind a header do not fit sectors of %zu", wanted->file,
                 block, sector);
  } else if (bytes >= d->reach.offset + d->reach.bytes + block) {
    nbdkit_error("%s: more blocks of %zu bytes than requests can count", wanted->file, block);
  } else {
    return true;
  }
  return false;
}

static skgfriov *open_handle(disk *d, const settings *wanted, ub4 flags) {
  skgfriov *const handle = allocate(sizeof(void *), skgfrgsz(skgfrsIOV));
  skgfofi(&d->se, &d->ctx, d->fib, handle, wanted->queued ? queue_depth : 0, flags);
  if (!failed(d, wanted, "skgfofi")) {
    if (!wanted->queued || handle->maxaio_skgfriov > 0) return handle;
    nbdkit_error("%s: no asynchronous requests here, use queue=sync", wanted->file);
    skgfcfi(&d->se, &d->ctx, handle);
  }
  free(handle);
  return NULL;
}

static bool open_handles(disk *d, const settings *wanted, bool readonly) {
  d->plain = open_handle(d, wanted, readonly ? 0 : skgfofiWRITE);
  if (!d->plain || readonly) return d->plain;
  d->durable = open_handle(d, wanted, skgfofiWRITE | skgfofiDSYNC);
  return d->durable;
}

disk *disk_open(const settings *wanted, bool readonly) {
  disk *const d = allocate(_Alignof(disk), sizeof *d);
  d->flushed = -1;
  pthread_mutex_lock(&one_at_a_time);
  const bool opened = open_for_flushing(d, wanted) && start_context(d, wanted) &&
                      measure(d, wanted) && open_handles(d, wanted, readonly);
  pthread_mutex_unlock(&one_at_a_time);
  if (opened) return d;
  disk_close(d);
  return NULL;
}

static void close_handle(disk *d, skgfriov *handle) {
  if (!handle) return;
  skgfcfi(&d->se, &d->ctx, handle);
  if (d->se.slercoer) nbdkit_error("skgfcfi: code %d", d->se.slercoer);
  free(handle);
}

void disk_close(disk *d) {
  pthread_mutex_lock(&one_at_a_time);
  close_handle(d, d->durable);
  close_handle(d, d->plain);
  skgfr_end_context(&d->se, &d->ctx);
  pthread_mutex_unlock(&one_at_a_time);
  if (d->se.slercoer) nbdkit_error("skgfr_end_context: code %d", d->se.slercoer);
  if (d->flushed >= 0) close(d->flushed);
  free(d->fib);
  free(d);
}

int disk_flush(disk *d) {
  if (fdatasync(d->flushed) == 0) return 0;
  nbdkit_error("flush: %m");
  nbdkit_set_error(errno);
  return -1;
}
