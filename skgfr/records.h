/* The file layer's records, enumerations and callback table, and the layout of block 0.
 *
 * The client allocates every record, zero-fills it before first use and owns it; the layer never
 * frees one. Records with a private extension are allocated with the size that skgfrgsz reports:
 * the extension lies behind the public record, at the next 4-byte boundary, and is valid while its
 * seal holds skgfrSEAL. The extensions stand here because clients allocate them and tools inspect
 * them; only the layer writes them.
 *
 * Knows nothing of how any operation works. Compiles as C11 (with _GNU_SOURCE) and as C++17.
 */
#ifndef SKGFR_RECORDS_H
#define SKGFR_RECORDS_H

#ifdef _AIO_H
#error "skgfr: not together with <aio.h>, which gives aiocb64 and LIO_WAIT other meanings"
#endif

#include <libaio.h>
#include <sys/types.h>

#include "sysl/sysl.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The seal of a valid private extension: the bytes "Qvox" in memory. */
#define skgfrSEAL 0x786F7651u

/* All ones: a size, limit or block count that is unknown or unbounded. */
#define skgfrUNKNOWN 0xFFFFFFFFu

/* ---- Enumerations ---- */

/* What a file is for. There is no 7. */
typedef enum skgfrf {
  skgfrfCONTROL = 1,
  skgfrfDATA = 2,
  skgfrfOLOG = 3,
  skgfrfALOG = 4,
  skgfrfTRC = 5,
  skgfrfTSORT = 6,
  skgfrfMISC = 8,
  skgfrfDBKUP = 9,
  skgfrfDIBKUP = 10,
  skgfrfABKUP = 11,
  skgfrfDFCOPY = 12,
  skgfrfINIT = 13,
  skgfrfDRC = 14,
  skgfrfKDV = 15, /* blocks are counted from 0: block 0 is not a header */
  skgfrfCT = 16,
  skgfrfFLOG = 17,
  skgfrfDUMP = 18,
  skgfrfDCVT = 19, /* the header is in the other byte order */
  skgfrfAUBKUP = 20,
  skgfrfOSFILE = 21, /* a plain operating-system file */
  skgfrfBDUMP = 22,
  skgfrfVTG = 23, /* cluster voting file */
  skgfrfKVS = 24  /* cluster registry file */
} skgfrf;

/* The records that skgfrgsz knows. */
typedef enum skgfrs { skgfrsIOV = 1, skgfrsFIB = 2, skgfrsISB = 3 } skgfrs;

/* Results of identification, deletion and wait calls. */
typedef enum skgfrr {
  skgfrrOK = 1,
  skgfrrNOTFOUND = 2,  /* no such file */
  skgfrrINTERRUPT = 3, /* interrupted: call again */
  skgfrrERROR = 4,     /* the error record tells why */
  skgfrrSZERR = 5      /* identified, but the size is not a whole number of logical blocks */
} skgfrr;

/* States of a request. */
typedef enum skgfri {
  skgfriPEND = 1,    /* submitted */
  skgfriDONE = 2,    /* completed */
  skgfriIOERROR = 3, /* failed; the request's error record tells why */
  skgfriLATER = 4,   /* not accepted now: submit it again */
  skgfriCANCEL = 5,
  skgfriBADREQ = 6 /* refused by validation; the request's error record tells why */
} skgfri;

/* Questions for skgfask, and its answers: how a vectored request is best presented. */
typedef enum skgfrq {
  skgfrqREADV = 1,
  skgfrqAREADV = 2,
  skgfrqWRITEV = 3,
  skgfrqAWRITEV = 4
} skgfrq;
typedef enum skgfrn {
  skgfrnVECBUF = 1, /* the layer uses the buffer vector as it is */
  skgfrnCHNREQ = 2, /* never answered */
  skgfrnMEMCPY = 3  /* gather the data into one contiguous buffer */
} skgfrn;

