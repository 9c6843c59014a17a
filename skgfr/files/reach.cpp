// What requests on an identified file can reach: its blocks as they are on the disk now, within what
// identification found.
//
// Opens nothing itself; the size is size_queries' business.
#include <algorithm>

#include "skgfr/base/extensions.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/client.h"

namespace {

using namespace skgfr;

/// The record's name is normalised already, so nothing in it may be translated again.
ub8 measure(slerc *se, skgfrctx *ctx, const skgfrfib *fib) {
  text name[2 * skgfr_longest_name + 1];
  const size_t length = skgfr_protect_name(fib->fnm_skgfrfib, fib->fnl_skgfrfib, name, sizeof name);
  return skgfgfsz(se, ctx, name, length);
}

/// The blocks behind the header that the bounds check of requests lets pass; a file that grew has to be
/// identified again before they reach what is new.
ub4 most_blocks(const skgfrfib *fib, const skgfrsfib *file) {
  const ub4 last = file->lastblk_skgfrsfib;
  if (last == skgfrUNKNOWN) return skgfrUNKNOWN;
  return std::max(last, header_blocks(fib)) - header_blocks(fib);
}

}  // namespace

void skgfr_find_reach(slerc *se, skgfrctx *ctx, skgfrfib *fib, skgfr_reach *reach) {
  begin(se);
  const skgfrsfib *const file = sealed(se, fib, sites::reach_seal);
  if (!file) return;
  const size_t block_size = fib->lblksiz_skgfrfib;
  if (block_size == 0) return fail(se, sites::reach_block_size);
  const ub8 size = measure(se, ctx, fib);
  if (failed(se)) return;

  const ub8 offset = file->blk1offset_skgfrsfib;
  const ub8 there = size > offset ? (size - offset) / block_size : 0;
  const ub8 blocks = std::min<ub8>(there, most_blocks(fib, file));
  const ub4 first = fib->ftype_skgfrfib == skgfrfKDV ? 0 : 1;
  *reach = {offset, blocks * block_size, first, static_cast<ub4>(blocks)};
}
