// Many small files in a tree of folders, the large one among them, and what block 0 of each tells.
//
// Knows nothing of requests.
#pragma once

#include <fnmatch.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <tuple>

#include "soak/disk.hpp"

namespace soak {

using support::txt;
constexpr ub4 unknown = skgfrUNKNOWN;
constexpr ub8 missing = ~ub8{0};

/// A file: its size in bytes and its first sector, as the disk shows them, and how it is read.
struct Entry {
  ub8 size = missing;
  std::string head{};
  size_t block_size = 512;
  bool header = true, folder = false;
  mode_t mode = S_IFREG | 0640;
  int seen = 0;  // in the last search
};

/// Size in blocks, last block and offset of block 1.
using Facts = std::tuple<ub4, ub4, size_t>;

class Files {
 public:
  /// The large file, and the one that shows its contents.
  Files(Run &with_run, const std::string &tree, const std::string &large, const std::string &shown)
      : run(with_run), tree_(tree), large_(large), shown_(shown) {
    struct stat64 status {};
    stat64(large.c_str(), &status);
    Entry entry{.size = ub8{disk_blocks + 1} * 512, .mode = status.st_mode};
    entry.head = first_sector(entry, disk_blocks, false);
    entries_ = {{large, entry}, {tree, {.folder = true}}};
    std::filesystem::create_directory(tree);
  }

  void create() {
    const Entry &large = entries_[large_];
    const bool takes_over = S_ISBLK(large.mode) && run.below(20) == 0;
    const std::string name = takes_over ? large_ : any_name("/f");
    Entry made = large;
    ub4 blocks = disk_blocks;
    if (!takes_over) {
      made = {.block_size = size_t{512} << run.below(6), .header = run.below(3) != 0};
      blocks = run.below(8) ? run.below(40) : unknown;
      made.size = (made.header + (blocks == unknown ? 0 : blocks)) * ub8{made.block_size};
    }
    support::client().old_layout = run.below(2);
    made.head = first_sector(made, blocks, support::client().old_layout);
    const bool folders = run.below(2), reachable = find_folders(name, false) || folders;
    const ub1 flags = (made.header ? 0 : skgfrcreNOHEADER) | (folders ? skgfrcreMKDIRS : 0);
    const long expected = find(name) && !takes_over ? 2703801 : reachable ? 0 : 2704000;
    run.call([&] {
      skgfrcre(&run.se, run.ctx, txt(name), name.size(), skgfrfDATA, made.block_size, blocks, flags);
    });
    const Left left = run.came_to(
        expected, {2703701, 2703702, 2704000, 2704101, 2704201, 2704301, 2704401, 2704402, 2704403,
                   2704404, 2704501, 2705400});
    find_folders(name, folders);
    settle(name, made, left);
  }

  /// Identifies a file, and recomputes or changes its size.
  void identify() {
    const std::string name = run.below(8) ? any_name("/f") : large_;
    const Entry *const entry = find(name);
    const size_t block_size = entry && run.below(4) ? entry->block_size : 0;
    support::Fib fib;
    fib->lblksiz_skgfrfib = block_size;
    fib->ftype_skgfrfib = skgfrfDATA;
    fib->flags_skgfrfib = !entry || entry->header ? 0 : skgfrbNOHEADER;
    skgfrr result{};
    run.call([&] { result = skgfifi(&run.se, run.ctx, fib, txt(name), name.size()); });
    const bool good = run.came_to(entry ? 0 : 2703703, {2703703, 2704102, 2704302, 2704502,
                                                        2704701}) == Left::everything;
    const skgfrr failed = run.se.slercerrno == ENOENT ? skgfrrNOTFOUND : skgfrrERROR;
    run.expect(result == (good ? skgfrrOK : failed), "result", result, failed);
    run.expect((support::priv(fib)->seal_skgfrsfib == skgfrSEAL) == good, "seal", good);
    if (!good) return;
    run.expect(facts(fib) == facts_of(*entry, block_size), "facts of a file", block_size);
    if (block_size) run.below(2) ? resize(name, fib) : recompute(*entry, fib);
  }

