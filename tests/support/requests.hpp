// Requests with everything that they point to, alone and as lists.
#pragma once

#include <span>
#include <utility>
#include <vector>

#include "tests/support/layer.hpp"

namespace support {

/// A request for some buffers, as a vector or of the first alone; nobody has told its time.
struct Request : skgfrrq {
  Request(skgfriov *iov, ub4 block, std::vector<skgfrbd> buffers, bool vector = false)
      : skgfrrq{{}, iov, nullptr, block, {buffers[0]}, 0}, parts(std::move(buffers)) {
    iosb_skgfrrq = iosb;
    if (vector) bufspec_skgfrrq.bufvec_skgfrrq = {parts.data(), static_cast<uword>(parts.size())};
    iosb->slerc_skgfriosb = &se;
    iosb->time_skgfriosb = &time;
    iosb->ctx_skgfriosb = this;
  }
  Request(Request &&) = delete;
  char letter() const { return "?PDELCB"[iosb->status_skgfriosb]; }  // the state's initial

  std::vector<skgfrbd> parts;
  Iosb iosb;
  slerc se = dirty();
  ub4 time = skgfrUNKNOWN;
};
using Requests = std::vector<Request *>;

/// A list of them, for as long as the call that takes it.
class RequestList {
 public:
  explicit RequestList(std::span<Request *const> requests) {
    skgfr_make_list(&head_);
    for (Request *one : requests) skgfr_append(&head_, one);
  }
  RequestList(RequestList &&) = delete;
  operator kgglk *() const { return &head_; }  // NOLINT: stands for the pointer

 private:
  mutable kgglk head_;  // linking is the callee's business
};

}  // namespace support
