// Places that tests need of a machine: found out, never assumed.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace support {

inline bool takes_direct_io(const std::string &folder) {
  std::string name = folder + "/vdprep-test-XXXXXX";
  const int fd = mkostemp(name.data(), O_DIRECT);
  unlink(name.c_str());  // a refused one may exist all the same
  return fd >= 0 && close(fd) == 0;
}

/// A folder for files, with direct I/O where any has it.
inline const std::string &place_for_files() {
  static const std::string place = [] {
    for (const char *folder : {"/tmp", "/var/tmp", "/dev/shm"}) {
      if (takes_direct_io(folder)) return folder;
    }
    return "/tmp";
  }();
  return place;
}

/// The device that a name lies on; 0 when there is nothing.
inline dev_t device_of(const std::string &name) {
  struct stat64 status {};
  stat64(name.c_str(), &status);
  return status.st_dev;
}

/// A folder for files with another file system mounted right there; empty where there is none.
inline std::string own_mount() {
  for (const std::string folder : {"/dev/shm", "/tmp", "/run", "/var/tmp"}) {
    std::error_code missing;
    const std::string name = std::filesystem::canonical(folder, missing);
    if (missing || device_of(name) == device_of(name + "/..")) continue;
    if (access(name.c_str(), W_OK) == 0) return name;
  }
  return "";
}

/// A regular file on the file system of the root folder; empty where none is known.
inline std::string file_on_root() {
  for (const std::string name : {"/etc/passwd", "/bin/sh", "/usr/bin/env"}) {
    if (access(name.c_str(), R_OK) == 0 && device_of(name) == device_of("/")) return name;
  }
  return "";
}

}  // namespace support
