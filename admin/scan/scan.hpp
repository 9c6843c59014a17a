// The door of this room: reads everything of a file or device and tells what could not be read.
//
// Reading happens in a process of its own. A read that the disk never answers cannot be taken back, and a
// process that waits for one cannot end; so the process that people wait for never touches the disk.
//
// Knows nothing of how results are shown, nor of what a disk holds.
#pragma once

#include <signal.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "admin/scan/histogram.hpp"

namespace vdadm::scan {

/// Bytes from begin on, up to but without end.
struct Extent {
  uint64_t begin = 0;
  uint64_t end = 0;

  uint64_t bytes() const { return end - begin; }
};

inline constexpr uint64_t whole = UINT64_MAX;  // an end: as far as the file goes

/// What is to be read, and how.
struct Order {
  std::string name;
  Extent range{0, whole};                      // is widened to whole sectors
  uint64_t rate = 0;                           // bytes in a second at most; 0: as fast as it goes
  std::chrono::milliseconds patience{30'000};  // how long one read may take
};

/// Sectors beside each other that could not be read, all for the same reason.
struct BadRange {
  Extent where;
  int error;  // errno
};

/// Bad ranges in the order of their offsets; what touches and has one reason is one range.
class BadRanges {
 public:
  /// A range that begins no earlier than those before it.
  void add(const BadRange &range);
  uint64_t bytes() const;
  const std::vector<BadRange> &all() const { return ranges_; }

 private:
  std::vector<BadRange> ranges_;
};

/// What the file is, known once it is open.
struct Facts {
  uint64_t size = 0;
  uint64_t sector_size = 0;
  uint64_t device = 0, inode = 0;  // which device, or which file of its file system
  Extent range;                    // what is read, in bytes
  uint32_t depth = 0;              // requests on their way at once; 1: one after the other
  bool direct = false;             // past the page cache
  bool is_device = false;          // a block device
};

enum class Ending {
  finished,     // everything was read, or found to be bad
  interrupted,  // by a signal
  no_answer,    // one read took longer than the order's patience
  failed        // the sentence tells why
};

/// How far a scan has come.
struct State {
  Facts facts;
  bool opened = false;     // the facts are known
  uint64_t position = 0;   // everything from the range's begin up to here is done
  uint64_t bytes = 0;      // answered, with data or an error
  uint64_t recovered = 0;  // requests that failed, but could be read in small pieces afterwards
  double seconds = 0;      // since it began
  BadRanges bad;
};

struct Outcome {
  State state;
  Ending ending = Ending::failed;
  std::string sentence;  // why it failed, or what it waited for
  Histogram latency;     // of requests, in nanoseconds
};

/// Is told about five times a second.
class Observer {
 public:
  virtual ~Observer() = default;
  virtual void progress(const State &state) = 0;
};

/// Catches the signals that ask a program to end, from its making until its end.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals &) = delete;
  StopSignals &operator=(const StopSignals &) = delete;

  int descriptor() const {
    return descriptor_;
  }  // can be read from after each one; -1: they end the program

 private:
  sigset_t before_;
  int descriptor_;
};

/// Carries the order out. stop: a descriptor of StopSignals; the first signal ends the scan with what is on its
/// way collected, the second at once.
Outcome run(const Order &order, Observer &observer, int stop);

}  // namespace vdadm::scan
