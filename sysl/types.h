/* Scalar types and the error record that every room of the system shares.
 *
 * Knows nothing of files, requests or the tool. Compiles as C11 and as C++17.
 */
#ifndef SYSL_TYPES_H
#define SYSL_TYPES_H

#include <stddef.h>
#include <stdint.h>

/* Unsigned and signed integers of 1, 2, 4 and 8 bytes. */
typedef uint8_t ub1;
typedef uint16_t ub2;
typedef uint32_t ub4;
typedef uint64_t ub8;
typedef int16_t sb2;
typedef int32_t sb4;

/* Machine words. */
typedef unsigned int uword;
typedef int sword;
typedef int eword;

/* A truth value: TRUE or FALSE, nothing else is ever returned. */
typedef int boolean;
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* One 8-bit character of a name or a message. */
typedef unsigned char text;

/* Words passed through wait callbacks. */
typedef ub4 ubig_ora;

/* A size of a disk structure in bytes. */
typedef size_t dsize_t;

/* The error record: owned by the caller, passed first to every operation.
 *
 * Callers test only whether slercoer is non-zero; the other fields are for the message that
 * slcgems renders. An operation that can fail clears the record on entry, so a caller need not.
 */
typedef struct slerc {
  eword slercoer;    /* error code; 0 is success */
  int slercerrno;    /* errno of the system call that failed; 0 when none did */
  ub4 slercose[3];   /* detail words; their meaning is fixed by the code and listed with it */
  eword slercnparms; /* count of message parameters; only ever cleared */
  ub4 slercparms[1]; /* message parameter; only ever cleared */
} slerc;

/* A local date and time, as slgtd fills it. */
typedef struct slgtd_t {
  sb2 year;        /* the full year, 2007 for example */
  sb2 month;       /* 1 to 12 */
  sb2 day;         /* of the month, 1 to 31 */
  sb2 hour;        /* 0 to 23 */
  sb2 minute;      /* 0 to 59 */
  sb2 second;      /* 0 to 60 */
  sb2 millisecond; /* 0 to 999 */
  sb2 zero;        /* always 0 */
} slgtd_t;

#endif
