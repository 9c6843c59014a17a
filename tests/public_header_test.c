/* The public headers as a C client sees them: fills a callback table, creates a file, walks one
 * write and identifies the result. Exits with the number of the first step that went wrong. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "skgfr/skgfr.h"
#include "sysl/sysl.h"
#include "tool/vdprep.h"

static size_t say(skgcbctx *ctx, const char *fmt, ...) {
  (void)ctx;
  (void)fmt;
  return 0;
}
static boolean current_layout(void) { return FALSE; }

static const skgcb table = {.trace_skgcb = say,
                            .alert_skgcb = say,
                            .bhxor_skgcb = vdprep_xor,
                            .pre10compat_skgcb = current_layout};

static int write_one_block(slerc *se, skgfrctx *ctx, skgfriov *iov, void *block) {
  skgfriosb *const status = calloc(1, skgfrgsz(skgfrsISB));
  if (!status) return 0;
  kgglk list;
  skgfrrq request = {{&list, &list}, iov, status, 3, {{block, 512}}, 0};
  list.kgglknxt = list.kgglkprv = &request.link_skgfrrq;
  status->slerc_skgfriosb = se;
  const int written = skgfqio(ctx, &list, 0) == 0 && status->status_skgfriosb == skgfriDONE;
  free(status);
  return written;
}

static int walk(char *name) {
  static char block[512] __attribute__((aligned(512)));
  slerc se;
  skgfrctx ctx;
  skgfrwcx wait;
  text *const path = (text *)name;
  skgfrpini(&se, &ctx, &wait, &table, NULL);
  if (se.slercoer || wait.pid_skgfrwcx != getpid()) return 2;
  skgfrcre(&se, &ctx, path, strlen(name), skgfrfDATA, 512, 8, 0);
  if (se.slercoer) return 3;

  skgfrfib *const fib = calloc(1, skgfrgsz(skgfrsFIB));
  skgfriov *const iov = calloc(1, skgfrgsz(skgfrsIOV));
  if (!fib || !iov) return 4;
  fib->lblksiz_skgfrfib = 512;
  fib->ftype_skgfrfib = skgfrfDATA;
  int failed = skgfifi(&se, &ctx, fib, path, strlen(name)) != skgfrrOK ? 5 : 0;
  if (!failed) skgfofi(&se, &ctx, fib, iov, 0, skgfofiWRITE);
  if (!failed && se.slercoer) failed = 6;
  memset(block, 'c', sizeof block);
  if (!failed && !write_one_block(&se, &ctx, iov, block)) failed = 7;
  if (!failed) skgfcfi(&se, &ctx, iov);
  if (!failed && se.slercoer) failed = 8;
  if (!failed && skgfglbsz(&se, &ctx, path, strlen(name), skgfrfDATA) != 512) failed = 9;
  free(iov);
  free(fib);
  return failed;
}

int main(void) {
  char folder[] = "/tmp/vdprep-test-XXXXXX";
  char name[sizeof folder + 8];
  if (!mkdtemp(folder)) return 1;
  snprintf(name, sizeof name, "%s/data", folder);
  const int failed = walk(name);
  unlink(name);
  rmdir(folder);
  return failed;
}