  void resize(const std::string &name, skgfrfib *fib) {
    const bool large = name == large_, device = S_ISBLK(entries_[large_].mode) && large;
    ub4 blocks = run.below(8) ? run.below(40) : unknown;
    if (large) blocks = device ? 1 + run.below(disk_blocks) : disk_blocks;
    Entry after = *find(name);
    const ub4 total = after.header + blocks;
    if (!device && blocks != unknown) after.size = ub8{total} * after.block_size;
    support::client().old_layout = run.below(2);
    after.head = first_sector(after, blocks, support::client().old_layout);
    run.call([&] { skgfrsz(&run.se, run.ctx, fib, blocks); });
    const Left left = run.came_to(0, {2703709, 2704104, 2704304, 2704405, 2704406, 2704407, 2704504,
                                      2705902});
    settle(name, after, left);
    const Facts expected{blocks, blocks == unknown ? unknown : total, fib->lblksiz_skgfrfib};
    const bool told = !after.header || facts(fib) == expected;
    run.expect(left != Left::everything || told, "facts after a resize", fib->filsiz_skgfrfib);
  }

  void recompute(const Entry &entry, skgfrfib *fib) {
    const ub4 blocks = static_cast<ub4>(entry.size / entry.block_size);
    const Facts before = facts(fib), now{blocks - 1, blocks, entry.block_size};
    run.call([&] { skgfrfb(&run.se, run.ctx, fib); });
    const bool good = run.came_to(0, {2703710, 2704105, 2704505}) == Left::everything;
    run.expect(facts(fib) == (good && entry.header ? now : before), "recomputed facts", blocks);
  }

  void ask_sizes() {
    const std::string name = run.below(8) ? any_name("/f") : large_;
    const Entry *const entry = find(name);
    for (size_t i = 0; i < 3; ++i) {  // the last two are answered by block 0
      constexpr long nowhere[] = {2703708, 2703707, 2703714};
      constexpr long invalid[] = {0, 2704704, 2704706}, unreadable[] = {0, 2704703, 2704705};
      long expected = entry ? 0 : nowhere[i];
      if (entry && !entry->header) expected = entry->size ? invalid[i] : unreadable[i];
      ub8 found = 0;
      run.call([&] {
        if (i == 0) found = skgfgfsz(&run.se, run.ctx, txt(name), name.size());
        if (i == 1) found = skgfglbsz(&run.se, run.ctx, txt(name), name.size(), skgfrfDATA);
        if (i == 2) found = skgfgb1off(&run.se, txt(name), name.size());
      });
      const Left left = run.came_to(expected, {nowhere[i], unreadable[i], 2704106, 2704107, 2704108,
                                               2704303, 2704305, 2704506, 2704507});
      const ub8 good = !entry ? 0 : i ? entry->block_size : entry->size, none = i ? ~size_t{0} : missing;
      run.expect(found == (left == Left::everything ? good : none), "answer", found, good);
    }
  }

  void upgrade(const Handle *handle) {
    if (!handle) return;
    run.call([&] { skgfrupd_blk0_v10(&run.se, run.ctx, handle->iov); });
    Entry after = entries_[large_];
    after.head = first_sector(after, disk_blocks, false);
    settle(large_, after, run.came_to(0, {2704306, 2704409, 2704410}));
  }

  void remove() {
    const bool folder = run.below(3) == 0;
    const std::string name = any_name(folder ? "" : "/f");
    if (name == tree_) return;
    const auto next = entries_.lower_bound(name + "/");
    const bool full = folder && next != entries_.end() && next->first.starts_with(name + "/");
    skgfrr result{};
    run.call([&] {
      result = folder ? skgfrddel(&run.se, txt(name), name.size())
                      : skgfrdel(&run.se, run.ctx, txt(name), name.size(), skgfrfDATA);
    });
    const long gone = folder ? 2703711 : 2703706;
    const Left left = run.came_to(find(name) ? full ? 2709300 : 0 : gone, {gone, 2705600, 2709300});
    const skgfrr failed = run.se.slercerrno == ENOENT ? skgfrrNOTFOUND : skgfrrERROR;
    run.expect(result == (left == Left::everything ? skgfrrOK : failed), "result", result, failed);
    if (left == Left::everything) entries_.erase(name);
    run.expect(std::filesystem::exists(name) == (find(name) != nullptr), "there", find(name) != nullptr);
  }

