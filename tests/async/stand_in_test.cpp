// Every answer of the kernel, given by the stand-in library, and what becomes of the requests; and what
// the real one does as well.
#include <dlfcn.h>

#include <csignal>
#include <deque>
#include <optional>

#include "tests/stand_in_aio/stand_in_aio.h"
#include "tests/support/own_process.hpp"
#include "tests/support/requests.hpp"
#include "tests/support/world.hpp"

using namespace support;

namespace {

using Answers = std::vector<int>;
constexpr ub4 longest = 0xFFFFFFFF;
constexpr size_t room = 1024;  // of a context

/// What the kernel answers, call by call; then it does all that it is asked to.
struct Kernel {
  Answers takes{};    // of the submitted, or a negated errno
  Answers brings{};   // of the completed, at most; 0: the time is out
  Answers results{};  // of a completion: bytes, or a negated errno
};

/// A file of 16 blocks, open for asynchronous writing.
struct OpenFile : World {
  OpenFile() {
    ctx->flags_skgfrctx |= skgfrcASYNC;
    put(name, std::string(17 * 512, '\0'));
    identify(*this);
    skgfofi(&se, ctx, fib, iov, room, skgfofiWRITE);
    EXPECT_EQ(se.slercoer, 0);
  }
};

/// Requests of its blocks from the first on, which share a buffer.
class AsyncTest : public LayerTest, public OpenFile {
 public:
  void SetUp() override {
    if (ctx->maxaio_skgfrctx == 0) GTEST_SKIP() << "the kernel gives no asynchronous context now";
    void *const library = dlopen("libaio.so.1", RTLD_NOW | RTLD_NOLOAD);
    aio = library ? static_cast<stand_in_aio *>(dlsym(library, "stand_in_aio")) : nullptr;
  }
  Requests make(size_t count) {
    Requests made;
    while (made.size() < count) {
      made.push_back(&pool.emplace_back(iov, 1, std::vector{skgfrbd{buffer, sizeof buffer}}));
    }
    return made;
  }
  uword queue(const Requests &requests, bool together, ub4 direction = skgfqioREAD) {
    const ub4 others = ctx->flags_skgfrctx & ~ub4{skgfrcLISTIO};
    ctx->flags_skgfrctx = others | (together ? skgfrcLISTIO : 0);
    return skgfqio(ctx, RequestList(requests), skgfqioASYNC | direction);
  }
  Requests deliver_all() {
    Requests all;
    skgfriosb *iosb = nullptr;
    while (skgfrwat(&se, ctx, 1, &iosb, nullptr, 6000) == skgfrrOK) {
      all.push_back(static_cast<Request *>(iosb->ctx_skgfriosb));
    }
    EXPECT_EQ(ctx->aiopend_skgfrctx, 0u);
    EXPECT_EQ(ctx->aiodone_skgfrctx, 0u);
    for (kgglk *head : {&ctx->qdone_skgfrctx, &ctx->conv_skgfrctx, &ctx->qsubmit_skgfrctx}) {
      EXPECT_EQ(head->kgglknxt, head);
    }
    return all;
  }
  std::deque<Request> pool;
  alignas(512) char buffer[8192]{};
  stand_in_aio *aio = nullptr;  // stays null over the real library
};

class StandIn : public AsyncTest {
 public:
  void SetUp() override {
    AsyncTest::SetUp();
    if (!aio) GTEST_SKIP() << "needs the stand-in library";
  }
  void plan(const Kernel &kernel) {
    fault_reset();
    arm("io_submit", kernel.takes);
    arm("io_getevents", kernel.brings);
    arm("completion", kernel.results);
  }
  static void arm(const char *call, const Answers &answers) {
    for (const int answer : answers) {
      fault_arm(call, 0, 1, std::max(-answer, 0), answer < 0 ? FAULT_FAILS : answer);
    }
  }
  static int submissions() { return fault_calls("io_submit"); }
  static int reapings() { return fault_calls("io_getevents"); }
  /// Requests that are carried out at once and only reported later.
  Requests convert(size_t count) {
    const Requests made = make(count);
    ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE};
    priv(iov)->flags_skgfrsiov = skgfrvSYNCHRONOUS;
    queue(made, true);
    priv(iov)->flags_skgfrsiov = 0;
    return made;
  }
  void submit(const struct Submission &row);
  int descriptor() { return priv(iov)->fd_skgfrsiov; }
};

