/* The public headers as a C client sees them: fills a callback table, creates a file, walks one
 * write and identifies the result. Exits with the number of the first step that went wrong. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "skgfr/skgfr.h"
#include "sysl/sysl.h"
#include "tool/vdprep.h"

static size_t say(skgcbctx *ctx, const char *fmt, ...) { return ctx && fmt ? 1 : 0; }
static boolean current_layout(void) { return FALSE; }
static const skgcb table = {.trace_skgcb = say,
                            .alert_skgcb = say,
                            .bhxor_skgcb = vdprep_xor,
                            .pre10compat_skgcb = current_layout};

static int walk(text *name, size_t length) {
  static char block[512] __attribute__((aligned(512)));
  skgfrfib *const fib = calloc(1, skgfrgsz(skgfrsFIB));
  skgfriov *const iov = calloc(1, skgfrgsz(skgfrsIOV));
  skgfriosb *const status = calloc(1, skgfrgsz(skgfrsISB));
  if (!fib || !iov || !status) return 2;
  slerc se;
  skgfrctx ctx;
  skgfrwcx wait;
  skgfrpini(&se, &ctx, &wait, &table, NULL);
  if (se.slercoer || wait.pid_skgfrwcx != getpid()) return 3;
  skgfrcre(&se, &ctx, name, length, skgfrfDATA, 512, 8, 0);
  if (se.slercoer) return 4;
  fib->lblksiz_skgfrfib = 512;
  fib->ftype_skgfrfib = skgfrfDATA;
  if (skgfifi(&se, &ctx, fib, name, length) != skgfrrOK) return 5;
  skgfofi(&se, &ctx, fib, iov, 0, skgfofiWRITE);
  if (se.slercoer) return 6;

  kgglk list;
  skgfrrq request = {{&list, &list}, iov, status, 3, {{block, sizeof block}}, 0};
  list.kgglknxt = list.kgglkprv = &request.link_skgfrrq;
  status->slerc_skgfriosb = &se;
  if (skgfqio(&ctx, &list, 0) || status->status_skgfriosb != skgfriDONE) return 7;
  skgfcfi(&se, &ctx, iov);
  if (se.slercoer || skgfglbsz(&se, &ctx, name, length, skgfrfDATA) != 512) return 8;
  free(fib);
  free(iov);
  free(status);
  return 0;
}

int main(void) {
  char folder[] = "/tmp/vdprep-test-XXXXXX";
  char name[sizeof folder + 8];
  if (!mkdtemp(folder)) return 1;
  snprintf(name, sizeof name, "%s/data", folder);
  const int failed = walk((text *)name, strlen(name));
  unlink(name);
  rmdir(folder);
  return failed;
}
