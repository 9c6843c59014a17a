// Discovery and file search over trees made here: what is found, what is skipped, how they end.
#include <glob.h>

#include <numeric>
#include <set>
#include <sstream>

#include "tests/support/own_process.hpp"

using namespace support;

namespace {

constexpr size_t folder_length = sizeof "/tmp/vdprep-test-XXXXXX";  // with its "/"
using Found = std::pair<size_t, std::multiset<std::string>>;        // stopped after so many

boolean take_path(void *found, const text *path, size_t length) {
  auto &[most, paths] = *static_cast<Found *>(found);
  EXPECT_EQ(path[length], 0);
  paths.insert(std::string(path + folder_length, path + length) + " ");
  return paths.size() < most;
}

struct Arena {
  size_t most;  // pieces, then there is no memory
  std::string labels{};
  std::vector<std::unique_ptr<char[]>> pieces{};
};

void *take_memory(void *arena, size_t size, const char *label) {
  auto &[most, labels, pieces] = *static_cast<Arena *>(arena);
  labels += label + std::string(";");
  if (pieces.size() == most) return nullptr;
  return std::memset(pieces.emplace_back(new char[size]).get(), 0x5A, size);
}

int no_size(int, unsigned long, void *, int *result) { return *result = -1; }

class Find : public LayerTest {
 protected:
  ~Find() override { EXPECT_EQ(open_descriptors(), before_); }
  void make(const std::string &script) {
    EXPECT_EQ(std::system(("cd " + top_.path("") + " && " + script).c_str()), 0);
  }
  /// The paths found, sorted; by the walk from an object when one is given.
  std::string search(const std::string &name, boolean empty = FALSE, size_t most = 99,
                     const std::string &object = "") {
    const std::string prefix = top_.path(name), from = top_.path(object);
    Found found{most, {}};
    slerc se{};
    if (object.empty()) skgfrsfe(&se, txt(prefix), prefix.size(), empty, &found, take_path);
    const auto ended = object.empty() ? found.second.size() < most
                                      : skgfrsftw(&se, txt(from), from.size(), txt(prefix),
                                                  prefix.size(), empty, &found, take_path);
    EXPECT_TRUE(is(se, {0}));
    EXPECT_EQ(ended, found.second.size() < most);
    return std::accumulate(found.second.begin(), found.second.end(), std::string());
  }
  const int before_ = open_descriptors();
  TempDir top_;
};

TEST_F(Find, ASearchTakesTheNameAsAPrefixOfPathsAndSkipsLinksThatLeadBack) {
  make("mkdir -p arch2/sub arch2/none arch_none b c d/z && touch arch1 arch2/sub/y arch2/x b/arch");
  make("touch arcs c/w d/f d/z/w; mkfifo arch.p; ln -s b/arch arch.f; ln -s b arch.d");
  make("ln -s gone arch.g; ln -s /dev/null arch.c; ln -s . c/self; ln -s .. c/up; ln -s ../d c/d");
  make("ln -s ../c d/c; ln -s ../c d/c2; ln -s ../d d/here; ln -s $PWD/c c/c; ln -s ../../d d/z/d");
  make("mkdir z1 z2; touch z1/f z2/f; ln -s $PWD/arch2 arch.b");
  for (const auto &[name, from, empty, most, found] :
       {std::tuple("arch", "", 0, 9U, "arch.c arch.d/arch arch.f arch1 arch2/sub/y arch2/x "),
        {"arch2/s", "", 0, 1, "arch2/sub/y "},
        {"arch", "", 1, 9, "arch2/none arch_none "},
        {"arch_none/", "", 1, 9, "arch_none/ "},
        {"c/", "", 0, 99, "c/d/f c/d/z/w c/w "},
        {"d/", "", 0, 99, "d/c/w d/c2/w d/f d/z/w "},
        {"arch2/x", "arch2/x", 0, 1, "arch2/x "},
        {"arch", "arch2/sub", 0, 1, "arch2/sub/y "},
        {"arch", "arch2/none", 1, 1, "arch2/none "},
        {"arch2/none/x", "arch2/sub", 0, 1, ""},
        {"b", "arch2/x", 0, 1, ""},
        {"gone", "gone", 0, 1, ""}}) {
    EXPECT_EQ(search(name, empty, most, from), found) << name << from;
  }
  EXPECT_EQ(search("z", FALSE, 1).size(), sizeof "z1/f");  // one path, of two folders
  fault_arm("readdir64", 0, 1, EIO, FAULT_NULL);
  EXPECT_EQ(search("arch_none/", TRUE), "");
  Found none{9, {}};
  slerc se = dirty();
  skgfrsfe(&se, txt("/tmp"), 4, FALSE, &none, take_path);
  EXPECT_TRUE(is(se, {0}));
  EXPECT_TRUE(none.second.empty());
}

/// The top folders of these two file systems have the same number.
TEST_F(Find, FoldersAreToldApartByTheirDevicesToo) {
  const std::string mount = "mount -t tmpfs none ", at = "cd " + top_.path("") + " && ";
  make("mkdir a");
  if (std::system((at + mount + "a 2> /dev/null").c_str()) != 0) GTEST_SKIP() << "mount is refused";
  make("mkdir a/b && " + mount + "a/b && touch a/b/f");
  const std::string found = search("a/");
  make("umount a/b a");
  EXPECT_EQ(found, "a/b/f ");
}

TEST_F(Find, LongPathsAndWhatMayNotBeReadAreSkipped) {
  std::string folder = std::string(240, 'd') + "/";
  folder += std::string(510 - top_.path(folder).size(), 'e');  // its path: 510 characters
  make("mkdir -p " + folder + "e " + folder + "ee " + folder + " a/closed; touch a/open a/secret " +
       folder + "/f " + folder + "/ff a/closed/f; chmod 0 a/closed a/secret; chmod 755 .");
  EXPECT_EQ(search("d"), folder + "/f ");
  EXPECT_EQ(search("d", TRUE), folder + "e ");
  in_own_process([&] {  // as a user whom permissions bind
    EXPECT_TRUE(geteuid() != 0 || setuid(65534) == 0);
    EXPECT_EQ(search("a/"), "a/open ");
    EXPECT_EQ(search("a/", TRUE), "");
    EXPECT_EQ(search("a/secret", FALSE, 9, "a/secret"), "");
  });
}

/// A string for discovery, and its result: the pattern, then for each match code, error and word of its
/// record, its flags, size of a block and size in MiB, and its path.
struct Discovery {
  std::string string, found;
  Expected failure = {0};
  boolean raw_only = FALSE;
  const char *fault = "";
  size_t memory = 99;
};

std::string shown(const skgfrdsc *found) {
  if (!found) return "nothing";
  std::ostringstream line;
  line << (found->str_skgfrdsc ? found->str_skgfrdsc : txt("-"));
  const kgglk *const head = &found->dev_skgfrdsc;
  for (kgglk *at = head->kgglknxt; at != head; at = at->kgglknxt) {
    const auto &[link, path, why, flags, udid, lbl, blksz, disksz] =
        *reinterpret_cast<skgfrstat *>(at);
    EXPECT_EQ(link.kgglkprv->kgglknxt, at);
    line << ' ' << why.slercoer << ' ' << why.slercerrno << ' ' << why.slercose[0] << ' ' << flags
         << ' ' << blksz << ' ' << disksz << (path ? path : txt("-"));
  }
  return line.str();
}

void discover(const Discovery &row) {
  SCOPED_TRACE(row.string + " " + row.fault);
  fault_file_system(row.fault == std::string("nfs") ? 0x6969 : 0xEF53);
  if (row.fault == std::string("pread64")) fault_answer_ioctl(no_size);
  fault_arm(row.fault, 0, 99, EIO, FAULT_FAILS);
  Arena arena{row.memory};
  slerc se = dirty();
  const skgfrdsc *const found =
      skgfrdscdevs(&se, nullptr, txt(row.string), &arena, take_memory, nullptr, row.raw_only);
  fault_reset();
  EXPECT_TRUE(is(se, row.failure));
  EXPECT_EQ(shown(found), row.found);
  const std::string labels = "Discovery struct;DSC string;skgfrstat;Dev path;skgfrstat;Dev path;";
  EXPECT_EQ(labels.find(arena.labels), 0U);
  EXPECT_EQ(arena.labels.empty(), !found && row.memory > 0);
}

TEST_F(Find, ADiscoveryExpandsItsStringAndExaminesEveryMatch) {
  make("mkdir e d; mkfifo pipe; ln -s no gone; truncate -s 3145729 odd; truncate -s 5M disk");
  make("touch d/d1 'd/d*' d/e m1 m2");
  const LoopDevice loop(top_.path("disk"), 512);
  const std::string &disk = loop.path(), top = top_.path("").substr(0, folder_length - 1);
  ASSERT_NE(disk, "");
  setenv("TARVEX_HOME", top.c_str(), 1);
  glob64_t paths;
  ASSERT_EQ(glob64((top + "/m*").c_str(), GLOB_NOSORT, nullptr, &paths), 0);
  const std::string good = " 0 0 0 12 512 0", lost = " 15031 12 42 0 0 0-",
                    stars = std::string(254, '*') + "]", odd = top + "/odd";
  const std::string first = good + paths.gl_pathv[0], both = good + paths.gl_pathv[1] + first;
  globfree64(&paths);
  const Expected fine{0}, no_memory{15031, ENOMEM, {42}}, too_long{15031, ENAMETOOLONG, {41}};
  const Discovery rows[] = {
      {"?/odd", odd + " 0 0 0 12 512 3" + odd},
      {"?/odd", odd + " 0 0 0 12 512 3" + odd, fine, TRUE, "nfs"},
      {"?/odd", odd + " 15059 32768 42 0 0 0" + odd, fine, TRUE},
      {"?/e", top + "/e 15059 16384 42 0 0 0" + top + "/e"},
      {"?/pip?", top + "/pip? 15059 4096 42 0 0 0" + top + "/pipe", fine, TRUE, "nfs"},
      {"?/gon?", top + "/gon? 15025 2 42 0 0 0" + top + "/gone"},
      {disk, disk + " 0 0 0 12 512 5" + disk, fine, TRUE},
      {disk, disk + " 27072 5 1 0 0 0" + disk, fine, FALSE, "pread64"},
      {"?/d/[ef]", top + "/d/[ef]" + good + top + "/d/e"},
      {"${TARVEX_HOME}/d/d\\*", top + "/d/d\\*" + good + top + "/d/d*"},
      {"", "/dev/raw/*"},
      {"/x" + stars, "/x" + stars},
      {"/xx" + stars, "nothing", too_long},
      {"/$TARVEX_NONE/*", "nothing", {7217}},
      {"?/m*", top + "/m*" + first, no_memory, FALSE, "", 4},
      {"?/m*", top + "/m*" + lost + first, no_memory, FALSE, "", 5},
      {"?/m*", top + "/m*" + both}};
  for (const Discovery &row : rows) discover(row);
  slerc se = dirty();
  EXPECT_EQ(skgfrdscdevs(&se, nullptr, nullptr, nullptr, take_memory, nullptr, FALSE), nullptr);
  EXPECT_TRUE(is(se, {15031, EINVAL, {41}}));
}

}  // namespace
