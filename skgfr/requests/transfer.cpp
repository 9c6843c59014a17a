// Performs accepted requests synchronously: one buffer with a positioned call, a vector at the file
// position.
//
// Keeps the handle's promise about the file position. Retries nothing: an interrupted call fails
// its request.
#include "skgfr/requests/transfer.hpp"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

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

/// Moves the request's one buffer and keeps its time; its status is the caller's to set.
template <class Call>
bool move_buffer(const skgfrrq *request, Call call, const Site &failure) {
  begin_code_only(error_of(request));
  const RequestTarget target(request);
  const skgfrbd &buffer = request->bufspec_skgfrrq.buffer_skgfrrq;
  const off64_t offset = byte_offset(target, request->blockno_skgfrrq);
  const size_t block_size = target.fib->lblksiz_skgfrfib;
  const Stopwatch stopwatch(request->iosb_skgfrrq);

  target.handle->offset_skgfrsiov = skgfrUNKNOWN;
  const Moved moved(
      call(target.handle->fd_skgfrsiov, buffer.bp_skgfrbd, buffer.blen_skgfrbd, offset));
  const size_t whole_blocks = block_count(target.fib, buffer.blen_skgfrbd) * block_size;
  const bool good =
      moved.bytes >= 0 && (block_size ? static_cast<size_t>(moved.bytes) == whole_blocks
                                      : static_cast<size_t>(moved.bytes) >= buffer.blen_skgfrbd);
  if (!good) return fail_transfer(request, failure, moved);
  stopwatch.store();
  return true;
}

template <class Call>
bool transfer_positioned(const skgfrrq *request, Call call) {
  return move_buffer(request, call, sites::positioned_transfer) && end(request, skgfriDONE);
}

bool refuse(const skgfrrq *request, const Site &site, ub4 a, ub4 b = 0) {
  fail(error_of(request), site, 0, a, b);
  return end(request, skgfriBADREQ);
}

/// Checks the vector's buffers in order and gathers them; blocks becomes their count together.
bool gather(const skgfrrq *request, const skgfrfib *fib, iovec *parts, ub4 &blocks) {
  const skgfrbv &vector = request->bufspec_skgfrrq.bufvec_skgfrrq;
  const uword count = vector.nbufs_skgfrbv;
  if (count > vector_room) return refuse(request, sites::request_vector_length, count, vector_room);
  blocks = 0;
  for (uword i = 0; i < count; ++i) {
    const skgfrbd &buffer = vector.bda_skgfrbv[i];
    if (!is_length_allowed(fib, buffer.blen_skgfrbd)) {
      return refuse(request, sites::element_length, low_word(buffer.blen_skgfrbd));
    }
    if (!is_aligned(buffer.bp_skgfrbd)) {
      return refuse(request, sites::element_alignment, low_word(buffer.bp_skgfrbd));
    }
    parts[i] = iovec{buffer.bp_skgfrbd, buffer.blen_skgfrbd};
    blocks += block_count(fib, buffer.blen_skgfrbd);
  }
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

template <class Call>
bool transfer_vectored(skgfrrq *request, Call call) {
  begin_code_only(error_of(request));
  const RequestTarget target(request);
  const uword count = request->bufspec_skgfrrq.bufvec_skgfrrq.nbufs_skgfrbv;
  iovec parts[vector_room];
  ub4 blocks = 0;
  if (!gather(request, target.fib, parts, blocks)) return false;
  const Stopwatch stopwatch(request->iosb_skgfrrq);
  if (!seek(request, target)) return false;

  const Moved moved(call(target.handle->fd_skgfrsiov, parts, static_cast<int>(count)));
  const size_t block_size = target.fib->lblksiz_skgfrfib;
  const bool good =
      block_size ? moved.bytes == static_cast<ssize_t>(blocks * block_size) : moved.bytes > 0;
  if (!good) return fail_transfer(request, sites::vector_transfer, moved);
  stopwatch.store();
  // Without a block size nobody can tell at which block the position stands now.
  if (block_size) target.handle->offset_skgfrsiov = request->blockno_skgfrrq + blocks;
  return end(request, skgfriDONE);
}

}  // namespace

namespace skgfr {

bool read_positioned(skgfrrq *request) { return transfer_positioned(request, pread64); }
bool write_positioned(skgfrrq *request) { return transfer_positioned(request, pwrite64); }
bool read_vectored(skgfrrq *request) { return transfer_vectored(request, readv); }
bool write_vectored(skgfrrq *request) { return transfer_vectored(request, writev); }

bool convert(skgfrctx *ctx, skgfrrq *request, bool read) {
  const bool moved = read ? move_buffer(request, pread64, sites::converted_transfer)
                          : move_buffer(request, pwrite64, sites::converted_transfer);
  if (moved) convert_pending(ctx, extension(request->iosb_skgfrrq));
  return moved;
}

}  // namespace skgfr
