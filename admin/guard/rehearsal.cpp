// Runs the steps of vdprep's flow that change nothing, and works out what the others would meet.
#include "admin/guard/rehearsal.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <new>

#include "admin/status.hpp"
#include "skgfr/client.h"
#include "tool/vdprep.h"

namespace vdadm::guard {

namespace {

using inspect::Facts;

constexpr uint64_t sector = 512;
constexpr FileType file_types[] = {{"vtg", 512}, {"kvs", 4096}};

/// What the layer warns of goes here; one rehearsal runs at a time.
std::string *warnings = nullptr;

size_t take_warning(skgcbctx *, const char *format, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  if (warnings) *warnings += fmt::format("{}{}", warnings->empty() ? "" : " ", line);
  return 0;
}

/// Devices without a disk that answer a write in a known way.
struct Special {
  unsigned minor;
  const char *refusal;  // null: it takes everything
};
constexpr unsigned memory_major = 1, raw_major = 162;
constexpr Special specials[] = {{3, nullptr}, {5, nullptr}, {7, "It takes no data."}};

template <class Record>
using Held = std::unique_ptr<Record, decltype(&std::free)>;
template <class Record>
Held<Record> make(skgfrs kind) {
  Held<Record> record(static_cast<Record *>(std::calloc(1, skgfrgsz(kind))), std::free);
  if (!record) throw std::bad_alloc();
  return record;
}

class Flow {
 public:
  Flow(const FileType &type, const Facts &facts)
      : type_(type), facts_(facts), name_(inspect::literal(facts.resolved)) {
    answers_.trace_skgcb = answers_.alert_skgcb = take_warning;
    callbacks_.kvs_vdprepctx = type.block_size != sector;
    warnings = &warnings_;
    auto *const context = reinterpret_cast<skgcbctx *>(&callbacks_);
    skgfrpini(&se_, &context_, &wait_, &answers_, context);
    if (se_.slercoer != 0) throw Failure("The file layer does not start: " + error_text());
    skgfrsini(&se_, &context_, &wait_, &answers_, context);
  }
  Flow(const Flow &) = delete;
  Flow &operator=(const Flow &) = delete;
  ~Flow() {
    skgfr_end_context(&se_, &context_);
    warnings = nullptr;
  }

  Rehearsal run() {
    if (!facts_.exists) return missing();
    if (special_device()) return result_;
    using Part = bool (Flow::*)();
    for (const Part part : {&Flow::measure, &Flow::identify, &Flow::open, &Flow::write}) {
      if (!(this->*part)()) return result_;
    }
    result_.status = 0;
    return result_;
  }

 private:
  bool fails(Step step, std::string reason, int error = 0) {
    result_.status = 4;
    result_.failed = step;
    result_.reason = std::move(reason);
    result_.error = error;
    return false;
  }

  std::string error_text() {
    text buffer[512];
    const size_t length = slcgems(&se_, buffer, sizeof buffer - 1);
    std::string message(reinterpret_cast<const char *>(buffer), length);
    for (char &letter : message) letter = letter == '\n' ? ' ' : letter;
    return fmt::format("code {}. {}", se_.slercoer, message);
  }

  Rehearsal missing() {
    fails(Step::identify, facts_.trouble, facts_.error);
    if (facts_.error == ENOENT && facts_.name.size() <= skgfr_longest_name) result_.status = 1;
    return result_;
  }

  bool special_device() {
    if (!facts_.is_character_device()) return false;
    const unsigned device_major = major(facts_.status.st_rdev);
    if (device_major == raw_major) return false;
    for (const auto &[number, refusal] : specials) {
      if (device_major != memory_major || minor(facts_.status.st_rdev) != number) continue;
      if (refusal) {
        fails(Step::write, refusal);
      } else {
        result_.status = 0;
      }
      return true;
    }
    result_.reason = "It is a character device of a driver whose answer nobody can foretell.";
    return true;
  }

