// Requests: what validation refuses, where transfers land, how they fail, and what stays untouched.
#include <deque>
#include <filesystem>

#include "skgfr/base/elapsed.hpp"
#include "tests/support/own_process.hpp"
#include "tests/support/requests.hpp"
#include "tests/support/world.hpp"

namespace {
using namespace support;
using std::string;
using RequestsTest = LayerTest;

constexpr ub4 W = 0, R = skgfqioREAD, V = skgfqioVECTOR, A = skgfqioASYNC, ALL = 0xFFFFFFFF;
constexpr ub4 SEAL = 0x786F7651, ODD = 0x100, AT = 0xADD0ADD0;  // an unaligned buffer; its address
alignas(512) char buffer[2 << 20];

/// A sparse file of 4096 blocks of 512 bytes, checked and open for writing.
struct File : World {
  File() {
    std::filesystem::resize_file(name = dir.file("file", 0), 4096 * 512);
    identify(*this);
    skgfofi(&se, ctx, fib, iov, 0, skgfofiWRITE);
    priv(iov)->offset_skgfrsiov = 7;
  }
  ~File() {
    priv(iov)->seal_skgfrsiov = SEAL;
    iov->fib_skgfriov = fib;
    skgfcfi(&se, ctx, iov);
  }
};

uword queue(File &f, const Requests &requests, ub4 flags) {
  return skgfqio(f.ctx, RequestList(requests), flags);
}

void plain(File &) {}
void async(File &f) {
  f.iov->maxaio_skgfriov = 4;
  priv(f.iov)->flags_skgfrsiov = 0;
}
void doomed(File &f) { f.fib->serr_skgfrfib = 1; }
void always(File &f) { f.fib->serr_skgfrfib = 0xFFFF; }
void unchecked(File &f) {
  doomed(f);
  f.ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE};
}
void sizeless(File &f) { f.fib->lblksiz_skgfrfib = 0; }
void headless(File &f) {
  f.fib->flags_skgfrfib = skgfrbNOHEADER;
  priv(f.fib)->blk1offset_skgfrsfib = 0;
}
void from_0(File &f) { f.fib->ftype_skgfrfib = skgfrfKDV; }
void empty(File &f) {
  headless(f);
  from_0(f);
  priv(f.fib)->lastblk_skgfrsfib = 0;
}
void unbounded(File &f) { priv(f.fib)->lastblk_skgfrsfib = ALL; }
void closed(File &f) { priv(f.iov)->seal_skgfrsiov = 0; }
void unopened(File &f) {
  closed(f);
  f.iov->fib_skgfriov = nullptr;
}
void unsealed(File &f) {
  doomed(f);
  priv(f.fib)->seal_skgfrsfib = 1;
}

/// A call that fails or comes up short, and the error number that it leaves.
struct Call {
  const char *call = nullptr;
  int error = 0;
  long result = FAULT_FAILS;
};
/// What a failure without a failed call leaves: the error number that was there.
constexpr Call kept{nullptr, 0x5A5A5A5A};