/* Capabilities that skgfrqib answers for. */
typedef enum skgfra {
  skgfraGETNEXT = 1,
  skgfraASYNCIO = 2,
  skgfraBSYNCIO = 3,
  skgfraFPREALLOC = 4
} skgfra;

/* ---- Callbacks ---- */

/* The client's callback context; opaque to the layer. */
typedef struct skgcbctx skgcbctx;

/* A parameter manager's context; opaque to the layer. */
typedef struct lrmctx lrmctx;

/* Allocates size bytes in the client's memory context; null when there is no memory. */
typedef void *(*skgfrallocmem)(void *memctx, size_t size);

/* The client's callback table. The whole table may be absent, and so may every slot that says so;
 * a client that passes a table fills trace, alert and pre10compat. */
typedef struct skgcb {
  /* Receives a printf format and its arguments: reports of retried opens. */
  size_t (*trace_skgcb)(skgcbctx *ctx, const char *fmt, ...);
  /* The same for warnings an administrator should see: file-system mount options. */
  size_t (*alert_skgcb)(skgcbctx *ctx, const char *fmt, ...);
  /* Never called. */
  void (*error_skgcb)(skgcbctx *ctx, const char *message, eword code);
  /* Answers a parameter by name; may be absent. The layer passes a variable that holds a default
   * through pval and, for texts, a pointer through pstr with the length through pval. The client
   * answers TRUE when it knows the parameter and stored its value; else FALSE, and stores defval
   * and defstr when they are not 0 and not null. hint is not used. */
  boolean (*getparam_skgcb)(skgcbctx *ctx, const text *name, uword *hint, void *pval, text **pstr,
                            const text *defstr, const size_t defval);
  /* Wait notifications and statistics; never called. */
  void (*beginwait_skgcb)(skgcbctx *ctx, sword event, ubig_ora p1, ubig_ora p2, ubig_ora p3);
  void (*endwait_skgcb)(skgcbctx *ctx, sword event, ubig_ora p1, ubig_ora p2, ubig_ora p3);
  void (*beginwait_resmgr_skgcb)(skgcbctx *ctx, sword event, ubig_ora p1, ubig_ora p2, ubig_ora p3);
  void (*endwait_resmgr_skgcb)(skgcbctx *ctx, sword event, ubig_ora p1, ubig_ora p2, ubig_ora p3);
  void (*kst_rec)(skgcbctx *ctx, ub2 event, ub1 kind, ub2 source, ub8 a, ub8 b, ub8 c, ub8 d, ub8 e,
                  ub8 f);
  void (*kst_rec_data)(skgcbctx *ctx, ub2 event, ub1 kind, ub2 source, void *data);
  sword (*sbt_evtnum_skgcb)(ub2 facility, ub2 number);
  /* The XOR of the 16-bit words of len bytes (an even number) at bp; may be absent, and check
   * values then stay 0. */
  ub2 (*bhxor_skgcb)(void *bp, size_t len);
  /* TRUE when headers are to be written in the old layout. */
  boolean (*pre10compat_skgcb)(void);
  /* Never called. */
  void (*stackdump_skgcb)(skgcbctx *ctx);
} skgcb;

/* ---- Lists ---- */

/* A link of an intrusive doubly linked list, the first field of its elements. A list head is a link
 * too; an empty list's head points to itself. */
typedef struct kgglk {
  struct kgglk *kgglknxt;
  struct kgglk *kgglkprv;
} kgglk;

/* ---- Context ---- */

/* The wait context of one process. */
typedef struct skgfrwcx {
  sword pid_skgfrwcx; /* process id */
} skgfrwcx;

/* Bits of flags_skgfrctx. */
enum {
  skgfrcKAIO = 0x1,       /* the kernel asynchronous-I/O context exists */
  skgfrcLISTIO = 0x2,     /* requests may be submitted as one list */
  skgfrcASYNC = 0x40,     /* asynchronous I/O on file-system files */
  skgfrcDIRECT = 0x80,    /* direct I/O on file-system files */
  skgfrcVALIDATE = 0x100, /* validate every request before it is performed */
  skgfrcCLUSTER = 0x200   /* cluster mode: direct I/O and mount-option checks on NFS */
};

