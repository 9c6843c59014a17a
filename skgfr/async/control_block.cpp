// Prepares the control blocks of asynchronous requests. Submits nothing.
#include "skgfr/async/async.hpp"

namespace skgfr {

void prepare(aiocb64 &block, int fd, const skgfrbd &buffer, off64_t offset, bool read) {
  const auto prepare_kernel_block = read ? io_prep_pread : io_prep_pwrite;
  prepare_kernel_block(&block.__iocb, fd, buffer.bp_skgfrbd, buffer.blen_skgfrbd, offset);
  block.__iocb.data = &block;
  block.__error_code = 0;
  block.__aio_key = in_progress;
}

}  // namespace skgfr
