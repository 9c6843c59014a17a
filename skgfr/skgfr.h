/* The file I/O layer: every operation with its contract.
 *
 * A client initialises one context (skgfrpini, skgfrsini), identifies a file (skgfifi), opens it
 * (skgfofi), queues requests (skgfqio) and closes it (skgfcfi). Names are normalised by slnrm
 * first, into 512 characters. Compiles as C11 (with _GNU_SOURCE) and as C++17; every function has C
 * linkage.
 *
 * Threads: one thread at a time uses a context and the records opened through it; nothing is
 * locked. Several contexts may each have a thread of their own. They share what the process keeps: the
 * signal registry, the search list of names and libaio's entry points, which the first initialisation
 * and the first normalisation of a name fill, so one thread does these first; and the system's own
 * environment, limits and record locks.
 *
 * Descriptors: whatever the layer opens has a number above 2, also where the client has closed
 * standard input, output or error.
 *
 * Records: every operation that takes an slerc clears it on entry; requests, the calls that collect
 * them, and look-ups clear slercoer alone. A record that is used again there keeps slercerrno and
 * the words of an earlier failure, so slercoer decides whether they mean anything. On failure it holds
 * the code; "27041 (3), errno" below means: code 27041, first detail word 3, slercerrno = errno of the
 * call that failed. Words and fields not mentioned are 0. A failed name normalisation is
 * "27036 (code, n)": the normaliser's code in the first word, n in the second; slercerrno and the
 * third word stay as the normaliser left them. A bad seal is "27050 (n, seal)": the seal found in
 * the second word.
 *
 * Short transfers: one that came up short without a system error reports slercerrno 0 and the bytes
 * that it moved (27072: third word; 27085: first). To learn why, queue the blocks that are missing
 * again: the system then says what stopped it (ENOSPC, EIO), or moves nothing at the end of the file.
 */
#ifndef SKGFR_SKGFR_H
#define SKGFR_SKGFR_H

#include "skgfr/asynchronous.h"
#include "skgfr/discovery.h"
#include "skgfr/records.h"
#include "sysl/sysl.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Sizes and capabilities ---- */

/* The bytes to allocate for a record with its private extension; 0 for any other type. */
size_t skgfrgsz(skgfrs type);

/* 1 for skgfraGETNEXT and skgfraASYNCIO, 0 for everything else. */
uword skgfrqib(skgfrctx *ctx, skgfra attribute);

/* ---- Context ---- */

/* First initialisation: lists, limits, the wake-up signal, the kernel asynchronous-I/O context, and
 * three questions to the client ("cluster_database", "_enable_list_io",
 * "_check_block_after_checksum").
 *
 * ctx: zeroed and filled. cidp: receives the process id. cbk, cbctx: the client's table and
 * context, kept by reference; both may be null. The wake-up signal (SIGWINCH) then ends blocked system
 * calls of the process instead of restarting them; where the process had a handler with SA_RESTART
 * before, only up to the first such signal, but for the layer's own waits, which always end. The
 * thread's signal mask stays as it was; a thread that blocks the signal is not woken. A missing libaio is no error: requests are then
 * synchronous. Fails, with a context that cannot be used, with
 *   27078 (1), errno   the open-files limit cannot be read
 *   27032 (1), errno   the file-size limit cannot be read
 * and, with a context that is complete but for the wake-up signal, with
 *   27048              the signal's handler could not be registered
 *   27049 (1), errno   its action cannot be read
 *   27049 (2), errno   its action cannot be changed
 */
void skgfrpini(slerc *se, skgfrctx *ctx, skgfrwcx *cidp, const skgcb *cbk, skgcbctx *cbctx);

/* Second initialisation: asks "filesystemio_options" and sets asynchronous and direct I/O on
 * file-system files by the answer's first letter: A asynchronous, D direct, S both, else none.
 * Uses the context's own table; the other arguments are ignored. Never fails. */
void skgfrsini(slerc *se, skgfrctx *ctx, skgfrwcx *cidp, const skgcb *cbk, skgcbctx *cbctx);