enum { alone, list };

const struct Submission {
  const char *name;
  int how;
  struct {
    size_t pending = 0, converted = 0;
  } before;
  Kernel kernel;
  std::string letters;  // of the requests: Pending, Later, Error
  int error = 0;
  std::optional<int> reapings{};  // none: as many as it takes
} rows_of_submission[] = {
    {"one by one", alone, {}, {.takes = {-EAGAIN, 1, 0}}, "LPL"},
    {"all but the second", alone, {}, {.takes = {1, -EIO}}, "PEP", EIO},
    {"no room for one", alone, {.pending = room}, {}, "LL", 0, 0},
    {"none taken", list, {}, {.takes = {0}}, "LLLL"},
    {"a part taken", list, {.pending = 1}, {.takes = {3}, .brings = {1, -EINTR}}, "PPPL"},
    {"first come", list, {.pending = 2}, {.takes = {2}, .brings = {1, 1, 1, 1}}, "PPLL", 0, 4},
    {"room for a part", list, {.pending = 1020}, {.brings = {0}}, "PPPPLLLLL"},
    // refused for good: the first is at fault; but not where room was missing besides
    {"refused for good", list, {}, {.takes = {-EBADF}}, "ELL", EBADF},
    {"refused in part", list, {.pending = 1020}, {.takes = {-EBADF}, .brings = {0}}, "LLLLLLLLL"},
    {"no room for a list", list, {.converted = 1030}, {}, "LL", 0, 0},
    {"back already", list, {}, {.takes = {3}, .results = {8192, -EIO, 8192}}, "PEPL", EIO},
    {"to be tried again", list, {}, {.takes = {3}, .results = {-EAGAIN, 8192, -EINTR}}, "LPLL"}};

void StandIn::submit(const Submission &row) {
  plan({});
  queue(make(row.before.pending), true);
  convert(row.before.converted);
  plan(row.kernel);
  const Requests requests = make(row.letters.size());
  EXPECT_EQ(queue(requests, row.how == list), 1u);
  const size_t before = row.before.pending + row.before.converted;
  const size_t calls = before >= room ? 0 : row.how == list ? 1 : requests.size();
  EXPECT_EQ(submissions(), static_cast<int>(calls));
  if (row.reapings) {
    EXPECT_EQ(reapings(), row.reapings);
  }
  size_t taken = before;
  for (size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i]->letter(), row.letters[i]) << i;
    const Expected one{27070, row.error, {1, 1}}, in_list{27070, row.error, {2}};
    if (row.letters[i] == 'E') {
      EXPECT_TRUE(is(requests[i]->se, row.how == list ? in_list : one));
    }
    taken += row.letters[i] == 'P';
  }
  EXPECT_EQ(deliver_all().size(), taken) << "nothing that was answered comes again";
  EXPECT_EQ(priv(iov)->aiopend_skgfrsiov, 0u);
}
TEST_F(StandIn, Submission) {
  for (const Submission &row : rows_of_submission) {
    SCOPED_TRACE(row.name);
    submit(row);
  }
  // one alone, one with another pending, a list alone, a list with another pending
  for (const auto &[error, letters] : std::vector<std::pair<int, std::string>>{
           {EAGAIN, "LLLL"}, {ENOMEM, "ELLL"}, {EIO, "EEEE"}, {EINVAL, "EEEE"}, {ENOSYS, "EEEE"}}) {
    for (size_t i = 0; i < 4; ++i) {
      SCOPED_TRACE(testing::Message() << strerrorname_np(error) << ' ' << i);
      submit({"", i < 2 ? alone : list, {i % 2}, {.takes = {-error}}, letters.substr(i, 1), error});
    }
  }
}

