// Random use of every call, against a model: what is outstanding, and over the kernel also the data.
#include <cstring>
#include <ctime>
#include <map>
#include <numeric>
#include <random>

#include "tests/async/support.hpp"

using namespace support;

namespace {

constexpr int steps = 20000;
constexpr ub4 blocks = 1 << 16;  // 32 MiB, shared out to requests of up to 4 KiB or 1 MiB

class RandomUse : public AsyncTest, public testing::WithParamInterface<const char *> {
 public:
  size_t below(size_t limit) { return random() % limit; }
  static ub4 place(const Request &one) { return (one.rq.blockno_skgfrrq - 1) * 128; }
  /// What a request writes: every word is its place on the disk and the stamp of the moment.
  static void fill(ub4 *words, const Request &one, ub4 mark) {
    std::iota(words, words + one.rq.bufspec_skgfrrq.buffer_skgfrrq.blen_skgfrbd / 4,
              mark + place(one));
  }

  /// The kernel of this step: short submissions, quiet and interrupted waits, failed transfers.
  void write_script() {
    const auto draw = [&](stand_in_answers &answers, const std::vector<int> &choices) {
      std::vector<int> values(below(12));
      for (int &value : values) value = choices[below(choices.size())];
      answer(answers, values);
    };
    draw(aio->submissions, {0, 1, 2, 30, 400, -EAGAIN, -ENOMEM, -EIO, -ENOSYS});
    draw(aio->reapings, {0, 1, 2, 20, -EINTR, -ETIME, -EIO});
    draw(aio->results, {STAND_IN_TRANSFER, 512, 0, 100, -EIO, -EAGAIN, -EINTR});
    aio->shuffle = static_cast<unsigned>(below(2) * below(1000));
  }
  void submit() {
    ctx->flags_skgfrctx ^= below(2) ? skgfrcVALIDATE : 0;
    const bool checking = ctx->flags_skgfrctx & skgfrcVALIDATE, reading = below(2);
    stamp += 0x1000001;
    std::shuffle(free.begin(), free.end(), random);
    const size_t left = free.size() - std::min(free.size(), below(below(10) ? 24 : 900));
    const Requests batch(free.begin() + static_cast<ptrdiff_t>(left), free.end());
    free.resize(left);
    for (Request *one : batch) {
      auto &[bytes, length] = one->rq.bufspec_skgfrrq.buffer_skgfrrq;
      length = 512 * (1 + below(one->rq.flags_skgfrrq));
      fill(static_cast<ub4 *>(bytes), *one, stamp);
      one->rq.iov_skgfrrq = handles[below(3)];
      one->time = skgfrUNKNOWN;
    }
    const uword result = queue(batch, below(2), reading ? skgfqioREAD : 0);
    for (Request *one : batch) {
      const char letter = one->letter();
      ASSERT_EQ(letter == 'B', checking && one->rq.iov_skgfrrq == handles[2]);
      ASSERT_EQ(one->se.slercoer, letter == 'B' ? 27064 : letter == 'E' && aio ? 27070 : 0);
      if (letter == 'P') outstanding[one] = reading ? 0 : stamp;
      if (letter != 'P') free.push_back(one);
    }
    ASSERT_EQ(result, free.size() > left ? 1u : 0u);
  }
  void take(const skgfriosb *iosb) {
    Request *const one = static_cast<Request *>(iosb->ctx_skgfriosb);
    const auto found = outstanding.find(one);
    ASSERT_NE(found, outstanding.end()) << "delivered without being outstanding";
    const eword code = one->se.slercoer;
    ASSERT_EQ(one->letter(), code == 0 ? 'D' : 'E');
    ASSERT_TRUE(code == 0 || (aio && (code == 27061 || code == 27085))) << code;
    ASSERT_EQ(one->time != skgfrUNKNOWN, code == 0) << "elapsed time";
    const auto &[bytes, length] = one->rq.bufspec_skgfrrq.buffer_skgfrrq;
    ub4 *const on_disk = &model[place(*one)];
    if (found->second) fill(on_disk, *one, found->second);
    ASSERT_TRUE(aio || std::memcmp(on_disk, bytes, length) == 0);
    outstanding.erase(found);
    free.push_back(one);
  }
  void collect() {
    skgfrwcx self{0};
    for (size_t times = below(50); times > 0; --times) {
      skgfriosb *iosb = nullptr;
      const bool done = ctx->aiodone_skgfrctx, next = below(2);
      const ub4 count = static_cast<ub4>(below(below(8) ? 8 : 500));
      const skgfrr result = next ? skgfnxtio(&se, ctx, &iosb)
                                 : skgfrwat(&se, ctx, count, &iosb, below(2) ? &self : nullptr, 0);
      ASSERT_TRUE(!next || (result == skgfrrNOTFOUND) == outstanding.empty());
      ASSERT_TRUE(!next || (iosb != nullptr) == done);
      if (iosb) take(iosb);
    }
  }
  /// Any request: only one that is completed, and was not delivered, is claimed.
  void claim() {
    Request &one = pool[below(pool.size())];
    const bool done = outstanding.count(&one) && one.letter() != 'P';
    const uword before = ctx->aiodone_skgfrctx;
    skgfrchk(ctx, one.iosb);
    ASSERT_EQ(ctx->aiodone_skgfrctx, before - done);
    if (done) take(one.iosb);
  }
  /// The counters against the lists and the model; a busy handle does not close.
  void check() {
    const size_t in_kernel = ctx->aiopend_skgfrctx - length(ctx->conv_skgfrctx);
    ASSERT_TRUE(aio ? in_kernel == static_cast<size_t>(aio->waiting) : in_kernel <= 1024);
    ASSERT_EQ(ctx->aiodone_skgfrctx, length(ctx->qdone_skgfrctx));
    ASSERT_EQ(ctx->aiopend_skgfrctx + ctx->aiodone_skgfrctx, outstanding.size());
    for (skgfriov *handle : handles) {
      ub4 busy = 0;
      for (const auto &[one, written] : outstanding) busy += one->rq.iov_skgfrrq == handle;
      ASSERT_EQ(priv(handle)->aiopend_skgfrsiov, busy);
      if (busy) skgfcfi(&se, ctx, handle);
      ASSERT_TRUE(!busy || is(se, {27073, 0, {busy}}));
    }
  }

