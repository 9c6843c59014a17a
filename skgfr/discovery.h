/* Operations on many files at once, and on the devices behind a file.
 *
 * Part of skgfr.h, whose opening comment explains how errors and threads are told here.
 */
#ifndef SKGFR_DISCOVERY_H
#define SKGFR_DISCOVERY_H

#include "skgfr/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Discovery and search ---- */

/* The default discovery string: every node in /dev/raw. */
extern const text skgfrdscdflt[];

/* Expands a discovery string, a name pattern with shell wildcards, and examines every match.
 *
 * str: NUL-terminated; empty: the default. Variables and a leading "?" are translated; other "?",
 * "*" and brackets are wildcards. mem, memctx: allocate the result, which is the client's; freef is
 * not called. rawonly: accept a regular file on NFS only. Sets slercoer to 0. Fails, with null,
 * with
 *   15031 (41), EINVAL         str is null
 *   15031 (41), ENAMETOOLONG   its escaped form exceeds 512 characters
 *   15031 (42), errno          the pattern could not be expanded
 * or as slnrm does. With
 *   15031 (42), ENOMEM         mem answered null
 * the result is what was built so far, consistent, or null when that is nothing. Its string may
 * then be null, or its first match have no path and this failure in se_skgfrstat.
 */
skgfrdsc *skgfrdscdevs(slerc *se, skgfrctx *ctx, const text *str, void *memctx, skgfralloccb3 mem,
                       skgfrfreecb3 freef, boolean rawonly);

/* Examines the device or file that path_skgfrstat names and fills the fields from flags_skgfrstat
 * on. TRUE on success. Fails, with FALSE and the fields as they were, with
 *   15025 (42), errno   it may not be read and written
 *   27037 (42), errno   stat or statfs
 *   15059 (42), type    neither a device nor an acceptable file; slercerrno is its type bits
 *   27041 (42), errno   opening a device
 * or as skgfgfsz does for a device whose size cannot be found.
 */
boolean skgfrdevstat(slerc *se, skgfrctx *ctx, skgfrstat *dstat, boolean rawonly);

/* Hands every file whose path begins with the name (fnpl bytes) to procfcb, with cbctx, or every
 * empty directory when lkempty is set; in directory order, depth first. What cannot be read is
 * skipped, and so is a directory that lies inside itself by way of links.
 *
 * The directory searched is the name cut behind its last "/"; a name without one, but for the first
 * character, finds nothing. Fails with 27036 (code, 6); code 0: the name is empty.
 */
void skgfrsfe(slerc *se, const text *fnp, size_t fnpl, boolean lkempty, void *cbctx,
              skgfrprfcb procfcb);

/* The walk of skgfrsfe from the object obj (objl bytes) on, with the normalised name fnp. TRUE when
 * it ran to its end, FALSE when procfcb stopped it. se is not touched. */
boolean skgfrsftw(slerc *se, const text *obj, size_t objl, const text *fnp, size_t fnpl,
                  boolean lkempty, void *cbctx, skgfrprfcb procfcb);

/* ---- Mirrors and device lists ----
 *
 * Files are never treated as mirrored on this platform, and lie on one device. */

/* Whether the handle's file is mirrored: always FALSE. Clears bit 0 of its flags_skgfrsfib; se is
 * not touched. */
boolean skgfrersr(slerc *se, skgfrctx *ctx, skgfriov *iov);

/* 1 when bit 0 of the file's flags_skgfrsfib is set, else 0. Sets slercoer to 0. */
uword skgfrmms(slerc *se, skgfrctx *ctx, skgfriov *iov);

/* The first side of a mirror read of block blkno into bufp: does nothing. Sets slercoer to 0. */
void skgfrfms(slerc *se, skgfrctx *ctx, skgfrmss *mss, skgfriov *iov, void *bufp, ub4 blkno);

/* The next side: always 0. Sets slercoer to 0. */
uword skgfrnms(slerc *se, skgfrctx *ctx, skgfrmss *mss, void *bufp);

/* The name of a side: always null; *len is not written. Sets slercoer to 0. */
text *skgfgmsn(slerc *se, skgfrctx *ctx, skgfrmss *mss, size_t *len);

/* How many devices hold an identified file: 1, with *ndevs set to 1; 0, with *ndevs as it was, when
 * its device is not known. Fails with 27050 (9, seal) and 0. */
uword skgfdlndv(slerc *se, skgfrctx *ctx, skgfrfib *fib, uword *ndevs);

/* The device that holds an identified file: 1, with its number as text in *devp; 0, with *devp as
 * it was, when it is not known. *nodp is never written. Fails with 27050 (9, seal) and 0. */
uword skgfdli(slerc *se, skgfrctx *ctx, skgfrfib *fib, skgfrdev *devp, skgfrnod *nodp);

#ifdef __cplusplus
}
#endif

#endif
