// Performs accepted requests synchronously: one buffer with a positioned call, a vector at the file
// position.
//
// Keeps the handle's promise about the file position. Retries nothing: an interrupted call fails
// its request.
#include "skgfr/requests/transfer.hpp"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <span>

#include "skgfr/async/async.hpp"
#include "skgfr/base/elapsed.hpp"
#include "skgfr/requests/block_address.hpp"
#include "skgfr/requests/buffer_rules.hpp"

namespace {

using namespace skgfr;

constexpr uword vector_room = 128;

/// What a call moved, with errno where it failed.
struct Moved {
  explicit Moved(ssize_t result) : bytes(result), error(result < 0 ? errno : 0) {}
  ssize_t bytes;
  int error;
};

bool end(const skgfrrq *request, skgfri status) {
  request->iosb_skgfrrq->status_skgfriosb = status;
  return status == skgfriDONE;
}

slerc *error_of(const skgfrrq *request) { return request->iosb_skgfrrq->slerc_skgfriosb; }

bool fail_transfer(const skgfrrq *request, const Site &site, const Moved &moved) {
  fail(error_of(request), site, moved.error, request->blockno_skgfrrq,
       static_cast<ub4>(moved.bytes));
  return end(request, skgfriIOERROR);
}

/// Whether a transfer of so many bytes moved all of its whole blocks, and nothing else.
bool is_complete(const skgfrfib *fib, size_t length, ssize_t moved) {
  const size_t bytes = static_cast<size_t>(moved);
  const size_t block_size = fib->lblksiz_skgfrfib;
  if (block_size == 0) return bytes >= length;
  return bytes == length - in_blocks(length, block_size).rest;
}

/// Moves the request's one buffer and keeps its time; its status is the caller's to set.
template <auto call, const Site &failure>
bool move_buffer(const skgfrrq *request) {
  begin_code_only(error_of(request));
  const RequestTarget target(request);
  const skgfrbd &buffer = request->bufspec_skgfrrq.buffer_skgfrrq;
  const off64_t offset = byte_offset(target, request->blockno_skgfrrq);
  const Stopwatch stopwatch(request->iosb_skgfrrq);

  target.handle->offset_skgfrsiov = skgfrUNKNOWN;
  const Moved moved(
      call(target.handle->fd_skgfrsiov, buffer.bp_skgfrbd, buffer.blen_skgfrbd, offset));
  const bool good = moved.bytes >= 0 && is_complete(target.fib, buffer.blen_skgfrbd, moved.bytes);
  if (!good) return fail_transfer(request, failure, moved);
  stopwatch.store();
  return true;
}

template <auto call>
bool transfer_positioned(skgfrctx *, const skgfrrq *request) {
  return move_buffer<call, sites::positioned_transfer>(request) && end(request, skgfriDONE);
}

bool refuse(const skgfrrq *request, const Site &site, ub4 a, ub4 b = 0) {
  fail(error_of(request), site, 0, a, b);
  return end(request, skgfriBADREQ);
}

/// The kernel takes a table of buffers as it stands.
static_assert(sizeof(iovec) == sizeof(skgfrbd));
static_assert(offsetof(iovec, iov_base) == offsetof(skgfrbd, bp_skgfrbd));
static_assert(offsetof(iovec, iov_len) == offsetof(skgfrbd, blen_skgfrbd));

const iovec *as_kernel_table(const skgfrbv &vector) {
  return reinterpret_cast<const iovec *>(vector.bda_skgfrbv);
}

/// Checks the vector's buffers in order; bytes becomes their length together.
bool check_vector(const skgfrrq *request, const skgfrfib *fib, size_t &bytes) {
  const skgfrbv &vector = request->bufspec_skgfrrq.bufvec_skgfrrq;
  const uword count = vector.nbufs_skgfrbv;
  if (count > vector_room) return refuse(request, sites::request_vector_length, count, vector_room);
  const size_t block_size = fib->lblksiz_skgfrfib;
  size_t sum = 0;
  for (const skgfrbd &buffer : std::span(vector.bda_skgfrbv, count)) {
    const size_t length = buffer.blen_skgfrbd;
    if (!is_length_allowed(length, length_in_blocks(length, block_size))) {
      return refuse(request, sites::element_length, low_word(length));
    }
    if (!is_aligned(buffer.bp_skgfrbd)) {
      return refuse(request, sites::element_alignment, low_word(buffer.bp_skgfrbd));
    }
    sum += length;
  }
  bytes = sum;
  return true;
}

/// Moves the file position unless it is known to stand at the block; until the transfer succeeded
/// it is known no more.
bool seek(const skgfrrq *request, const RequestTarget &target) {
  const ub4 block = request->blockno_skgfrrq;
  const ub4 position = target.handle->offset_skgfrsiov;
  target.handle->offset_skgfrsiov = skgfrUNKNOWN;
  if (position == block && position != skgfrUNKNOWN) return true;
  if (lseek64(target.handle->fd_skgfrsiov, byte_offset(target, block), SEEK_SET) >= 0) return true;
  fail(error_of(request), sites::vector_seek, errno, block);
  return end(request, skgfriIOERROR);
}

template <auto call>
bool transfer_vectored(skgfrctx *, const skgfrrq *request) {
  begin_code_only(error_of(request));
  const RequestTarget target(request);
  const skgfrbv &vector = request->bufspec_skgfrrq.bufvec_skgfrrq;
  size_t bytes = 0;
  if (!check_vector(request, target.fib, bytes)) return false;
  const Stopwatch stopwatch(request->iosb_skgfrrq);
  if (!seek(request, target)) return false;

  const Moved moved(call(target.handle->fd_skgfrsiov, as_kernel_table(vector),
                         static_cast<int>(vector.nbufs_skgfrbv)));
  const bool sized = target.fib->lblksiz_skgfrfib != 0;
  const bool good = sized ? moved.bytes == static_cast<ssize_t>(bytes) : moved.bytes > 0;
  if (!good) return fail_transfer(request, sites::vector_transfer, moved);
  stopwatch.store();
  // Without a block size nobody can tell at which block the position stands now.
  if (sized) {
    target.handle->offset_skgfrsiov = request->blockno_skgfrrq + block_count(target.fib, bytes);
  }
  return end(request, skgfriDONE);
}

}  // namespace

namespace skgfr {

bool read_positioned(skgfrctx *ctx, const Batch &batch) {
  return for_each_request<transfer_positioned<pread64>>(ctx, batch);
}
bool write_positioned(skgfrctx *ctx, const Batch &batch) {
  return for_each_request<transfer_positioned<pwrite64>>(ctx, batch);
}
bool read_vectored(skgfrctx *ctx, const Batch &batch) {
  return for_each_request<transfer_vectored<readv>>(ctx, batch);
}
bool write_vectored(skgfrctx *ctx, const Batch &batch) {
  return for_each_request<transfer_vectored<writev>>(ctx, batch);
}

bool convert(skgfrctx *ctx, skgfrrq *request, bool read) {
  const bool moved = read ? move_buffer<pread64, sites::converted_transfer>(request)
                          : move_buffer<pwrite64, sites::converted_transfer>(request);
  if (moved) convert_pending(ctx, extension(request->iosb_skgfrrq));
  return moved;
}

}  // namespace skgfr