  /// Searches for files, or for empty folders, whose names begin alike.
  void search() {
    const std::string prefix = any_name(run.below(2) ? "/f" : "") + (run.below(2) ? "/" : "");
    const bool folders = run.below(2);
    for (auto &[name, entry] : entries_) entry.seen = 0;
    run.call([&] {
      skgfrsfe(&run.se, txt(prefix), prefix.size(), folders, this,
               [](void *files, const text *path, size_t length) -> boolean {
        std::string_view found(reinterpret_cast<const char *>(path), length);
        if (found.ends_with('/')) found.remove_suffix(1);
        Entry *const entry = static_cast<Files *>(files)->find(found);
        return entry ? ++entry->seen : ++static_cast<Files *>(files)->strays_;
      });
    });
    run.came_to(0, {});
    run.expect(strays_ == 0, "found what is not there", strays_);
    for (auto at = entries_.begin(); at != entries_.end(); ++at) {
      const auto &[name, entry] = *at;
      const auto next = entries_.upper_bound(name + "/");
      const bool empty = next == entries_.end() || !next->first.starts_with(name + "/");
      const bool begins = name.starts_with(prefix) || (entry.folder && name + "/" == prefix);
      expect_seen(entry, begins && (folders ? entry.folder && empty : !entry.folder));
    }
  }

  /// Discovers the files of a pattern, or the large one, in memory of its own.
  void discover() {
    constexpr const char *patterns[] = {"/f*", "/d*/f*", "/d?/e[0-9]/f1", "/d1/*/f*"};
    const std::string pattern = run.below(5) ? tree_ + patterns[run.below(4)] : large_;
    for (auto &[name, entry] : entries_) entry.seen = 0;
    memory_.second = 0;
    skgfrdsc *found = nullptr;
    run.call([&] {
      found = skgfrdscdevs(&run.se, run.ctx, txt(pattern), this, [](void *files, size_t size, const char *) {
        auto &[memory, used] = static_cast<Files *>(files)->memory_;
        return static_cast<void *>(memory + (used += size / 16 * 16 + 16) - size / 16 * 16 - 16);
      }, nullptr, FALSE);
    });
    if (run.came_to(0, {1503142}) != Left::everything) return;
    const kgglk &head = found->dev_skgfrdsc;
    for (const kgglk *link = head.kgglknxt; link != &head; link = link->kgglknxt) {
      const auto &match = reinterpret_cast<const skgfrstat &>(*link);
      Entry *const entry = find(reinterpret_cast<const char *>(match.path_skgfrstat));
      if (!run.expect(entry, "discovered what is not there")) continue;
      ++entry->seen;
      const bool right = match.flags_skgfrstat == 12 && match.disksz_skgfrstat == entry->size >> 20;
      run.se = match.se_skgfrstat;
      const Left left = run.came_to(0, {1502542, 2703742, 2704142});
      run.expect(right == (left == Left::everything), "facts of a match", match.disksz_skgfrstat);
    }
    for (const auto &[name, entry] : entries_) {
      const bool matches = fnmatch(pattern.c_str(), name.c_str(), FNM_PATHNAME) == 0;
      expect_seen(entry, matches && !entry.folder);
    }
  }

  /// Compares everything, and begins with an empty tree.
  void rest() {
    const std::filesystem::recursive_directory_iterator all(tree_);
    const size_t there = static_cast<size_t>(std::distance(begin(all), end(all))) + 2;
    run.expect(there == entries_.size(), "files", there, entries_.size());
    for (const auto &[name, entry] : std::map(entries_)) {
      if (!entry.folder) settle(name, entry, Left::everything);
    }
    std::filesystem::remove_all(tree_);
    std::filesystem::create_directory(tree_);
    std::erase_if(entries_, [this](const auto &row) { return row.first != large_ && row.first != tree_; });
  }

