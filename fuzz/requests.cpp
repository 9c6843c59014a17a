// Validation of hostile requests, against the rules in 64-bit arithmetic. Nothing is transferred: no
// handle here carries out asynchronous requests at once.
#include <list>

#include "fuzz/fuzz.hpp"
#include "skgfr/skgfr.h"

/// A request with everything behind it, and the code of the first rule that it breaks.
struct Request : skgfrrq {
  Request(Input &in, ub4 flags) : skgfrrq{} {
    const bool vector = flags & skgfqioVECTOR, async = flags & skgfqioASYNC;
    const ub4 file_seal = fib.second.seal_skgfrsfib = in.pick<ub4>({skgfrSEAL, 0});
    const ub8 last = fib.second.lastblk_skgfrsfib = in.pick<ub4>({4096, 0, 1, skgfrUNKNOWN});
    const ub8 size = fib.first.lblksiz_skgfrfib = in.pick<size_t>({512, 0, 4096, 1, 513});
    const ub4 longest = fib.first.maxvec_skgfrfib = in.pick<ub4>({16, 0});
    const uword failures = fib.first.serr_skgfrfib = in.pick<uword>({0, 1, 0xFFFF});
    const ub1 headless = fib.first.flags_skgfrfib = in.take<ub1>() % 2;
    const ub4 seal = iov.second.seal_skgfrsiov = in.pick<ub4>({skgfrSEAL, 0});
    const uword at_once = iov.first.maxaio_skgfriov = in.pick<uword>({4, 0});
    const ub8 first = blockno_skgfrrq = in.pick<ub4>({1, 0, 2, 4096, 4097, 0xFFFFFFFF});
    const size_t length = in.pick<size_t>({512, 0, 1024, 1 << 20, (1 << 20) + 512});
    const uintptr_t address = in.pick<uintptr_t>({512, 0, 513});
    const uword buffers = in.pick<uword>({16, 17, 0});
    const bool from_zero = in.take<ub1>() % 2, named = in.take<ub1>() % 8 < 7;
    fib.first.ftype_skgfrfib = from_zero ? skgfrfKDV : skgfrfDATA;
    bufspec_skgfrrq.buffer_skgfrrq = {reinterpret_cast<void *>(address), length};
    if (vector) bufspec_skgfrrq.bufvec_skgfrrq = {nullptr, buffers};
    iov.first.fib_skgfriov = named ? &fib.first : nullptr;
    iosb.first.slerc_skgfriosb = &se, iosb_skgfrrq = &iosb.first, iov_skgfrrq = &iov.first;
    constexpr ub8 word = 0xFFFFFFFF;  // block numbers have 32 bits and wrap
    const ub8 end = (first + (vector ? 0 : size ? length / size : 1) - headless) & word;
    const bool uneven = size > 0 && length % size > 0, outside = first == 0 || end > last;
    const std::pair<bool, eword> rules[] = {
        {!named || file_seal != skgfrSEAL || seal != skgfrSEAL, 27050},
        {failures > 0, 27051},
        {async && at_once == 0, 27064},
        {async && vector, 27065},
        {vector && buffers > longest, 27066},
        {!vector && (length == 0 || length > 1 << 20 || uneven), 27067},
        {!vector && (address % 512 > 0 || (size == 0 && first != 1)), 27068},
        {from_zero ? end > ((last - 1) & word) : outside, 27069},
        {true, 0}};
    code = std::find_if(rules, std::end(rules), [](auto &rule) { return rule.first; })->second;
  }
  std::pair<skgfrfib, skgfrsfib> fib{};  // the extension lies right behind its record
  std::pair<skgfriov, skgfrsiov> iov{};
  std::pair<skgfriosb, skgfrsisb> iosb{};
  slerc se{};
  eword code;
};

int LLVMFuzzerTestOneInput(const ub1 *data, size_t size) {
  Input in(data, size);
  skgfrctx ctx{};
  ctx.flags_skgfrctx = skgfrcVALIDATE;
  const ub4 flags = in.take<ub1>(), most = in.take<ub1>() % 4 + 1;
  std::list<Request> requests;
  std::vector<skgfrrq *> good, accepted;
  kgglk head{&head, &head};
  for (ub1 left = in.take<ub1>() % 9 + 1; left > 0; --left) {
    Request &it = requests.emplace_back(in, flags);
    it.link_skgfrrq = {&head, head.kgglkprv};
    head.kgglkprv = head.kgglkprv->kgglknxt = &it.link_skgfrrq;
    if (it.code == 0) good.push_back(&it);
  }
  aiocb64 *blocks[4], **const prepared = flags & (skgfqioASYNC | skgfqioPREPARE) ? blocks : nullptr;
  bool refused = false;
  for (skgfrrq *next = &requests.front(); next;) {
    skgfrrq *some[4];
    ub4 count = 99;
    refused |= skgfrvldtrq(&head, flags, &ctx, most, &next, some, prepared, &count) != FALSE;
    require(count <= most, "no more are accepted than there is room for");
    accepted.insert(accepted.end(), some, some + count);
  }
  require(accepted == good, "the good ones are accepted in list order");
  require(refused == (good.size() < requests.size()), "a refusal is told");
  for (const Request &it : requests) {
    const skgfri passed = prepared ? skgfriPEND : skgfri{};
    const skgfri failed = it.code == 27051 ? skgfriIOERROR : skgfriBADREQ;
    require(it.se.slercoer == it.code, "the first broken rule decides the code");
    require(it.iosb.first.status_skgfriosb == (it.code ? failed : passed), "so does its status");
  }
  return 0;
}
