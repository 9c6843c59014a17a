// Files, requests and the stand-in's script, for the tests of asynchronous I/O.
#pragma once

#include <dlfcn.h>

#include <deque>

#include "tests/stand_in_aio/stand_in_aio.h"
#include "tests/support/layer.hpp"

namespace support {

/// A new file of 512-byte blocks, open for asynchronous writing unless `se` tells why not.
struct File {
  File(skgfrctx *ctx, const std::string &name, ub4 blocks) {
    fib->lblksiz_skgfrfib = 512;
    skgfrcre(&se, ctx, txt(name), name.size(), skgfrfDATA, 512, blocks, 0);
    if (se.slercoer == 0) skgfifi(&se, ctx, fib, txt(name), name.size());
    if (se.slercoer == 0) skgfofi(&se, ctx, fib, iov, 1024, skgfofiWRITE);
  }
  slerc se{};
  Fib fib;
  Iov iov;
};

/// A request with everything that it points to but its buffer.
struct Request {
  Request(skgfriov *iov, ub4 block, void *buffer, size_t length)
      : rq{{}, iov, iosb, block, {{buffer, length}}, 0} {
    iosb->slerc_skgfriosb = &se;
    iosb->time_skgfriosb = &time;
    iosb->ctx_skgfriosb = this;
  }
  char letter() const { return "?PDELCB"[iosb->status_skgfriosb]; }  // the state's initial
  Iosb iosb;
  slerc se = dirty();
  ub4 time = skgfrUNKNOWN;
  skgfrrq rq;
};
using Requests = std::vector<Request *>;

inline size_t length(const kgglk &head) {
  size_t count = 0;
  for (const kgglk *link = head.kgglknxt; link != &head; link = link->kgglknxt) ++count;
  return count;
}

class AsyncTest : public LayerTest {
 public:
  void SetUp() override {
    if (ctx->maxaio_skgfrctx == 0) GTEST_SKIP() << "the kernel gives no asynchronous context now";
    void *const library = dlopen("libaio.so.1", RTLD_NOW | RTLD_NOLOAD);
    aio = library ? static_cast<stand_in_aio *>(dlsym(library, "stand_in_aio")) : nullptr;
    if (aio) *aio = {};
  }
  static void answer(stand_in_answers &answers, const std::vector<int> &values) {
    answers = {0, static_cast<int>(values.size()), {}};
    std::copy(values.begin(), values.end(), answers.values);
  }
  uword queue(const Requests &requests, bool together, ub4 direction = skgfqioREAD) {
    ctx->flags_skgfrctx =
        (ctx->flags_skgfrctx & ~ub4{skgfrcLISTIO}) | (together ? skgfrcLISTIO : 0);
    kgglk head{&head, &head};
    for (Request *request : requests) {
      kgglk *const link = &request->rq.link_skgfrrq;
      *link = {&head, head.kgglkprv};
      head.kgglkprv = head.kgglkprv->kgglknxt = link;
    }
    return skgfqio(ctx, &head, skgfqioASYNC | direction);
  }
  Requests deliver_all() {
    Requests all;
    skgfriosb *iosb = nullptr;
    while (skgfrwat(&se, ctx, 1, &iosb, nullptr, 6000) == skgfrrOK) {
      all.push_back(static_cast<Request *>(iosb->ctx_skgfriosb));
    }
    EXPECT_EQ(ctx->aiopend_skgfrctx + ctx->aiodone_skgfrctx, 0u);
    EXPECT_EQ(length(ctx->qdone_skgfrctx) + length(ctx->conv_skgfrctx), 0u);
    EXPECT_EQ(length(ctx->qsubmit_skgfrctx), 0u);
    return all;
  }
  TempDir dir;
  Context ctx{(client().io_options = "asynch", &client_table)};
  stand_in_aio *aio = nullptr;  // stays null over the real library
  slerc se = dirty();
};

}  // namespace support
