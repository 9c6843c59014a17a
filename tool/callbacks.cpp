// The tool's answers to the file layer: trace lines, parameters, checksum, header layout.
//
// Called inside layer calls; keeps no state besides the context, which it only reads.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "sysl/text.hpp"
#include "tool/vdprep.h"

namespace {

constexpr size_t line_room = 150;
constexpr size_t error_text_room = 512;

const vdprepctx *own(const skgcbctx *ctx) { return reinterpret_cast<const vdprepctx *>(ctx); }

/// Writes "year-month-day hour:minute:second.millisecond: " and returns its length.
size_t stamp(char (&line)[line_room]) {
  slerc ignored{};
  slgtd_t now{};
  slgtd(&ignored, &now);
  const int length =
      std::snprintf(line, sizeof line, "%04d-%02d-%02d %02d:%02d:%02d.%03d: ", now.year, now.month,
                    now.day, now.hour, now.minute, now.second, now.millisecond);
  return static_cast<size_t>(length);
}

/// The known parameters; the rest keep the layer's defaults.
const char *answer(const vdprepctx *ctx, const text *name) {
  const char *const key = sysl::chars(name);
  if (std::strcmp(key, "filesystemio_options") == 0) return "directio";
  if (std::strcmp(key, "_hard_protect") == 0) return ctx->kvs_vdprepctx ? "true" : "false";
  return nullptr;
}

}  // namespace

const skgcb vdprep_skgcb = {
    vdprep_slztrace,  // trace
    vdprep_slztrace,  // alert
    nullptr,          // error
    vdprep_getparam,
    nullptr,  // beginwait
    nullptr,  // endwait
    nullptr,  // beginwait_resmgr
    nullptr,  // endwait_resmgr
    nullptr,  // kst_rec
    nullptr,  // kst_rec_data
    nullptr,  // sbt_evtnum
    vdprep_xor,      vdprep_pre10,
    nullptr,  // stackdump
};

size_t vdprep_slztrace(skgcbctx *ctx, const char *fmt, ...) {
  if (!ctx || !own(ctx)->tracing_vdprepctx) return 0;
  char line[line_room];
  const size_t stamped = stamp(line);
  va_list arguments;
  va_start(arguments, fmt);
  std::vsnprintf(line + stamped, sizeof line - stamped, fmt, arguments);
  va_end(arguments);
  slzprintf("%s\n", line);
  return 0;
}

void vdprep_slerc(slerc *se, text *func) {
  text message[error_text_room];
  const size_t length = slcgems(se, message, sizeof message - 1);
  message[length] = 0;
  slzprintf("%s: %s\n", sysl::chars(func), sysl::chars(message));
}

boolean vdprep_getparam(skgcbctx *ctx, const text *parname, uword *, void *pval, text **pstr,
                        const text *defstr, const size_t defval) {
  if (const char *const known = answer(own(ctx), parname)) {
    *pstr = sysl::texts(const_cast<char *>(known));
    *static_cast<uword *>(pval) = static_cast<uword>(std::strlen(known));
    return TRUE;
  }
  if (defstr) *pstr = const_cast<text *>(defstr);
  if (defval != 0) *static_cast<uword *>(pval) = static_cast<uword>(defval);
  return FALSE;
}

ub2 vdprep_xor(void *bp, size_t len) {
  const char *const bytes = static_cast<const char *>(bp);
  ub2 sum = 0;
  for (size_t at = 0; at + sizeof sum <= len; at += sizeof sum) {
    ub2 word;
    std::memcpy(&word, bytes + at, sizeof word);
    sum ^= word;
  }
  return sum;
}

boolean vdprep_pre10(void) { return FALSE; }
