// The exclusive open and the lock.
#include "admin/guard/hold.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <filesystem>

namespace vdadm::guard {

using inspect::Descriptor;
using inspect::Facts;

namespace {

constexpr int reading = O_RDONLY | O_NONBLOCK | O_CLOEXEC;

/// The node of the disk that a partition lies on; its own for a whole disk.
std::string whole_disk(const Facts &facts) {
  const std::filesystem::path folder = inspect::sysfs_folder(facts.status.st_rdev);
  if (folder.empty() || !std::filesystem::exists(folder / "partition")) return facts.resolved;
  return "/dev/" + folder.parent_path().filename().string();
}

}  // namespace

Hold::Hold(const Facts &facts) {
  file_ = Descriptor(open64(facts.resolved.c_str(), reading));
  if (!file_) return;
  if (facts.is_block_device()) {
    exclusive_ = Descriptor(open64(facts.resolved.c_str(), reading | O_EXCL));
    if (!exclusive_ && errno == EBUSY) {
      busy_ = "The kernel or another program has it exclusively.";
    }
  }
  lock_whole_disk(facts);
}

void Hold::lock_whole_disk(const Facts &facts) {
  if (facts.is_character_device()) return;
  const std::string node = facts.is_block_device() ? whole_disk(facts) : facts.resolved;
  whole_ = Descriptor(open64(node.c_str(), reading));
  if (!whole_ || flock(whole_.get(), LOCK_EX | LOCK_NB) == 0 || !busy_.empty()) return;
  if (errno == EWOULDBLOCK) busy_ = "Another program has locked it.";
}

bool Hold::is(const Facts &facts) const {
  struct stat64 status {};
  return file_ && fstat64(file_.get(), &status) == 0 && status.st_dev == facts.status.st_dev &&
         status.st_ino == facts.status.st_ino && status.st_rdev == facts.status.st_rdev;
}

}  // namespace vdadm::guard
