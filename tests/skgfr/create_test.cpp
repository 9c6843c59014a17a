// Creation, resize and recomputation: what is on disk and in the record afterwards.
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/file_rows.hpp"

using namespace support;

namespace {

class Create : public LayerTest {};

constexpr ub4 unknown = 0xFFFFFFFF;

ub8 create(World &w) {
  skgfrcre(&w.se, w.ctx, txt(w.name), w.name.size(), w.type, w.fib->lblksiz_skgfrfib, w.blocks,
           w.flags);
  return std::filesystem::exists(w.name);
}
ub8 resize(World &w) {
  skgfrsz(&w.se, w.ctx, w.fib, w.blocks);
  return priv(w.fib)->lastblk_skgfrsfib;
}
ub8 recompute(World &w) {
  skgfrfb(&w.se, w.ctx, w.fib);
  return priv(w.fib)->lastblk_skgfrsfib;
}
ub8 force_failures(World &w) {
  skgfrser(&w.se, w.ctx, w.fib, 2);
  return w.fib->serr_skgfrfib;
}

void make_directories(World &w) { w.name = w.dir.path("a/b/file"), w.flags = skgfrcreMKDIRS; }
void lose_seal(World &w) { priv(w.fib)->seal_skgfrsfib = 77; }
void one_byte_short(World &w) { w.ctx->limfsiz_skgfrctx = 1023; }
void less_than_a_block(World &w) { w.ctx->limfsiz_skgfrctx = 511, w.blocks = unknown; }
void old_layout(World &) { client().old_layout = true; }
void direct(World &w) { w.ctx->flags_skgfrctx |= skgfrcDIRECT; }
void device(World &w) { w.name = "/dev/zero"; }
void existing(World &w) { w.dir.file("file", 100); }
void no_folder(World &w) { w.name = w.dir.path("a/file"); }
void endless(World &w) {
  w.ctx->limfsiz_skgfrctx = 1 << 30, w.blocks = unknown, w.fib->flags_skgfrfib = skgfrbNOHEADER;
}
void cut(World &w) { w.dir.file("file", 1000); }
template <bool known>
void identified_device(World &w) {
  w.name = known ? "/dev/null" : "/dev/zero", w.blocks = 1 << 25;
  identify(w);
}

TEST_F(Create, TellsEveryFailureApart) {
  const FailureRow creations[] = {
      {create, {27035, 0, {0, 1}}, 0, {}, block_size_of<0>},
      {create, {27035, 0, {1000, 1}}, 0, {}, block_size_of<1000>},
      {create, {27035, 0, {16896, 1}}, 0, {}, block_size_of<16896>},
      {create, {27036, 0, {7345, 1}}, 0, {}, climbing},
      {create, {27037, EACCES, {1}}, 0, {"stat64", EACCES}},
      {create, {27038, 0, {1}}, 1, {}, existing},
      {create, {27044, ENOMEM, {1}}, 0, {"malloc", ENOMEM}},
      {create, {27039, 0, {3}}, 0, {}, one_byte_short},
      {create, {27039, 0, {3}}, 0, {}, less_than_a_block},
      {create, {27054, EROFS}, 0, {"mkdir", EROFS, 1}, make_directories},
      {create, {27038, EEXIST, {2}}, 0, {"open64", EEXIST}},
      {create, {27040, ENOENT}, 0, {}, no_folder},
      {create, {27040, EINVAL}, 0, {"open64", EINVAL, 1}, direct},
      {create, {27037, EIO, {2}}, 0, {"fstat64", EIO}},
      {create, {27041, EBUSY, {1}}, 1, {"open64", EBUSY}, device},
      {create, {27042, 0, {1}}, 1, {}, device},
      {create, {27043, EIO, {1}}, 0, {"lseek64", EIO}},
      {create, {27044, ENOMEM, {2}}, 0, {"malloc", ENOMEM, 1}, old_layout},
      {create, {27044, ENOSPC, {3}}, 0, {"write", ENOSPC}},
      {create, {27044, 0, {3}}, 0, {"write", 0, 0, 100}},
      {create, {27044, EFBIG, {4}}, 0, {"ftruncate64", EFBIG}},
      {create, {27045, EIO, {1}}, 1, {"close", EIO}},
  };
  const FailureRow resizes[] = {
      {resize, {27050, 0, {7, 77}}, 2, {}, lose_seal},
      {resize, {27035, 0, {0, 3}}, 2, {}, block_size_of<0>},
      {resize, {27037, EACCES, {9}}, 2, {"stat64", EACCES}},
      {resize, {27046, 0, {2}}, 2, {}, cut},
      {resize, {27039, 0, {4}}, 2, {}, one_byte_short},
      {resize, {27039, 0, {4}}, 2, {}, less_than_a_block},
      {resize, {27039, 0, {4}}, 2, {}, endless},
      {resize, {27041, EROFS, {4}}, 2, {"open64", EROFS}},
      {resize, {27044, ENOMEM, {5}}, 2, {"malloc", ENOMEM}},
      {resize, {27043, EIO, {4}}, 2, {"lseek64", EIO}},
      {resize, {27044, ENOMEM, {6}}, 2, {"malloc", ENOMEM, 1}, old_layout},
      {resize, {27044, ENOSPC, {7}}, 2, {"write", ENOSPC}},
      {resize, {27059, EFBIG, {2}}, 2, {"ftruncate64", EFBIG}},
      {resize, {27042, 0, {2}}, 0, {}, identified_device<false>},
      {resize, {27042, 0, {3}}, 0, {}, identified_device<true>},
      {resize, {27045, EIO, {4}}, 2, {"close", EIO}},
      {recompute, {27050, 0, {8, 77}}, 2, {}, lose_seal},
      {recompute, {27035, 0, {0, 4}}, 2, {}, block_size_of<0>},
      {recompute, {27037, EACCES, {10}}, 2, {"stat64", EACCES}},
      {recompute, {27046, 0, {3}}, 2, {}, cut},
      {recompute, {27041, EACCES, {5}}, 2, {"open64", EACCES}},
      {recompute, {27045, EIO, {5}}, 2, {"close", EIO}},
      {force_failures, {27050, 0, {9, 77}}, 0, {}, lose_seal},
  };
  expect_failures([](World &) {}, creations);
  expect_failures([](World &w) { file_of_1024(w), identify(w); }, resizes);
}

/// The first bytes in hexadecimal, in groups of four of which zeros are a dot.
std::string words(std::string bytes, size_t size = 36) {
  std::string shown;
  bytes.resize(std::max(bytes.size(), size));
  for (size_t at = 0; at < size; at += 4) {
    char group[10] = ".";
    ub4 word;
    std::memcpy(&word, &bytes[at], 4);
    if (word) std::snprintf(group, sizeof group, "%08X", __builtin_bswap32(word));
    shown.append(at ? " " : "").append(group);
  }
  return shown;
}

TEST_F(Create, StampsBlock0AndSetsTheLength) {
  enum Kind { plain, swapped, old, nobody, headerless };
  const std::tuple<Kind, size_t, ub4, size_t, std::string> rows[] = {
      {plain, 512, 10, 5632, "00220000 0000C0FF . . 7C580000 00020000 0A000000 7D7C7B7A B0810000"},
      {plain, 4096, 2, 12288, "00820000 0000C0FF . . 74EA0000 00100000 02000000 7D7C7B7A B0810000"},
      {plain, 512, unknown, 512,
       "00220000 0000C0FF . . 76580000 00020000 FFFFFFFF 7D7C7B7A B0810000"},
      {swapped, 512, 10, 5632,
       "00220000 FFC00000 . . 587C0000 00000200 0000000A 7A7B7C7D 000081B0"},
      {old, 512, 10, 5632, "00020000 00020000 0A000000 5D5C5B5A B0810000 BC870000 . . ."},
      {nobody, 512, 10, 5632, "00020000 00020000 0A000000 5D5C5B5A B0810000 . . . ."},
      {headerless, 512, 10, 5120, ". . . . . . . . ."},
      {headerless, 512, unknown, 0, ". . . . . . . . ."},
  };
  const mode_t mask = umask(0);
  for (const auto &[kind, size, blocks, length, header] : rows) {
    for (const bool direct_io : {false, true}) {
      SCOPED_TRACE(header + (direct_io ? " direct" : ""));
      World w;
      w.type = kind == swapped ? skgfrfDCVT : skgfrfVTG, w.blocks = blocks;
      w.flags = kind == headerless ? skgfrcreNOHEADER : 0;
      w.fib->lblksiz_skgfrfib = size;
      client().old_layout = kind == old;
      if (kind == nobody) w.ctx->cbk_skgfrctx = nullptr;
      if (direct_io) direct(w);
      w.ctx->limfsiz_skgfrctx = std::max(length, size);
      EXPECT_TRUE(gives(w, create, true));
      const std::string bytes = contents(w.name);
      EXPECT_EQ(words(bytes), header);
      EXPECT_EQ(bytes.size(), length);
      EXPECT_EQ(bytes.find_first_not_of('\0', 36), std::string::npos);
    }
  }
  umask(mask);
}

TEST_F(Create, MakesDirectoriesAndLeavesExistingFilesAlone) {
  World w;
  const mode_t mask = umask(0);
  make_directories(w);
  EXPECT_TRUE(gives(w, create, true));
  w.blocks = 5;
  EXPECT_TRUE(gives(w, create, true, {27038, 0, {1}}));
  umask(mask);
  EXPECT_EQ(std::filesystem::file_size(w.name), 1024U);
  for (const auto &[path, mode] : {std::pair{"a", 0700}, {"a/b", 0700}, {"a/b/file", 0660}}) {
    const auto status = std::filesystem::status(w.dir.path(path));
    EXPECT_EQ(static_cast<int>(status.permissions()), mode);
  }
}

TEST_F(Create, ResizesFiles) {
  const std::tuple<ub4, ub1, size_t, ub4> rows[] = {
      {20, 0, 10752, 21},
      {4, 0, 2560, 5},
      {0, 0, 512, 1},  // from 1000 bytes, which is no whole number of blocks
      {unknown, 0, 5120, unknown},
      {20, skgfrbNOHEADER, 10240, 20},
      {4, skgfrbNOHEADER, 2048, 4},
  };
  for (const auto &[blocks, flags, length, last_block] : rows) {
    SCOPED_TRACE(testing::Message() << blocks << " blocks, flags " << int{flags});
    World w;
    const size_t before = blocks ? 5120 : 1000;
    w.dir.file("file", before);
    w.fib->flags_skgfrfib = flags;
    identify(w);
    w.blocks = blocks, w.ctx->limfsiz_skgfrctx = length;
    const size_t data = flags ? 0 : 512, kept = std::min(length, before);
    priv(w.fib)->blk1offset_skgfrsfib += data;
    EXPECT_TRUE(gives(w, resize, last_block));
    EXPECT_EQ(facts(w), Facts(blocks, last_block, data));
    const std::string bytes = contents(w.name);
    EXPECT_EQ(data && std::memcmp(&bytes[24], &blocks, 4), 0);
    EXPECT_EQ(bytes.substr(data), std::string(kept - data, 'x') + std::string(length - kept, '\0'));
    w.fib->filsiz_skgfrfib = 77;
    EXPECT_TRUE(gives(w, recompute, length / 512));
    EXPECT_EQ(w.fib->filsiz_skgfrfib, (length - data) / 512);
  }
}

TEST_F(Create, TreatsDevicesAsTheyAre) {
  const auto expect_resize = [](const std::string &name, ub4 blocks, ub4 last, ub4 whole) {
    World w;
    w.name = name, w.blocks = blocks, w.ctx->limfsiz_skgfrctx = 1;  // no limit for devices
    identify(w);
    EXPECT_EQ(facts(w), Facts(whole == unknown ? unknown : whole - 1, whole, 512));
    EXPECT_TRUE(gives(w, resize, last));
    EXPECT_EQ(facts(w), Facts(blocks, last, 512));
    EXPECT_TRUE(gives(w, recompute, whole));
    EXPECT_EQ(facts(w), Facts(whole == unknown ? unknown : whole - 1, whole, 512));
  };
  expect_resize("/dev/zero", 0, 1, unknown);
  expect_resize("/dev/zero", unknown, unknown, unknown);
  expect_resize("/dev/null", 100, 101, 1 << 25);

  World w;
  w.name = "/dev/zero", w.blocks = unknown;
  EXPECT_TRUE(gives(w, create, true));  // no size, so no proof of it
  const LoopDevice loop(w.dir.file("disk", 65536, 'd'), 512);
  if (loop.path().empty()) GTEST_SKIP() << "the system refuses loop devices";
  w.name = loop.path(), w.blocks = 128, w.ctx->limfsiz_skgfrctx = 1;
  EXPECT_TRUE(gives(w, create, true, {27042, 0, {1}}));
  EXPECT_EQ(contents(w.name), std::string(65536, 'd'));
  w.blocks = 127;
  EXPECT_TRUE(gives(w, create, true));
  identify(w);
  for (const char *const fields : {"00020000 7F000000 7D7C7B7A", "00020000 63000000 7D7C7B7A"}) {
    const std::string bytes = contents(w.name);
    EXPECT_EQ(words(bytes.substr(20), 12), fields);
    EXPECT_EQ(std::memcmp(&bytes[32], &priv(w.fib)->ftyp_skgfrsfib, 4), 0);
    EXPECT_EQ(bytes.substr(36), std::string(476, '\0') + std::string(65536 - 512, 'd'));
    expect_resize(w.name, 127, 128, 128);
    expect_resize(w.name, 99, 100, 128);
  }
  fault_reset();
  EXPECT_EQ(skgfgfsz(&w.se, w.ctx, txt(w.name), w.name.size()), 65536U);
  EXPECT_EQ(fault_calls("pread64"), 0);  // asked, not probed
}

}  // namespace
