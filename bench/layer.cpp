// The same requests through the layer, as a client makes them: lists that are built once and queued
// again and again.
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "bench/sides.hpp"
#include "skgfr/client.h"

namespace bench {
namespace {

using RecordOwner = std::unique_ptr<void, void (*)(void *)>;

template <class Record>
Record *as(const RecordOwner &owner) {
  return static_cast<Record *>(owner.get());
}

void require(bool good, const char *what, const slerc &se) {
  if (good) return;
  throw std::runtime_error(std::string(what) + ": code " + std::to_string(se.slercoer) +
                           ", errno " + std::to_string(se.slercerrno));
}

class LayerSide : public Side {
 public:
  LayerSide(const Row &row, const Storage &storage)
      : row_(row),
        flags_(flags_of(row)),
        requests_(row.requests()),
        errors_(row.requests()),
        vectors_(vector_length),
        heads_(row.lists.count),
        fib_(std::calloc(1, skgfrgsz(skgfrsFIB)), std::free),
        status_(std::calloc(row.requests(), skgfrgsz(skgfrsISB)), std::free) {
    initialise(storage);
    identify(storage);
    for (unsigned i = 0; i < row.variant.handles; ++i) open_handle();
    build_lists(storage);
  }
  ~LayerSide() override {
    for (const RecordOwner &iov : iovs_) skgfcfi(&se_, &context_, as<skgfriov>(iov));
    skgfr_end_context(&se_, &context_);
  }

  void round() override {
    for (kgglk &head : heads_) {
      if (skgfqio(&context_, &head, flags_) != 0) refuse();
      if (row_.kind == Kind::asynchronous) collect();
    }
  }

 private:
  static ub4 flags_of(const Row &row) {
    switch (row.kind) {
      case Kind::positioned: return skgfqioREAD;
      case Kind::vectored: return skgfqioREAD | skgfqioVECTOR;
      case Kind::asynchronous: return skgfqioREAD | skgfqioASYNC;
    }
    return 0;
  }

  /// Waits for the whole list, then takes the rest of it off the done queue.
  void collect() {
    skgfriosb *done = nullptr;
    skgfrr result = skgfrwat(&se_, &context_, row_.lists.length, &done, nullptr, skgfrUNKNOWN);
    for (unsigned left = row_.lists.length;;) {
      if (result != skgfrrOK || !done || done->status_skgfriosb != skgfriDONE) refuse();
      if (--left == 0) return;
      result = skgfnxtio(&se_, &context_, &done);
    }
  }

  [[noreturn]] void refuse() const {
    for (const slerc &se : errors_) require(se.slercoer == 0, "request", se);
    require(false, "requests", se_);
    std::abort();
  }

  skgfriosb *status(unsigned request) const {
    return reinterpret_cast<skgfriosb *>(as<char>(status_) + request * skgfrgsz(skgfrsISB));
  }

  void initialise(const Storage &storage) {
    skgfrwcx wait;
    skgfrpini(&se_, &context_, &wait, nullptr, nullptr);
    require(se_.slercoer == 0, "skgfrpini", se_);
    text direct[] = "setall";
    text cached[] = "asynch";
    skgfrsetioparam(&se_, &context_, storage.direct() ? direct : cached, 6);
    if (!row_.variant.checked) context_.flags_skgfrctx &= ~ub4{skgfrcVALIDATE};
  }

  void identify(const Storage &storage) {
    skgfrfib *const fib = as<skgfrfib>(fib_);
    std::string name = storage.path();
    fib->lblksiz_skgfrfib = row_.bytes;
    fib->ftype_skgfrfib = skgfrfOSFILE;
    fib->flags_skgfrfib = skgfrbNOHEADER;
    const skgfrr found =
        skgfifi(&se_, &context_, fib, reinterpret_cast<text *>(name.data()), name.size());
    require(found == skgfrrOK, "skgfifi", se_);
  }

  void open_handle() {
    iovs_.emplace_back(std::calloc(1, skgfrgsz(skgfrsIOV)), std::free);
    skgfofi(&se_, &context_, as<skgfrfib>(fib_), as<skgfriov>(iovs_.back()), 1024, 0);
    require(se_.slercoer == 0, "skgfofi", se_);
  }

  void build_lists(const Storage &storage) {
    for (unsigned i = 0; i < vector_length && row_.kind == Kind::vectored; ++i) {
      vectors_[i] = skgfrbd{storage.buffer(0) + i * row_.bytes, row_.bytes};
    }
    for (kgglk &head : heads_) skgfr_make_list(&head);
    for (unsigned i = 0; i < row_.requests(); ++i) {
      skgfrrq &request = requests_[i];
      request.iov_skgfrrq = as<skgfriov>(iovs_[i % row_.variant.handles]);
      request.iosb_skgfrrq = status(i);
      request.iosb_skgfrrq->slerc_skgfriosb = &errors_[i];
      request.blockno_skgfrrq =
          static_cast<ub4>(static_cast<size_t>(storage.offset(i)) / row_.bytes) + 1;
      if (row_.kind == Kind::vectored) {
        request.bufspec_skgfrrq.bufvec_skgfrrq = skgfrbv{vectors_.data(), vector_length};
      } else {
        request.bufspec_skgfrrq.buffer_skgfrrq = skgfrbd{storage.buffer(i), row_.bytes};
      }
      skgfr_append(&heads_[i / row_.lists.length], &request);
    }
  }

  const Row &row_;
  const ub4 flags_;
  slerc se_{};
  skgfrctx context_{};
  std::vector<skgfrrq> requests_;
  std::vector<slerc> errors_;
  std::vector<skgfrbd> vectors_;
  std::vector<kgglk> heads_;
  RecordOwner fib_;
  std::vector<RecordOwner> iovs_;
  RecordOwner status_;
};

}  // namespace

std::unique_ptr<Side> make_layer(const Row &row, const Storage &storage) {
  return std::make_unique<LayerSide>(row, storage);
}

}  // namespace bench
