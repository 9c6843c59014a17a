// Validation of hostile requests, against the rules in 64-bit arithmetic. Nothing is transferred: no
// handle here carries out asynchronous requests at once.
#include <list>

#include "fuzz/fuzz.hpp"
#include "skgfr/client.h"

/// An open file, as hostile as its records can be.
struct OpenFile {
  explicit OpenFile(Input &in) {
    fib.second.seal_skgfrsfib = in.pick<ub4>({skgfrSEAL, 0});
    fib.second.lastblk_skgfrsfib = in.pick<ub4>({4096, 0, 1, skgfrUNKNOWN});
    fib.first.lblksiz_skgfrfib = in.pick<size_t>({512, 0, 4096, 1, 513});
    fib.first.maxvec_skgfrfib = in.pick<ub4>({16, 0});
    failures = fib.first.serr_skgfrfib = in.pick<uword>({0, 1, 3, 0xFFFF});
    fib.first.flags_skgfrfib = in.take<ub1>() % 2;
    fib.first.ftype_skgfrfib = in.take<ub1>() % 2 ? skgfrfKDV : skgfrfDATA;
    iov.second.seal_skgfrsiov = in.pick<ub4>({skgfrSEAL, 0});
    iov.first.maxaio_skgfriov = in.pick<uword>({4, 0});
    iov.first.fib_skgfriov = in.take<ub1>() % 8 < 7 ? &fib.first : nullptr;
  }
  bool is_good() const {
    return iov.first.fib_skgfriov && fib.second.seal_skgfrsfib == skgfrSEAL &&
           iov.second.seal_skgfrsiov == skgfrSEAL;
  }
  /// Uses up a failure, if one is left.
  bool fails() {
    if (failures == 0) return false;
    failures -= failures != 0xFFFF;
    return true;
  }
  std::pair<skgfrfib, skgfrsfib> fib{};  // the extension lies right behind its record
  std::pair<skgfriov, skgfrsiov> iov{};
  uword failures;
};

/// A request, and the code of the first rule that it breaks.
struct Request : skgfrrq {
  Request(Input &in, ub4 flags, OpenFile &file) : skgfrrq{} {
    const bool vector = flags & skgfqioVECTOR, async = flags & skgfqioASYNC;
    const size_t size = file.fib.first.lblksiz_skgfrfib;
    const ub4 longest = file.fib.first.maxvec_skgfrfib;
    blockno_skgfrrq = in.pick<ub4>({1, 0, 2, 4095, 4096, 4097, 0xFFFFFFFF});
    const size_t length = in.pick<size_t>({512, 0, 1024, 1 << 20, (1 << 20) + 512});
    const uintptr_t address = in.pick<uintptr_t>({512, 0, 513});
    const uword buffers = in.pick<uword>({16, 17, 0});
    bufspec_skgfrrq.buffer_skgfrrq = {reinterpret_cast<void *>(address), length};
    if (vector) bufspec_skgfrrq.bufvec_skgfrrq = {nullptr, buffers};
    iosb.first.slerc_skgfriosb = &se;
    iosb_skgfrrq = &iosb.first;
    iov_skgfrrq = &file.iov.first;
    const bool uneven = size > 0 && length % size > 0;
    const ub8 blocks = vector ? 0 : size > 0 ? length / size : 1;
    const bool good = file.is_good(), fails = good && file.fails();
    const std::pair<bool, eword> rules[] = {
        {!good, 27050},
        {fails, 27051},
        {async && file.iov.first.maxaio_skgfriov == 0, 27064},
        {async && vector, 27065},
        {vector && buffers > longest, 27066},
        {!vector && (length == 0 || length > 1 << 20 || uneven), 27067},
        {!vector && (address % 512 > 0 || (size == 0 && blockno_skgfrrq != 1)), 27068},
        {is_outside(file, blocks), 27069},
        {true, 0}};
    code = std::find_if(rules, std::end(rules), [](auto &rule) { return rule.first; })->second;
  }
  bool is_outside(const OpenFile &file, ub8 blocks) const {
    const bool from_zero = file.fib.first.ftype_skgfrfib == skgfrfKDV;
    const ub8 last = file.fib.second.lastblk_skgfrsfib, first = blockno_skgfrrq;
    if (!from_zero && first == 0) return true;
    const ub8 header = file.fib.first.flags_skgfrfib ? 0 : 1;
    return last != skgfrUNKNOWN && (from_zero ? first : first - 1) + blocks + header > last;
  }
  std::pair<skgfriosb, skgfrsisb> iosb{};
  slerc se{};
  eword code;
};

int LLVMFuzzerTestOneInput(const ub1 *data, size_t size) {
  Input in(data, size);
  skgfrctx ctx{};
  ctx.flags_skgfrctx = skgfrcVALIDATE;
  const ub4 flags = in.take<ub1>(), most = in.take<ub1>() % 4 + 1;
  std::list<OpenFile> files;
  std::list<Request> requests;
  std::vector<skgfrrq *> good, accepted;
  kgglk head{&head, &head};
  for (ub1 left = in.take<ub1>() % 9 + 1; left > 0; --left) {
    if (files.empty() || in.take<ub1>() % 2 == 0) files.emplace_back(in);  // else neighbours on one
    Request &it = requests.emplace_back(in, flags, files.back());
    skgfr_append(&head, &it);
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