const struct Wait {
  const char *name;
  Answers brings;
  struct {
    ub4 count = 1, timeout = 100;
    bool to_the_end = false;  // not to be interrupted
  } asked;
  char result;  // OK, Not found, Interrupt, Error
  int calls;
  long milliseconds;
} waits[] = {
    {"done", {}, {.timeout = 150, .to_the_end = true}, 'O', 1, 1500},
    {"more than there are", {}, {.count = 7, .timeout = 0}, 'O', 1, 0},
    {"for none", {}, {.count = 0, .timeout = longest, .to_the_end = true}, 'N', 0, 0},
    {"not at all", {0}, {.timeout = 0}, 'N', 1, 0},
    {"the longest", {0}, {.timeout = longest}, 'N', 1, 600000},
    {"interrupted", {-EINTR}, {.timeout = 99}, 'I', 1, 990},
    {"to the end", {-EINTR, -EINTR}, {.timeout = longest, .to_the_end = true}, 'O', 3, 600000},
    {"ETIME", {-ETIME}, {}, 'N', 1, 1000},
    {"ETIME at the longest", {-ETIME}, {.timeout = longest}, 'O', 2, 600000},
    {"ETIMEDOUT", {-ETIMEDOUT}, {.timeout = longest}, 'N', 1, 600000},
    {"ENOMEM", {-ENOMEM}, {}, 'N', 1, 1000},
    {"EAGAIN", {-EAGAIN}, {}, 'N', 1, 1000},
    {"EIO", {-EIO}, {}, 'E', 1, 1000}};

TEST_F(StandIn, Waiting) {
  skgfrwcx self{getpid()};
  for (const Wait &row : waits) {
    SCOPED_TRACE(row.name);
    queue(make(1), true);
    plan({.brings = row.brings});
    skgfriosb *iosb = nullptr;
    se = dirty();
    const auto [count, timeout, to_the_end] = row.asked;
    skgfrwcx *const wcx = to_the_end ? nullptr : &self;
    EXPECT_EQ("?ONIE"[skgfrwat(&se, ctx, count, &iosb, wcx, timeout)], row.result);
    EXPECT_TRUE(is(se, row.result == 'E' ? Expected{27083, EIO} : Expected{0}));
    const long asked = aio->timeout.tv_sec * 1000 + aio->timeout.tv_nsec / 1000000;
    EXPECT_LE(asked, row.milliseconds);
    // What an earlier call waited is gone.
    EXPECT_GE(asked, row.calls > 1 ? row.milliseconds / 2 : row.milliseconds);
    EXPECT_EQ(reapings(), row.calls);
    EXPECT_EQ(iosb != nullptr, row.result == 'O');
    EXPECT_EQ(deliver_all().size(), iosb ? 0u : 1u);
  }
}

TEST_F(StandIn, Conversion) {
  convert(1);
  queue(make(2), true);
  plan({.brings = {1, 1}});
  EXPECT_FALSE(skgfrliopo(&se, ctx, 1, 0, FALSE, 0)) << "what was converted is not the kernel's";
  EXPECT_FALSE(skgfospo(&se, ctx, 1, 0, 0, 0));
  EXPECT_EQ(reapings(), 1) << "what was converted is there already";
  EXPECT_EQ(se.slercoer, 0);
  EXPECT_EQ(deliver_all().size(), 3u);
  convert(1);
  queue(make(2), true);
  plan({.brings = {1, 1}});
  EXPECT_FALSE(skgfospo(&se, ctx, 2, 0, 0, 0));
  EXPECT_EQ(reapings(), 1) << "it is one of those that are waited for";
  fault_arm("pread64", 0, 1, EIO, FAULT_FAILS);
  EXPECT_TRUE(is(convert(1)[0]->se, {27072, EIO, {5, 1, longest}}));
  EXPECT_EQ(deliver_all().size(), 3u);
}

TEST_F(StandIn, Claims) {
  const Requests reaped = make(2);
  queue(reaped, true);
  unsigned int count = 0;
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 2, nullptr, 2, &count, TRUE), 2);
  const Requests converted = convert(1);
  for (const Request *one : {reaped[0], converted[0]}) {
    skgfrchk(ctx, one->iosb);
    EXPECT_EQ(one->letter(), 'P') << "not complete yet";
    EXPECT_EQ(ctx->aiodone_skgfrctx, 2u);
  }
  EXPECT_FALSE(skgfospo(&se, ctx, 1, 0, 0, 0));
  for (int times = 0; times < 2; ++times) {  // once, and again
    skgfrchk(ctx, converted[0]->iosb);
    EXPECT_EQ(converted[0]->letter(), 'D');
    EXPECT_EQ(ctx->aiodone_skgfrctx, 2u);
  }
  EXPECT_EQ(deliver_all(), Requests(reaped.rbegin(), reaped.rend()));
}