/* The same choice from an option word given directly (null: none); len is not used. Never fails. */
void skgfrsetioparam(slerc *se, skgfrctx *ctx, text *iotype, ub4 len);

/* Default of the option for a parameter manager: stores "none" in 6 bytes from allocmem through
 * retval and 4 through len. Returns 0, or 1 without storing when there is no memory. */
uword skgfrioparamcb(lrmctx *ctx, void **retval, uword *len, void *dctx, skgfrallocmem allocmem,
                     void *memctx);

/* Whether kernel asynchronous I/O completes on fd, by reading its first 4096 bytes, which disks with
 * large sectors take; 512 of them have to be there. FALSE after three waits of 10 seconds that stayed
 * quiet or were interrupted. */
boolean skgfr_aiosupported(skgfrctx *ctx, int fd);

/* Whether an open descriptor of a file with this st_mode (0: not known) counts as direct I/O. */
boolean skgfr_cfsdirectiofd(skgfrctx *ctx, int fd, mode_t mode);

/* The extra open flags for a file: O_DIRECT or 0. mode is its st_mode (0: not known), flags its
 * flags_skgfrfib. ctx may be null. */
int skgfr_cfsdirectio(skgfrctx *ctx, const char *fname, mode_t mode, ub1 flags);

/* The handler of the wake-up signal: does nothing; its arrival ends a blocking wait. */
void skgfrsigwinch(sword sig, void *ctx);

/* ---- Block 0 ---- */

/* Builds block 0 in bp, blksiz zeroed bytes. fsiz: blocks behind block 0. ftyp: the file's skgfrf;
 * skgfrfDCVT builds it in the other byte order. The old layout is built when the client asks for it
 * or there is no callback table.
 * Fails with 27044 (8), errno, when the old layout finds no memory; bp then holds the current one.
 */
void skgfrfhblk(slerc *se, skgfrctx *ctx, void *bp, ub4 fsiz, size_t blksiz, uword ftyp);

/* Whether blen bytes at bp hold a valid header of either layout. ctx is not used. */
boolean skgfrchkhdr0(skgfrctx *ctx, void *bp, size_t blen);

/* The logical block size in bytes that the header at bp (44 bytes at least, 512 when checksums are
 * kept) records. For skgfrfDCVT its byte order is swapped in place first; an old layout is
 * converted in place. Fails with 27047 (7) and 0 on an invalid header. */
dsize_t skgfrgbsz(slerc *se, skgfrctx *ctx, skgfrf ftype, void *bp);

/* Rewrites an old-layout header in place into the current layout; the check value covers 512 bytes.
 */
void skgfrhblk_cvtpre10(skgfrctx *ctx, skgfrhblk *hbp);

/* Builds the old-layout block p10bp, one whole block whose first 24 bytes are zero, from a current
 * header. */
void skgfrhblk_writepre10(skgfrctx *ctx, skgfrhblk *hbp, skgfrhblkv9 *p10bp);

/* Swaps the byte order of every header field in place; in the old layout when the client answers
 * "_xtts_allow_pre10" with a non-zero value. */
void skgfrbcvt(skgfrctx *ctx, void *bp);

/* Rewrites block 0 of an open file in the current layout from its information block; of a file of
 * type skgfrfDCVT in the other byte order.
 *
 * The file position moves behind block 0. Nothing is flushed. Fails with
 *   27050 (2, seal)    the handle is not open
 *   27044 (9), errno   no memory; EINVAL, with nothing written, when the file has no header or was
 *                      identified without a block size
 *   27043 (6), errno   seek
 *   27044 (10), errno  write
 */
void skgfrupd_blk0_v10(slerc *se, skgfrctx *ctx, skgfriov *iov);

/* ---- Identification and sizes ---- */

