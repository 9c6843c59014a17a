// Every rule that requests have to keep, once, in the order in which they are applied:
//
//   the handle, before the first request of a run   seals, forced failure, room for asynchronous requests
//   each request                                    its vector's count, or its buffer; the file's bounds
//   a vector, when it is transferred                its buffers; the bounds of a write
//
// A refusal writes the request's status and error record; all of them stand in rules.cpp.
#pragma once

#include <span>

#include "skgfr/base/aligned_buffer.hpp"
#include "skgfr/client.h"
#include "skgfr/requests/batch.hpp"

namespace skgfr {

inline constexpr size_t longest_transfer = skgfr_longest_transfer;
inline constexpr uword vector_room = 128;

inline bool is_checking(const skgfrctx *ctx) { return ctx->flags_skgfrctx & skgfrcVALIDATE; }

/// Refusals; always false.
[[gnu::cold]] bool refuse_handle(const skgfrrq *request);
[[gnu::cold]] bool refuse_count(const skgfrrq *request, ub4 most);
[[gnu::cold]] bool refuse_buffer(const skgfrrq *request);
[[gnu::cold]] bool refuse_bounds(const skgfrrq *request, size_t blocks);

/// What has to hold of the handle; a request that finds a failure to be forced uses it up.
template <bool asynchronous>
inline bool check_handle(const skgfrrq *request, ub4 flags) {
  skgfriov *const iov = request->iov_skgfrrq;
  const skgfrfib *const fib = iov->fib_skgfriov;
  const bool sealed = fib && seal_of(extension(const_cast<skgfrfib *>(fib))) == skgfrSEAL &&
                      seal_of(extension(iov)) == skgfrSEAL;
  bool good = sealed && fib->serr_skgfrfib == 0;
  if constexpr (asynchronous) good = good && iov->maxaio_skgfriov != 0 && !(flags & skgfqioVECTOR);
  return good || refuse_handle(request);
}

/// A length within bounds; 0 - 1 is longer than all.
inline bool is_length(size_t length) { return length - 1 < longest_transfer; }

inline bool is_aligned(uintptr_t address) { return address % sector_size == 0; }

/// The same for sizes that are no power of two, and for files whose block size is not known: of these
/// only block 1 can be found.
bool check_odd_buffer(const skgfrrq *request);

inline bool check_buffer(const Target &target, const skgfrrq *request) {
  if (target.mask == 0) [[unlikely]]
    return check_odd_buffer(request);
  const skgfrbd &buffer = request->bufspec_skgfrrq.buffer_skgfrrq;
  const size_t length = buffer.blen_skgfrbd;
  const bool good = is_length(length) && (length & target.mask) == 0 &&
                    is_aligned(reinterpret_cast<uintptr_t>(buffer.bp_skgfrbd));
  if (!good) return refuse_buffer(request);
  const size_t blocks = length >> target.shift;
  return target.holds(request->blockno_skgfrrq, blocks) || refuse_bounds(request, blocks);
}

/// The exact search for the first bad buffer of a vector; true when there is none.
[[gnu::cold]] bool check_each_element(const skgfrrq *request);

/// A vector's buffers are looked at when they are transferred, so its blocks do not count yet.
inline bool check_vector(const Target &target, const skgfrrq *request) {
  const ub4 most = target.fib->maxvec_skgfrfib;
  if (request->bufspec_skgfrrq.bufvec_skgfrrq.nbufs_skgfrbv > most)
    return refuse_count(request, most);
  return target.holds(request->blockno_skgfrrq, 0) || refuse_bounds(request, 0);
}

/// The buffers of a vector, judged together; bytes becomes their length.
inline bool check_elements(const Target &target, const skgfrrq *request, size_t &bytes) {
  const skgfrbv &vector = request->bufspec_skgfrrq.bufvec_skgfrrq;
  if (vector.nbufs_skgfrbv > vector_room) return refuse_count(request, vector_room);
  uintptr_t addresses = 0;
  size_t lengths = 0, lengths_less_one = 0, sum = 0;
#pragma GCC unroll 2
  for (const auto &[address, length] : std::span(vector.bda_skgfrbv, vector.nbufs_skgfrbv)) {
    addresses |= reinterpret_cast<uintptr_t>(address);
    lengths |= length;
    lengths_less_one |= length - 1;
    sum += length;
  }
  bytes = sum;
  // Where the block size is a power of two, what is left of all lengths shows in their bits together.
  const bool good = target.mask != 0 && (lengths & target.mask) == 0 &&
                    lengths_less_one < longest_transfer && is_aligned(addresses);
  return good || check_each_element(request);
}

}  // namespace skgfr
