// A file with a header, open through the layer: what resize and upgrade change.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "admin/inspect/inspect.hpp"
#include "skgfr/client.h"

namespace vdadm {

/// A context and an identified file. Throws a Failure with what the layer says.
class Registry {
 public:
  /// By a descriptor, so that no name can lead elsewhere.
  Registry(int fd, uint64_t block_size, const std::string &name);
  Registry(const Registry &) = delete;
  Registry &operator=(const Registry &) = delete;
  ~Registry();

  /// Changes its length and rewrites block 0.
  void resize(uint32_t blocks);

  /// Rewrites block 0 in the current layout.
  void rewrite_header();

 private:
  void check(const char *operation);
  std::string name_;
  slerc se_{};
  skgfrctx context_{};
  skgfrwcx wait_{};
  std::unique_ptr<skgfrfib, decltype(&std::free)> fib_;
};

}  // namespace vdadm
