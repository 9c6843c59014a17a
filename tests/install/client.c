#include <skgfr/skgfr.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
int main(int argc, char **argv) {
  slerc se;
  skgfrctx ctx;
  skgfrwcx wait;
  skgfrfib *fib = calloc(1, skgfrgsz(skgfrsFIB));
  if (argc != 2 || !fib) return 2;
  skgfrpini(&se, &ctx, &wait, NULL, NULL);
  const skgfrr result = skgfifi(&se, &ctx, fib, (text *)argv[1], strlen(argv[1]));
  printf("%s: result %d, code %d\n", (char *)fib->fnm_skgfrfib, result, se.slercoer);
  free(fib);
  return result == skgfrrOK ? 0 : 1;
}