 private:
  std::string any_name(const char *last) {
    std::string name = tree_;
    for (const char *step : {"/d", "/e", last}) {
      if (*step && (step == last || run.below(3))) name += step + std::to_string(run.below(3));
    }
    return name;
  }
  Entry *find(std::string_view name) {
    const auto found = entries_.find(name);
    return found == entries_.end() ? nullptr : &found->second;
  }

  /// What block 0 begins with; zeros without a header, nothing in an empty file.
  std::string first_sector(const Entry &entry, ub4 blocks, bool old_layout) const {
    const ub4 size = static_cast<ub4>(entry.block_size);
    ub4 words[128]{}, code = 0x200, sum = 0;
    for (size_t bytes = 256; bytes < size; bytes *= 2) code += 0x2000;
    const ub4 current[] = {code, 0xFFC00000, 0, 0, 0, size, blocks, 0x7A7B7C7D, entry.mode};
    const ub4 old[] = {0x200, size, blocks, 0x5A5B5C5D, entry.mode};
    if (entry.header && old_layout) std::copy(old, std::end(old), words);
    if (entry.header && !old_layout) std::copy(current, std::end(current), words);
    for (const ub4 word : words) sum ^= word;
    words[old_layout ? 5 : 4] = (sum ^ sum >> 16) & 0xFFFF;
    return std::string(reinterpret_cast<char *>(words), entry.size ? sizeof words : 0);
  }

  /// Compares what a call left with what it was to leave, and goes on from there.
  void settle(const std::string &name, const Entry &after, Left left) {
    const Entry *const known = find(name);
    const Entry before = known ? *known : Entry{};
    Entry now = left == Left::old ? before : after;
    if (left == Left::header_alone) now.size = before.size;
    if (left == Left::header_alone && !now.header) now.head = before.head;
    std::error_code none;
    const std::string &shown = name == large_ ? shown_ : name;
    const ub8 size = std::filesystem::file_size(shown, none);
    run.expect(size == now.size, "size on disk", size, now.size);
    run.expect(support::contents(shown, 512) == now.head, "first sector", left);
    now.size == missing ? void(entries_.erase(name)) : void(entries_[name] = now);
  }

  /// Whether all folders of a name are there; takes over those that a call made.
  bool find_folders(const std::string &name, bool made) {
    bool all = true;
    for (size_t at = tree_.size(); (at = name.find('/', at + 1)) != std::string::npos;) {
      const std::string folder = name.substr(0, at);
      if (made && std::filesystem::is_directory(folder)) entries_[folder] = {.folder = true};
      all = all && find(folder);
    }
    return all;
  }

  void expect_seen(const Entry &entry, bool wanted) const {
    run.expect(entry.seen == wanted || (run.faulted && entry.seen == 0), "seen",
               entry.seen, wanted);
  }

  static Facts facts(skgfrfib *fib) {
    const skgfrsfib *const file = support::priv(fib);
    return {fib->filsiz_skgfrfib, file->lastblk_skgfrsfib, file->blk1offset_skgfrsfib};
  }
  static Facts facts_of(const Entry &entry, size_t block_size) {
    const ub4 blocks = static_cast<ub4>(entry.size / entry.block_size);
    if (!entry.header) return block_size ? Facts{blocks, blocks, 0} : Facts{1, unknown, 0};
    if (block_size == 0) return {0, 2, entry.block_size};
    if (blocks == 1) return {unknown, unknown, block_size};
    return {blocks - 1, blocks, block_size};
  }

  Run &run;
  const std::string tree_, large_, shown_;
  std::map<std::string, Entry, std::less<>> entries_;
  int strays_ = 0;
  std::pair<char[1 << 16], size_t> memory_;  // of the last discovery
};

}  // namespace soak