TEST_F(StandIn, Completion) {
  const struct {
    const char *name;
    int result, error, moved;
    Expected failure{0};
  } rows[] = {{"whole", 8192, 0, 8192},
              {"short", 4096, 0, 4096, {27085, 0, {4096, 8192}}},
              {"nothing", 0, 0, 0, {27085, 0, {0, 8192}}},
              {"failed", -EIO, EIO, -1, {27061, EIO, {longest, 8192}}}};
  for (const boolean suspended : {FALSE, TRUE}) {
    for (const auto &[row, result, error, moved, failure] : rows) {
      SCOPED_TRACE(row);
      plan({.results = {result}});
      arm("times", {1000, 1500});
      Request *const one = make(1)[0];
      queue({one}, suspended);
      aiocb64 *const block = &priv(one->iosb)->aio64req_skgfrsisb;
      EXPECT_EQ(skgfr_error64(ctx, block), EINPROGRESS);
      EXPECT_EQ(skgfr_return64(ctx, block), -EINPROGRESS);
      unsigned int reaped = 0;
      errno = EXDEV;  // is nobody's
      EXPECT_EQ(skgfr_reap64(ctx, nullptr, 1, nullptr, 1, &reaped, suspended), 1);
      EXPECT_EQ(aio->timeout.tv_sec, -1) << "without a time-out";
      EXPECT_EQ(one->letter() == 'P', suspended == TRUE);
      EXPECT_EQ(skgfr_error64(ctx, block), error);
      EXPECT_EQ(skgfr_return64(ctx, block), moved);
      EXPECT_EQ(deliver_all(), Requests{one});
      EXPECT_EQ(one->letter(), failure.code ? 'E' : 'D');
      EXPECT_TRUE(is(one->se, failure));
      EXPECT_EQ(one->time, failure.code ? skgfrUNKNOWN : 500);
    }
  }
}

TEST_F(StandIn, ReapingCounts) {
  const Requests five = make(5), three = make(3);
  queue(five, true);
  plan({.brings = {2, 1, 1}});
  unsigned int reaped = 0;
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 3, nullptr, 1024, &reaped, FALSE), 1) << "of the last call";
  EXPECT_EQ(reaped, 3u);
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 2, nullptr, 1, &reaped, FALSE), -1);
  EXPECT_EQ(errno, EAGAIN) << "no room for the one that is still out";
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 2, nullptr, 1024, &reaped, FALSE), -1);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(deliver_all(), Requests(five.rbegin(), five.rend())) << "last completed first";
  queue(three, true);
  plan({.brings = {1, 1, 1}});
  const aiocb64 *list[] = {&priv(three[1]->iosb)->aio64req_skgfrsisb, nullptr, nullptr};
  EXPECT_EQ(skgfr_suspend64(ctx, list, 3, nullptr), 2) << "until one of the list is done";
  skgfriosb *iosb = nullptr;
  EXPECT_EQ(skgfrwat(&se, ctx, 2, &iosb, nullptr, 0), skgfrrOK);
  EXPECT_EQ(reapings(), 2) << "enough were done";
  EXPECT_EQ(deliver_all().size(), 2u);
  queue(make(3), true);
  plan({.brings = {3}});
  aiocb64 *few[] = {nullptr, nullptr};
  EXPECT_EQ(skgfr_reap64(ctx, nullptr, 1, few, 1, &reaped, FALSE), 3);
  EXPECT_NE(few[0], nullptr);
  EXPECT_EQ(few[1], nullptr) << "no more than the list holds";
  EXPECT_EQ(deliver_all().size(), 3u);
}

