// A line on the terminal that tells how far a scan has come. Without a terminal that can go back to
// the beginning of a line, nothing.
#pragma once

#include <cstdio>
#include <string>

#include "admin/scan/scan.hpp"

namespace vdadm::scan {

class ProgressLine {
 public:
  ProgressLine();
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine &) = delete;
  ProgressLine &operator=(const ProgressLine &) = delete;

  void show(const std::string &name, const State &state);
  void clear();

 private:
  bool possible_;
  size_t length_ = 0;  // of what stands there now
};

/// "1 h 23 min", "4 min 5 s", "12 s", "0.8 s": what a person wants to know of a time.
std::string readable_time(double seconds);

/// The share of its range that is done, from 0 to 1.
double share_done(const State &state);

}  // namespace vdadm::scan
