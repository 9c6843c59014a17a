/* System services: error text, file names, signals, environment, clocks and output.
 *
 * The lowest room: it knows nothing of the file layer above it. Compiles as C11 (with
 * _GNU_SOURCE) and as C++17; every function has C linkage.
 *
 * Threads: the search-path cache, the signal registry and the environment are process-wide and
 * take no lock; the clock guards itself. Everything else works on the caller's memory only.
 *
 * Records: "clears the record" means that all fields of the slerc become 0 on entry; routines
 * that set only slercoer to 0 say so. On failure slercoer holds the code given here, and every
 * field that is not mentioned is 0 (or as it was, for routines that touch slercoer only).
 */
#ifndef SYSL_SYSL_H
#define SYSL_SYSL_H

#include <signal.h>

#include "sysl/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Error text ---- */

/* The operating system's text for an error number.
 *
 * errnum: an errno value. buf, bufsize: where the text goes and its room in bytes, at least 1.
 * Returns buf, holding the text cut to bufsize - 1 characters and NUL-terminated; a null pointer
 * when the system has no text for the number (buf is then untouched). "Success" reads "Error 0".
 */
text *slzerrstr(int errnum, text *buf, size_t bufsize);

/* Renders an error record as one to four lines for a person.
 *
 * A "Linux Error: N: text" line when slercerrno is positive, then one "Additional information: N"
 * line per non-zero detail word; lines are joined by newlines, none stands at the end. slercoer is
 * not part of the message.
 * buf, bufsize: where the message goes and its room in bytes, at least 1; a longer message is cut.
 * Returns the length without the NUL. A null record yields 0 and leaves buf untouched.
 */
size_t slcgems(slerc *se, text *buf, size_t bufsize);

/* ---- File names ---- */

/* Normalises a file name: translates it, refuses one that climbs, makes it absolute, tidies it.
 *
 * name, namel: the name and its length in bytes. out, outsize: the result and its room in bytes;
 * outl: receives the length without the NUL. Relative names go under the home directory's "dbs";
 * names that begin with "/" or "+" stay where they are. "//" and "/./" are removed, a trailing
 * "/." is not. A name made absolute never exceeds 512 characters.
 * Clears the record. Fails, with *outl 0, as sltln does, or with
 *   7345 (no words) when the name climbs through "..";
 *   7346 (needed size, outsize, 512) when the absolute name does not fit.
 */
void slnrm(slerc *se, const text *name, size_t namel, text *out, size_t outsize, size_t *outl);

/* Translates a name: "?" is TARVEX_HOME, "@" is TARVEX_SID, $name and ${name} any variable, a
 * backslash makes the next character literal; the result is then searched along TARVEX_PATH.
 *
 * Arguments as for slnrm; name and out must not overlap: a value may be longer than its reference.
 * The input needs no NUL; one NUL may be its last character.
 * Clears the record. Fails, with *outl 0, with
 *   7202 (no words) on a null pointer, an empty input or output, or a NUL inside the input;
 *   7204 (outsize) when the result and its NUL do not fit; out then ends in a NUL;
 *   7217 (no words) when a variable cannot be read (not set, empty, name over 31 characters, value
 *     over 4096 or over the room left); out then holds what was translated so far and the rest of
 *     the input as it came, cut to fit and NUL-terminated;
 * or as sslpath does.
 */
void sltln(slerc *se, const text *name, size_t namel, text *out, size_t outsize, size_t *outl);

/* Replaces a relative name by the first existing file along a search list that the process reads
 * once, from the environment variable var, on its first call; later calls ignore var.
 *
 * name, namesize: the NUL-terminated name, replaced in place, and its room in bytes; namel: its
 * length, updated. Sets slercoer to 0. Fails, with *namel 0, as sslpathi does, or with 7415
 * (slercerrno when the system set one) when the list cannot be kept; the next call tries again.
 */
void sslpath(slerc *se, const text *var, text *name, size_t namesize, size_t *namel);

/* The same search over list, directories joined by ":"; an empty element is the name itself.
 *
 * Names that begin with "/" and names found nowhere stay as they are, without error.
 * Sets slercoer to 0 or clears the record. Fails, with *namel 0 and name as it was, as slgfn does or
 * with
 *   7416 (512, length) for an element of 512 or more characters;
 *   7416 (namesize, length) when the name found does not fit.
 */
void sslpathi(slerc *se, const text *list, text *name, size_t namesize, size_t *namel);

/* The same search over the value that the variable var has now, or over the text of var itself
 * when it is not set. Errors as for sslpathi. */
void sslpath2(slerc *se, const text *var, text *name, size_t namesize, size_t *namel);

/* Composes "dir/name.ext" into out, outsize bytes, NUL-terminated.
 *
 * The "/" is left out when dir is empty or ends in one, the "." when ext is empty. All texts are
 * NUL-terminated; unused has no effect. Clears the record. Fails with 7411 (no words), out
 * untouched, when pieces and NUL do not fit.
 */
void slgfn(slerc *se, const text *dir, const text *name, const text *ext, const text *unused,
           text *out, size_t outsize);