TEST_F(StandIn, SupportProbe) {
  const struct {
    const char *name;
    Kernel kernel;
    boolean supported;
    int calls, late;
  } rows[] = {{"works", {}, TRUE, 1, 0},
              {"works late", {.brings = {0, -EINTR}}, TRUE, 3, 0},
              {"too short", {.results = {100}}, FALSE, 1, 0},
              {"of nobody", {.results = {STAND_IN_STRAY}}, FALSE, 1, 1},
              {"refused", {.takes = {-EIO}}, FALSE, 0, 0},
              {"not taken", {.takes = {0}}, FALSE, 0, 0},
              {"a wait that failed", {.brings = {-1}}, FALSE, 1, 1},
              {"too late", {.brings = {0, -EINTR, 0}}, FALSE, 3, 1}};
  for (const auto &row : rows) {
    for (const boolean again : {FALSE, TRUE}) {
      SCOPED_TRACE(row.name);
      convert(1);
      plan(row.kernel);
      EXPECT_EQ(skgfr_aiosupported(ctx, descriptor()), row.supported);
      EXPECT_EQ(reapings(), row.calls);
      EXPECT_EQ(aio->waiting, row.late);
      EXPECT_TRUE(!again || skgfr_aiosupported(ctx, descriptor())) << "past the late completion";
      queue(make(2), true);
      EXPECT_EQ(deliver_all().size(), 3u) << "the late completion is none of them";
      EXPECT_EQ(aio->waiting, 0);
    }
  }
  queue(make(2), true);
  plan({.brings = {0, 0, 0}});
  EXPECT_FALSE(skgfr_aiosupported(ctx, descriptor())) << "what is in flight stays there";
  EXPECT_EQ(submissions(), 0);
  EXPECT_EQ(aio->timeout.tv_sec, 10);
  EXPECT_TRUE(skgfr_aiosupported(ctx, descriptor()));
  EXPECT_EQ(ctx->aiodone_skgfrctx, 2u) << "collected before the probe";
}

using Transfer = AsyncTest;
TEST_F(Transfer, MovesWhatItIsAskedTo) {
  for (const bool together : {false, true}) {
    const char fill = together ? 'b' : 'a';
    std::memset(buffer, fill, sizeof buffer);
    const Requests write = make(1), read = make(1);
    EXPECT_EQ(queue(write, together, 0), 0u);
    EXPECT_EQ(deliver_all(), write);
    EXPECT_EQ(contents(name, ~size_t{0}, 512), std::string(8192, fill));
    std::memset(buffer, 0, sizeof buffer);
    EXPECT_EQ(queue(read, together), 0u);
    EXPECT_EQ(deliver_all(), read);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(8192, fill));
  }
}

using Post = AsyncTest;
TEST_F(Post, WakesAnInterruptibleWait) {
  skgfrwcx self{getpid()}, nobody{0};
  skgfriosb *iosb = nullptr;
  ctx->aiopend_skgfrctx = 1;  // the kernel does not have it, so it never completes
  for (skgfrwcx *const wcx : {&self, static_cast<skgfrwcx *>(nullptr)}) {
    const pid_t waker = fork();  // wakes often, as the first time may be too early
    for (int times = 0; waker == 0 && times < 2000; ++times) {
      usleep(20000);
      skgfrpst(&se, ctx, &self, 0);
    }
    if (waker == 0) _exit(0);
    const skgfrr result = skgfrwat(&se, ctx, 1, &iosb, wcx, wcx ? 6000 : 20);
    EXPECT_EQ(result, wcx ? skgfrrINTERRUPT : skgfrrNOTFOUND);
    EXPECT_EQ(waitpid(waker, nullptr, WNOHANG), 0) << "the signals did not prolong the wait";
    kill(waker, SIGKILL);
    waitpid(waker, nullptr, 0);
  }
  static int wakeups = 0;
  signal(SIGWINCH, [](int) { ++wakeups; });
  skgfrpst(&se, ctx, &nobody, 0);
  EXPECT_EQ(wakeups, 0);
  skgfrpst(&se, ctx, &self, 0);
  EXPECT_EQ(wakeups, 1);
}

/// A kernel call would be one to address 0.
void use_the_layer_without_library() {
  fault_arm("dlopen", 0, 2, ENOENT, FAULT_NULL);
  OpenFile file;
  skgfrctx *const ctx = file.ctx;
  alignas(512) char buffer[512];
  Request one(file.iov, 1, {{buffer, sizeof buffer}});
  EXPECT_EQ(skgfr_aiorw64(ctx, 0, buffer, 512, 0, priv(one.iosb), FALSE), -1);
  EXPECT_EQ(skgfqio(ctx, RequestList(Requests{&one}), skgfqioASYNC), 1u);
  EXPECT_TRUE(is(one.se, {27064}));
  ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE};
  EXPECT_EQ(skgfqio(ctx, RequestList(Requests{&one}), skgfqioASYNC), 0u);
  EXPECT_FALSE(skgfospo(&one.se, ctx, 2, 0, 0, 0));
  EXPECT_EQ(skgfgiod(ctx), static_cast<skgfriosb *>(one.iosb));
}
using AbsentLibrary = LayerTest;
TEST_F(AbsentLibrary, WorksSynchronously) {
  in_new_process(use_the_layer_without_library);  // a library stays loaded
}

}  // namespace
