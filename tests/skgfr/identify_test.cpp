// Identification and the queries by name: sizes of every kind of file, headers, mount options.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/file_rows.hpp"

using namespace support;

namespace {

class Identify : public LayerTest {};

constexpr ub4 unknown = 0xFFFFFFFF;
constexpr size_t no_size = ~size_t{0};

ub8 file_size(World &w) { return skgfgfsz(&w.se, w.ctx, txt(w.name), w.name.size()); }
ub8 block_size(World &w) { return skgfglbsz(&w.se, w.ctx, txt(w.name), w.name.size(), w.type); }
ub8 raise_limit(World &w) { return skgfrofl(&w.se, w.ctx, 100); }

/// A first sector with these 32-bit words at these offsets.
std::string sector(std::initializer_list<std::pair<size_t, ub4>> words) {
  std::string bytes(512, '\0');
  for (const auto &[offset, word] : words) std::memcpy(&bytes[offset], &word, sizeof word);
  return bytes;
}
std::string current(ub4 size) { return sector({{4, 0xFFC00000}, {20, size}, {28, 0x7A7B7C7D}}); }

void folder(World &w) { w.name = w.dir.path("."); }
void fifo(World &w) { mkfifo((w.name = w.dir.path("fifo")).c_str(), 0600); }
void endless(World &w) { w.name = "/dev/zero"; }
void cut(World &w) { put(w.name, "short"), w.fib->lblksiz_skgfrfib = 0; }
void stamped(World &w) { put(w.name, current(8192)); }
void nfs(World &w) { w.name = w.memory.file("file", 512), fault_file_system(0x6969); }
void nfs_root(World &w) { w.name = "/etc/passwd", fault_file_system(0x6969); }

TEST_F(Identify, TellsEveryFailureApart) {
  const FailureRow rows[] = {
      {identify, {27035, 0, {16896, 2}}, skgfrrERROR, {"stat64"}, block_size_of<16896>},
      {identify, {27036, 0, {7345, 2}}, skgfrrERROR, {}, climbing},
      {identify, {27037, ENOENT, {3}}, skgfrrNOTFOUND, {}, missing},
      {identify, {27037, EACCES, {3}}, skgfrrERROR, {"stat64", EACCES}},
      {identify, {27037, 0, {5}}, skgfrrERROR, {}, folder},
      {identify, {27041, ENOENT, {2}}, skgfrrERROR, {"open64", ENOENT}},
      {identify, {27036, EIO, {12}}, skgfrrERROR, {"canonicalize_file_name", EIO, 0, 0}, nfs},
      {identify, {27037, EACCES, {13}}, skgfrrERROR, {"stat64", EACCES, 1}, nfs},
      {identify, {27054, 0, {1}}, skgfrrERROR, {}, nfs_root},
      {identify, {27054, EMFILE, {2}}, skgfrrERROR, {"setmntent", EMFILE}, nfs},
      {identify, {27043, EIO, {2}}, skgfrrERROR, {"lseek64", EIO}, block_size_of<0>},
      {identify, {27047, EIO, {1}}, skgfrrERROR, {"read", EIO}, block_size_of<0>},
      {identify, {27047, 0, {1}}, skgfrrERROR, {}, cut},
      {identify, {27047, 0, {2}}, skgfrrERROR, {}, block_size_of<0>},
      {identify, {27045, EIO, {2}}, skgfrrERROR, {"close", EIO}},
      {file_size, {27036, 0, {7345, 10}}, ~ub8{0}, {}, climbing},
      {file_size, {27037, ENOENT, {8}}, ~ub8{0}, {}, missing},
      {file_size, {27037, 0, {4}}, ~ub8{0}, {}, fifo},
      {file_size, {27041, EBUSY, {6}}, ~ub8{0}, {"open64", EBUSY}, endless},
      {file_size, {27072, EIO, {1}}, ~ub8{0}, {}, endless},
      {block_size, {27036, 0, {7345, 5}}, no_size, {}, climbing},
      {block_size, {27037, ENOENT, {7}}, no_size, {}, missing},
      {block_size, {27041, EACCES, {7}}, no_size, {"open64", EACCES}},
      {block_size, {27043, EIO, {5}}, no_size, {"lseek64", EIO}},
      {block_size, {27047, EIO, {3}}, no_size, {"read", EIO}},
      {block_size, {27047, 0, {4}}, no_size},
      {block_size, {27045, EIO, {6}}, 8192, {"close", EIO}, stamped},
      {raise_limit, {27074, EPERM}, 0, {"getrlimit64", EPERM}},
      {raise_limit, {27076, EPERM}, 0, {"setrlimit64", EPERM}},
  };
  expect_failures([](World &w) { file_of_1024(w), identify(w); }, rows);
}

TEST_F(Identify, SizesEveryKindOfFile) {
  const std::tuple<const char *, ub8, size_t, ub1, Facts> rows[] = {
      {nullptr, 1024, 512, 0, {1, 2, 512}},
      {nullptr, 3 * 16384, 16384, 0, {2, 3, 16384}},
      {nullptr, 512, 512, 0, {unknown, unknown, 512}},
      {nullptr, 1000, 512, 0, {unknown, unknown, 512}},
      {nullptr, 0, 512, 0, {unknown, 0, 512}},
      {nullptr, 4096, 512, skgfrbNOHEADER, {8, 8, 0}},
      {nullptr, 4096, 0, skgfrbNOHEADER, {1, unknown, 0}},
      {"/dev/null", ub8{1} << 34, 8192, 0, {2097151, 2097152, 8192}},
      {"/dev/zero", ~ub8{0}, 512, 0, {unknown, unknown, 512}},
      {"/dev/zero", ~ub8{0}, 512, skgfrbNOHEADER, {1, unknown, 0}},
  };
  for (const auto &[device, bytes, size, flags, expected] : rows) {
    SCOPED_TRACE(testing::Message() << bytes << "/" << size << " " << int{flags});
    World w;
    const std::string plain = device ? device : w.dir.file("f", static_cast<size_t>(bytes));
    w.name = "/" + plain;
    w.fib->lblksiz_skgfrfib = size, w.fib->flags_skgfrfib = flags, w.fib->serr_skgfrfib = 7;
    const Expected record = bytes == 1000 ? Expected{27046, 0, {1}} : Expected{0};
    EXPECT_TRUE(gives(w, identify, bytes == 1000 ? skgfrrSZERR : skgfrrOK, record));
    EXPECT_EQ(facts(w), expected);
    EXPECT_EQ(file_size(w), bytes);
    struct stat64 status {};
    stat64(plain.c_str(), &status);
    EXPECT_EQ(priv(w.fib)->ftyp_skgfrsfib, status.st_mode);
    EXPECT_EQ(priv(w.fib)->device_skgfrsfib, std::to_string(static_cast<ub4>(status.st_dev)));
    EXPECT_EQ(plain, reinterpret_cast<char *>(w.fib->fnm_skgfrfib));
    EXPECT_EQ(w.fib->fnl_skgfrfib, plain.size());
    EXPECT_EQ(w.fib->pblksiz_skgfrfib + w.fib->maxvec_skgfrfib + w.fib->serr_skgfrfib, 512U + 16);
  }
}

TEST_F(Identify, LearnsTheBlockSizeFromBlock0) {
  const std::tuple<std::string, skgfrf, size_t> rows[] = {
      {current(8192), skgfrfVTG, 8192},
      {current(16896), skgfrfVTG, 0},
      {sector({{4, 0xFFC00000}, {20, 8192}, {28, 0x7A7B7C7E}}), skgfrfVTG, 0},
      {sector({{4, 4096}, {12, 0x5A5B5C5D}}), skgfrfVTG, 4096},
      {sector({{4, 4096}}), skgfrfVTG, 0},
      {sector({{4, 0xC0FF}, {20, 0x200000}, {28, 0x7D7C7B7A}}), skgfrfDCVT, 8192},
  };
  for (const auto &[bytes, type, size] : rows) {
    World w;
    put(w.name, bytes);
    w.type = w.fib->ftype_skgfrfib = type, w.fib->lblksiz_skgfrfib = 0;
    EXPECT_TRUE(size ? gives(w, identify, skgfrrOK)
                     : gives(w, identify, skgfrrERROR, {27047, 0, {2}}));
    EXPECT_EQ(facts(w), Facts(0, size ? 2 : 0, size));
    EXPECT_EQ(w.fib->lblksiz_skgfrfib, 0U);
    EXPECT_EQ(block_size(w), size ? size : no_size);
  }
}

TEST_F(Identify, AsksForSafeMountOptionsOnNfs) {
  const std::tuple<std::string, bool, bool> rows[] = {
      {"rsize=16384,wsize=16384,hard", true, false},
      {"rsize=32768,wsize=32768,hard,noacl", true, true},
      {"rsize=32768,wsize=32768,hard,actimeo=0", true, true},
      {"rsize=32768,wsize=32768,hard,actimeo=3", true, false},
      {"rsize=32768,wsize=32768,soft,noac", false, false},
      {"rsize=8192,wsize=32768,hard,noac", false, false},
      {"rsize=32768,wsize=16383,hard,noac", false, false},
      {"rsize=32768,hard,noac,wsize", false, false},
  };
  const std::string first = "WARNING:NFS file system /dev/shm mounted with incorrect options\n",
                    wanted = "WARNING:Expected NFS mount options: rsize>=16384,wsize>=16384,hard";
  for (const auto &[options, enough, enough_in_cluster] : rows) {
    for (const bool cluster : {false, true}) {
      SCOPED_TRACE(options + (cluster ? " in a cluster" : ""));
      World w;
      nfs(w);
      const std::string table = w.dir.path("mtab");
      put(table, "a:/ /dev nfs soft 0 0\nb:/ /dev/shm nfs " + options + " 0 0\n");
      fault_redirect("/etc/mtab", table.c_str());
      fault_arm("statfs64", 0, 2, ENOSYS, FAULT_FAILS);  // no direct I/O: not every system has it
      w.ctx->flags_skgfrctx |= cluster ? skgfrcCLUSTER : 0;
      const bool passes = cluster ? enough_in_cluster : enough;
      const Expected expected = passes ? Expected{0} : Expected{27054, 0, {3}};
      std::vector<std::string> alerts;
      if (!passes) alerts = {first, wanted + (cluster ? ",noac/actimeo=0\n" : "\n")};
      for (const skgcb *const callbacks :
           std::initializer_list<const skgcb *>{&client_table, nullptr}) {
        w.ctx->cbk_skgfrctx = callbacks;  // without any, nobody hears of it again
        EXPECT_TRUE(gives(w, identify, passes ? skgfrrOK : skgfrrERROR, expected));
        EXPECT_EQ(client().lines, alerts);
      }
      w.fib->flags_skgfrfib = skgfrbNONFS;
      EXPECT_TRUE(gives(w, identify, skgfrrOK));
    }
  }
}

TEST_F(Identify, KeepsDescriptorsInReserve) {
  World w;
  const auto raise = [&w](rlim64_t hard, ub4 ceiling, ub2 mark) {
    rlimit64 limit{16, hard};
    const Expected expected{ceiling ? 0 : 27075};
    bool right =
        setrlimit64(RLIMIT_NOFILE, &limit) == 0 && gives(w, raise_limit, ceiling, expected);
    getrlimit64(RLIMIT_NOFILE, &limit);
    right &= limit.rlim_cur == (ceiling ? hard : 16);
    right &= w.ctx->maxopen_skgfrctx == (ceiling ? ceiling : unknown);
    _exit(right && (!ceiling || w.ctx->lwm_skgfrctx == mark) ? 42 : 43);
  };
  // In children, as a lowered hard limit stays.
  EXPECT_EXIT(raise(1024, 992, 409), testing::ExitedWithCode(42), "");
  EXPECT_EXIT(raise(33, 1, 13), testing::ExitedWithCode(42), "");
  EXPECT_EXIT(raise(32, 0, 0), testing::ExitedWithCode(42), "");
}

}  // namespace
