// Handles: opening, closing, locks, flushes; and deletion by name.
#include "tests/support/own_process.hpp"
#include "tests/support/world.hpp"

using namespace support;

namespace {

class Handles : public LayerTest {};

/// The seal, and the mark of a refused close on top of it.
ub8 seal(World &w) { return ub8{priv(w.iov)->seal_skgfrsiov} + w.iov->flags_skgfriov; }
ub8 open_file(World &w) { return skgfofi(&w.se, w.ctx, w.fib, w.iov, 0, w.flags), seal(w); }
ub8 close_file(World &w) { return skgfcfi(&w.se, w.ctx, w.iov), seal(w); }
ub8 flush(World &w) { return skgfsync(&w.se, w.ctx, w.iov), seal(w); }
ub8 lock(World &w) { return skgfglk(&w.se, w.ctx, w.iov, FALSE), seal(w); }
ub8 share(World &w) { return skgfglk(&w.se, w.ctx, w.iov, TRUE), seal(w); }
ub8 unlock(World &w) { return skgfrlk(&w.se, w.ctx, w.iov), seal(w); }
template <int question>
ub8 ask(World &w) {
  return skgfask(&w.se, w.ctx, w.iov, static_cast<skgfrq>(question));
}
ub8 erase(World &w) { return skgfrdel(&w.se, w.ctx, txt(w.name), w.name.size(), w.type); }

void opened(World &w) {
  identified(w);
  w.flags = skgfofiWRITE;
  open_file(w);
}

TEST_F(Handles, RetryDevicesThatAnswerEio) {
  for (const int failures : {2, 5, 6}) {
    World w;
    identified(w);
    fault_reset();
    fault_arm("open64", 0, failures, EIO, FAULT_FAILS);
    fault_arm("sleep", 0, 9, 0, 0);
    const int pauses = std::min(failures, 5);
    const bool opens = failures == pauses;
    const Expected expected = opens ? Expected{0} : Expected{27041, EIO, {3}};
    const std::string line = "skgfr Open: errno = 5, attempts = " + std::to_string(failures);
    EXPECT_TRUE(gives(w, open_file, opens ? skgfrSEAL : 0, expected));
    EXPECT_EQ(std::pair(fault_calls("open64"), fault_calls("sleep")),
              std::pair(pauses + 1, pauses));
    EXPECT_EQ(client().lines, std::vector<std::string>(opens, line + " \n"));
    EXPECT_EQ(w.ctx->spare1_skgfrctx + w.ctx->spare2_skgfrctx == 0, opens);
    close_file(w);
  }
}

void expect_lock(World &w, Operation take, int met, int other) {
  EXPECT_TRUE(gives(w, take, skgfrSEAL));
  EXPECT_EQ(lock_met(other), met);
  if (met == F_WRLCK) {
    const Expected held{27086, EAGAIN, {8, static_cast<ub4>(getpid())}};
    in_own_process([&] { EXPECT_TRUE(gives(w, share, skgfrSEAL, held)); });
  }
  EXPECT_TRUE(gives(w, unlock, skgfrSEAL));
  EXPECT_EQ(lock_met(other), F_UNLCK);
}

TEST_F(Handles, OpenLockFlushAndClose) {
  const std::tuple<ub4, int, uword, Operation, int> rows[] = {
      {0, O_RDONLY, 0, lock, F_RDLCK},
      {skgfofiWRITE, O_RDWR, 0, lock, F_WRLCK},
      {skgfofiWRITE | skgfofiDSYNC, O_RDWR | O_DSYNC, 4, share, F_RDLCK},
      {skgfofiWRITE | skgfofiDSYNC2 | skgfofiNOMIRROR, O_RDWR | O_DSYNC, 4, lock, F_WRLCK}};
  for (const auto &[flags, mode, synchronous, take, met] : rows) {
    SCOPED_TRACE(flags);
    World w;
    opened(w);  // and now again, in another way
    const int other = open(w.name.c_str(), O_RDWR), before = open_descriptors();
    priv(w.fib)->flags_skgfrsfib = 3;
    w.flags = static_cast<ub1>(flags);
    fault_reset();
    EXPECT_TRUE(gives(w, open_file, skgfrSEAL));
    const skgfrsiov *const handle = priv(w.iov);
    const int fd = handle->fd_skgfrsiov;
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_DSYNC), mode);
    EXPECT_EQ(w.iov->fib_skgfriov, static_cast<skgfrfib *>(w.fib));
    EXPECT_EQ(std::tuple(handle->fsync_skgfrsiov, handle->offset_skgfrsiov),
              std::tuple(synchronous, unknown));
    EXPECT_EQ(priv(w.fib)->flags_skgfrsfib, flags & skgfofiNOMIRROR ? 2U : 3U);
    EXPECT_EQ(std::pair(w.ctx->curopen_skgfrctx, open_descriptors()), std::pair(1U, before));

    expect_lock(w, take, met, other);
    for (const Operation last : {flush, close_file}) {
      EXPECT_TRUE(gives(w, last, last == flush ? skgfrSEAL : 0));
    }
    EXPECT_EQ(fault_calls("fsync"), synchronous ? 1 : 3);  // one for the handle before
    EXPECT_EQ(std::pair(handle->fd_skgfrsiov, w.ctx->curopen_skgfrctx), std::pair(0, 0U));
    EXPECT_EQ(open_descriptors(), before - 1);
    close(other);
  }
}

TEST_F(Handles, FailOnRequest) {
  World w;
  opened(w);
  for (const ub2 count : {ub2{2}, ub2{0xFFFF}}) {
    skgfrser(&w.se, w.ctx, w.fib, count);
    for (int i = 0; i < 4; ++i) {
      const bool fails = i < count;
      EXPECT_TRUE(gives(w, open_file, skgfrSEAL, {fails * 27051, 0, {fails}}));
    }
    EXPECT_EQ(w.fib->serr_skgfrfib, count == 2 ? 0 : count);
  }
  close_file(w);
}

TEST_F(Handles, AllowAsynchronousRequestsWhereTheyWork) {
  const std::tuple<bool, ub4, uword, uword, uword> rows[] = {{false, 0, 5, 0, 16},
                                                             {false, skgfrcASYNC, 5, 5, 0},
                                                             {false, skgfrcASYNC, 9999, 1024, 0},
                                                             {true, 0, 5, 5, 0}};
  for (const auto &[device, options, wanted, allowed, flags] : rows) {
    World w;
    if (w.ctx->maxaio_skgfrctx == 0) GTEST_SKIP() << "no asynchronous I/O here";
    w.name = device ? "/dev/zero" : w.dir.file("file", 1024);
    identify(w);
    w.ctx->flags_skgfrctx |= options;
    skgfofi(&w.se, w.ctx, w.fib, w.iov, wanted, 0);
    EXPECT_EQ(std::pair(w.iov->maxaio_skgfriov, priv(w.iov)->flags_skgfrsiov),
              std::pair(allowed, flags));
    EXPECT_TRUE(gives(w, ask<skgfrqWRITEV>, device ? skgfrnMEMCPY : skgfrnVECBUF));
    EXPECT_TRUE(gives(w, ask<skgfrqAREADV>, skgfrnMEMCPY, {allowed ? 0 : 27057}));
    close_file(w);
  }
}

TEST_F(Handles, DeleteNoDevices) {
  World w;
  w.name = "/dev/null";
  fault_arm("unlink", 0, 1, EPERM, FAULT_FAILS);  // the device outlives a faulty product
  EXPECT_TRUE(gives(w, erase, skgfrrOK));
}

}  // namespace