  /// A registry file is extended to whole blocks; a device cannot be.
  bool measure() {
    size_ = skgfgfsz(&se_, &context_, chars(), name_.size());
    known_ = size_ != ~ub8{0};
    result_.new_size = size_;
    const uint64_t rest = size_ % type_.block_size;
    if (!known_ || rest == 0 || !facts_.is_file() || type_.block_size == sector) return true;
    const uint64_t grown = size_ + type_.block_size - rest;
    const bool countable = grown / sector <= skgfrUNKNOWN;
    if (countable && grown <= context_.limfsiz_skgfrctx) result_.new_size = grown;
    return true;
  }

  bool identify() {
    fib_->lblksiz_skgfrfib = size_ % type_.block_size == 0 ? type_.block_size : sector;
    fib_->ftype_skgfrfib = skgfrfOSFILE;
    fib_->flags_skgfrfib = skgfrbNOHEADER;
    const skgfrr result = skgfifi(&se_, &context_, fib_.get(), chars(), name_.size());
    if (result == skgfrrOK) return true;
    if (se_.slercoer == skgfr_uneven_size) {
      return fails(Step::size, "Its size is no whole number of 512-byte blocks.");
    }
    const bool bad_name = se_.slercoer == skgfr_bad_name;
    result_.unsafe_mount = se_.slercoer == skgfr_bad_directory;
    const std::string reason = warnings_.empty() ? error_text() : warnings_;
    fails(bad_name ? Step::name : Step::identify, reason, se_.slercerrno);
    if (result == skgfrrNOTFOUND) result_.status = 1;
    return false;
  }

  bool open() {
    const auto handle = make<skgfriov>(skgfrsIOV);
    skgfofi(&se_, &context_, fib_.get(), handle.get(), 0, skgfofiWRITE | skgfofiDSYNC2);
    if (se_.slercoer != 0) {
      const bool limit = se_.slercoer == skgfr_larger_than_limit;
      return fails(limit ? Step::size : Step::open, error_text(), limit ? EFBIG : se_.slercerrno);
    }
    skgfcfi(&se_, &context_, handle.get());
    return true;
  }

  /// What the layer and the kernel look at when block 0 is written.
  bool write() {
    const uint64_t block = type_.block_size;
    if (facts_.is_file()) {
      if (result_.new_size % block != 0) {
        return fails(Step::size, "It cannot be extended to whole blocks of 4096 bytes.", EFBIG);
      }
      if (static_cast<ub4>(result_.new_size / block) == 0) {
        return fails(Step::size, "Its blocks are counted as none.");
      }
    } else if (known_ && size_ < block) {
      return fails(Step::size, "It is smaller than one block.");
    }
    if (facts_.sector_size.value_or(sector) > block) {
      return fails(Step::write, "Its sectors are larger than the block to be written.");
    }
    int read_only = 0;
    const inspect::Descriptor file(
        open64(facts_.resolved.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file && ioctl(file.get(), BLKROGET, &read_only) == 0 && read_only) {
      return fails(Step::open, "The device is read-only.", EROFS);
    }
    return facts_.is_file() ? has_room(file.get()) : true;
  }

  /// A hole at block 0 has to be filled. What a file system keeps for root, or for itself, no other
  /// program can tell.
  bool has_room(int file) {
    struct statvfs64 space {};
    if (lseek64(file, 0, SEEK_DATA) == 0 || fstatvfs64(file, &space) != 0 || space.f_bavail != 0) {
      return true;
    }
    fails(Step::write, "Block 0 is a hole in the file, and its file system is full.", ENOSPC);
    if (space.f_bfree != 0) result_.status.reset();
    return false;
  }

  text *chars() { return reinterpret_cast<text *>(name_.data()); }

  const FileType &type_;
  const Facts &facts_;
  std::string name_, warnings_;
  Rehearsal result_;
  slerc se_{};
  skgfrctx context_{};
  skgfrwcx wait_{};
  skgcb answers_ = vdprep_skgcb;
  vdprepctx callbacks_{};
  Held<skgfrfib> fib_ = make<skgfrfib>(skgfrsFIB);
  ub8 size_ = 0;
  bool known_ = false;
};

}  // namespace

const FileType &file_type(const std::string &name) {
  return name == file_types[0].name ? file_types[0] : file_types[1];
}

Rehearsal rehearse(const FileType &type, const Facts &facts) { return Flow(type, facts).run(); }

}  // namespace vdadm::guard
