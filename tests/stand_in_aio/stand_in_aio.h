/* A library in libaio's place that answers as the test armed "io_submit" (most blocks taken),
 * "io_getevents" (most events; 0: the time is out) and "completion" (bytes); without that it does all
 * that it is asked to, but a reaping waits as long as it may when nothing was submitted. A transfer is
 * carried out when its completion is handed out, the oldest first. Tests find `stand_in_aio` with dlsym. */
#pragma once

#include <limits.h>
#include <time.h>

enum { STAND_IN_STRAY = INT_MAX }; /* of a completion: its data leads nowhere */

struct stand_in_aio {
  int waiting;             /* blocks taken and not handed out */
  struct timespec timeout; /* of the last reaping; -1 seconds: none */
};
