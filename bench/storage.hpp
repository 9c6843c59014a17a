// The file or device that a row reads, and the buffers that it reads into; both go when the row ends.
#pragma once

#include <memory>
#include <string>

#include "bench/rows.hpp"
#include "skgfr/base/descriptor.hpp"

namespace bench {

class Storage {
 public:
  /// Throws std::runtime_error where the system has no such medium.
  explicit Storage(const Row &row);
  ~Storage();
  Storage(const Storage &) = delete;
  Storage &operator=(const Storage &) = delete;

  const std::string &path() const { return device_path_.empty() ? file_path_ : device_path_; }
  bool direct() const { return row_.medium != Medium::cached; }

  /// Buffer of a request, or the first of a vectored request's; these share theirs.
  char *buffer(unsigned request) const;
  off_t offset(unsigned request) const;

 private:
  void attach_loop_device();

  const Row &row_;
  std::string file_path_;
  std::string device_path_;
  skgfr::Descriptor file_;
  skgfr::Descriptor device_;
  std::unique_ptr<char, void (*)(void *)> buffers_;
};

/// Throws std::runtime_error with errno's text.
[[noreturn]] void give_up(const std::string &what);

}  // namespace bench
