// Record sizes, initialisation of a context and I/O options.
#include <fcntl.h>
#include <sys/resource.h>

#include "tests/support/own_process.hpp"

namespace {
using namespace support;
using std::tuple;
using ContextTest = LayerTest;

TEST_F(ContextTest, RecordSizesAndCapabilities) {
  const size_t narrow[] = {0, 36, 588, 112, 0}, wide[] = {0, 40, 616, 152, 0};
  for (const int kind : {0, 1, 2, 3, 4}) {
    EXPECT_EQ(skgfrgsz(static_cast<skgfrs>(kind)), (sizeof(void *) == 4 ? narrow : wide)[kind]);
    EXPECT_EQ(skgfrqib(nullptr, static_cast<skgfra>(kind)), kind == 1 || kind == 2) << kind;
  }
}

TEST_F(ContextTest, FirstInitialisation) {
  in_new_process([] {
    slerc se = dirty();
    skgfrctx ctx;
    std::memset(&ctx, 0xA5, sizeof ctx);
    skgfrwcx wait{};
    sigset_t mask, after;
    sigemptyset(&mask);
    sigaddset(&mask, SIGWINCH);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    skgfrpini(&se, &ctx, &wait, &client_table, reinterpret_cast<skgcbctx *>(&wait));
    sigprocmask(SIG_UNBLOCK, &mask, &after);
    EXPECT_EQ(sigismember(&after, SIGWINCH), 1) << "the caller's mask";
    EXPECT_TRUE(is(se, {0}));
    EXPECT_EQ(wait.pid_skgfrwcx, getpid());
    EXPECT_NE(ctx.ioctx_skgfrctx, nullptr);
    for (const kgglk *list : {&ctx.qdone_skgfrctx, &ctx.qsubmit_skgfrctx, &ctx.conv_skgfrctx}) {
      EXPECT_EQ(list->kgglknxt, list);
      EXPECT_EQ(list->kgglkprv, list);
    }
    EXPECT_EQ(ctx.cbk_skgfrctx, &client_table);
    EXPECT_EQ(ctx.cbctx_skgfrctx, reinterpret_cast<skgcbctx *>(&wait));
    EXPECT_EQ(ctx.iocbs_skgfrctx, nullptr);
    EXPECT_EQ(tuple(ctx.sigwinchslot_skgfrctx, ctx.maxlio_skgfrctx, ctx.maxopen_skgfrctx,
                    ctx.flags_skgfrctx, ctx.maxaio_skgfrctx, ctx.addend_skgfrctx),
              tuple(1, 1024, 0xFFFFFFFF, 0x103, 1024, -1));
    EXPECT_EQ(ctx.aiopend_skgfrctx | ctx.aiodone_skgfrctx | ctx.curopen_skgfrctx, 0u);
    struct sigaction action {};
    EXPECT_EQ(sigaction(SIGWINCH, nullptr, &action), 0);
    EXPECT_EQ(action.sa_sigaction, sslsshandler);
    EXPECT_EQ(action.sa_flags & SA_RESTART, 0);
  });
}

TEST_F(ContextTest, LimitsOfTheProcess) {
  in_new_process([] {
    Context first;
    const tuple<rlim64_t, rlim64_t, ub2, ub8> limits[] = {
        {1024, ~ub8{0}, 409, ~ub8{0}}, {1000, ~0u, 400, ~ub8{0}}, {256, 1LL << 32, 102, 1LL << 32}};
    for (const auto &[files, bytes, low_water, limit] : limits) {
      const rlimit64 open_files{files, 1024}, size{bytes, RLIM64_INFINITY};
      EXPECT_EQ(setrlimit64(RLIMIT_NOFILE, &open_files) | setrlimit64(RLIMIT_FSIZE, &size), 0);
      Context again;  // finds the handler in place, which is no failure
      EXPECT_TRUE(is(again.se, {0}));
      EXPECT_EQ(tuple(again->sigwinchslot_skgfrctx, again->lwm_skgfrctx, again->limfsiz_skgfrctx),
                tuple(0, low_water, limit));
    }
  });
}

TEST_F(ContextTest, FlagsFollowTheClientsAnswers) {
  const char *const cluster = "cluster_database", *const check = "_check_block_after_checksum";
  if (!kernel_has_room()) GTEST_SKIP() << "no room for another kernel context";
  const skgcb *const table = &client_table;
  skgcb mute = client_table, liar = client_table;
  mute.getparam_skgcb = nullptr;
  liar.getparam_skgcb = [](skgcbctx *, const text *name, uword *, void *value, text **,
                           const text *, size_t) -> boolean {
    *static_cast<uword *>(value) = name[0] == 'c' ? 5 : 0;
    return FALSE;  // it stores values that it denies knowing
  };
  const tuple<const skgcb *, const char *, uword, ub4> rows[] = {
      {nullptr, "", 0, 0x103},      {&mute, "", 0, 0x103},    {&liar, "", 0, 0x303},
      {table, cluster, 256, 0x303}, {table, check, 0, 0x003}, {table, check, 7, 0x103}};
  for (const auto &[client_table, name, value, flags] : rows) {
    client().numbers = {{name, value}};
    Context ctx(client_table);
    EXPECT_TRUE(is(ctx.se, {0}));
    EXPECT_EQ(ctx->flags_skgfrctx, flags) << name << value;
  }
}

TEST_F(ContextTest, OptionWords) {
  const std::pair<std::string, ub4> rows[] = {{"asynch", 0x40}, {"A", 0x40}, {"directio", 0x80},
                                              {"Setall", 0xC0}, {"Nasd", 0}, {"", 0}};
  skgfrctx ctx{};
  ctx.cbk_skgfrctx = &client_table;
  for (const auto &[word, bits] : rows) {
    client().io_options = word;  // an empty one is not known to the client
    for (const bool asked : {false, true}) {
      ctx.flags_skgfrctx = 0x1C0;
      slerc se = dirty();
      if (asked) skgfrsini(&se, &ctx, nullptr, nullptr, nullptr);
      if (!asked) skgfrsetioparam(&se, &ctx, word.empty() ? nullptr : txt(word), 1);
      EXPECT_TRUE(is(se, {0}));
      EXPECT_EQ(ctx.flags_skgfrctx, 0x100 | bits) << word << asked;
    }
  }
  char memory[7] = "######";
  void *value = &value;
  uword length = 77;
  const auto refuse = [](void *, size_t) -> void * { return nullptr; };
  const auto give = [](void *memctx, size_t size) { return size == 6 ? memctx : nullptr; };
  EXPECT_EQ(skgfrioparamcb(nullptr, &value, &length, nullptr, refuse, memory), 1u);
  EXPECT_EQ(std::pair(value, length), std::pair(static_cast<void *>(&value), 77U));
  EXPECT_EQ(skgfrioparamcb(nullptr, &value, &length, nullptr, give, memory), 0u);
  EXPECT_EQ(std::pair(value, length), std::pair(static_cast<void *>(memory), 4U));
  EXPECT_EQ(std::string(memory, sizeof memory), std::string({'n', 'o', 'n', 'e', 0, 0, 0}));
}

TEST_F(ContextTest, DirectInputAndOutput) {
  const int folder = open("/tmp", O_RDONLY);
  constexpr unsigned local = 0xEF53, cluster = 0xA156F7EB, network = 0x6969;
  constexpr mode_t file = S_IFREG, raw = S_IFCHR, disk = S_IFBLK;
  const tuple<ub4, mode_t, ub1, unsigned, int, boolean> rows[] = {
      {0x000, file, 0, local, 0, FALSE},       {0x080, file, 2, local, O_DIRECT, TRUE},
      {0x080, raw, 0, local, 0, FALSE},        {0x080, raw, 0, cluster, O_DIRECT, FALSE},
      {0x000, disk, 0, local, O_DIRECT, TRUE}, {0x000, file, 2, cluster, O_DIRECT, TRUE},
      {0x040, file, 0, network, 0, FALSE},     {0x200, file, 0, network, O_DIRECT, FALSE},
      {0x200, file, 2, network, 0, FALSE}};
  skgfrctx ctx{};
  for (const auto &[bits, mode, flags, system, by_name, by_descriptor] : rows) {
    fault_file_system(system);
    ctx.flags_skgfrctx = bits;
    EXPECT_EQ(skgfr_cfsdirectio(bits ? &ctx : nullptr, "/tmp", mode, flags), by_name);
    EXPECT_EQ(skgfr_cfsdirectiofd(&ctx, folder, mode), by_descriptor) << bits << " " << mode;
  }
  fault_file_system(cluster);
  EXPECT_EQ(skgfr_cfsdirectio(nullptr, "/tmp/no such file", S_IFREG, 0), 0);
  EXPECT_EQ(skgfr_cfsdirectiofd(nullptr, -1, S_IFREG), FALSE);
  close(folder);
}
}  // namespace