/* Identifies the named file (fnamel bytes, outside fib) and fills fib.
 *
 * The client has set fib's type, logical block size and flags. The file is opened read-only for
 * the call; block 0 is read only when the block size is 0. skgfrrOK and skgfrrSZERR seal fib, the
 * latter with 27046 (1): the file's size is not a whole number of blocks. Fails, with fib not
 * sealed, with skgfrrNOTFOUND when there is no such file and skgfrrERROR otherwise:
 *   27035 (size, 2)     the block size is not a multiple of 512, or over 16384
 *   27036 (code, 2)     name
 *   27037 (3), errno    stat
 *   27037 (5)           a FIFO or a directory
 *   27041 (2), errno    open
 *   27036 (12), errno   the canonical name of a file on NFS
 *   27037 (13), errno   stat of a directory above it
 *   27054 (1)           no directory above it lies on another device
 *   27054 (2), errno    the mount table
 *   27054 (3)           mount options, told in two alerts
 *   27043 (2), errno    seek
 *   27047 (1), errno    short read of block 0
 *   27047 (2)           no valid header
 *   27045 (2), errno    close
 */
skgfrr skgfifi(slerc *se, skgfrctx *ctx, skgfrfib *fib, text *fnamep, size_t fnamel);

/* The size of the named file or device in bytes.
 *
 * Fails, with all bits of the result set, with
 *   27036 (code, 10)   name
 *   27037 (8), errno   stat
 *   27037 (4)          a FIFO or a directory
 *   27041 (6), errno   opening a device
 *   27072 (1), errno   the device's size cannot be found; errno 0: it says that it is empty
 */
ub8 skgfgfsz(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel);

/* The logical block size in bytes that block 0 of the named file records; ftype as for skgfrgbsz.
 *
 * Fails, with all bits of the result set, with
 *   27036 (code, 5)    name
 *   27037 (7), errno   stat
 *   27041 (7), errno   open
 *   27043 (5), errno   seek; of a FIFO: ESPIPE, at once
 *   27047 (3), errno   short read
 *   27047 (4)          no valid header
 * and with the block size all the same with
 *   27045 (6), errno   close
 */
size_t skgfglbsz(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel, skgfrf ftype);

/* The byte offset of block 1 of the named file (fnamel bytes), read from its block 0.
 *
 * Fails, with all bits of the result set, with
 *   27036 (code, 7)    name
 *   27037 (14), errno  stat
 *   27041 (8), errno   open
 *   27043 (3), errno   seek; of a FIFO: ESPIPE, at once
 *   27047 (5), errno   short read
 *   27047 (6)          no valid header
 *   27045 (7), errno   close
 */
size_t skgfgb1off(slerc *se, text *fnamep, size_t fnamel);

/* Raises the process's soft open-files limit to the hard one.
 *
 * Returns the context's new ceiling of open files, 32 less than the limit. maxneed is not used.
 * Fails, with 0 and the context untouched, with
 *   27074, errno       the limit cannot be read
 *   27075              the hard limit is 32 or less
 *   27076, errno       the limit cannot be raised
 */
ub4 skgfrofl(slerc *se, skgfrctx *ctx, ub4 maxneed);

/* ---- Device sizes ----
 *
 * These take a descriptor that stays the caller's, use no file position and no error record; errno
 * is as the last failing call left it. Sizes are in bytes; 0 means unknown. */

/* The size of a device: by its size request, by its raw binding, or by probing. The first that
 * answers wins; when its answer is 0, errno is that of its own failing call, or 0. */
off64_t skgfgrs(sword fd);

/* The same through res; always returns 0. */
int skgfgrswpc(sword fd, off64_t *res);

/* By the size request (BLKGETSIZE of linux/fs.h, in sectors of 512 bytes; BLKGETSIZE64 where their
 * number does not fit a word). 0, or -1 with *res untouched. */
int skgfgrsbdev(int fd, off64_t *res);

/* Of a raw device, by the block device it is bound to (RAW_GETBIND on /dev/rawctl). 0 or -1. */
int skgfgrsraw(int fd, off64_t *res);

/* Of the block device with these numbers. 0 or -1. */
int skgfgrsbid(int major, int minor, off64_t *res);

/* Opens the block device with these numbers read-only, found in /proc/partitions. A descriptor that
 * the caller closes, or -1. */
int skgfgrsobid(int major, int minor);

