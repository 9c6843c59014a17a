/* Reads a file with 64 requests in flight and prints the XOR of its 16-bit words.
 *
 *   read_queue FILE
 *
 * One request stands for each buffer: submit it, wait until any is done, use its data, give it the next
 * block. Where the file does no asynchronous I/O the same requests are carried out one after the other,
 * and standard error says so. */
#include <skgfr/client.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { DEPTH = 64, BLOCK = 4096 };

/* A buffer on its way: the request, its status block and its error record. */
typedef struct slot {
  skgfrrq request;
  skgfriosb *status;
  slerc se;
} slot;

typedef struct reader {
  slerc se;
  skgfrctx ctx;
  skgfrwcx wait;
  skgfrfib *fib;
  skgfriov *iov;
  slot slots[DEPTH];
  ub4 next;  /* block to read next */
  ub4 last;  /* the file's last whole block */
  ub4 flags; /* of skgfqio */
  unsigned in_flight;
  kgglk later; /* requests that found no room */
  ub2 sum;
} reader;

static void stop(const char *operation, slerc *se) {
  text message[256];
  slcgems(se, message, sizeof message);
  fprintf(stderr, "%s: code %d\n%s\n", operation, se->slercoer, (char *)message);
  exit(EXIT_FAILURE);
}

static void *allocate(size_t alignment, size_t size) {
  void *const memory = aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (!memory) {
    perror("read_queue");
    exit(EXIT_FAILURE);
  }
  return memset(memory, 0, size);
}

/* The layer asks for buffers at a multiple of 512; disks with large sectors ask for more. */
static void prepare_slots(reader *r) {
  for (int i = 0; i < DEPTH; ++i) {
    slot *const s = &r->slots[i];
    s->status = allocate(sizeof(void *), skgfrgsz(skgfrsISB));
    s->status->slerc_skgfriosb = &s->se;
    s->status->ctx_skgfriosb = s;
    s->request.iov_skgfrrq = r->iov;
    s->request.iosb_skgfrrq = s->status;
    s->request.bufspec_skgfrrq.buffer_skgfrrq = (skgfrbd){allocate(BLOCK, BLOCK), BLOCK};
  }
}

/* A file without block 0, opened for direct asynchronous reading. */
static void open_file(reader *r, char *name) {
  text options[] = "setall";
  skgfrpini(&r->se, &r->ctx, &r->wait, NULL, NULL);
  if (r->se.slercoer) stop("skgfrpini", &r->se);
  skgfrsetioparam(&r->se, &r->ctx, options, sizeof options - 1);

  r->fib = allocate(sizeof(void *), skgfrgsz(skgfrsFIB));
  r->iov = allocate(sizeof(void *), skgfrgsz(skgfrsIOV));
  r->fib->ftype_skgfrfib = skgfrfOSFILE;
  r->fib->lblksiz_skgfrfib = BLOCK;
  r->fib->flags_skgfrfib = skgfrbNOHEADER;
  const skgfrr found = skgfifi(&r->se, &r->ctx, r->fib, (text *)name, strlen(name));
  if (found != skgfrrOK && found != skgfrrSZERR) stop("skgfifi", &r->se);
  skgfofi(&r->se, &r->ctx, r->fib, r->iov, DEPTH, 0);
  if (r->se.slercoer) stop("skgfofi", &r->se);

  r->flags = skgfqioREAD;
  if (r->iov->maxaio_skgfriov > 0) r->flags |= skgfqioASYNC;
  if (!(r->flags & skgfqioASYNC)) fprintf(stderr, "%s: synchronous only\n", name);
  skgfr_make_list(&r->later);
  skgfr_reach reach;
  skgfr_find_reach(&r->se, &r->ctx, r->fib, &reach);
  if (r->se.slercoer) stop("skgfr_find_reach", &r->se);
  r->next = reach.first;
  r->last = reach.first + reach.blocks - 1;
}