/// How a request, or its file, differs from a good one.
const struct Row {
  void (*arrange)(File &);
  ub4 flags;
  struct {
    ub4 block = 1, buffers = 1, size = 512;  // that of the second of several buffers
  } asked{};
  struct {
    eword code = 0;  // 0: it is carried out
    ub4 a = 0, b = 0, c = 0;
  } record{};
  Call fault{};
} rows[] = {{plain, R, {.size = 1048576}},
            {plain, W, {.block = 4095}},
            {plain, R | V, {.buffers = 16}},
            {headless, W, {.block = 4096}},
            {from_0, R, {.block = 0}},
            {from_0, W, {.block = 4094}},
            {unchecked, R | ODD, {.block = 0}},
            {unchecked, V, {.buffers = 128}},
            {sizeless, R, {.size = 700}},
            {closed, R, {}, {27050, 10, SEAL, 0}, kept},
            {unopened, R, {}, {27050, 10, 0, 0}, kept},
            {unsealed, R, {}, {27050, 10, 1, SEAL}, kept},
            {doomed, A, {}, {27051, 2}},
            {always, R, {}, {27051, 2}},
            {plain, A | V, {}, {27064}},
            {async, A | V, {}, {27065}},
            {plain, V, {.buffers = 17}, {27066, 17, 16}},
            {unchecked, V, {.buffers = 129}, {27066, 129, 128}},
            {plain, R | ODD, {.size = 0}, {27067, 2, 0}},
            {plain, W, {.size = 513}, {27067, 2, 513}},
            {sizeless, R, {.size = 1048577}, {27067, 2, 1048577}},
            {plain, V | ODD, {.buffers = 2, .size = 0}, {27067, 1, 0}},
            {plain, V, {.buffers = 2, .size = 1049088}, {27067, 1, 1049088}},
            {plain, V | ODD, {.buffers = 2}, {27068, 1, AT}},
            {plain, R | ODD, {}, {27068, 2, AT}},
            {sizeless, R, {.block = 2}, {27068, 3, AT}},
            {plain, R, {.block = 4095, .size = 1024}, {27069, 4095, 2, 4096}, kept},
            {plain, W, {.block = 0, .size = 1024}, {27069, 0, 2, 4096}, kept},
            {plain, V, {.block = 0, .buffers = 2}, {27069, 0, 0, 4096}, kept},
            {headless, R, {.block = 4096, .size = 1024}, {27069, 4096, 2, 4096}, kept},
            {from_0, W, {.block = 4095}, {27069, 4095, 1, 4096}, kept},
            {plain, W, {.block = ALL}, {27069, ALL, 1, 4096}, kept},
            {empty, W, {.block = 12345}, {27069, 12345, 1, 0}, kept},
            {plain, V, {.block = 4095, .buffers = 2}, {27069, 4095, 2, 4096}, kept},
            {from_0, V, {.block = 4094, .buffers = 2}, {27069, 4094, 2, 4096}, kept},
            {plain, V, {.block = 4094, .buffers = 2}},
            {unchecked, V, {.block = 4095, .buffers = 2}},
            {unbounded, V, {.block = 4095, .buffers = 2}},
            {plain, R | V, {.block = 4095, .buffers = 2}, {27072, 3, 4095, 512}},
            {unbounded, R, {.block = ALL}, {27072, 4, ALL, 0}},
            {plain, W, {.block = 9}, {27072, 4, 9, 1024}, {"pwrite64", 0, 1024}},
            {sizeless, R, {.size = 700}, {27072, 4, 1, 699}, {"pread64", 0, 699}},
            {sizeless, W, {.size = 700}, {}, {"pwrite64", 0, 701}},
            {sizeless, R | V, {.buffers = 2}, {27072, 3, 1, 0}, {"readv", 0, 0}},
            {sizeless, R | V, {.buffers = 2}, {}, {"readv", 0, 1}}};

TEST_F(RequestsTest, Outcome) {
  for (const auto &[arrange, flags, asked, record, fault] : rows) {
    const auto [code, a, b, c] = record;
    SCOPED_TRACE(testing::Message() << code << " (" << a << ", " << b << ", " << c << ")");
    File f;
    arrange(f);
    std::memset(buffer, '#', 1024);
    char *const address = buffer + (flags & ODD ? 8 : 0);
    std::vector<skgfrbd> parts(asked.buffers, {buffer, 512});
    parts[asked.buffers > 1] = {address, asked.size};
    Request request(f.iov, asked.block, parts, flags & V);
    if (fault.call) fault_arm(fault.call, 0, 1, fault.error, fault.result);
    EXPECT_EQ(queue(f, {&request}, flags & ~ODD), code != 0);
    const ub4 low = static_cast<ub4>(reinterpret_cast<uintptr_t>(address));
    const Expected expected{code, fault.error, {a, b == AT ? low : b, c}};
    EXPECT_TRUE(code ? is(request.se, expected) : is(request.se, only(0)));
    const bool failed = code == 27051 || code >= 27070;
    EXPECT_EQ(request.letter(), code == 0 ? 'D' : failed ? 'E' : 'B');
    const bool tried = code == 0 || code == 27072;
    int calls = 0;
    for (const char *call : {"pread64", "pwrite64", "readv", "writev"}) calls += fault_calls(call);
    EXPECT_EQ(calls, tried);
    EXPECT_EQ(request.time != skgfrUNKNOWN, code == 0);
    const bool moved = code == 0 || (code == 27072 && c > 0);
    EXPECT_EQ(buffer[8] != '#', moved && flags & R && !fault.call);
    const bool known = code == 0 && flags & V && arrange != sizeless;
    EXPECT_EQ(priv(f.iov)->offset_skgfrsiov, known ? asked.block + asked.buffers : tried ? ALL : 7);
    if (code == 27051) {
      EXPECT_EQ(f.fib->serr_skgfrfib, arrange == doomed ? 0 : 0xFFFF);
    }
  }
}