/* The layer context, one per client: all state of the layer. */
typedef struct skgfrctx {
  const skgcb *cbk_skgfrctx;    /* the client's callback table; may be null */
  skgcbctx *cbctx_skgfrctx;     /* the client's callback context */
  sb4 sigwinchslot_skgfrctx;    /* signal-registry slot of the wake-up handler */
  ub8 limfsiz_skgfrctx;         /* file-size limit in bytes; all ones: unlimited */
  kgglk qdone_skgfrctx;         /* completed asynchronous requests, not yet collected */
  kgglk qsubmit_skgfrctx;       /* support probes that the kernel never completed; else empty */
  uword aiopend_skgfrctx;       /* asynchronous requests in flight */
  uword aiodone_skgfrctx;       /* requests on the done queue */
  sb4 maxlio_skgfrctx;          /* requests per list submission */
  ub4 maxopen_skgfrctx;         /* most files open at once; all ones until negotiated */
  ub4 curopen_skgfrctx;         /* files open through this context */
  ub4 flags_skgfrctx;           /* skgfrc bits */
  io_context_t ioctx_skgfrctx;  /* kernel asynchronous-I/O context */
  struct iocb **iocbs_skgfrctx; /* null; not used */
  ub4 maxaio_skgfrctx;          /* asynchronous requests per file; 0: none */
  kgglk conv_skgfrctx;          /* requests carried out synchronously, to be reported complete */
  ub2 lwm_skgfrctx;             /* low 16 bits of 40 % of the soft open-files limit; not read */
  sb2 addend_skgfrctx;          /* -1 */
  ub2 spare1_skgfrctx;          /* retries of the current open after EIO */
  ub4 spare2_skgfrctx;          /* errno of the last retried attempt */
} skgfrctx;

/* ---- File information block ---- */

/* Bits of flags_skgfrfib. */
enum {
  skgfrbNOHEADER = 0x1, /* the file has no block 0: block 1 lies at byte 0 */
  skgfrbNONFS = 0x2     /* exempt from the NFS rules: mount check and direct I/O in cluster mode */
};

/* What is known of a file; filled by skgfifi. The client sets the type, the logical block size and
 * the flags before. */
typedef struct skgfrfib {
  size_t pblksiz_skgfrfib; /* physical block size in bytes: 512 */
  size_t lblksiz_skgfrfib; /* logical block size in bytes; 0: learn it from block 0 */
  ub4 filsiz_skgfrfib;     /* size in logical blocks without block 0; all ones: unknown */
  ub4 maxvec_skgfrfib;     /* most buffers in one vectored request: 16 */
  skgfrf ftype_skgfrfib;   /* the file's type, as the client expects it */
  size_t fnl_skgfrfib;     /* length of the name */
  text fnm_skgfrfib[513];  /* the normalised name, NUL-terminated */
  uword serr_skgfrfib;     /* failures still to simulate; 0xFFFF: without end */
  ub1 flags_skgfrfib;      /* skgfrb bits */
} skgfrfib;

/* Its private extension. */
typedef struct skgfrsfib {
  ub4 seal_skgfrsfib;          /* skgfrSEAL once identified */
  uword ftyp_skgfrsfib;        /* st_mode: type and permission bits */
  size_t blk1offset_skgfrsfib; /* byte offset of block 1; 0 without a header */
  ub4 lastblk_skgfrsfib;       /* blocks in the file, block 0 included; all ones: unbounded */
  ub4 flags_skgfrsfib;         /* 0 */
  char device_skgfrsfib[20];   /* low 32 bits of st_dev in decimal */
} skgfrsfib;

/* ---- Open-file handle ---- */

enum { skgfrvPENDING = 0x1 }; /* flags_skgfriov: close was refused, requests are outstanding */

