// Calls to the client, safe when the context, its table or a slot is absent.
//
// Knows how each callback is asked, not what the answers decide.
#pragma once

#include "skgfr/records.h"
#include "sysl/text.hpp"

namespace skgfr::client {

inline const skgcb *table(const skgfrctx *ctx) { return ctx ? ctx->cbk_skgfrctx : nullptr; }

inline bool answers_parameters(const skgfrctx *ctx) {
  return table(ctx) && table(ctx)->getparam_skgcb;
}

/// Asks a number. False, with value as it was, when nobody answers; the client's own result else.
inline bool ask_number(skgfrctx *ctx, const char *name, uword &value, size_t otherwise = 0) {
  if (!answers_parameters(ctx)) return false;
  return table(ctx)->getparam_skgcb(ctx->cbctx_skgfrctx, sysl::texts(name), nullptr, &value,
                                    nullptr, nullptr, otherwise) != FALSE;
}

/// Asks a text; null when the client does not know it.
inline const text *ask_text(skgfrctx *ctx, const char *name) {
  ub4 length = 0;
  text *word = nullptr;
  if (!answers_parameters(ctx)) return nullptr;
  const boolean known = table(ctx)->getparam_skgcb(ctx->cbctx_skgfrctx, sysl::texts(name), nullptr,
                                                   &length, &word, nullptr, 0);
  return known ? word : nullptr;
}

/// The check value of a block, 0 when the client computes none.
inline ub2 checksum(const skgfrctx *ctx, void *block, size_t size) {
  if (!table(ctx) || !table(ctx)->bhxor_skgcb) return 0;
  return table(ctx)->bhxor_skgcb(block, size);
}

/// Whether headers are written in the old layout; without a table they are.
inline bool wants_old_layout(const skgfrctx *ctx) {
  if (!table(ctx)) return true;
  return table(ctx)->pre10compat_skgcb && table(ctx)->pre10compat_skgcb() != FALSE;
}

template <class... Values>
void alert(const skgfrctx *ctx, const char *format, Values... values) {
  if (!table(ctx) || !table(ctx)->alert_skgcb) return;
  table(ctx)->alert_skgcb(ctx->cbctx_skgfrctx, format, values...);
}

template <class... Values>
void trace(const skgfrctx *ctx, const char *format, Values... values) {
  if (!table(ctx) || !table(ctx)->trace_skgcb) return;
  table(ctx)->trace_skgcb(ctx->cbctx_skgfrctx, format, values...);
}

}  // namespace skgfr::client
