// Initialises a layer context: lists, limits, the client's answers, the wake-up signal, and kernel
// asynchronous I/O.
//
// async/end_context gives back what a context holds; one that nobody ends lives until the process does.
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "skgfr/base/client.hpp"
#include "skgfr/base/error_sites.hpp"
#include "skgfr/base/io_options.hpp"
#include "skgfr/base/kernel_aio.hpp"
#include "skgfr/base/list.hpp"
#include "skgfr/base/open_limit.hpp"
#include "skgfr/skgfr.h"
#include "sysl/error_sites.hpp"

// List submission of other platforms; nowhere on Linux, so its address is null here.
extern "C" int aio_waitn(void *list, unsigned count, unsigned *waited, const timespec *timeout)
    __attribute__((weak));

namespace {

using namespace skgfr;

constexpr int events_in_flight = 1024;
constexpr ub8 unlimited = ~ub8{0};

bool read_open_limit(slerc *se, skgfrctx *ctx) {
  rlimit64 limit;
  if (getrlimit64(RLIMIT_NOFILE, &limit) != 0) {
    fail(se, sites::context_open_limit, errno);
    return false;
  }
  ctx->lwm_skgfrctx = low_water_mark(limit.rlim_cur);
  ctx->addend_skgfrctx = -1;
  return true;
}

/// What the client decides about the whole context.
void ask_client(skgfrctx *ctx) {
  uword cluster = 0;
  client::ask_number(ctx, "cluster_database", cluster);
  if (cluster) ctx->flags_skgfrctx |= skgfrcCLUSTER;

  uword list_io = 0;
  client::ask_number(ctx, "_enable_list_io", list_io);
  if (list_io && aio_waitn) ctx->flags_skgfrctx |= skgfrcLISTIO;

  uword validate = 1;
  if (!client::ask_number(ctx, "_check_block_after_checksum", validate, 1)) validate = 1;
  if (validate) ctx->flags_skgfrctx |= skgfrcVALIDATE;
}

bool read_size_limit(slerc *se, skgfrctx *ctx) {
  rlimit64 limit;
  if (getrlimit64(RLIMIT_FSIZE, &limit) != 0) {
    fail(se, sites::context_size_limit, errno);
    return false;
  }
  // Old kernels report a 32-bit "unlimited".
  const bool none = limit.rlim_cur == unlimited || limit.rlim_cur == 0xFFFFFFFF;
  ctx->limfsiz_skgfrctx = none ? unlimited : limit.rlim_cur;
  return true;
}

/// Keeps the thread's signal mask: a registration ends with its signal unblocked.
class SignalMaskGuard {
 public:
  SignalMaskGuard() { sigprocmask(SIG_SETMASK, nullptr, &before_); }
  ~SignalMaskGuard() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalMaskGuard(const SignalMaskGuard &) = delete;
  SignalMaskGuard &operator=(const SignalMaskGuard &) = delete;

 private:
  sigset_t before_;
};

void register_wakeup(slerc *se, skgfrctx *ctx) {
  const SignalMaskGuard guard;
  const sword slot = sslssreghdlr(se, SIGWINCH, skgfrsigwinch, nullptr, 0);
  if (slot != -1) {
    ctx->sigwinchslot_skgfrctx = slot;
    return;
  }
  const bool in_place = se->slercoer == sysl::sites::signal_registered_twice.code;
  begin(se);
  if (!in_place) fail(se, sites::context_wakeup_unregistered);
}

/// The signal must end a blocking call, so it may not restart it. Where the process had a handler that
/// restarts, the dispatcher brings the flag back with the first signal; kernel waits end all the same.
void stop_restarting(slerc *se) {
  struct sigaction action;
  if (sigaction(SIGWINCH, nullptr, &action) != 0) {
    fail(se, sites::context_wakeup_unread, errno);
    return;
  }
  if (!(action.sa_flags & SA_RESTART)) return;
  action.sa_flags &= ~SA_RESTART;
  if (sigaction(SIGWINCH, &action, nullptr) != 0) {
    fail(se, sites::context_wakeup_unchanged, errno);
  }
}

/// The kernel's answer overrides what was said about list submission.
void create_kernel_context(skgfrctx *ctx) {
  constexpr ub4 kernel_flags = skgfrcKAIO | skgfrcLISTIO;
  const bool created = kernel_aio::load() && kernel_aio::entry_points().queue_init(
                                                 events_in_flight, &ctx->ioctx_skgfrctx) == 0;
  if (created) {
    ctx->flags_skgfrctx |= kernel_flags;
  } else {
    ctx->flags_skgfrctx &= ~kernel_flags;
    ctx->ioctx_skgfrctx = nullptr;
  }
  ctx->maxlio_skgfrctx = created ? events_in_flight : 0;
  ctx->maxaio_skgfrctx = created ? events_in_flight : 0;
}

}  // namespace

void skgfrsigwinch(sword, void *) {}

void skgfrpini(slerc *se, skgfrctx *ctx, skgfrwcx *cidp, const skgcb *cbk, skgcbctx *cbctx) {
  begin(se);
  *ctx = skgfrctx{};
  ctx->cbk_skgfrctx = cbk;
  ctx->cbctx_skgfrctx = cbctx;
  cidp->pid_skgfrwcx = getpid();

  make_empty(ctx->qdone_skgfrctx);
  make_empty(ctx->qsubmit_skgfrctx);
  make_empty(ctx->conv_skgfrctx);
  ctx->maxlio_skgfrctx = static_cast<sb4>(sysconf(_SC_AIO_LISTIO_MAX));
  ctx->maxopen_skgfrctx = skgfrUNKNOWN;

  if (!read_open_limit(se, ctx)) return;
  ask_client(ctx);
  if (!read_size_limit(se, ctx)) return;
  register_wakeup(se, ctx);
  stop_restarting(se);
  create_kernel_context(ctx);
}

void skgfrsini(slerc *se, skgfrctx *ctx, skgfrwcx *, const skgcb *, skgcbctx *) {
  begin(se);
  if (!client::answers_parameters(ctx)) return;
  set_io_options(ctx, client::ask_text(ctx, "filesystemio_options"));
}
