// New files get their name when they are complete: nameless where the file system can, else under a
// temporary name.
#include "admin/new_file.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "admin/inspect/inspect.hpp"
#include "admin/status.hpp"

namespace vdadm {

using inspect::Descriptor;

NewFile::NewFile(const std::string &path, unsigned mode) : path_(path) {
  struct stat64 status {};
  if (lstat64(path.c_str(), &status) == 0) {
    throw Failure(path + " is there already, and stays as it is: choose another name.", refused);
  }
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  folder_ = parent.empty() ? std::string(".") : parent.string();
  file_ = Descriptor(open64(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
  if (file_) return;
  if (errno != EOPNOTSUPP && errno != EISDIR) throw Failure(inspect::system_sentence(path, errno));
  temporary_ = fmt::format("{}.{}", path, getpid());
  file_ = Descriptor(open64(temporary_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, mode));
  if (!file_) throw Failure(inspect::system_sentence(temporary_, errno));
}

NewFile::~NewFile() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void NewFile::publish() {
  if (fsync(file_.get()) != 0) throw Failure(inspect::system_sentence(path_, errno));
  const std::string here =
      temporary_.empty() ? fmt::format("/proc/self/fd/{}", file_.get()) : temporary_;
  const int follow = temporary_.empty() ? AT_SYMLINK_FOLLOW : 0;
  if (linkat(AT_FDCWD, here.c_str(), AT_FDCWD, path_.c_str(), follow) != 0) {
    if (errno != EEXIST) throw Failure(inspect::system_sentence(path_, errno));
    throw Failure(path_ + " appeared meanwhile, and stays as it is: choose another name.", refused);
  }
  const Descriptor folder(open64(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder || fsync(folder.get()) != 0) throw Failure(inspect::system_sentence(folder_, errno));
}

}  // namespace vdadm
