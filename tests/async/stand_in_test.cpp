// Every answer of the kernel, given by the stand-in library, and what becomes of the requests.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <tuple>

#include "tests/async/support.hpp"

using namespace support;

namespace {

using Answers = std::vector<int>;
constexpr ub4 longest = 0xFFFFFFFF;

class StandIn : public AsyncTest {
 public:
  void SetUp() override {
    AsyncTest::SetUp();
    if (!aio) GTEST_SKIP() << "needs the stand-in library";
  }
  void plan(const Answers &submissions, const Answers &reapings, const Answers &results) {
    answer(aio->submissions, submissions);
    answer(aio->reapings, reapings);
    answer(aio->results, results);
    aio->submit_calls = aio->reap_calls = 0;
  }
  Requests make(size_t count) {
    Requests made;
    while (made.size() < count) made.push_back(&pool.emplace_back(file.iov, 1, buffer, 8192));
    return made;
  }
  /// Requests that are carried out at once and only reported later.
  void convert(size_t count) {
    ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE};
    priv(file.iov)->flags_skgfrsiov = skgfrvSYNCHRONOUS;
    queue(make(count), true);
    priv(file.iov)->flags_skgfrsiov = 0;
  }
  File file{ctx, dir.path("f"), 16};
  std::deque<Request> pool;
  alignas(512) char buffer[8192]{};
};

struct Submission {
  bool list;
  size_t pending, converted;  // before
  Answers submissions, reapings, results;
  std::string letters;  // of the requests: Pending, Later, Error
  int error = 0;
};

TEST_F(StandIn, Submission) {
  std::vector<Submission> rows = {
      {false, 0, 0, {-EAGAIN, 1, 0}, {}, {}, "LPL"},
      {false, 0, 0, {1, -EIO}, {}, {}, "PEP", EIO},
      {false, 1024, 0, {}, {}, {}, "LL"},
      {true, 0, 0, {0}, {}, {}, "LLLL"},
      {true, 1, 0, {3}, {1, -EINTR}, {}, "PPPL"},
      {true, 1000, 0, {}, {0}, {}, std::string(24, 'P') + std::string(76, 'L')},
      {true, 0, 1030, {}, {}, {}, "LL"},
      // taken, and back before the call answers
      {true, 0, 0, {3}, {}, {8192, -EIO, 8192}, "PEPL", EIO},
      {true, 0, 0, {3}, {}, {-EAGAIN, 8192, -EINTR}, "LPLL"}};
  // one alone, one with another pending, a list alone, a list with another pending
  for (const auto &[error, letters] : std::vector<std::pair<int, std::string>>{
           {EAGAIN, "LLLL"}, {ENOMEM, "ELLL"}, {EIO, "EELL"}, {EINVAL, "EELL"}, {ENOSYS, "EEEE"}}) {
    for (size_t i = 0; i < 4; ++i) {
      rows.push_back({i / 2 == 1, i % 2, 0, {-error}, {}, {}, letters.substr(i, 1), error});
    }
  }
  for (const auto &row : rows) {
    SCOPED_TRACE(&row - rows.data());
    plan({}, {}, {});
    queue(make(row.pending), true);
    convert(row.converted);
    plan(row.submissions, row.reapings, row.results);
    const Requests requests = make(row.letters.size());
    EXPECT_EQ(queue(requests, row.list), 1u);
    const bool room = row.pending + row.converted < 1024;
    EXPECT_EQ(aio->submit_calls, !room ? 0 : row.list ? 1 : static_cast<int>(requests.size()));
    EXPECT_TRUE(room || aio->reap_calls == 0);
    size_t taken = row.pending + row.converted;
    for (size_t i = 0; i < requests.size(); ++i) {
      EXPECT_EQ(requests[i]->letter(), row.letters[i]) << i;
      const ub4 site = row.list ? 2 : 1, block = row.list ? 0 : 1;
      EXPECT_TRUE(row.letters[i] != 'E' || is(requests[i]->se, {27070, row.error, {site, block}}));
      taken += row.letters[i] == 'P';
    }
    EXPECT_EQ(deliver_all().size(), taken) << "nothing that was answered comes again";
    EXPECT_EQ(priv(file.iov)->aiopend_skgfrsiov, 0u);
  }
}

