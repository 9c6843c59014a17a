// How requests are refused: the first rule that a request breaks, told in its error record.
#include "skgfr/requests/rules.hpp"

#include "skgfr/async/async.hpp"

namespace {

using namespace skgfr;

/// A detail word holds 32 bits; of a wider length or address it takes the low ones.
ub4 low_word(size_t value) { return static_cast<ub4>(value); }
ub4 low_word(const void *address) { return static_cast<ub4>(reinterpret_cast<uintptr_t>(address)); }

bool refuse(const skgfrrq *request, const Site &site, ub4 a = 0, ub4 b = 0) {
  fail(error_of(request), site, 0, a, b);
  return end(request, skgfriBADREQ);
}

/// For the rules that leave slercerrno alone.
bool refuse_keep(const skgfrrq *request, const Site &site, ub4 a, ub4 b, ub4 c = 0) {
  fail_keep(error_of(request), site, a, b, c);
  return end(request, skgfriBADREQ);
}

bool force_failure(const skgfrrq *request) {
  uword &left = request->iov_skgfrrq->fib_skgfriov->serr_skgfrfib;
  if (left != 0xFFFF) --left;
  fail(error_of(request), sites::request_forced_failure);
  return end(request, skgfriIOERROR);
}

}  // namespace

namespace skgfr {

bool refuse_handle(const skgfrrq *request) {
  skgfriov *const iov = request->iov_skgfrrq;
  skgfrfib *const fib = iov->fib_skgfriov;
  const ub4 file_seal = fib ? seal_of(extension(fib)) : 0;
  const ub4 handle_seal = seal_of(extension(iov));
  if (file_seal != skgfrSEAL || handle_seal != skgfrSEAL) {
    return refuse_keep(request, sites::request_seal, file_seal, handle_seal);
  }
  if (fib->serr_skgfrfib != 0) return force_failure(request);
  begin_request(extension(request->iosb_skgfrrq), extension(iov));
  if (iov->maxaio_skgfriov == 0) return refuse(request, sites::request_synchronous_handle);
  return refuse(request, sites::request_asynchronous_vector);
}

bool refuse_count(const skgfrrq *request, ub4 most) {
  const uword count = request->bufspec_skgfrrq.bufvec_skgfrrq.nbufs_skgfrbv;
  return refuse(request, sites::request_vector_length, count, most);
}

bool refuse_buffer(const skgfrrq *request) {
  const Target target(request->iov_skgfrrq);
  const auto [address, length] = request->bufspec_skgfrrq.buffer_skgfrrq;
  if (!is_length(length) || target.in_blocks(length).rest != 0) {
    return refuse(request, sites::request_length, low_word(length));
  }
  if (!is_aligned(reinterpret_cast<uintptr_t>(address))) {
    return refuse(request, sites::request_alignment, low_word(address));
  }
  return refuse(request, sites::request_block_unknown, low_word(address));
}

bool check_odd_buffer(const skgfrrq *request) {
  const Target target(request->iov_skgfrrq);
  const auto [address, length] = request->bufspec_skgfrrq.buffer_skgfrrq;
  const InBlocks blocks = target.in_blocks(length);
  const ub4 block = request->blockno_skgfrrq;
  const bool good = is_length(length) && blocks.rest == 0 &&
                    is_aligned(reinterpret_cast<uintptr_t>(address)) &&
                    (target.block_size != 0 || block == 1);
  if (!good) return refuse_buffer(request);
  return target.holds(block, blocks.whole) || refuse_bounds(request, blocks.whole);
}

bool check_each_element(const skgfrrq *request) {
  const Target target(request->iov_skgfrrq);
  const skgfrbv &vector = request->bufspec_skgfrrq.bufvec_skgfrrq;
  for (const auto &[address, length] : std::span(vector.bda_skgfrbv, vector.nbufs_skgfrbv)) {
    if (!is_length(length) || target.in_blocks(length).rest != 0) {
      return refuse(request, sites::element_length, low_word(length));
    }
    if (!is_aligned(reinterpret_cast<uintptr_t>(address))) {
      return refuse(request, sites::element_alignment, low_word(address));
    }
  }
  return true;
}

bool refuse_bounds(const skgfrrq *request, size_t blocks) {
  return refuse_keep(request, sites::request_bounds, request->blockno_skgfrrq, low_word(blocks),
                     extension(request->iov_skgfrrq->fib_skgfriov)->lastblk_skgfrsfib);
}

}  // namespace skgfr
