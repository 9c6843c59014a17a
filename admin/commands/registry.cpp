// Resizing and rewriting are the layer's; its answers become sentences.
#include "admin/commands/registry.hpp"

#include <fmt/format.h>

#include <new>

#include "admin/status.hpp"
#include "tool/vdprep.h"

namespace vdadm {

Registry::Registry(int fd, uint64_t block_size, const std::string &name)
    : name_(name), fib_(static_cast<skgfrfib *>(std::calloc(1, skgfrgsz(skgfrsFIB))), std::free) {
  if (!fib_) throw std::bad_alloc();
  static vdprepctx silent{};
  skgfrpini(&se_, &context_, &wait_, &vdprep_skgcb, reinterpret_cast<skgcbctx *>(&silent));
  check("start");
  skgfrsini(&se_, &context_, &wait_, &vdprep_skgcb, reinterpret_cast<skgcbctx *>(&silent));
  fib_->lblksiz_skgfrfib = block_size;
  fib_->ftype_skgfrfib = block_size == 512 ? skgfrfVTG : skgfrfKVS;
  std::string path = fmt::format("/proc/self/fd/{}", fd);
  skgfifi(&se_, &context_, fib_.get(), reinterpret_cast<text *>(path.data()), path.size());
  check("identify");
}

Registry::~Registry() { skgfr_end_context(&se_, &context_); }

void Registry::check(const char *operation) {
  if (se_.slercoer == 0) return;
  text buffer[512];
  const size_t length = slcgems(&se_, buffer, sizeof buffer - 1);
  throw Failure(fmt::format("{}: the file layer could not {} it (code {}): {}", name_, operation,
                            se_.slercoer,
                            std::string(reinterpret_cast<const char *>(buffer), length)));
}

void Registry::resize(uint32_t blocks) {
  skgfrsz(&se_, &context_, fib_.get(), blocks);
  check("resize");
}

void Registry::rewrite_header() {
  const std::unique_ptr<skgfriov, decltype(&std::free)> handle(
      static_cast<skgfriov *>(std::calloc(1, skgfrgsz(skgfrsIOV))), std::free);
  if (!handle) throw std::bad_alloc();
  skgfofi(&se_, &context_, fib_.get(), handle.get(), 0, skgfofiWRITE | skgfofiDSYNC);
  check("open");
  slerc kept{};
  skgfrupd_blk0_v10(&kept, &context_, handle.get());
  skgfcfi(&se_, &context_, handle.get());
  if (kept.slercoer != 0) se_ = kept;
  check("rewrite");
}

}  // namespace vdadm