TEST_F(StandIn, Waiting) {
  skgfrwcx self{getpid()};
  const struct {
    Answers reapings;
    ub4 count, timeout;
    bool interruptible;
    char result;  // OK, Not found, Interrupt, Error
    int calls;
    long milliseconds;
  } rows[] = {{{}, 1, 150, false, 'O', 1, 1500},
              {{}, 7, 0, false, 'O', 1, 0},
              {{}, 0, longest, false, 'N', 0, 0},
              {{0}, 1, 0, true, 'N', 1, 0},
              {{0}, 1, longest, true, 'N', 1, 600000},
              {{-EINTR}, 1, 99, true, 'I', 1, 990},
              {{-EINTR, -EINTR}, 1, 100, false, 'O', 3, 1000},
              {{-ETIME}, 1, 100, true, 'N', 1, 1000},
              {{-ETIME}, 1, longest, true, 'O', 2, 600000},
              {{-ETIMEDOUT}, 1, longest, true, 'N', 1, 600000},
              {{-ENOMEM}, 1, 100, true, 'N', 1, 1000},
              {{-EAGAIN}, 1, 100, true, 'N', 1, 1000},
              {{-EIO}, 1, 100, true, 'E', 1, 1000}};
  for (const auto &row : rows) {
    SCOPED_TRACE(&row - rows);
    queue(make(1), true);
    plan({}, row.reapings, {});
    aio->timeout = {};
    skgfriosb *iosb = nullptr;
    se = dirty();
    skgfrwcx *const wcx = row.interruptible ? &self : nullptr;
    EXPECT_EQ("?ONIE"[skgfrwat(&se, ctx, row.count, &iosb, wcx, row.timeout)], row.result);
    EXPECT_TRUE(is(se, row.result == 'E' ? Expected{27083, EIO} : Expected{0}));
    const long waited = aio->timeout.tv_sec * 1000 + aio->timeout.tv_nsec / 1000000;
    EXPECT_EQ(std::tuple(aio->reap_calls, waited), std::tuple(row.calls, row.milliseconds));
    EXPECT_EQ(iosb != nullptr, row.result == 'O');
    EXPECT_EQ(deliver_all().size(), iosb ? 0u : 1u);
  }
  convert(1);
  queue(make(1), true);
  EXPECT_FALSE(skgfrliopo(&se, ctx, 2, 0, FALSE, 0)) << "what was converted is not the kernel's";
  EXPECT_EQ(se.slercoer, 0);
  fault_arm("pread64", 0, 1, EIO, FAULT_FAILS);
  convert(1);
  EXPECT_TRUE(is(pool.back().se, {27072, EIO, {5, 1, longest}}));
  EXPECT_EQ(deliver_all().size(), 2u);
}

TEST_F(StandIn, Completion) {
  const struct {
    int result, error, moved;
    Expected failure{0};
  } rows[] = {{8192, 0, 8192},
              {4096, 0, 4096, {27085, 0, {4096, 8192}}},
              {0, 0, 0, {27085, 0, {0, 8192}}},
              {-5, 5, -1, {27061, 5, {longest, 8192}}}};
  for (const boolean suspended : {FALSE, TRUE}) {
    for (const auto &row : rows) {
      SCOPED_TRACE(&row - rows);
      plan({}, {}, {row.result});
      Request *const one = make(1)[0];
      queue({one}, suspended);
      EXPECT_NE(priv(one->iosb)->start_skgfrsisb, 0u);
      priv(one->iosb)->start_skgfrsisb -= 500;
      aiocb64 *const block = &priv(one->iosb)->aio64req_skgfrsisb;
      const auto state = [&] {
        return std::tuple(skgfr_error64(ctx, block), skgfr_return64(ctx, block));
      };
      EXPECT_EQ(state(), std::tuple(EINPROGRESS, -EINPROGRESS));
      unsigned int reaped = 0;
      EXPECT_EQ(skgfr_reap64(ctx, nullptr, 1, nullptr, 1, &reaped, suspended), 1);
      EXPECT_EQ(one->letter() == 'P', suspended == TRUE);
      EXPECT_EQ(state(), std::tuple(row.error, row.moved));
      EXPECT_EQ(deliver_all(), Requests{one});
      EXPECT_EQ(one->letter(), row.failure.code ? 'E' : 'D');
      EXPECT_TRUE(is(one->se, row.failure));
      EXPECT_EQ(one->time >= 500 && one->time != skgfrUNKNOWN, row.failure.code == 0);
    }
  }
}

TEST_F(StandIn, ReapingCounts) {
  const Requests five = make(5), three = make(3);
  queue(five, true);
  plan({}, {2, 1, 1}, {});
  unsigned int reaped = 0;
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 3, nullptr, 1024, &reaped, FALSE), 1) << "of the last call";
  EXPECT_EQ(reaped, 3u);
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 2, nullptr, 1, &reaped, FALSE), -1);
  EXPECT_EQ(errno, EAGAIN) << "no room for the one that is still out";
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 2, nullptr, 1024, &reaped, FALSE), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(deliver_all(), Requests(five.rbegin(), five.rend())) << "last completed first";
  queue(three, true);
  plan({}, {1, 1, 1}, {});
  const aiocb64 *list[] = {&priv(three[1]->iosb)->aio64req_skgfrsisb, nullptr, nullptr};
  EXPECT_EQ(skgfr_suspend64(ctx, list, 3, nullptr), 2) << "until one of the list is done";
  skgfriosb *iosb = nullptr;
  EXPECT_EQ(skgfrwat(&se, ctx, 2, &iosb, nullptr, 0), skgfrrOK);
  EXPECT_EQ(aio->reap_calls, 2) << "enough were done";
  EXPECT_EQ(deliver_all().size(), 2u);
  queue(make(3), true);
  plan({}, {3}, {});
  aiocb64 *few[] = {nullptr, nullptr};
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 1, few, 1, &reaped, FALSE), 3);
  EXPECT_TRUE(few[0] && !few[1]) << "no more than the list holds";
  EXPECT_EQ(deliver_all().size(), 3u);
}

