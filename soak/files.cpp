// Creates, identifies, resizes, measures and finds files, each call judged by what it left.
#include "soak/files.hpp"

#include <fnmatch.h>
#include <sys/stat.h>

#include <tuple>

namespace soak {

using support::txt;

namespace {

constexpr ub4 unknown = skgfrUNKNOWN;

/// Size in blocks, last block and offset of block 1.
using Facts = std::tuple<ub4, ub4, size_t>;
Facts facts(skgfrfib *fib) {
  const skgfrsfib *const file = support::priv(fib);
  return {fib->filsiz_skgfrfib, file->lastblk_skgfrsfib, file->blk1offset_skgfrsfib};
}
Facts facts(const Entry &entry, size_t block_size) {
  const ub4 blocks = static_cast<ub4>(entry.size / entry.block_size);
  if (!entry.header) return block_size ? Facts{blocks, blocks, 0} : Facts{1, unknown, 0};
  if (block_size == 0) return {0, 2, entry.block_size};
  return blocks == 1 ? Facts{unknown, unknown, block_size} : Facts{blocks - 1, blocks, block_size};
}

/// What block 0 begins with; zeros without a header, nothing in an empty file.
std::string first_sector(const Entry &entry, ub4 blocks, bool old_layout) {
  const ub4 size = static_cast<ub4>(entry.block_size);
  ub4 words[128]{}, code = 0x200, sum = 0;
  for (size_t bytes = 256; bytes < size; bytes *= 2) code += 0x2000;
  const ub4 current[] = {code, 0xFFC00000, 0, 0, 0, size, blocks, 0x7A7B7C7D, entry.mode};
  const ub4 old[] = {0x200, size, blocks, 0x5A5B5C5D, entry.mode};
  if (entry.header) {
    old_layout ? std::copy(old, std::end(old), words) : std::copy_n(current, 9, words);
  }
  for (const ub4 word : words) sum ^= word;
  words[old_layout ? 5 : 4] = (sum ^ sum >> 16) & 0xFFFF;
  return std::string(reinterpret_cast<char *>(words), entry.size ? sizeof words : 0);
}

/// The result of a call that tells a missing file apart.
void expect_result(skgfrr result, bool good) {
  const skgfrr failed = se.slercerrno == ENOENT ? skgfrrNOTFOUND : skgfrrERROR;
  expect(result == (good ? skgfrrOK : failed), "result", result, good ? skgfrrOK : failed);
}

}  // namespace

Files::Files(const std::string &tree, const std::string &large, const std::string &shown,
             ub4 blocks)
    : tree_(tree), large_(large), shown_(shown), large_blocks_(blocks) {
  struct stat64 status {};
  stat64(large.c_str(), &status);
  Entry entry{.size = (ub8{blocks} + 1) * 512, .mode = status.st_mode};
  entry.head = first_sector(entry, blocks, false);
  entries_ = {{large, entry}, {tree, {.folder = true}}};
  std::filesystem::create_directory(tree);
}

std::string Files::any_name(const char *last) {
  std::string name = tree_;
  for (const char *step : {"/d", "/e", last}) {
    if (*step && (step == last || below(3))) name += step + std::to_string(below(3));
  }
  return name;
}

Entry *Files::find(std::string_view name) {
  const auto found = entries_.find(name);
  return found == entries_.end() ? nullptr : &found->second;
}

bool Files::is_empty(const std::string &folder) const {
  const auto next = entries_.lower_bound(folder + "/");
  return next == entries_.end() || !next->first.starts_with(folder + "/");
}

/// Whether all folders of a name are there; takes over those that a call made.
bool Files::find_folders(const std::string &name, bool made) {
  bool all = true;
  for (size_t at = tree_.size(); (at = name.find('/', at + 1)) != std::string::npos;) {
    const std::string folder = name.substr(0, at);
    if (made && std::filesystem::is_directory(folder)) entries_[folder] = {.folder = true};
    all = all && find(folder);
  }
  return all;
}

/// Compares what the call behind `se` left with what it was to leave, and goes on from there. Only a
/// close fails when everything is done, and a length when block 0 is written.
void Files::settle(const std::string &name, const Entry &after) {
  const Entry *const known = find(name);
  const Entry before = known ? *known : Entry{};
  const long left = outcome(se);
  const bool header_alone = left == 2705902, everything = left == 0 || se.slercoer == 27045;
  Entry now = everything || header_alone ? after : before;
  if (header_alone) now.size = before.size;
  if (header_alone && !now.header) now.head = before.head;
  std::error_code none;
  const std::string &shown = name == large_ ? shown_ : name;
  const ub8 size = std::filesystem::file_size(shown, none);
  expect(size == now.size, "size on disk", static_cast<long>(size), static_cast<long>(now.size));
  expect(support::contents(shown, 512) == now.head, "first sector after", left);
  if (now.size == Entry{}.size) entries_.erase(name);
  if (now.size != Entry{}.size) entries_[name] = now;
}

void Files::create() {
  const bool takes_over = S_ISBLK(find(large_)->mode) && below(20) == 0;
  const std::string name = takes_over ? large_ : any_name("/f");
  const ub4 blocks = takes_over ? large_blocks_ : below(8) ? below(40) : unknown;
  Entry made{.block_size = size_t{512} << below(6), .header = below(3) != 0};
  made.size = (made.header + (blocks == unknown ? 0 : blocks)) * ub8{made.block_size};
  if (takes_over) made = *find(large_);
  support::client().old_layout = below(2);
  made.head = first_sector(made, blocks, support::client().old_layout);
  const bool folders = below(2), reachable = find_folders(name, false) || folders;
  const int flags = (made.header ? 0 : skgfrcreNOHEADER) | (folders ? skgfrcreMKDIRS : 0);
  const long expected = find(name) && !takes_over ? 2703801 : reachable ? 0 : 2704000;
  const auto call = [&] {
    skgfrcre(&se, ctx, txt(name), name.size(), skgfrfDATA, made.block_size, blocks, ub1(flags));
  };
  succeeds(call, expected,
           {2703701, 2703702, 2704000, 2704101, 2704201, 2704301, 2704401, 2704402, 2704403,
            2704404, 2704501, 2705400});
  find_folders(name, folders);
  settle(name, made);
}

void Files::identify() {
  const std::string name = any_file();
  const Entry *const entry = find(name);
  const size_t block_size = entry && below(4) ? entry->block_size : 0;
  support::Fib fib;
  fib->lblksiz_skgfrfib = block_size;
  fib->ftype_skgfrfib = skgfrfDATA;
  fib->flags_skgfrfib = !entry || entry->header ? 0 : skgfrbNOHEADER;
  skgfrr result{};
  const auto call = [&] { result = skgfifi(&se, ctx, fib, txt(name), name.size()); };
  const bool good =
      succeeds(call, entry ? 0 : 2703703, {2703703, 2704102, 2704302, 2704502, 2704701});
  expect_result(result, good);
  expect((support::priv(fib)->seal_skgfrsfib == skgfrSEAL) == good, "seal", !good, good);
  if (!good) return;
  const Facts known = facts(*entry, block_size);
  expect(facts(fib) == known, "facts of a file", fib->filsiz_skgfrfib, std::get<0>(known));
  if (block_size == 0) return;
  if (below(2)) return resize(name, fib);

  const ub4 blocks = static_cast<ub4>(entry->size / block_size);
  succeeds([&] { skgfrfb(&se, ctx, fib); }, 0, {2703710, 2704105, 2704505});
  const bool told = entry->header && (se.slercoer == 0 || se.slercoer == 27045);
  const Facts now = told ? Facts{blocks - 1, blocks, block_size} : known;
  expect(facts(fib) == now, "recomputed facts", fib->filsiz_skgfrfib, std::get<0>(now));
}

void Files::resize(const std::string &name, skgfrfib *fib) {
  Entry after = *find(name);
  const bool device = S_ISBLK(after.mode);
  ub4 blocks = below(8) ? below(40) : unknown;
  if (name == large_) blocks = device ? 1 + below(large_blocks_) : large_blocks_;
  const ub4 total = after.header + blocks;
  if (!device && blocks != unknown) after.size = ub8{total} * after.block_size;
  support::client().old_layout = below(2);
  after.head = first_sector(after, blocks, support::client().old_layout);
  succeeds([&] { skgfrsz(&se, ctx, fib, blocks); }, 0,
           {2703709, 2704104, 2704304, 2704405, 2704406, 2704407, 2704504, 2705902});
  settle(name, after);
  const size_t offset = after.header ? after.block_size : 0;
  const Facts now{blocks, blocks == unknown ? unknown : total, offset};
  const bool told = (se.slercoer != 0 && se.slercoer != 27045) || facts(fib) == now;
  expect(told, "facts after a resize", fib->filsiz_skgfrfib, blocks);
}

void Files::ask_sizes() {
  const std::string name = any_file();
  const Entry *const entry = find(name);
  constexpr long nowhere[] = {2703708, 2703707, 2703714};
  constexpr long invalid[] = {0, 2704704, 2704706}, unreadable[] = {0, 2704703, 2704705};
  for (size_t i = 0; i < 3; ++i) {  // the last two are answered by block 0
    const long headless = entry && entry->size ? invalid[i] : unreadable[i];
    const long expected = !entry ? nowhere[i] : entry->header ? 0 : headless;
    ub8 found = 0;
    const auto call = [&] {
      if (i == 0) found = skgfgfsz(&se, ctx, txt(name), name.size());
      if (i == 1) found = skgfglbsz(&se, ctx, txt(name), name.size(), skgfrfDATA);
      if (i == 2) found = skgfgb1off(&se, txt(name), name.size());
    };
    const bool good = succeeds(
        call, expected,
        {nowhere[i], unreadable[i], 2704107, 2704108, 2704106, 2704303, 2704305, 2704506, 2704507});
    ub8 answer = i ? ~size_t{0} : ~ub8{0};
    if (good || outcome(se) == 2704506) answer = i ? entry->block_size : entry->size;
    expect(found == answer, "answer", static_cast<long>(found), static_cast<long>(answer));
  }
}

void Files::upgrade(skgfriov *handle) {
  succeeds([&] { skgfrupd_blk0_v10(&se, ctx, handle); }, 0, {2704306, 2704409, 2704410});
  Entry after = *find(large_);
  after.head = first_sector(after, large_blocks_, false);
  settle(large_, after);
}

void Files::remove() {
  const bool folder = below(3) == 0;
  const std::string name = any_name(folder ? "" : "/f");
  if (name == tree_) return;
  skgfrr result{};
  const auto call = [&] {
    result = folder ? skgfrddel(&se, txt(name), name.size())
                    : skgfrdel(&se, ctx, txt(name), name.size(), skgfrfDATA);
  };
  const long gone = folder ? 2703711 : 2703706, full = is_empty(name) ? 0 : 2709300;
  const bool good = succeeds(call, find(name) ? full : gone, {gone, 2705600, 2709300});
  expect_result(result, good);
  if (good) entries_.erase(name);
  const bool there = std::filesystem::exists(name);
  expect(there == (find(name) != nullptr), "existence", there, !there);
}

void Files::expect_seen(const Entry &entry, bool wanted) const {
  expect(entry.seen == wanted || (faulted && entry.seen == 0), "seen", entry.seen, wanted);
}

void Files::search() {
  const std::string prefix = any_name(below(2) ? "/f" : "") + (below(2) ? "/" : "");
  const bool folders = below(2);
  for (auto &[name, entry] : entries_) entry.seen = 0;
  const auto count = [](void *files, const text *path, size_t length) -> boolean {
    std::string_view found(reinterpret_cast<const char *>(path), length);
    if (found.ends_with('/')) found.remove_suffix(1);
    Entry *const entry = static_cast<Files *>(files)->find(found);
    if (expect(entry, "found what is not there")) ++entry->seen;
    return TRUE;
  };
  succeeds([&] { skgfrsfe(&se, txt(prefix), prefix.size(), folders, this, count); }, 0, {});
  for (const auto &[name, entry] : entries_) {
    const bool begins = name.starts_with(prefix) || (entry.folder && name + "/" == prefix);
    expect_seen(entry, begins && (folders ? entry.folder && is_empty(name) : !entry.folder));
  }
}

void Files::discover() {
  constexpr const char *patterns[] = {"/f*", "/d*/f*", "/d?/e[0-9]/f1", "/d1/*/f*"};
  const std::string pattern = below(5) ? tree_ + patterns[below(4)] : large_;
  for (auto &[name, entry] : entries_) entry.seen = 0;
  used_ = 0;
  const auto allocate = [](void *files, size_t size, const char *) -> void * {
    Files &self = *static_cast<Files *>(files);
    return self.memory_ + std::exchange(self.used_, self.used_ + (size + 15) / 16 * 16);
  };
  skgfrdsc *all = nullptr;
  const auto call = [&] {
    all = skgfrdscdevs(&se, ctx, txt(pattern), this, allocate, nullptr, FALSE);
  };
  const bool good = succeeds(call, 0, {1503142});
  if (!expect((all != nullptr) == good, "discovery") || !good) return;
  const kgglk *const head = &all->dev_skgfrdsc;
  for (const kgglk *link = head->kgglknxt; link != head; link = link->kgglknxt) {
    const auto &match = reinterpret_cast<const skgfrstat &>(*link);
    Entry *const entry = find(reinterpret_cast<const char *>(match.path_skgfrstat));
    if (!expect(entry, "discovered what is not there")) continue;
    ++entry->seen;
    se = match.se_skgfrstat;
    const bool right = match.flags_skgfrstat == 12 && match.disksz_skgfrstat == entry->size >> 20;
    expect(right == succeeded(0, {1502542, 2703742, 2704142}), "match", match.disksz_skgfrstat);
  }
  for (const auto &[name, entry] : entries_) {
    const bool matches = fnmatch(pattern.c_str(), name.c_str(), FNM_PATHNAME) == 0;
    expect(entry.seen == (matches && !entry.folder), "matched", entry.seen);
  }
}

void Files::rest() {
  const std::filesystem::recursive_directory_iterator all(tree_);
  const auto there = std::distance(begin(all), end(all)) + 2;
  expect(there == std::ssize(entries_), "files", there, std::ssize(entries_));
  se = {};
  for (const auto &[name, entry] : std::map(entries_)) {
    if (!entry.folder) settle(name, entry);
  }
  std::filesystem::remove_all(tree_);
  std::filesystem::create_directory(tree_);
  std::erase_if(entries_, [&](auto &row) { return row.first != large_ && row.first != tree_; });
}

}  // namespace soak
