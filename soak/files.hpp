// Many small files in a tree of folders, the large one among them, and what block 0 of each tells.
//
// Knows nothing of requests.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>

#include "soak/run.hpp"

namespace soak {

/// A file: its size in bytes and its first sector, as the disk shows them, and how it is read.
struct Entry {
  ub8 size = ~ub8{0};  // there is none
  std::string head{};
  size_t block_size = 512;
  bool header = true, folder = false;
  mode_t mode = 0100640;
  int seen = 0;  // by the last search
};

class Files {
 public:
  /// The large file of so many blocks, and the one that shows its contents.
  Files(const std::string &tree, const std::string &large, const std::string &shown, ub4 blocks);
  void create();
  /// Identifies a file, and recomputes or changes its size.
  void identify();
  void ask_sizes();
  void upgrade(skgfriov *handle);
  void remove();
  /// Searches for files, or for empty folders, whose names begin alike.
  void search();
  /// Discovers the files of a pattern, or the large one, in memory of its own.
  void discover();
  /// Compares everything, and begins with an empty tree.
  void rest();

 private:
  std::string any_name(const char *last);
  std::string any_file() { return below(8) ? any_name("/f") : large_; }
  Entry *find(std::string_view name);
  bool is_empty(const std::string &folder) const;
  void settle(const std::string &name, const Entry &after);
  bool find_folders(const std::string &name, bool made);
  void resize(const std::string &name, skgfrfib *fib);
  void expect_seen(const Entry &entry, bool wanted) const;

  const std::string tree_, large_, shown_;
  const ub4 large_blocks_;
  std::map<std::string, Entry, std::less<>> entries_;
  alignas(16) char memory_[1 << 16];  // of the last discovery
  size_t used_ = 0;
};

}  // namespace soak