/* The link is the first field of a request. */
static skgfrrq *take_first(kgglk *list) {
  kgglk *const link = list->kgglknxt;
  list->kgglknxt = link->kgglknxt;
  link->kgglknxt->kgglkprv = list;
  return (skgfrrq *)link;
}

/* Puts the next block on the list, into this slot. */
static void aim(reader *r, slot *s, kgglk *list) {
  s->request.blockno_skgfrrq = r->next++;
  skgfr_append(list, &s->request);
}

static void use(reader *r, slot *s) {
  const ub2 *const words = s->request.bufspec_skgfrrq.buffer_skgfrrq.bp_skgfrbd;
  if (s->status->status_skgfriosb != skgfriDONE) stop("read", &s->se);
  for (size_t i = 0; i < BLOCK / sizeof *words; ++i) r->sum ^= words[i];
}

/* Queues a list and looks what became of each request. */
static void queue(reader *r, kgglk *list) {
  skgfqio(&r->ctx, list, r->flags);
  while (list->kgglknxt != list) {
    skgfrrq *const request = take_first(list);
    slot *const s = request->iosb_skgfrrq->ctx_skgfriosb;
    switch (s->status->status_skgfriosb) {
      case skgfriPEND: ++r->in_flight; break;
      case skgfriLATER: skgfr_append(&r->later, request); break;
      default: use(r, s); /* done at once, or failed */
    }
  }
}

/* Waits for a block, then takes all that have come by then and sends their slots off again together,
 * with those that found no room before. */
static void turn_around(reader *r) {
  kgglk list;
  skgfr_make_list(&list);
  while (r->later.kgglknxt != &r->later) skgfr_append(&list, take_first(&r->later));
  skgfriosb *done = NULL;
  skgfrr result = skgfrwat(&r->se, &r->ctx, 1, &done, NULL, skgfrUNKNOWN);
  if (result == skgfrrERROR) stop("skgfrwat", &r->se);
  while (result == skgfrrOK && done) {
    slot *const s = done->ctx_skgfriosb;
    --r->in_flight;
    use(r, s);
    if (r->next <= r->last) aim(r, s, &list);
    result = skgfnxtio(&r->se, &r->ctx, &done);
  }
  queue(r, &list);
}

/* The layer moves whole blocks; what stands behind the last one is read plainly. */
static void use_rest(reader *r) {
  ub2 words[BLOCK / sizeof(ub2)] = {0};
  const char *const name = (const char *)r->fib->fnm_skgfrfib;
  FILE *const file = fopen(name, "rb");
  if (!file || fseeko64(file, (off64_t)r->last * BLOCK, SEEK_SET) != 0) {
    perror(name);
    exit(EXIT_FAILURE);
  }
  const size_t bytes = fread(words, 1, sizeof words, file);
  for (size_t i = 0; i < (bytes + 1) / sizeof *words; ++i) r->sum ^= words[i];
  fclose(file);
}

int main(int argc, char **argv) {
  static reader r;
  if (argc != 2) {
    fprintf(stderr, "usage: read_queue FILE\n");
    return 2;
  }
  open_file(&r, argv[1]);
  prepare_slots(&r);
  do {
    kgglk list;
    skgfr_make_list(&list);
    for (int i = 0; i < DEPTH && r.next <= r.last; ++i) aim(&r, &r.slots[i], &list);
    queue(&r, &list);
    while (r.in_flight > 0 || r.later.kgglknxt != &r.later) turn_around(&r);
  } while (r.next <= r.last);
  use_rest(&r);
  skgfcfi(&r.se, &r.ctx, r.iov);
  if (r.se.slercoer) stop("skgfcfi", &r.se);
  skgfr_end_context(&r.se, &r.ctx);
  if (r.se.slercoer) stop("skgfr_end_context", &r.se);
  printf("%04x\n", r.sum);
  return EXIT_SUCCESS;
}