  std::mt19937 random;
  ub4 stamp = 0;
  Iov handles[3];  // the last one without asynchronous I/O
  std::deque<Request> pool;
  Requests free;
  std::map<Request *, ub4> outstanding;  // with the stamp of what it writes; 0: it reads
  std::vector<ub4> model = std::vector<ub4>(blocks * 128);  // what is on the disk
};

TEST_P(RandomUse, AgreesWithTheModel) {
  const char *const given = std::getenv("TEST_SEED");
  const long seed = given ? std::atol(given) : static_cast<long>(std::time(nullptr));
  SCOPED_TRACE("TEST_SEED=" + std::to_string(seed));
  random.seed(static_cast<unsigned long>(seed));
  const std::string kind = GetParam();
  const LoopDevice device(dir.file("image", (blocks + 1) * 512, '\0'), 512);
  const std::string name = kind == "device" ? device.path() : dir.path("data");
  if (name.empty()) GTEST_SKIP() << "the system gives no loop device";
  if (kind == "direct") skgfrsetioparam(&se, ctx, txt("setall"), 6);
  File file(ctx, name, blocks);
  if (kind == "direct" && file.se.slercerrno == EINVAL) GTEST_SKIP() << "no direct I/O here";
  for (Iov &handle : handles) {
    skgfofi(&se, ctx, file.fib, handle, 1024, skgfofiWRITE);
    ASSERT_EQ(handle->maxaio_skgfriov, 1024u);
  }
  handles[2]->maxaio_skgfriov = 0;
  priv(handles[2])->flags_skgfrsiov = skgfrvSYNCHRONOUS;
  const std::unique_ptr<void, void (*)(void *)> bytes(std::aligned_alloc(512, blocks * 512),
                                                      std::free);
  for (ub4 at = 0, most = 0; at + 2048 <= blocks; at += most) {
    most = below(128) ? 8 : 2048;
    free.push_back(
        &pool.emplace_back(file.iov, at + 1, static_cast<char *>(bytes.get()) + at * 512, 0));
    free.back()->rq.flags_skgfrrq = most;
  }

  for (int step = 0; step < steps && !HasFatalFailure(); ++step) {
    if (aio) write_script();
    const size_t kind_of_step = below(5);
    kind_of_step == 0 ? submit() : kind_of_step < 3 ? collect() : claim();
    check();
  }
  if (aio) aio->submissions = aio->reapings = aio->results = {};
  for (Request *one : deliver_all()) take(one->iosb);
  EXPECT_EQ(free.size(), pool.size());
  for (skgfriov *handle : handles) {
    EXPECT_EQ(priv(handle)->aiopend_skgfrsiov, 0u);
    skgfcfi(&se, ctx, handle);
    EXPECT_TRUE(is(se, {0}));
  }
  const std::string found = contents(name, blocks * 512, 512);
  EXPECT_TRUE(aio || std::memcmp(found.data(), model.data(), found.size()) == 0);
  EXPECT_EQ(found.size(), blocks * 512);
}

INSTANTIATE_TEST_SUITE_P(On, RandomUse, testing::Values("file", "direct", "device"),
                         [](const auto &row) { return std::string(row.param); });

}  // namespace
