// The file that is read: opened once by its name, measured, and read plainly where whole blocks do not reach.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "admin/inspect/descriptor.hpp"
#include "admin/scan/scan.hpp"

namespace vdadm::scan {

class Target {
 public:
  /// False with a sentence when it cannot be read at all, or not in this range.
  bool open(const Order &order, std::string &sentence);

  /// Bytes read at offset, less than asked for only at the end of the file; -1 with errno.
  ssize_t read(void *buffer, size_t bytes, uint64_t offset) const;

  /// A name of the open file that means nothing else to anyone: no rule for names applies to it, and the file
  /// cannot become another one behind it.
  std::string open_name() const;

  Facts &facts() { return facts_; }
  const Facts &facts() const { return facts_; }

 private:
  bool learn_facts(const Order &order, std::string &sentence);

  inspect::Descriptor file_;
  Facts facts_;
};

}  // namespace vdadm::scan