/* Whether a NUL-terminated name climbs to a parent directory: 1 when its first ".." begins no later
 * than right behind its last "/" (or at the start, without one), else 0. */
int slnpd(const text *name);

/* ---- Signals ---- */

/* A registered handler: receives the signal number and the context given at registration. */
typedef void (*sslsshdl)(sword signo, void *ctx);

/* An operating-system handler, as sigaction takes it. */
typedef void (*sslsighdl)(int);

/* Registration flags of sslssreghdlr. */
enum {
  sslssFINAL = 1,     /* called last, after the signal mask was restored; one per signal */
  sslssEXCLUSIVE = 2, /* only on a signal without slots; then no other registration */
  sslssNORESTART = 8, /* interrupted system calls are not restarted */
  sslssONSTACK = 16,  /* run on the alternate stack */
  sslssUNSUPPORTED = 32
};

/* Registers handler, with ctx, for the signal signo (1 to 64); flags are the bits above.
 *
 * The first registration of a signal installs the common dispatcher, with SA_SIGINFO and what
 * sslssNORESTART and sslssONSTACK choose; on later ones these two have no effect. A handler that the
 * process had before is remembered and called after the registered ones, and its sa_flags are then the
 * dispatcher's instead: neither of the two has an effect, and the system's restarting is that handler's.
 * Newest slots are called first. The calling thread ends with the signal unblocked.
 * Returns the slot number, from 1 per signal; -1 on failure. Sets slercoer to 0 on entry; a failure
 * clears the record and sets
 *   21110 (signo, 64)          signo is out of range;
 *   21115                      flag 32;
 *   21111 (signo, handler)     handler is SIG_DFL or SIG_IGN, or the signal is held exclusively;
 *   21112 (signo, handler)     exclusive registration on a signal with slots;
 *   21113 (signo, handler)     a second final slot;
 *   21117 (signo, handler)     the same handler and context are registered already;
 *   21118 (signo)              the operating system refused the dispatcher.
 * A failed slot allocation returns -1 with slercoer 0. Words take the low 32 bits of an address.
 * An accepted exclusive flag stays even when a later step fails.
 */
sword sslssreghdlr(slerc *se, sword signo, sslsshdl handler, void *ctx, ub4 flags);

/* Installs an operating-system handler with every signal blocked but SIGILL, SIGABRT, SIGBUS,
 * SIGFPE, SIGSEGV, SIGUSR2, SIGXCPU, SIGXFSZ and SIGSYS while it runs.
 *
 * flags are sa_flags; 0 stands for SA_RESTART with SA_SIGINFO. Returns the previous handler and
 * stores its sa_flags through oldflags (may be null); SIG_ERR when sigaction fails, with errno set
 * and *oldflags untouched.
 */
sslsighdl sslsigprh(sword signo, sslsighdl handler, ub4 flags, ub4 *oldflags);

/* The same installation with the previous handler and any failure discarded. */
void sslsigreghndlr(sword signo, sslsighdl handler, ub4 flags);

/* The dispatcher that the registry installs; calls every slot of signo. errno is preserved. */
void sslsshandler(int signo, siginfo_t *info, void *context);

/* ---- Output ---- */

/* Writes to standard output as printf does; returns the number of characters, negative on error. */
int slzprintf(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

/* Formats into dst, without any bound: the caller guarantees the room. Returns the number of
 * characters, the NUL not counted. */
int lstprintf(text *dst, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

/* ---- Environment ---- */

/* Copies the value of the variable name (namel characters, 1 to 31) to dst, without a NUL.
 *
 * dstsize: the room of dst in bytes. Bit 0 of flags: a value is taken as the name of a further
 * variable, until one is not set; the last value found counts.
 * Returns the number of characters copied, up to 4096. Touches slercoer only. Fails with
 *   -1, 21104  the variable is not set or empty;
 *   -2, 21100  null or empty name, null or empty destination, or a chain of 256 variables;
 *   -2, 21101  name over 31 characters, or value over dstsize or 4096; dst then holds its start;
 *   -2         null record.
 */
sword slzgetevar(slerc *se, const text *name, size_t namel, text *dst, size_t dstsize, uword flags);

/* Sets the variable name (namel characters) to value (valuel characters; may be null with 0).
 *
 * Returns 1. Touches slercoer only. Fails with 0 and 21102 (no memory) or 21100 (null or empty
 * name, or the environment refused it).
 */
sword slzsetevar(slerc *se, const text *name, size_t namel, const text *value, size_t valuel);

/* ---- Clocks ---- */

/* Milliseconds since an arbitrary point in the past; never goes backwards, advances with the
 * kernel's clock tick. */
ub8 sltrgatime64(void);

/* The same clock in hundredths of a second, cut to 32 bits. Sets slercoer to 0. */
ub4 slgcs(slerc *se);

/* Fills dt with the current local date and time and returns it. Sets slercoer to 0. Fails with 7206
 * (slercerrno) when the time of day cannot be read; dt is then untouched. */
slgtd_t *slgtd(slerc *se, slgtd_t *dt);

#ifdef __cplusplus
}
#endif

#endif
