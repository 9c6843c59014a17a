// Examines queued requests: refuses what must not reach the file, accepts the rest into a batch and
// prepares their control blocks.
//
// Performs no transfer but that of asynchronous requests on files that do none. Checks run only when
// the context asks for them.
#include "skgfr/async/async.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/list.hpp"
#include "skgfr/requests/block_address.hpp"
#include "skgfr/requests/buffer_rules.hpp"
#include "skgfr/requests/transfer.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// One request under examination.
struct Examined {
  explicit Examined(skgfrrq *examined)
      : request(examined), target(examined), status(examined->iosb_skgfrrq) {}

  slerc *error() const { return status->slerc_skgfriosb; }
  const skgfrbd &buffer() const { return request->bufspec_skgfrrq.buffer_skgfrrq; }
  const skgfrbv &vector() const { return request->bufspec_skgfrrq.bufvec_skgfrrq; }

  bool refuse(const Site &site, ub4 a = 0, ub4 b = 0) const {
    status->status_skgfriosb = skgfriBADREQ;
    fail(error(), site, 0, a, b);
    return false;
  }
  /// For the checks that leave slercerrno alone.
  bool refuse_keep(const Site &site, ub4 a, ub4 b, ub4 c = 0) const {
    status->status_skgfriosb = skgfriBADREQ;
    fail_keep(error(), site, a, b, c);
    return false;
  }

  skgfrrq *request;
  RequestTarget target;
  skgfriosb *status;
};

bool check_seals(const Examined &it) {
  const ub4 file_seal = it.target.fib ? seal_of(it.target.file()) : 0;
  const ub4 handle_seal = seal_of(it.target.handle);
  if (file_seal == skgfrSEAL && handle_seal == skgfrSEAL) return true;
  return it.refuse_keep(sites::request_seal, file_seal, handle_seal);
}

bool check_forced_failure(const Examined &it) {
  uword &left = it.target.fib->serr_skgfrfib;
  if (left == 0) return true;
  if (left != 0xFFFF) --left;
  it.refuse(sites::request_forced_failure);
  it.status->status_skgfriosb = skgfriIOERROR;
  return false;
}

void start_private_status(const Examined &it) {
  skgfrsisb *const block = extension(it.status);
  make_empty(block->link_skgfrsisb);
  block->qstatus_skgfrsisb = 0;
  block->iov_skgfrsisb = it.target.handle;
}

bool check_asynchronous(const Examined &it, ub4 flags) {
  if (!(flags & skgfqioASYNC)) return true;
  start_private_status(it);
  if (it.request->iov_skgfrrq->maxaio_skgfriov == 0) {
    return it.refuse(sites::request_synchronous_handle);
  }
  if (flags & skgfqioVECTOR) return it.refuse(sites::request_asynchronous_vector);
  return true;
}

/// A vector's buffers are looked at when they are transferred, so its blocks do not count here.
bool check_vector(const Examined &it, ub4 &blocks) {
  const uword count = it.vector().nbufs_skgfrbv;
  blocks = 0;
  if (count <= it.target.fib->maxvec_skgfrfib) return true;
  return it.refuse(sites::request_vector_length, count, it.target.fib->maxvec_skgfrfib);
}

bool check_buffer(const Examined &it, ub4 &blocks) {
  const size_t block_size = it.target.fib->lblksiz_skgfrfib;
  const size_t length = it.buffer().blen_skgfrbd;
  const void *const address = it.buffer().bp_skgfrbd;
  const InBlocks in_blocks = length_in_blocks(length, block_size);
  if (!is_length_allowed(length, in_blocks)) {
    return it.refuse(sites::request_length, low_word(length));
  }
  if (!is_aligned(address)) return it.refuse(sites::request_alignment, low_word(address));

  blocks = static_cast<ub4>(in_blocks.whole);
  if (block_size != 0 || it.request->blockno_skgfrrq == 1) return true;
  return it.refuse(sites::request_block_unknown, low_word(address));
}

/// All of this is 32-bit arithmetic, so that "all ones" stays larger than every block.
bool check_bounds(const Examined &it, ub4 blocks) {
  const skgfrfib *const fib = it.target.fib;
  const ub4 first = it.request->blockno_skgfrrq;
  const ub4 last = it.target.file()->lastblk_skgfrsfib;
  const ub4 end = first - 1 + blocks + header_blocks(fib);
  const bool inside = counts_from_zero(fib) ? end <= last - 1 : first != 0 && end <= last;
  return inside || it.refuse_keep(sites::request_bounds, first, blocks, last);
}

bool check(const Examined &it, ub4 flags) {
  ub4 blocks = 0;
  if (!check_seals(it) || !check_forced_failure(it) || !check_asynchronous(it, flags)) return false;
  const bool good = flags & skgfqioVECTOR ? check_vector(it, blocks) : check_buffer(it, blocks);
  return good && check_bounds(it, blocks);
}

/// A vector has no single buffer: its control block, which nothing submits, carries none.
aiocb64 *prepare_control_block(const Examined &it, ub4 flags) {
  skgfrsisb *const block = extension(it.status);
  const skgfrbd buffer = flags & skgfqioVECTOR ? skgfrbd{} : it.buffer();
  prepare(block->aio64req_skgfrsisb, it.target.handle->fd_skgfrsiov, buffer,
          byte_offset(it.target, it.request->blockno_skgfrrq), flags & skgfqioREAD);
  block->aiosize_skgfrsisb = buffer.blen_skgfrbd;
  it.status->status_skgfriosb = skgfriPEND;
  return &block->aio64req_skgfrsisb;
}

skgfrrq *next_on(const kgglk *list, const skgfrrq *request) {
  kgglk *const next = request->link_skgfrrq.kgglknxt;
  return next == list ? nullptr : reinterpret_cast<skgfrrq *>(next);
}

}  // namespace

boolean skgfrvldtrq(kgglk *reqhdr, ub4 flags, skgfrctx *ctx, ub4 req_num, skgfrrq **req,
                    skgfrrq **valid, aiocb64 **aio_array, ub4 *nval) {
  const bool checking = ctx->flags_skgfrctx & skgfrcVALIDATE;
  boolean refused = FALSE;
  ub4 accepted = 0;
  skgfrrq *request = *req;
  for (; request && accepted < req_num; request = next_on(reqhdr, request)) {
    const Examined it(request);
    begin_code_only(it.error());
    if (checking) {
      if (!check(it, flags)) {
        refused = TRUE;
        continue;
      }
    } else if (flags & skgfqioASYNC) {
      start_private_status(it);
    }
    if (aio_array) aio_array[accepted] = prepare_control_block(it, flags);
    if ((flags & skgfqioASYNC) && (it.target.handle->flags_skgfrsiov & skgfrvSYNCHRONOUS)) {
      if (!convert(ctx, request, flags & skgfqioREAD)) refused = TRUE;
      continue;
    }
    valid[accepted++] = request;
  }
  *req = request;
  *nval = accepted;
  return refused;
}