/* An open file; filled by skgfofi. */
typedef struct skgfriov {
  skgfrfib *fib_skgfriov; /* the block it was opened from; must outlive the handle */
  uword maxaio_skgfriov;  /* asynchronous requests allowed at once; 0: synchronous only */
  ub4 flags_skgfriov;     /* skgfrv bits */
} skgfriov;

/* flags_skgfrsiov */
enum {
  skgfrvSYNCHRONOUS = 0x10, /* carry out asynchronous requests at once */
  skgfrvWRITABLE = 0x20     /* opened read-write */
};

/* Its private extension. */
typedef struct skgfrsiov {
  ub4 seal_skgfrsiov; /* skgfrSEAL while open */
  sword fd_skgfrsiov; /* descriptor; 0: none */
  uword
      fsync_skgfrsiov; /* 4: never flushed, as opened for synchronous writes or a device; else 0 */
  uword aiopend_skgfrsiov; /* asynchronous requests in flight on this handle */
  ub4 offset_skgfrsiov;    /* block the file position stands at; all ones: unknown */
  uword flags_skgfrsiov;   /* skgfrvSYNCHRONOUS, skgfrvWRITABLE */
} skgfrsiov;

/* ---- Requests ---- */

/* The asynchronous control block of one request, ours on top of the kernel's. */
typedef struct aiocb64 {
  struct iocb
      __iocb;        /* prepared with io_prep_pread or io_prep_pwrite; data points to this record */
  long __error_code; /* the completion's result: bytes, or a negated errno; 0 until then */
  long __aio_key;    /* 0 not submitted, 1 completed, 2 in progress */
} aiocb64;

/* The status block of one request. */
typedef struct skgfriosb {
  skgfri status_skgfriosb; /* the request's state */
  slerc *slerc_skgfriosb;  /* the request's error record; set by the client */
  ub4 *time_skgfriosb;     /* when not null, receives the elapsed time in hundredths of a second */
  void *ctx_skgfriosb;     /* the client's own; never touched */
} skgfriosb;

/* Its private extension. */
typedef struct skgfrsisb {
  kgglk link_skgfrsisb;       /* linked to itself, or on the done queue or the conversion list */
  sword qstatus_skgfrsisb;    /* queue state bits */
  ub4 start_skgfrsisb;        /* start time in hundredths of a second */
  aiocb64 aio64req_skgfrsisb; /* the control block */
  size_t aiosize_skgfrsisb;   /* bytes requested */
  skgfrsiov *iov_skgfrsisb;   /* the handle's extension */
} skgfrsisb;

/* A buffer: its address, a multiple of 512, and its length in bytes, a whole number of logical
 * blocks up to 1 MiB. */
typedef struct skgfrbd {
  void *bp_skgfrbd;
  size_t blen_skgfrbd;
} skgfrbd;

/* A vector of buffers, at most maxvec_skgfrfib. */
typedef struct skgfrbv {
  skgfrbd *bda_skgfrbv;
  uword nbufs_skgfrbv;
} skgfrbv;

/* One request, chained into the list that skgfqio takes. */
typedef struct skgfrrq {
  kgglk link_skgfrrq;
  skgfriov *iov_skgfrrq;
  skgfriosb *iosb_skgfrrq;
  ub4 blockno_skgfrrq; /* first block; 1 is the first behind block 0 (skgfrfKDV counts from 0) */
  union {
    skgfrbd buffer_skgfrrq; /* of a plain request */
    skgfrbv bufvec_skgfrrq; /* of a vectored one */
  } bufspec_skgfrrq;
  ub4 flags_skgfrrq; /* the client's; never read */
} skgfrrq;

/* ---- Discovery and search ---- */

/* Allocates size bytes in the client's memory context; label names the piece. */
typedef void *(*skgfralloccb3)(void *memctx, size_t size, const char *label);

/* Releases what skgfralloccb3 gave; the client's own use of it, discovery never calls it. */
typedef void (*skgfrfreecb3)(void *memctx, void *ptr, const char *label);

