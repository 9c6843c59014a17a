/* What clients need beside the operations: limits and codes by name, lists of requests, names taken
 * literally, the bytes that requests can reach, the sector size, and the end of a context.
 *
 * Beside skgfr.h, not part of it: nothing here changes how an operation there works. Errors, records and
 * threads as the opening comment of skgfr.h tells.
 */
#ifndef SKGFR_CLIENT_H
#define SKGFR_CLIENT_H

#include "skgfr/skgfr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Limits ---- */

enum {
  skgfr_alignment = 512,            /* of a buffer's address, in bytes */
  skgfr_longest_transfer = 1 << 20, /* of one buffer, in bytes */
  skgfr_longest_vector = 16,        /* buffers in one vectored request */
  skgfr_longest_name = 512,         /* of a normalised name, in characters */
  skgfr_largest_block = 16384       /* logical block, in bytes; block sizes are multiples of 512 */
};

/* ---- Codes ----
 *
 * The values of slercoer, by what went wrong; docs/errors.md has the places and what to do. */

typedef enum skgfr_code {
  skgfr_discovery_no_access = 15025,
  skgfr_discovery_failed = 15031,
  skgfr_discovery_wrong_kind = 15059,
  skgfr_size_limit_unreadable = 27032,
  skgfr_bad_block_size = 27035,
  skgfr_bad_name = 27036,
  skgfr_bad_file = 27037, /* its status cannot be read, or it is of the wrong kind */
  skgfr_exists = 27038,
  skgfr_over_size_limit = 27039,
  skgfr_not_created = 27040,
  skgfr_not_opened = 27041,
  skgfr_device_too_small = 27042,
  skgfr_header_not_reached = 27043, /* seek */
  skgfr_header_not_written = 27044,
  skgfr_not_closed = 27045,
  skgfr_uneven_size = 27046,
  skgfr_bad_header = 27047,
  skgfr_wakeup_not_registered = 27048,
  skgfr_wakeup_not_set = 27049,
  skgfr_not_identified_or_open = 27050,
  skgfr_forced_failure = 27051,
  skgfr_not_flushed = 27052,
  skgfr_bad_directory = 27054, /* not made, or its mount options are unsafe */
  skgfr_not_deleted = 27056,
  skgfr_question_synchronous = 27057,
  skgfr_question_unknown = 27058,
  skgfr_not_resized = 27059,
  skgfr_close_on_exec_not_set = 27060,
  skgfr_completed_with_error = 27061,
  skgfr_handle_synchronous = 27064,
  skgfr_vector_asynchronous = 27065,
  skgfr_vector_too_long = 27066,
  skgfr_bad_length = 27067,
  skgfr_bad_address = 27068, /* not aligned, or a block that cannot be found */
  skgfr_out_of_bounds = 27069,
  skgfr_not_submitted = 27070,
  skgfr_position_not_reached = 27071,
  skgfr_not_transferred = 27072, /* failed or short; or a device's size is unknown */
  skgfr_requests_outstanding = 27073,
  skgfr_open_limit_unreadable = 27074,
  skgfr_open_limit_too_low = 27075,
  skgfr_open_limit_not_raised = 27076,
  skgfr_too_many_open = 27077,
  skgfr_open_limit_unreadable_at_start = 27078,
  skgfr_not_collected = 27083,
  skgfr_completed_short = 27085,
  skgfr_locked = 27086,
  skgfr_lock_needs_reading = 27087,
  skgfr_lock_mode_unreadable = 27088,
  skgfr_not_unlocked = 27089,
  skgfr_larger_than_limit = 27092,
  skgfr_directory_not_deleted = 27093
} skgfr_code;

/* ---- Lists of requests ---- */

/* Makes list the head of an empty list. */
static inline void skgfr_make_list(kgglk *list) { list->kgglknxt = list->kgglkprv = list; }

/* Appends a request that is on no list. List and request stay the client's. */
static inline void skgfr_append(kgglk *list, skgfrrq *request) {
  kgglk *const link = &request->link_skgfrrq;
  link->kgglknxt = list;
  link->kgglkprv = list->kgglkprv;
  list->kgglkprv->kgglknxt = link;
  list->kgglkprv = link;
}

/* ---- Names ---- */

/* Writes name (namel bytes) so that every operation takes it literally: a backslash before each "@", "?",
 * "$" and backslash. out: outsize bytes apart from name, NUL-terminated; 2 * namel + 1 always suffice.
 *
 * Returns the length written, without the NUL; 0, with out untouched, when it does not fit or name is
 * empty. What a name is relative to, and that ".." is refused, does not change: hand in an absolute,
 * resolved one. */
size_t skgfr_protect_name(const text *name, size_t namel, text *out, size_t outsize);

/* ---- Sizes ---- */

/* The part of a file that requests can reach. */
typedef struct skgfr_reach {
  ub8 offset; /* byte at which the first block lies */
  ub8 bytes;  /* in these blocks */
  ub4 first;  /* number of the first block: 0 for skgfrfKDV, else 1 */
  ub4 blocks; /* how many; at most all ones, as block numbers have 32 bits */
} skgfr_reach;

/* What requests on an identified file can reach; a file of a header alone has no blocks yet.
 *
 * Measures the file anew. A file that shrank reaches as far as it still is; one that grew reaches no
 * farther before it is identified again (skgfifi, skgfrfb), because requests are held against the size
 * found then. Whole blocks only: bytes past the last one do not count. Fails, with reach untouched, with
 *   27050 (13, seal)   not identified
 *   27035 (0, 5)       no block size in fib
 * or as skgfgfsz does. */
void skgfr_find_reach(slerc *se, skgfrctx *ctx, skgfrfib *fib, skgfr_reach *reach);

/* The sector size of the named file or device in bytes: what offsets and lengths of direct I/O are multiples
 * of. A device answers itself (BLKSSZGET of linux/fs.h); a file as its file system does (STATX_DIOALIGN of
 * linux/stat.h) or the device below it, when it may be opened; 512 where nothing tells. ctx is not used.
 *
 * Fails, with 0, with
 *   27036 (code, 13)   name
 *   27037 (15), errno  stat
 *   27041 (9), errno   opening a device */
size_t skgfr_sector_size(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel);

/* ---- The end of a context ---- */

/* Gives back what a context holds of the system: the kernel's room for 1024 asynchronous requests, of which
 * a machine has a limited number (fs.aio-max-nr).
 *
 * Close the context's files first. The record is then all zeros, as before its first initialisation, and
 * can be initialised again; one that holds nothing any more is ended with success. The wake-up handler stays
 * registered, as other contexts may wait. Waits for nothing. Fails, with the context as it was, with
 *   27073 (requests, files)  so many requests are not collected, and so many files not closed
 *   27083, EBUSY             the kernel still holds a probe for asynchronous I/O (skgfr_aiosupported) that
 *                            was given up; the context ends once that has completed
 *   27083, errno             the kernel refused: EINVAL in a child of the process that initialised it */
void skgfr_end_context(slerc *se, skgfrctx *ctx);

#ifdef __cplusplus
}
#endif

#endif
