/* A library in libaio's place that does what a script says; tests find `stand_in_aio` with dlsym.
 * A transfer is carried out when its completion is handed out, the oldest first. */
#pragma once

#include <limits.h>
#include <time.h>

/* What the next calls answer, one value each; calls after the last succeed completely, but a reaping
 * waits as long as it may when nothing was submitted. */
struct stand_in_answers {
  int used, count, values[16];
};
enum {
  STAND_IN_TRANSFER = INT_MAX, /* of a completion: what the transfer comes to */
  STAND_IN_STRAY = INT_MIN     /* of a completion: its data leads nowhere */
};
struct stand_in_aio {
  struct stand_in_answers submissions;   /* most blocks taken, or a negated errno */
  struct stand_in_answers reapings;      /* most events (0: the time is out), or a negated errno */
  struct stand_in_answers results;       /* of completions: bytes, or a negated errno */
  int waiting, submit_calls, reap_calls; /* blocks taken and not handed out; calls */
  struct timespec timeout;               /* of the last reaping; -1 seconds: none */
};
