/* The public headers as a C client sees them: fills a callback table, creates a file, walks one write,
 * asks its block size and deletes it.
 *   public_header_test NEW_NAME   exits with the number of the first step that went wrong */
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "skgfr/client.h"
#include "sysl/sysl.h"
#include "tool/vdprep.h"

static size_t say(skgcbctx *ctx, const char *fmt, ...) { return ctx && fmt ? 1 : 0; }
static boolean current_layout(void) { return FALSE; }
static const skgcb table = {.trace_skgcb = say,
                            .alert_skgcb = say,
                            .bhxor_skgcb = vdprep_xor,
                            .pre10compat_skgcb = current_layout};

int main(int argc, char **argv) {
  static char block[512] __attribute__((aligned(512)));
  skgfrfib *const fib = calloc(1, skgfrgsz(skgfrsFIB));
  skgfriov *const iov = calloc(1, skgfrgsz(skgfrsIOV));
  skgfriosb *const status = calloc(1, skgfrgsz(skgfrsISB));
  if (argc != 2 || !fib || !iov || !status) return 2;
  text *const name = (text *)argv[1];
  const size_t length = strlen(argv[1]);
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
  skgfrrq request = {{NULL, NULL}, iov, status, 3, {{block, sizeof block}}, 0};
  skgfr_make_list(&list);
  skgfr_append(&list, &request);
  status->slerc_skgfriosb = &se;
  if (skgfqio(&ctx, &list, 0) || status->status_skgfriosb != skgfriDONE) return 7;
  skgfcfi(&se, &ctx, iov);
  if (se.slercoer || skgfglbsz(&se, &ctx, name, length, skgfrfDATA) != 512) return 8;
  skgfr_end_context(&se, &ctx);
  if (se.slercoer) return 9;
  if (skgfrdel(&se, &ctx, name, length, skgfrfDATA) != skgfrrOK) return 10;
  free(fib);
  free(iov);
  free(status);
  return 0;
}