TEST_F(StandIn, SupportProbe) {
  const struct {
    Answers submissions, reapings, results;
    boolean supported;
    int calls, late;
  } rows[] = {{{}, {}, {}, TRUE, 1, 0},      {{}, {0, -EINTR}, {}, TRUE, 3, 0},
              {{}, {}, {100}, FALSE, 1, 0},  {{}, {}, {STAND_IN_STRAY}, FALSE, 1, 0},
              {{-EIO}, {}, {}, FALSE, 0, 0}, {{0}, {}, {}, FALSE, 0, 0},
              {{}, {-1}, {}, FALSE, 1, 1},   {{}, {0, -EINTR, 0}, {}, FALSE, 3, 1}};
  const int fd = priv(file.iov)->fd_skgfrsiov;
  for (const auto &row : rows) {
    for (const boolean again : {FALSE, TRUE}) {
      SCOPED_TRACE(&row - rows);
      convert(1);
      plan(row.submissions, row.reapings, row.results);
      EXPECT_EQ(skgfr_aiosupported(ctx, fd), row.supported);
      EXPECT_EQ(std::tuple(aio->reap_calls, aio->waiting), std::tuple(row.calls, row.late));
      EXPECT_TRUE(!again || skgfr_aiosupported(ctx, fd)) << "past the late completion";
      queue(make(2), true);
      EXPECT_EQ(deliver_all().size(), 3u) << "the late completion is none of them";
      EXPECT_EQ(aio->waiting, 0);
    }
  }
  queue(make(2), true);
  plan({}, {0, 0, 0}, {});
  EXPECT_FALSE(skgfr_aiosupported(ctx, fd)) << "what is in flight stays there";
  EXPECT_EQ(std::tuple(aio->submit_calls, aio->timeout.tv_sec), std::tuple(0, 10));
  EXPECT_TRUE(skgfr_aiosupported(ctx, fd));
  EXPECT_EQ(ctx->aiodone_skgfrctx, 2u) << "collected before the probe";
}

using Post = AsyncTest;
TEST_F(Post, WakesAnInterruptibleWait) {
  skgfrwcx self{getpid()}, nobody{0};
  skgfriosb *iosb = nullptr;
  ctx->aiopend_skgfrctx = 1;  // the kernel does not have it, so it never completes
  for (skgfrwcx *const wcx : {&self, static_cast<skgfrwcx *>(nullptr)}) {
    const pid_t waker = fork();  // wakes often, as the first time may be too early
    for (int times = wcx ? 500 : 5; waker == 0 && times > 0; --times) {
      usleep(20000), skgfrpst(&se, ctx, &self, 0);
    }
    if (waker == 0) _exit(0);
    const skgfrr result = skgfrwat(&se, ctx, 1, &iosb, wcx, wcx ? 6000 : 20);
    EXPECT_EQ(result, wcx ? skgfrrINTERRUPT : skgfrrNOTFOUND);
    kill(waker, SIGKILL), waitpid(waker, nullptr, 0);
  }
  static int wakeups = 0;
  signal(SIGWINCH, [](int) { ++wakeups; });
  skgfrpst(&se, ctx, &nobody, 0);
  EXPECT_EQ(wakeups, 0);
  skgfrpst(&se, ctx, &self, 0);
  EXPECT_EQ(wakeups, 1);
}

/// In a process of its own, as the library stays loaded; a kernel call would be one to address 0.
void use_the_layer_without_library() {
  fault_arm("dlopen", 0, 2, ENOENT, FAULT_NULL);
  TempDir dir;
  Context ctx{(client().io_options = "asynch", &client_table)};
  const File file(ctx, dir.path("f"), 8);
  alignas(512) char buffer[512];
  Request one(file.iov, 1, buffer, sizeof buffer);
  kgglk head{&one.rq.link_skgfrrq, &one.rq.link_skgfrrq};
  one.rq.link_skgfrrq = {&head, &head};
  EXPECT_EQ(skgfr_aiorw64(ctx, 0, buffer, 512, 0, priv(one.iosb), FALSE), -1);
  EXPECT_EQ(skgfqio(ctx, &head, skgfqioASYNC), 1u);
  EXPECT_TRUE(is(one.se, {27064}));
  ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE};
  EXPECT_EQ(skgfqio(ctx, &head, skgfqioASYNC), 0u);
  EXPECT_FALSE(skgfospo(&one.se, ctx, 2, 0, 0, 0));
  EXPECT_EQ(skgfgiod(ctx), static_cast<skgfriosb *>(one.iosb));
  std::exit(testing::Test::HasFailure());
}
using AbsentLibrary = LayerTest;
TEST_F(AbsentLibrary, WorksSynchronously) {
  testing::FLAGS_gtest_death_test_style = process_of_its_own;
  EXPECT_EXIT(use_the_layer_without_library(), testing::ExitedWithCode(0), "");
}

}  // namespace