/* By reading: doubles from 16 GiB until a read fails, then halves. 0 with errno EIO when 100 reads
 * or the range of offsets do not suffice. */
off64_t skgfgrsbs(sword fd);

/* ---- Creation and resize ---- */

/* Flags of skgfrcre. */
enum {
  skgfrcreNOHEADER = 0x01, /* no block 0 is written; the size is nblocks */
  skgfrcreMKDIRS = 0x04    /* make missing directories, with permission bits 0700 */
};

/* Creates the named file, or takes over an existing device, and writes block 0.
 *
 * lblksiz: bytes in a block. nblocks: blocks behind block 0; all ones: no length is set. type
 * matters for skgfrfDCVT only. Data blocks are not written. On return block 0 is on stable storage,
 * and so are a new file's length, its entry in its folder and the folders made for it: the folder has
 * to be readable. A file that this call created is removed again when it fails, but for a failing
 * close, or when another file has taken its name meanwhile: that one is neither changed nor removed.
 * Fails with
 *   27035 (size, 1)    the block size is 0, not a multiple of 512, or over 16384
 *   27036 (code, 1)    name
 *   27037 (1), errno   stat
 *   27038 (1)          exists and is no device
 *   27044 (1), errno   no memory
 *   27039 (3)          over the process's file-size limit
 *   27054 (0), errno   a directory could not be made
 *   27038 (2), errno   appeared meanwhile
 *   27040 (0), errno   creation, or turning to direct I/O
 *   27037 (2), errno   stat of the new file
 *   27041 (1), errno   opening the device
 *   27042 (1)          the device is too small; nothing is written
 *   27043 (1), errno   seek
 *   27044 (2), errno   no memory for the old layout
 *   27044 (3), errno   write
 *   27044 (4), errno   setting the length, or flushing the file or its folders
 *   27045 (1), errno   close
 */
void skgfrcre(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel, skgfrf type, size_t lblksiz,
              ub4 nblocks, ub1 flags);

/* Resizes an identified file to nblocks blocks behind block 0 and rewrites block 0.
 *
 * All ones for nblocks: no length is set. Updates fib's sizes. A device keeps its size and may only
 * be made to look smaller. Nothing is flushed; what was written before a failure stays. Fails with
 *   27050 (7, seal)    not identified
 *   27035 (0, 3)       no block size in fib
 *   27037 (9), errno   stat
 *   27046 (2)          the size now is not a whole number of blocks
 *   27039 (4)          over the process's file-size limit
 *   27041 (4), errno   open
 *   27044 (5), errno   no memory
 *   27043 (4), errno   seek
 *   27044 (6), errno   no memory for the old layout
 *   27044 (7), errno   write
 *   27059 (2), errno   setting the length
 *   27042 (2)          the device tells no size, and the last block cannot be read; fib's last block is
 *                      then 0
 *   27042 (3)          the device is smaller; fib's last block is then 0
 *   27045 (4), errno   close; fib is updated
 */
void skgfrsz(slerc *se, skgfrctx *ctx, skgfrfib *fib, ub4 nblocks);

/* Recomputes the size of an identified file in fib.
 *
 * Fails with
 *   27050 (8, seal)    not identified
 *   27035 (0, 4)       no block size in fib
 *   27037 (10), errno  stat
 *   27046 (3)          the size is not a whole number of blocks
 *   27041 (5), errno   open
 *   27045 (5), errno   close; fib is updated
 */
void skgfrfb(slerc *se, skgfrctx *ctx, skgfrfib *fib);

/* Makes the next count opens of the file, or checked requests on it, fail; 65535: all, without end.
 *
 * Identification forgets it. Fails with 27050 (9, seal). */
void skgfrser(slerc *se, skgfrctx *ctx, skgfrfib *fib, ub2 count);

/* ---- Handles ---- */

/* Flags of skgfofi. */
enum {
  skgfofiWRITE = 0x02,   /* read-write; else read-only */
  skgfofiDSYNC = 0x04,   /* synchronous data writes; a device is not flushed in any other way */
  skgfofiDSYNC2 = 0x08,  /* the same */
  skgfofiNOMIRROR = 0x20 /* call skgfrersr on the handle */
};

