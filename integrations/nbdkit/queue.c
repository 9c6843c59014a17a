/* Many threads on one context, which one thread at a time may use.
 *
 * Threads post their pieces. One of them leads: it submits what all have posted by then as one list,
 * waits until something completes, and hands the completions out; when its own pieces are done it makes
 * another thread lead. A thread that is alone so submits and waits without any other being woken. */
#include "queue.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

enum { PIECES = queue_depth, PIECE_BYTES = 256 * 1024 };

/* A thread's pieces on their way. */
typedef struct job {
  unsigned left;
  pthread_cond_t moved; /* nothing is left, or it is this thread's turn to lead */
  struct job *next;     /* asleep */
} job;

struct queue {
  disk *d;
  pthread_mutex_t lock;
  piece *free;
  pthread_cond_t freed;
  kgglk posted[2]; /* to be read, to be written */
  job *asleep;
  bool led;
  int broken; /* the error that ended it */
  /* The leader's, without the lock. */
  kgglk submitted[2];
  unsigned in_flight;
};

queue *queue_make(disk *d) {
  queue *const q = allocate(_Alignof(queue), sizeof *q);
  q->d = d;
  pthread_mutex_init(&q->lock, NULL);
  pthread_cond_init(&q->freed, NULL);
  for (int write = 0; write < 2; ++write) {
    skgfr_make_list(&q->posted[write]);
    skgfr_make_list(&q->submitted[write]);
  }
  for (int i = 0; i < PIECES; ++i) {
    piece *const p = piece_make(PIECE_BYTES);
    p->next = q->free;
    q->free = p;
  }
  return q;
}

bool queue_drop(queue *q) {
  if (q->broken) return false;
  while (q->free) {
    piece *const p = q->free;
    q->free = p->next;
    piece_drop(p);
  }
  pthread_cond_destroy(&q->freed);
  pthread_mutex_destroy(&q->lock);
  free(q);
  return true;
}

static skgfrrq *take_first(kgglk *list) {
  kgglk *const link = list->kgglknxt;
  list->kgglknxt = link->kgglknxt;
  link->kgglknxt->kgglkprv = list;
  return (skgfrrq *)link;
}

static void move_all(kgglk *from, kgglk *to) {
  while (from->kgglknxt != from) skgfr_append(to, take_first(from));
}

/* Puts a piece in front of those that are done. */
static void push(piece **done, skgfriosb *status) {
  piece *const p = status->ctx_skgfriosb;
  p->also_done = *done;
  *done = p;
}

/* Queues one list; requests that found no room stay on it for the next turn. */
static void submit(queue *q, int write, piece **done) {
  kgglk *const list = &q->submitted[write];
  if (list->kgglknxt == list) return;
  skgfqio(&q->d->ctx, list, skgfqioASYNC | (write ? 0 : skgfqioREAD));
  kgglk later;
  skgfr_make_list(&later);
  while (list->kgglknxt != list) {
    skgfrrq *const request = take_first(list);
    switch (request->iosb_skgfrrq->status_skgfriosb) {
      case skgfriPEND: ++q->in_flight; break;
      case skgfriLATER: skgfr_append(&later, request); break;
      default: push(done, request->iosb_skgfrrq); /* failed */
    }
  }
  move_all(&later, list);
}

/* Waits for one completion and takes all that have come by then. 0, or the error. With nothing on its way the
 * kernel had no room for anything; it may have some in a moment. */
static int collect(queue *q, piece **done) {
  skgfriosb *status = NULL;
  if (q->in_flight == 0) {
    usleep(1000);
    return 0;
  }
  skgfrr result = skgfrwat(&q->d->se, &q->d->ctx, 1, &status, NULL, skgfrUNKNOWN);
  if (result == skgfrrERROR) return q->d->se.slercerrno;
  while (result == skgfrrOK && status) {
    --q->in_flight;
    push(done, status);
    result = skgfnxtio(&q->d->se, &q->d->ctx, &status);
  }
  return 0;
}

/* One turn as the leader; the lock is held on entry and on return. */
static void lead(queue *q) {
  piece *done = NULL;
  q->led = true;
  for (int write = 0; write < 2; ++write) move_all(&q->posted[write], &q->submitted[write]);
  pthread_mutex_unlock(&q->lock);
  for (int write = 0; write < 2; ++write) submit(q, write, &done);
  const int error = done ? 0 : collect(q, &done);
  pthread_mutex_lock(&q->lock);
  q->led = false;
  q->broken = error;
  for (; done; done = done->also_done) {
    if (--done->job->left == 0) pthread_cond_signal(&done->job->moved);
  }
}

static void wait_for_turn(queue *q, job *mine) {
  mine->next = q->asleep;
  q->asleep = mine;
  pthread_cond_wait(&mine->moved, &q->lock);
  job **link = &q->asleep;
  while (*link != mine) link = &(*link)->next;
  *link = mine->next;
}

/* Posts the pieces of one round and stays until they are done; FALSE when they will never be. */
static bool see_through(queue *q, piece *pieces, bool write) {
  job mine = {.moved = PTHREAD_COND_INITIALIZER};
  pthread_mutex_lock(&q->lock);
  for (piece *p = pieces; p; p = p->next) {
    p->job = &mine;
    ++mine.left;
    skgfr_append(&q->posted[write], &p->request);
  }
  while (mine.left > 0 && !q->broken) {
    if (q->led) {
      wait_for_turn(q, &mine);
    } else {
      lead(q);
    }
  }
  if (!q->led && q->asleep) pthread_cond_signal(&q->asleep->moved);
  const int error = q->broken;
  pthread_mutex_unlock(&q->lock);
  pthread_cond_destroy(&mine.moved);
  if (!error) return true;
  nbdkit_error("the queue has failed: code %d", q->d->se.slercoer);
  nbdkit_set_error(EIO);
  return false;
}

/* Up to so many pieces, one at least: who holds none waits, so nobody waits for those who do. */
static piece *take(queue *q, uint32_t wanted) {
  piece *taken = NULL;
  pthread_mutex_lock(&q->lock);
  while (!q->free) pthread_cond_wait(&q->freed, &q->lock);
  for (; q->free && wanted > 0; --wanted) {
    piece *const p = q->free;
    q->free = p->next;
    p->next = taken;
    taken = p;
  }
  pthread_mutex_unlock(&q->lock);
  return taken;
}

static void give_back(queue *q, piece *pieces) {
  piece **end = &pieces;
  while (*end) end = &(*end)->next;
  pthread_mutex_lock(&q->lock);
  *end = q->free;
  q->free = pieces;
  pthread_cond_broadcast(&q->freed);
  pthread_mutex_unlock(&q->lock);
}

int queue_transfer(queue *q, transfer t) {
  int result = 0;
  while (t.bytes > 0 && result == 0) {
    piece *const pieces = take(q, (t.bytes + PIECE_BYTES - 1) / PIECE_BYTES);
    for (piece *p = pieces; p; p = p->next) piece_fill(p, q->d, &t, PIECE_BYTES);
    if (!see_through(q, pieces, t.write)) return -1;
    for (piece *p = pieces; p; p = p->next) {
      if (piece_finish(p, t.write) != 0) result = -1;
    }
    give_back(q, pieces);
  }
  return result;
}
