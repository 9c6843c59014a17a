// Handles: opening, closing, locks, flushes; and deletion by name.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/support/file_rows.hpp"

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
ub8 erase_folder(World &w) { return skgfrddel(&w.se, txt(w.name), w.name.size()); }

void opened(World &w) {
  file_of_1024(w), identify(w);
  w.flags = skgfofiWRITE;
  open_file(w);
}
void sealed_wrongly(World &w) { priv(w.fib)->seal_skgfrsfib = priv(w.iov)->seal_skgfrsiov = 77; }

void forced(World &w) { w.fib->serr_skgfrfib = 1; }
void at_ceiling(World &w) { w.ctx->maxopen_skgfrctx = 1; }
void large(World &w) { w.fib->filsiz_skgfrfib = 100, w.ctx->limfsiz_skgfrctx = 50 * 512 + 511; }
void outstanding(World &w) { priv(w.iov)->aiopend_skgfrsiov = 2; }
void refused(World &) { fault_arm("fcntl", 1, 1, EAGAIN, FAULT_FAILS); }
void write_only(World &w) {
  const int fd = open(w.name.c_str(), O_WRONLY);
  dup2(fd, priv(w.iov)->fd_skgfrsiov);
  close(fd);
}
void folder(World &w) { w.name = w.dir.path(""); }
void link_to_folder(World &w) {
  std::filesystem::create_directory_symlink(w.dir.path(""), w.name = w.dir.path("link"));
}

TEST_F(Handles, TellEveryFailureApart) {
  const FailureRow unsealed[] = {
      {open_file, {27050, 0, {1, 77}}, 77}, {close_file, {27050, 0, {2, 77}}, 77},
      {flush, {27050, 0, {3, 77}}, 77},     {ask<skgfrqREADV>, {27050, 0, {6, 77}}, skgfrnMEMCPY},
      {lock, {27050, 0, {11, 77}}, 77},     {unlock, {27050, 0, {12, 77}}, 77},
  };
  const FailureRow rows[] = {
      {open_file, {27051, 0, {1}}, skgfrSEAL, {}, forced},
      {open_file, {27077}, skgfrSEAL, {}, at_ceiling},
      {open_file, {27092, 0, {50, 101}}, skgfrSEAL, {}, large},
      {open_file, {27045, EIO, {3}}, skgfrSEAL, {"close", EIO}},
      {open_file, {27041, EACCES, {3}}, 0, {"open64", EACCES}},
      {open_file, {27060, EBADF}, 0, {"fcntl", EBADF}},
      {close_file, {27073, 0, {2}}, skgfrSEAL + skgfrvPENDING, {}, outstanding},
      {close_file, {27052, EIO, {1}}, 0, {"fsync", EIO}},
      {close_file, {27045, EIO, {3}}, skgfrSEAL, {"close", EIO}},
      {flush, {27052, EIO, {2}}, skgfrSEAL, {"fsync", EIO}},
      {ask<skgfrqAREADV>, {27057}, skgfrnMEMCPY},
      {ask<skgfrqAWRITEV>, {27057}, skgfrnMEMCPY},
      {ask<5>, {27058}, skgfrnMEMCPY},
      {lock, {27088, EBADF, {10}}, skgfrSEAL, {"fcntl", EBADF}},
      {share, {27087, 0, {9}}, skgfrSEAL, {}, write_only},
      {lock, {27086, EAGAIN, {9, EDEADLK}}, skgfrSEAL, {"fcntl", EDEADLK, 1}, refused},
      {lock, {27086, EAGAIN, {10}}, skgfrSEAL, {"fcntl", EAGAIN, 1}},
      {unlock, {27089, ENOLCK, {11}}, skgfrSEAL, {"fcntl", ENOLCK}},
      {erase, {27036, 0, {7345, 4}}, skgfrrERROR, {}, climbing},
      {erase, {27037, ENOENT, {6}}, skgfrrNOTFOUND, {}, missing},
      {erase, {27037, EACCES, {6}}, skgfrrERROR, {"stat64", EACCES}},
      {erase, {27056, EPERM}, skgfrrERROR, {"unlink", EPERM}},
      {erase, {27056, ENOENT}, skgfrrNOTFOUND, {"unlink", ENOENT}},
      {erase_folder, {27036, 0, {7345, 11}}, skgfrrERROR, {}, climbing},
      {erase_folder, {27037, ENOENT, {11}}, skgfrrNOTFOUND, {}, missing},
      {erase_folder, {27037, EACCES, {11}}, skgfrrERROR, {"stat64", EACCES}},
      {erase_folder, {27037, 0, {12}}, skgfrrERROR},
      {erase_folder, {27093, ENOTEMPTY}, skgfrrERROR, {}, folder},
      {erase_folder, {27056, EISDIR}, skgfrrERROR, {"readlink", EIO}, folder},
      {erase_folder, {27056, EPERM}, skgfrrERROR, {"unlink", EPERM}, link_to_folder},
  };
  expect_failures(sealed_wrongly, unsealed);
  expect_failures(opened, rows);
}