/* Opens an identified file into iov; a handle that is open is closed first.
 *
 * inmaxaio: asynchronous requests wanted at once. EIO is retried five times, a second apart, and
 * reported through the client's trace. Of closing the previous file only 27045 is told; close it
 * with skgfcfi to hear of a failing flush. Fails, with iov as it was, with
 *   27050 (1, seal)        the file is not identified
 *   27051 (1)              forced failure
 *   27077                  as many files are open as may be
 *   27092 (limit, needed)  over the process's file-size limit, both in blocks
 *   27073 (count)          so many asynchronous requests are outstanding on the handle
 *   27045 (3), errno       closing the handle's previous file, as with skgfcfi
 * and, with iov not open, with
 *   27041 (3), errno       open
 *   27060, errno           close-on-exec
 */
void skgfofi(slerc *se, skgfrctx *ctx, skgfrfib *fib, skgfriov *iov, uword inmaxaio, ub4 flags);

/* Closes a handle; a file that was not opened for synchronous writes is flushed first. Nothing is
 * flushed on a device: see skgfsync.
 *
 * The flush is an fsync of the whole file: it waits for all that anybody wrote to it, also when the
 * handle only read. A handle opened with skgfofiDSYNC, which costs nothing where nothing is written,
 * is closed without. The process's locks on the file end.
 *
 * What the system reports only at a close (a network file system: writes that it could not deliver)
 * is brought out while a handle that may write still has its descriptor. After 27045 iov is open, its
 * descriptor works, and another close succeeds unless there is something new to report; but the
 * process's locks on the file are gone, as after any close of it: take them again with skgfglk.
 * Fails with
 *   27050 (2, seal)    the handle is not open
 *   27073 (count)      so many asynchronous requests are outstanding; iov stays open and is marked
 *   27045 (3), errno   close; iov stays open
 *   27052 (1), errno   flush, or a close that took the descriptor: of a handle that cannot write, after
 *                      one that reported nothing, or with no descriptor free to try it first; iov is
 *                      closed nevertheless
 */
void skgfcfi(slerc *se, skgfrctx *ctx, skgfriov *iov);

/* Locks the whole file, shared or exclusive, without waiting.
 *
 * A read-only handle takes a shared lock in either case. The lock ends with skgfrlk or with any
 * close of the file in this process: identifying, measuring or resizing it closes it, too. In 27086
 * slercerrno is that of the refusal. Fails with
 *   27050 (11, seal)           the handle is not open
 *   27088 (10), errno          its access mode cannot be read
 *   27087 (9)                  a shared lock on a write-only handle
 *   27086 (8, process), errno  another process holds the lock
 *   27086 (9, error), errno    refused, and asking for the holder failed with that error
 *   27086 (10), errno          refused, and nobody holds it any more
 */
void skgfglk(slerc *se, skgfrctx *ctx, skgfriov *iov, boolean share);

/* Releases the lock. Fails with 27050 (12, seal) or 27089 (11), errno. */
void skgfrlk(slerc *se, skgfrctx *ctx, skgfriov *iov);

/* Flushes what was written through a handle of a file; does nothing where it was opened for
 * synchronous writes, and nothing on a device.
 *
 * A device that was not opened with skgfofiDSYNC is thus never flushed, neither here nor at its close:
 * what was written may be lost with the power, in the cache of the disk or of a character device's
 * driver. Open with skgfofiDSYNC what is to be on stable storage.
 * Fails with 27050 (3, seal) or 27052 (2), errno. */
void skgfsync(slerc *se, skgfrctx *ctx, skgfriov *iov);

/* How a vectored request on the handle is best presented.
 *
 * Fails, with skgfrnMEMCPY, with
 *   27050 (6, seal)    the handle is not open
 *   27057              an asynchronous question on a synchronous handle
 *   27058              no such question
 */
skgfrn skgfask(slerc *se, skgfrctx *ctx, skgfriov *iov, skgfrq question);

/* ---- Deletion ---- */

