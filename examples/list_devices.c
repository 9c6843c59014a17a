/* Lists the devices and files that a pattern finds, with their sizes.
 *
 *   list_devices [PATTERN]      without one: the raw devices */
#include <skgfr/client.h>
#include <stdio.h>
#include <stdlib.h>

/* Everything that a discovery allocates goes with the process. */
static void *allocate(void *memctx, size_t size, const char *label) {
  (void)memctx;
  (void)label;
  return malloc(size);
}

static void print(skgfrstat *device) {
  const char *const path = (const char *)device->path_skgfrstat;
  slerc *const se = &device->se_skgfrstat;
  if (se->slercoer == 0) {
    printf("%-40s %10u MiB\n", path, device->disksz_skgfrstat);
  } else {
    text message[256] = "";
    slcgems(se, message, sizeof message);
    printf("%-40s code %d: %s\n", path, se->slercoer, (char *)message);
  }
}

int main(int argc, char **argv) {
  slerc se;
  skgfrctx ctx;
  skgfrwcx wait;
  skgfrpini(&se, &ctx, &wait, NULL, NULL);
  if (se.slercoer) {
    fprintf(stderr, "skgfrpini: code %d\n", se.slercoer);
    return EXIT_FAILURE;
  }
  const text *const pattern = argc > 1 ? (const text *)argv[1] : skgfrdscdflt;
  skgfrdsc *const found = skgfrdscdevs(&se, &ctx, pattern, NULL, allocate, NULL, FALSE);
  if (!found) {
    fprintf(stderr, "skgfrdscdevs: code %d\n", se.slercoer);
    return EXIT_FAILURE;
  }
  kgglk *const head = &found->dev_skgfrdsc;
  for (kgglk *link = head->kgglknxt; link != head; link = link->kgglknxt) {
    print((skgfrstat *)link);
  }
  skgfr_end_context(&se, &ctx);
  return EXIT_SUCCESS;
}