TEST_F(Handles, RetryDevicesThatAnswerEio) {
  const std::tuple<int, int, std::vector<std::string>> rows[] = {
      {2, 2, {"skgfr Open: errno = 5, attempts = 2 \n"}},
      {5, 5, {"skgfr Open: errno = 5, attempts = 5 \n"}},
      {6, 5, {}},
  };
  for (const auto &[failures, pauses, trace] : rows) {
    SCOPED_TRACE(failures);
    World w;
    file_of_1024(w), identify(w), fault_reset();
    fault_arm("open64", 0, failures, EIO, FAULT_FAILS);
    fault_arm("sleep", 0, 9, 0, 0);
    const Expected expected = failures > 5 ? Expected{27041, EIO, {3}} : Expected{0};
    EXPECT_TRUE(gives(w, open_file, failures > 5 ? 0 : skgfrSEAL, expected));
    EXPECT_EQ(fault_calls("open64"), pauses + 1);
    EXPECT_EQ(fault_calls("sleep"), pauses);
    EXPECT_EQ(client().lines, trace);
    EXPECT_TRUE(trace.empty() || w.ctx->spare1_skgfrctx + w.ctx->spare2_skgfrctx == 0);
    close_file(w);
  }
}

/// What fcntl answers a second process that wants to write far behind its end: the lock's type.
int lock_met_by_another_process(const World &w) {
  const pid_t child = fork();
  if (child == 0) {
    struct flock64 met {};
    met.l_type = F_WRLCK;
    met.l_start = 1 << 20;  // where the file may yet grow
    const int fd = open(w.name.c_str(), O_RDWR);
    _exit(fcntl(fd, F_GETLK64, &met) == 0 ? met.l_type : 99);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WEXITSTATUS(status);
}

TEST_F(Handles, OpenLockFlushAndClose) {
  const std::tuple<ub4, int, uword, boolean, int> rows[] = {
      {0, O_RDONLY, 0, FALSE, F_RDLCK},
      {skgfofiWRITE, O_RDWR, 0, FALSE, F_WRLCK},
      {skgfofiWRITE | skgfofiDSYNC, O_RDWR | O_DSYNC, 4, TRUE, F_RDLCK},
      {skgfofiWRITE | skgfofiDSYNC2 | skgfofiNOMIRROR, O_RDWR | O_DSYNC, 4, FALSE, F_WRLCK}};
  for (const auto &[flags, mode, synchronous, shared, met] : rows) {
    SCOPED_TRACE(flags);
    World w;
    const int before = open_descriptors();
    opened(w);  // and now again, in another way
    priv(w.fib)->flags_skgfrsfib = 3;
    w.flags = static_cast<ub1>(flags);
    fault_reset();
    EXPECT_TRUE(gives(w, open_file, skgfrSEAL));
    const skgfrsiov *const handle = priv(w.iov);
    EXPECT_EQ(fcntl(handle->fd_skgfrsiov, F_GETFL) & (O_ACCMODE | O_DSYNC), mode);
    EXPECT_EQ(w.iov->fib_skgfriov, static_cast<skgfrfib *>(w.fib));
    EXPECT_EQ(handle->fsync_skgfrsiov, synchronous);
    EXPECT_EQ(handle->offset_skgfrsiov, 0xFFFFFFFFU);
    EXPECT_EQ(priv(w.fib)->flags_skgfrsfib, flags & skgfofiNOMIRROR ? 2U : 3U);
    EXPECT_EQ(w.ctx->curopen_skgfrctx, 1U);
    EXPECT_EQ(open_descriptors(), before + 1);

    EXPECT_TRUE(gives(w, shared ? share : lock, skgfrSEAL));
    EXPECT_EQ(lock_met_by_another_process(w), met);
    EXPECT_TRUE(gives(w, unlock, skgfrSEAL));
    EXPECT_EQ(lock_met_by_another_process(w), F_UNLCK);

    EXPECT_TRUE(gives(w, flush, skgfrSEAL));
    EXPECT_TRUE(gives(w, close_file, 0));
    EXPECT_EQ(fault_calls("fsync"), synchronous ? 1 : 3);  // one for the handle before
    EXPECT_EQ(handle->fd_skgfrsiov, 0);
    EXPECT_EQ(w.ctx->curopen_skgfrctx, 0U);
    EXPECT_EQ(open_descriptors(), before);
  }
}

TEST_F(Handles, NameTheProcessThatHoldsTheLock) {
  World w;
  opened(w);
  const pid_t holder = fork();
  if (holder == 0) {
    struct flock64 whole {};
    whole.l_type = F_WRLCK;
    if (fcntl(open(w.name.c_str(), O_RDWR), F_SETLK64, &whole) == 0) raise(SIGSTOP);
    _exit(1);
  }
  int status = 0;
  waitpid(holder, &status, WUNTRACED);
  EXPECT_TRUE(WIFSTOPPED(status));
  EXPECT_TRUE(gives(w, share, skgfrSEAL, {27086, EAGAIN, {8, static_cast<ub4>(holder)}}));
  kill(holder, SIGKILL);
  waitpid(holder, &status, 0);
  close_file(w);
}

TEST_F(Handles, KeepTheirDescriptorToThemselves) {
  World w;
  const int kept = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  opened(w);
  dup2(kept, STDIN_FILENO);
  close(kept);
  const int fd = priv(w.iov)->fd_skgfrsiov, inherited = dup(fd);
  EXPECT_GT(fd, STDERR_FILENO);
  const auto another_process_has = [](int number) {
    return std::system(("test -e /proc/self/fd/" + std::to_string(number)).c_str()) == 0;
  };
  EXPECT_TRUE(another_process_has(inherited));
  EXPECT_FALSE(another_process_has(fd));
  close(inherited);
  close_file(w);
}

TEST_F(Handles, FailOnRequest) {
  World w;
  opened(w);
  for (const auto &[count, failures] : {std::pair<ub2, int>{2, 2}, {0xFFFF, 4}}) {
    skgfrser(&w.se, w.ctx, w.fib, count);
    for (int i = 0; i < 4; ++i) {
      EXPECT_TRUE(
          gives(w, open_file, skgfrSEAL, i < failures ? Expected{27051, 0, {1}} : Expected{0}));
    }
    EXPECT_EQ(w.fib->serr_skgfrfib, failures == 4 ? 0xFFFF : 0U);
  }
  close_file(w);
}

TEST_F(Handles, AllowAsynchronousRequestsWhereTheyWork) {
  const std::tuple<const char *, ub4, uword, uword, uword> rows[] = {
      {nullptr, 0, 5, 0, 16},
      {nullptr, skgfrcASYNC, 5, 5, 0},
      {nullptr, skgfrcASYNC, 9999, 1024, 0},
      {"/dev/zero", 0, 5, 5, 0},
  };
  for (const auto &[device, options, wanted, allowed, flags] : rows) {
    World w;
    if (w.ctx->maxaio_skgfrctx == 0) GTEST_SKIP() << "no asynchronous I/O here";
    w.name = device ? device : w.dir.file("file", 1024);
    identify(w);
    w.ctx->flags_skgfrctx |= options;
    skgfofi(&w.se, w.ctx, w.fib, w.iov, wanted, 0);
    EXPECT_EQ(std::pair(w.iov->maxaio_skgfriov, priv(w.iov)->flags_skgfrsiov),
              std::pair(allowed, flags));
    EXPECT_TRUE(gives(w, ask<skgfrqWRITEV>, device ? skgfrnMEMCPY : skgfrnVECBUF));
    const Expected expected{allowed ? 0 : 27057};
    EXPECT_TRUE(gives(w, ask<skgfrqAREADV>, skgfrnMEMCPY, expected));
    close_file(w);
  }
}

TEST_F(Handles, DeleteFilesAndFoldersButNoDevices) {
  World w;
  w.name = w.dir.file("file", 1);
  EXPECT_TRUE(gives(w, erase, skgfrrOK));
  EXPECT_FALSE(std::filesystem::exists(w.name));
  link_to_folder(w);
  EXPECT_TRUE(gives(w, erase_folder, skgfrrOK));
  EXPECT_FALSE(std::filesystem::is_symlink(w.name));
  std::filesystem::create_directory(w.name = w.dir.path("folder"));
  EXPECT_TRUE(gives(w, erase_folder, skgfrrOK));
  EXPECT_FALSE(std::filesystem::exists(w.name));
  fault_arm("unlink", 0, 1, EPERM, FAULT_FAILS);  // the device outlives a faulty product
  w.name = "/dev/null";
  EXPECT_TRUE(gives(w, erase, skgfrrOK));
  EXPECT_EQ(fault_calls("unlink"), 2);
}

}  // namespace