/* Deletes the named file; a device is left alone, with skgfrrOK. type is not used.
 *
 * Fails, with skgfrrNOTFOUND for ENOENT and skgfrrERROR otherwise, with
 *   27036 (code, 4)    name
 *   27037 (6), errno   stat
 *   27056, errno       unlink
 */
skgfrr skgfrdel(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel, skgfrf type);

/* Deletes the named directory (destl bytes), or only the link when the name is a link to one.
 *
 * Fails, with skgfrrNOTFOUND when stat says ENOENT and skgfrrERROR otherwise, with
 *   27036 (code, 11)   name
 *   27037 (11), errno  stat
 *   27037 (12)         not a directory
 *   27093, errno       rmdir
 *   27056, errno       unlink of the link
 */
skgfrr skgfrddel(slerc *se, text *dest, size_t destl);

/* ---- Requests ---- */

/* Flags of skgfqio and skgfrvldtrq. */
enum {
  skgfqioASYNC = 0x01,  /* submit; completions are collected later */
  skgfqioVECTOR = 0x02, /* every request carries a buffer vector */
  skgfqioREAD = 0x04,   /* read into the buffers; else write from them */
  skgfqioPREPARE = 0x10 /* prepare control blocks also without skgfqioASYNC */
};

/* Performs every request on the list headed by reqhdr, in order.
 *
 * Returns 0 when all of them completed, else 1. Each request's status block tells its own outcome
 * and points to its own error record. List, records and buffers stay the client's. A request fails
 * as skgfrvldtrq says, or, with skgfriBADREQ, with
 *   27067 (1, length)      a vector's buffer: as 27067 below
 *   27068 (1, address)     a vector's buffer: as 27068 below
 *   27066 (buffers, 128)   a vector too long, where checking is off
 *   27069 (block, blocks, last)  a vectored write that would end behind the file's last block, where
 *                          checking is on and the end is known; slercerrno stays as it was
 * or, with skgfriIOERROR, with
 *   27071 (block), errno            seek
 *   27072 (3, block, bytes), errno  a vectored transfer failed or came up short
 *   27072 (4, block, bytes), errno  a plain one
 *   27072 (5, block, bytes), errno  one that was asynchronous, on a file that does none
 *   27070 (1, block), errno         the submission of one request
 *   27070 (2), errno                the submission of a list: a request that the kernel took and gave
 *                                   back with an error, or the first of a list of which it took
 *                                   nothing, for a reason that waiting does not change
 * A submitted request is skgfriPEND until a call below delivers it. One that finds no room, or stands
 * behind one that failed so, is skgfriLATER, without an error: queue it again after collecting
 * completions.
 */
uword skgfqio(skgfrctx *ctx, kgglk *reqhdr, ub4 flags);

/* Examines requests from *req on until req_num are accepted into valid, or the list ends.
 *
 * *nval receives their count and *req the next request to examine, null at the end. When aio_array
 * is not null each accepted request's control block is prepared and stored at the same index.
 * Returns TRUE when a request was refused: with skgfriIOERROR for 27051 and skgfriBADREQ otherwise.
 * 27050 and 27069 leave slercerrno as it was.
 *   27050 (10, file's seal, handle's seal)  not identified or not open
 *   27051 (2)                    forced failure
 *   27064                        asynchronous, on a synchronous handle
 *   27065                        asynchronous, with a vector
 *   27066 (buffers, most)        the vector is too long
 *   27067 (2, length)            0, not a whole number of blocks, or over 1 MiB
 *   27068 (2, address)           not a multiple of 512
 *   27068 (3, address)           the block size is unknown, and the block is not 1
 *   27069 (block, count, last)   it begins before the file's first block or ends behind its last; a
 *                                vector counts 0 blocks here; a last of all ones bounds nothing
 */
boolean skgfrvldtrq(kgglk *reqhdr, ub4 flags, skgfrctx *ctx, ub4 req_num, skgfrrq **req,
                    skgfrrq **valid, aiocb64 **aio_array, ub4 *nval);

#ifdef __cplusplus
}
#endif

#endif