TEST_F(RequestsTest, ListsInBatches) {
  File f;
  EXPECT_EQ(queue(f, {}, R), 0u);
  std::deque<Request> pool;
  Requests order;
  string model(50 * 512, '\0');
  for (ub4 i = 0; i < 700; ++i) {  // every seventh is refused
    const ub4 block = i % 7 == 6 ? 0 : 1 + i % 50;
    char *const at = buffer + i * 512;
    order.push_back(&pool.emplace_back(f.iov, block, std::vector{skgfrbd{at, 512}}));
    std::memset(at, static_cast<int>('0' + i % 71), 512);
    if (block) model.replace((block - 1) * 512, 512, at, 512);
  }
  skgfrrq *next = order[0], *valid[512];
  ub4 count = 0;
  RequestList list(order);
  EXPECT_EQ(skgfrvldtrq(list, W, f.ctx, 512, &next, valid, nullptr, &count), TRUE);
  EXPECT_EQ(count, 512u);
  EXPECT_EQ(next, order[597]);
  EXPECT_EQ(valid[511], order[596]);
  EXPECT_EQ(order[597]->se.slercoer, dirty().slercoer);

  EXPECT_EQ(skgfqio(f.ctx, list, W), 1u);
  EXPECT_EQ(fault_calls("pwrite64"), 600);
  for (size_t i = 0; i < order.size(); ++i) {
    EXPECT_EQ(order[i]->letter(), i % 7 == 6 ? 'B' : 'D') << i;
  }
  EXPECT_EQ(contents(f.name, model.size(), 512), model);
}

TEST_F(RequestsTest, ControlBlocks) {
  File f;
  unbounded(f);
  async(f);
  for (const ub4 flags : {A | R, skgfqioPREPARE | R, A | W}) {
    if (flags == A) unchecked(f);  // the private status is begun without checks too
    Request one(f.iov, 0x900001, {{buffer + 512, 1024}});
    skgfrsisb *const status = priv(one.iosb);
    std::memset(status, 0x5A, sizeof *status);
    skgfrrq *next = &one, *valid = nullptr;
    aiocb64 *block = nullptr;
    ub4 count = 0;
    const RequestList list(Requests{&one});
    EXPECT_EQ(skgfrvldtrq(list, flags, f.ctx, 9, &next, &valid, &block, &count), FALSE);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(next, nullptr);
    EXPECT_EQ(valid, &one);
    EXPECT_TRUE(is(one.se, only(0)));
    EXPECT_EQ(one.letter(), 'P');
    ASSERT_EQ(block, &status->aio64req_skgfrsisb);
    const iocb &kernel = block->__iocb;
    EXPECT_EQ(kernel.data, block);
    EXPECT_EQ(kernel.u.c.buf, buffer + 512);
    EXPECT_EQ(kernel.u.c.offset, 0x120000200);
    EXPECT_EQ(kernel.u.c.nbytes, 1024u);
    EXPECT_EQ(kernel.aio_fildes, priv(f.iov)->fd_skgfrsiov);
    EXPECT_EQ(kernel.aio_lio_opcode, flags & R ? IO_CMD_PREAD : IO_CMD_PWRITE);
    EXPECT_EQ(block->__error_code, 0);
    EXPECT_EQ(block->__aio_key, 2);
    EXPECT_EQ(status->aiosize_skgfrsisb, 1024u);
    const kgglk &link = status->link_skgfrsisb;
    const bool begun = status->iov_skgfrsisb == priv(f.iov) && status->qstatus_skgfrsisb == 0;
    EXPECT_EQ(begun && link.kgglknxt == &link && link.kgglkprv == &link, (flags & A) != 0);
  }
}

TEST_F(RequestsTest, PositionCacheAndTiming) {
  const struct {
    ub4 flags;
    size_t buffers;
    ub4 block;
    int seeks;
    ub4 position;  // behind it
  } steps[] = {{R | V, 2, 5, 1, 7}, {R | V, 1, 7, 0, 8},    {V, 2, 8, 0, 10},   {V, 1, 9, 1, 10},
               {V, 17, 10, 0, 10},  {R | V, 1, 10, 0, 11},  {W, 1, 11, 0, ALL}, {V, 1, 9, 1, 10},
               {R, 1, 10, 0, ALL},  {R | V, 1, ALL, 1, ALL}};
  File f;
  for (const auto &[flags, count, block, seeks, position] : steps) {
    SCOPED_TRACE(testing::Message() << count << " from " << block);
    if (block == ALL) unchecked(f);  // still no known position
    fault_reset();
    fault_arm("times", 0, 1, 0, 1000);
    fault_arm("times", 0, 1, 0, 1250);
    Request one(f.iov, block, std::vector<skgfrbd>(count, {buffer, 512}), flags & V);
    if (count > 1) one.iosb->time_skgfriosb = nullptr;
    const bool good = count < 17 && block != ALL;
    EXPECT_EQ(queue(f, {&one}, flags), good ? 0u : 1u);
    EXPECT_EQ(fault_calls("lseek64"), seeks);
    EXPECT_EQ(one.time, good && count == 1 ? 250u : skgfrUNKNOWN);
    if (count > 1) {
      EXPECT_EQ(fault_calls("times"), 0);
    }
    EXPECT_EQ(priv(f.iov)->offset_skgfrsiov, position);
  }
  EXPECT_EQ(skgfr::elapsed(7, 9), 2u);
  EXPECT_EQ(skgfr::elapsed(9, 7), 7u);
  EXPECT_EQ(skgfr::elapsed(0, 7), 0u);
}
}  // namespace
