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

#include "skgfr/async/async.hpp"
#include "skgfr/base/elapsed.hpp"
#include "skgfr/requests/rules.hpp"

namespace {

using namespace skgfr;

/// Tells what a call moved, and its error where it failed.
[[gnu::cold]] bool fail_transfer(const skgfrrq *request, const Site &site, ssize_t moved) {
  fail(error_of(request), site, moved < 0 ? errno : 0, request->blockno_skgfrrq,
       static_cast<ub4>(moved));
  return end(request, skgfriIOERROR);
}

/// Whether a transfer of so many bytes moved all of its whole blocks, and nothing else.
inline bool is_complete(const Target &target, size_t length, ssize_t moved) {
  const size_t bytes = static_cast<size_t>(moved);
  if (target.block_size == 0) return moved >= 0 && bytes >= length;
  return bytes == length - target.in_blocks(length).rest;
}

/// Moves the request's one buffer and keeps its time; its status is the caller's to set.
template <auto call, const Site &failure>
inline bool move_buffer(const Target &target, const skgfrrq *request) {
  begin_code_only(error_of(request));
  const skgfrbd &buffer = request->bufspec_skgfrrq.buffer_skgfrrq;
  const Stopwatch stopwatch(request->iosb_skgfrrq);
  target.handle->offset_skgfrsiov = skgfrUNKNOWN;
  const ssize_t moved = call(target.handle->fd_skgfrsiov, buffer.bp_skgfrbd, buffer.blen_skgfrbd,
                             target.byte_offset(request->blockno_skgfrrq));
  if (!is_complete(target, buffer.blen_skgfrbd, moved)) {
    return fail_transfer(request, failure, moved);
  }
  stopwatch.store(request->iosb_skgfrrq);
  return true;
}

template <auto call>
inline bool transfer_positioned(skgfrctx *, const Target &target, skgfrrq *request) {
  return move_buffer<call, sites::positioned_transfer>(target, request) && end(request, skgfriDONE);
}

/// The kernel takes a table of buffers as it stands.
static_assert(sizeof(iovec) == sizeof(skgfrbd));
static_assert(offsetof(iovec, iov_base) == offsetof(skgfrbd, bp_skgfrbd));
static_assert(offsetof(iovec, iov_len) == offsetof(skgfrbd, blen_skgfrbd));

const iovec *as_kernel_table(const skgfrbv &vector) {
  return reinterpret_cast<const iovec *>(vector.bda_skgfrbv);
}

/// Moves the file position unless it is known to stand at the block; until the transfer succeeded
/// it is known no more.
inline bool seek(const Target &target, const skgfrrq *request) {
  const ub4 block = request->blockno_skgfrrq;
  const ub4 position = target.handle->offset_skgfrsiov;
  target.handle->offset_skgfrsiov = skgfrUNKNOWN;
  if (position == block && position != skgfrUNKNOWN) return true;
  if (lseek64(target.handle->fd_skgfrsiov, target.byte_offset(block), SEEK_SET) >= 0) return true;
  fail(error_of(request), sites::vector_seek, errno, block);
  return end(request, skgfriIOERROR);
}

/// A vector's blocks are counted only now, and a write may not run over the end of its file.
inline bool check_end(const skgfrctx *ctx, const Target &target, const skgfrrq *request,
                      size_t bytes) {
  if (!is_checking(ctx) || target.block_size == 0) return true;
  const size_t blocks = target.in_blocks(bytes).whole;
  return target.reaches(request->blockno_skgfrrq, blocks) || refuse_bounds(request, blocks);
}

using VectorCall = ssize_t (*)(int fd, const iovec *table, int count);

bool transfer_vectored(skgfrctx *ctx, const Target &target, skgfrrq *request, VectorCall call,
                       bool writes) {
  begin_code_only(error_of(request));
  const skgfrbv &vector = request->bufspec_skgfrrq.bufvec_skgfrrq;
  size_t bytes = 0;
  if (!check_elements(target, request, bytes)) return false;
  if (writes && !check_end(ctx, target, request, bytes)) return false;
  const Stopwatch stopwatch(request->iosb_skgfrrq);
  if (!seek(target, request)) return false;

  const ssize_t moved = call(target.handle->fd_skgfrsiov, as_kernel_table(vector),
                             static_cast<int>(vector.nbufs_skgfrbv));
  // Without a block size nobody can tell at which block the position stands now.
  const bool sized = target.mask != 0 || target.block_size != 0;
  const bool good = sized ? moved == static_cast<ssize_t>(bytes) : moved > 0;
  if (!good) return fail_transfer(request, sites::vector_transfer, moved);
  if (sized) [[likely]] {
    const size_t blocks = target.in_blocks(bytes).whole;
    target.handle->offset_skgfrsiov = request->blockno_skgfrrq + static_cast<ub4>(blocks);
  }
  stopwatch.store(request->iosb_skgfrrq);
  return end(request, skgfriDONE);
}

bool read_vector(skgfrctx *ctx, const Target &target, skgfrrq *request) {
  return transfer_vectored(ctx, target, request, readv, false);
}
bool write_vector(skgfrctx *ctx, const Target &target, skgfrrq *request) {
  return transfer_vectored(ctx, target, request, writev, true);
}

}  // namespace

namespace skgfr {

constinit const Way read_positioned{transfer_positioned<pread64>,
                                    one_by_one_in_place<transfer_positioned<pread64>>};
constinit const Way write_positioned{transfer_positioned<pwrite64>,
                                     one_by_one_in_place<transfer_positioned<pwrite64>>};
constinit const Way read_vectored{read_vector, one_by_one};
constinit const Way write_vectored{write_vector, one_by_one};

bool convert(skgfrctx *ctx, skgfrrq *request, bool read) {
  const Target target(request->iov_skgfrrq);
  const bool moved = read ? move_buffer<pread64, sites::converted_transfer>(target, request)
                          : move_buffer<pwrite64, sites::converted_transfer>(target, request);
  if (moved) convert_pending(ctx, extension(request->iosb_skgfrrq));
  return moved;
}

}  // namespace skgfr