/* Receives one path that a search found, pathl bytes; FALSE stops the search. */
typedef boolean (*skgfrprfcb)(void *cbctx, const text *path, size_t pathl);

/* The result of a discovery; it and all that hangs on it belong to the client's allocator. */
typedef struct skgfrdsc {
  kgglk dev_skgfrdsc; /* head of the list of skgfrstat records, last match first */
  text *str_skgfrdsc; /* the discovery string, escaped and normalised */
} skgfrdsc;

/* One discovered device or file. */
typedef struct skgfrstat {
  kgglk link_skgfrstat;
  text *path_skgfrstat;    /* the path that matched, NUL-terminated */
  slerc se_skgfrstat;      /* outcome of its examination; code 0: the fields below are valid */
  ub2 flags_skgfrstat;     /* 12 when it was examined with success, else 0 */
  text udid_skgfrstat[64]; /* unique identifier: all 0 on this platform */
  text lbl_skgfrstat[31];  /* label: empty on this platform */
  ub4 blksz_skgfrstat;     /* block size in bytes: 512 */
  ub4 disksz_skgfrstat;    /* size in MiB, rounded down */
} skgfrstat;

/* ---- Mirrors and device lists ---- */

typedef ub4 volflag_t;
typedef int64_t voff_t;

/* A volume manager's request for one side of a mirror. */
typedef struct vol_mirror_read {
  volflag_t mr_flags;
  voff_t mr_off;
  size_t mr_size;
  void *mr_addr;
  char mr_sequence[16];
  char mr_mirror_name[32];
} vol_mirror_read;

/* The client's state of a mirror read. */
typedef struct skgfrmss {
  skgfriov *iov_skgfrmss;
  ub4 blockno_skgfrmss;
  vol_mirror_read mirreadp;
} skgfrmss;

/* The names of a device and of a node. */
typedef struct skgfrdev {
  text name_skgfrdev[20];
} skgfrdev;
typedef struct skgfrnod {
  text name_skgfrnod[16];
} skgfrnod;

/* ---- Block 0 ---- */

/* The generic block header that begins block 0. On-disk format, in the writer's byte order. */
typedef struct kcbh {
  ub1 type_kcbh;
  ub1 frmt_kcbh; /* 0x02, the block size coded in the top three bits */
  ub1 spare1_kcbh;
  ub1 spare2_kcbh;
  ub4 rdba_kcbh; /* 0xFFC00000 */
  ub4 bas_kcbh;
  ub2 wrp_kcbh;
  ub1 seq_kcbh;
  ub1 flg_kcbh;
  ub2 chkval_kcbh; /* makes the XOR of the block's 16-bit words 0 */
  ub2 spare3_kcbh;
} kcbh;

/* Block 0 in the current layout, 44 bytes. */
typedef struct skgfrhblk {
  kcbh kcbh_skgfrhblk;
  ub4 lblksiz_skgfrhblk; /* logical block size in bytes */
  ub4 fsize_skgfrhblk;   /* logical blocks behind block 0 */
  ub4 magic_skgfrhblk;   /* 0x7A7B7C7D */
  ub4 type_skgfrhblk;    /* st_mode of the file, or 0 */
  ub4 spare1_skgfrhblk;
  ub4 spare2_skgfrhblk;
} skgfrhblk;

/* Block 0 in the layout from before version 10, 24 bytes. */
typedef struct skgfrhblkv9 {
  ub1 spare_skgfrhblkv9;
  ub1 frmt_skgfrhblkv9; /* 0x02 */
  ub1 pad_skgfrhblkv9[2];
  ub4 lblksiz_skgfrhblkv9;
  ub4 fsize_skgfrhblkv9;
  ub4 magic_skgfrhblkv9; /* 0x5A5B5C5D */
  ub4 type_skgfrhblkv9;
  ub2 chkval_skgfrhblkv9;
} skgfrhblkv9;

#ifdef __cplusplus
}
#endif

#endif
