/* The formatting tool: the flow behind the command, and its answers to the file layer.
 *
 * Compiles as C11 (with _GNU_SOURCE) and as C++17; every function has C linkage.
 */
#ifndef TOOL_VDPREP_H
#define TOOL_VDPREP_H

#include "skgfr/skgfr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The callback context: what the layer passes back to the callbacks as its opaque skgcbctx. */
typedef struct vdprepctx {
  boolean tracing_vdprepctx; /* trace and alert lines are printed */
  boolean kvs_vdprepctx;     /* the file being prepared is a registry file */
} vdprepctx;

/* The callback table that the flow gives to the layer. */
extern const skgcb vdprep_skgcb;

/* Prepares the file that the arguments name: argv[1] is the type ("vtg" or "kvs"), argv[2] the
 * name. Prints one result line on standard output, after any warnings. Returns the exit status: 0
 * prepared, 1 not found, 2 usage, 3 no memory, 4 the layer failed. */
sb4 vdprep_main(sb4 argc, text **argv);

/* Trace and alert callback: prints one line, stamped with the local time and cut to 149 characters,
 * when ctx is not null and tracing. fmt is a printf format. Returns 0. */
size_t vdprep_slztrace(skgcbctx *ctx, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

/* Prints an error record as one line, behind the name of the layer function that failed. */
void vdprep_slerc(slerc *se, text *func);

/* Parameter callback: "filesystemio_options" is "directio", "_hard_protect" is "true" for a
 * registry file and "false" otherwise: the text through pstr, its length as a uword through pval,
 * result TRUE. For any other name the defaults are stored when they are not null and not 0, result
 * FALSE. hint is not used. */
boolean vdprep_getparam(skgcbctx *ctx, const text *parname, uword *hint, void *pval, text **pstr,
                        const text *defstr, const size_t defval);

/* Checksum callback: the XOR of the 16-bit words, in machine byte order, of len bytes (an even
 * number) at bp. */
ub2 vdprep_xor(void *bp, size_t len);

/* Old-layout callback: always FALSE. */
boolean vdprep_pre10(void);

#ifdef __cplusplus
}
#endif

#endif
