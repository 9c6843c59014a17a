// Requests: what validation refuses, where transfers land, how they fail, and what stays untouched.
#include <filesystem>
#include <list>

#include "skgfr/base/elapsed.hpp"
#include "tests/support/world.hpp"

namespace {
using namespace support;
using std::string;
using RequestsTest = LayerTest;

constexpr ub4 W = 0, R = skgfqioREAD, V = skgfqioVECTOR, A = skgfqioASYNC, ALL = 0xFFFFFFFF;
constexpr ub4 SEAL = 0x786F7651, ODD = 0x100, AT = 0xADD0ADD0;  // an unaligned buffer; its address
alignas(512) char buffer[2 << 20];

/// A list of requests, with everything that they point to.
struct Request : skgfrrq {
  std::vector<skgfrbd> parts;
  Iosb iosb;
  slerc se = dirty();
  ub4 time = 90;
};
struct Requests : std::list<Request> {
  Request &add(skgfriov *iov, ub4 block, ub4 flags, std::vector<skgfrbd> parts) {
    Request &one = emplace_back();
    one.parts = std::move(parts);
    one.iov_skgfrrq = iov, one.iosb_skgfrrq = one.iosb, one.blockno_skgfrrq = block;
    one.bufspec_skgfrrq.buffer_skgfrrq = one.parts[0];
    const skgfrbv vector{one.parts.data(), static_cast<uword>(one.parts.size())};
    if (flags & V) one.bufspec_skgfrrq.bufvec_skgfrrq = vector;
    one.iosb->slerc_skgfriosb = &one.se, one.iosb->time_skgfriosb = &one.time;
    one.link_skgfrrq = {&head, head.kgglkprv};
    head.kgglkprv = head.kgglkprv->kgglknxt = &one.link_skgfrrq;
    return one;
  }
  kgglk head{&head, &head};
};

/// A sparse file of 4096 blocks of 512 bytes, checked and open for writing.
struct File : World {
  File() {
    std::filesystem::resize_file(name = dir.file("file", 0), 4096 * 512);
    identify(*this);
    skgfofi(&se, ctx, fib, iov, 0, skgfofiWRITE);
    priv(iov)->offset_skgfrsiov = 7;
  }
  ~File() {
    priv(iov)->seal_skgfrsiov = SEAL, iov->fib_skgfriov = fib;
    skgfcfi(&se, ctx, iov);
  }
};

void plain(File &) {}
void async(File &f) { f.iov->maxaio_skgfriov = 4, priv(f.iov)->flags_skgfrsiov = 0; }
void doomed(File &f) { f.fib->serr_skgfrfib = 1; }
void always(File &f) { f.fib->serr_skgfrfib = 0xFFFF; }
void free(File &f) { doomed(f), f.ctx->flags_skgfrctx &= ~0x100u; }
void sizeless(File &f) { f.fib->lblksiz_skgfrfib = 0; }
void headless(File &f) { f.fib->flags_skgfrfib = 1, priv(f.fib)->blk1offset_skgfrsfib = 0; }
void from_0(File &f) { f.fib->ftype_skgfrfib = skgfrfKDV; }
void closed(File &f) { priv(f.iov)->seal_skgfrsiov = 0; }
void unopened(File &f) { closed(f), f.iov->fib_skgfriov = nullptr; }
void unknown(File &f) { doomed(f), priv(f.fib)->seal_skgfrsfib = 1; }

/// A call that fails or comes up short, and the error number that it leaves.
struct Call {
  const char *call = nullptr;
  int error = 0, skip = 0;
  long result = FAULT_FAILS;
};

/// What a failure without a failed call leaves: the error number that was there.
constexpr Call kept{nullptr, 0x5A5A5A5A};

/// How a request, or its file, differs from a good one.
const struct Row {
  void (*arrange)(File &);
  ub4 flags, buffers, block, size;  // the size is that of the second of several buffers
  eword code = 0;                   // 0: it is carried out
  ub4 a = 0, b = 0, c = 0;
  Call fault{};
} rows[] = {
    // clang-format off
    {plain, R, 1, 1, 1048576}, {plain, W, 1, 4095, 512}, {plain, R | V, 16, 1, 512},
    {headless, W, 1, 4096, 512}, {from_0, R, 1, 0, 512}, {from_0, W, 1, 4094, 512},
    {free, R | ODD, 1, 0, 512}, {free, V, 128, 1, 512}, {sizeless, R, 1, 1, 700},
    {closed, R, 1, 1, 512, 27050, 10, SEAL, 0, kept},
    {unopened, R, 1, 1, 512, 27050, 10, 0, 0, kept},
    {unknown, R, 1, 1, 512, 27050, 10, 1, SEAL, kept}, {doomed, A, 1, 1, 512, 27051, 2},
    {always, R, 1, 1, 512, 27051, 2}, {plain, A | V, 1, 1, 512, 27064},
    {async, A | V, 1, 1, 512, 27065}, {plain, V, 17, 1, 512, 27066, 17, 16},
    {free, V, 129, 1, 512, 27066, 129, 128}, {plain, R | ODD, 1, 1, 0, 27067, 2, 0},
    {plain, W, 1, 1, 513, 27067, 2, 513}, {sizeless, R, 1, 1, 1048577, 27067, 2, 1048577},
    {plain, V | ODD, 2, 1, 0, 27067, 1, 0}, {plain, V, 2, 1, 1049088, 27067, 1, 1049088},
    {plain, V | ODD, 2, 1, 512, 27068, 1, AT}, {plain, R | ODD, 1, 1, 512, 27068, 2, AT},
    {sizeless, R, 1, 2, 512, 27068, 3, AT}, {plain, R, 1, 4095, 1024, 27069, 4095, 2, 4096, kept},
    {plain, W, 1, 0, 1024, 27069, 0, 2, 4096, kept}, {plain, V, 2, 0, 512, 27069, 0, 0, 4096, kept},
    {headless, R, 1, 4096, 1024, 27069, 4096, 2, 4096, kept},
    {from_0, W, 1, 4095, 512, 27069, 4095, 1, 4096, kept},
    {plain, W, 1, 9, 512, 27072, 4, 9, 1024, {"pwrite64", 0, 0, 1024}},
    {sizeless, R, 1, 1, 700, 27072, 4, 1, 699, {"pread64", EIO, 0, 699}},
    {sizeless, W, 1, 1, 700, 0, 0, 0, 0, {"pwrite64", 0, 0, 701}},
    {sizeless, R | V, 2, 1, 512, 27072, 3, 1, 0, {"readv", EIO, 0, 0}},
    {sizeless, R | V, 2, 1, 512, 0, 0, 0, 0, {"readv", 0, 0, 1}}};
// clang-format on

TEST_F(RequestsTest, Outcome) {
  for (const auto &[arrange, flags, buffers, block, size, code, a, b, c, fault] : rows) {
    SCOPED_TRACE(testing::Message() << code << " (" << a << ", " << b << ", " << c << ")");
    File f;
    arrange(f);
    std::memset(buffer, '#', 1024);
    char *const address = buffer + (flags & ODD ? 8 : 0);
    std::vector<skgfrbd> parts(buffers, {buffer, 512});
    parts[buffers > 1] = {address, size};
    Requests requests;
    const Request &request = requests.add(f.iov, block, flags, parts);
    if (fault.call) fault_arm(fault.call, 0, 1, fault.error, fault.result);
    EXPECT_EQ(skgfqio(f.ctx, &requests.head, flags & ~ODD), code != 0);
    const ub4 low = static_cast<ub4>(reinterpret_cast<uintptr_t>(address));
    const int error = fault.result < 0 ? fault.error : 0;  // none when a transfer is cut short
    const Expected expected{code, error, {a, b == AT ? low : b, c}};
    EXPECT_TRUE(code ? is(request.se, expected) : request.se.slercoer == 0);
    const skgfri failed = code == 27051 || code >= 27070 ? skgfriIOERROR : skgfriBADREQ;
    EXPECT_EQ(request.iosb->status_skgfriosb, code ? failed : skgfriDONE);
    const bool tried = code == 0 || code == 27072;
    int calls = 0;
    for (const char *call : {"pread64", "pwrite64", "readv", "writev"}) calls += fault_calls(call);
    EXPECT_EQ(calls, tried);
    EXPECT_EQ(request.time != 90, code == 0);
    EXPECT_EQ(buffer[8] != '#', code == 0 && flags & R && !fault.call);
    const ub4 behind = code == 0 && flags & V && arrange != sizeless ? block + buffers : ALL;
    EXPECT_EQ(priv(f.iov)->offset_skgfrsiov, tried ? behind : 7);
    EXPECT_TRUE(code != 27051 || f.fib->serr_skgfrfib == (arrange == doomed ? 0 : 0xFFFF));
  }
}

TEST_F(RequestsTest, ListsInBatches) {
  File f;
  Requests requests;
  EXPECT_EQ(skgfqio(f.ctx, &requests.head, R), 0u);
  std::vector<Request *> order;
  string model(50 * 512, '\0');
  for (ub4 i = 0; i < 700; ++i) {  // every seventh is refused
    const ub4 block = i % 7 == 6 ? 0 : 1 + i % 50;
    order.push_back(&requests.add(f.iov, block, W, {{buffer + i * 512, 512}}));
    std::memset(buffer + i * 512, static_cast<int>('0' + i % 71), 512);
    if (block) model.replace((block - 1) * 512, 512, buffer + i * 512, 512);
  }
  skgfrrq *next = order[0], *valid[512];
  ub4 count = 0;
  EXPECT_EQ(skgfrvldtrq(&requests.head, W, f.ctx, 512, &next, valid, nullptr, &count), TRUE);
  EXPECT_TRUE(count == 512 && next == order[597] && valid[511] == order[596]);
  EXPECT_EQ(order[597]->se.slercoer, dirty().slercoer);

  EXPECT_EQ(skgfqio(f.ctx, &requests.head, W), 1u);
  EXPECT_EQ(fault_calls("pwrite64"), 600);
  for (size_t i = 0; i < order.size(); ++i) {
    EXPECT_EQ(order[i]->iosb->status_skgfriosb, i % 7 == 6 ? skgfriBADREQ : skgfriDONE) << i;
  }
  EXPECT_EQ(contents(f.name, model.size(), 512), model);
}

TEST_F(RequestsTest, ControlBlocks) {
  File f;
  priv(f.fib)->lastblk_skgfrsfib = ALL, async(f);
  for (const ub4 flags : {A | R, skgfqioPREPARE | R, A | W}) {
    if (flags == A) free(f);  // the private status is begun without checks too
    Requests requests;
    Request &one = requests.add(f.iov, 0x900001, flags, {{buffer + 512, 1024}});
    skgfrsisb *const status = priv(one.iosb);
    std::memset(status, 0x5A, sizeof *status);
    skgfrrq *next = &one, *valid = nullptr;
    aiocb64 *block = nullptr;
    ub4 count = 0;
    EXPECT_EQ(skgfrvldtrq(&requests.head, flags, f.ctx, 9, &next, &valid, &block, &count), FALSE);
    EXPECT_TRUE(count == 1 && !next && valid == &one && block == &status->aio64req_skgfrsisb);
    const iocb &kernel = block->__iocb;
    EXPECT_TRUE(kernel.data == block && kernel.u.c.buf == buffer + 512);
    EXPECT_TRUE(kernel.u.c.offset == 0x120000200 && kernel.u.c.nbytes == 1024);
    EXPECT_TRUE(kernel.aio_fildes == priv(f.iov)->fd_skgfrsiov && one.se.slercoer == 0);
    EXPECT_TRUE(kernel.aio_lio_opcode == !(flags & R) && !block->__error_code);
    EXPECT_EQ(block->__aio_key, 2);
    EXPECT_TRUE(status->aiosize_skgfrsisb == 1024 && one.iosb->status_skgfriosb == skgfriPEND);
    const kgglk &link = status->link_skgfrsisb;
    const bool begun = status->iov_skgfrsisb == priv(f.iov) && status->qstatus_skgfrsisb == 0;
    EXPECT_EQ(begun && link.kgglknxt == &link && link.kgglkprv == &link, (flags & A) != 0);
  }
}

TEST_F(RequestsTest, PositionCacheAndTiming) {
  const std::tuple<ub4, size_t, ub4, int, ub4> steps[] = {
      {R | V, 2, 5, 1, 7}, {R | V, 1, 7, 0, 8},    {V, 2, 8, 0, 10},   {V, 1, 9, 1, 10},
      {V, 17, 10, 0, 10},  {R | V, 1, 10, 0, 11},  {W, 1, 11, 0, ALL}, {V, 1, 9, 1, 10},
      {R, 1, 10, 0, ALL},  {R | V, 1, ALL, 1, ALL}};
  File f;
  for (const auto &[flags, count, block, seeks, after] : steps) {
    if (block == ALL) free(f);  // still no known position
    fault_reset();
    fault_arm("times", 0, 1, 0, 1000), fault_arm("times", 0, 1, 0, 1250);
    Requests requests;
    Request &one = requests.add(f.iov, block, flags, std::vector<skgfrbd>(count, {buffer, 512}));
    if (count > 1) one.iosb->time_skgfriosb = nullptr;
    const bool good = count < 17 && block != ALL;
    EXPECT_EQ(skgfqio(f.ctx, &requests.head, flags), good ? 0u : 1u);
    EXPECT_EQ(fault_calls("lseek64"), seeks) << block;
    EXPECT_EQ(one.time, good && count == 1 ? 250u : 90u) << block;
    EXPECT_TRUE(count == 1 || fault_calls("times") == 0);
    EXPECT_EQ(priv(f.iov)->offset_skgfrsiov, after) << block;
  }
  EXPECT_TRUE(skgfr::elapsed(7, 9) == 2 && skgfr::elapsed(9, 7) == 7 && skgfr::elapsed(0, 7) == 0);
}
}  // namespace
