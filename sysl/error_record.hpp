// How an operation begins and how it fails: the only code that writes error records.
//
// A Site names one failing place: its code and the number that tells the place apart, with the
// detail word that carries the number. Tables of sites stand in error_sites.hpp of each room. The
// values that a failure adds fill the remaining words in order.
#pragma once

#include "sysl/types.h"

namespace sysl {

/// The detail word that carries a site's number.
enum class SiteWord : ub1 { none, first, second };

struct Site {
  eword code;
  ub4 number = 0;
  SiteWord word = SiteWord::first;
};

/// Clears the whole record: the entry rule of every operation that can fail.
inline void begin(slerc *se) { *se = slerc{}; }

/// Clears the code alone: the entry rule of look-ups, of the signal registry and of request paths.
inline void begin_code_only(slerc *se) { se->slercoer = 0; }

/// Sets code and words and leaves slercerrno as it is.
inline void fail_keep(slerc *se, const Site &site, ub4 a = 0, ub4 b = 0, ub4 c = 0) {
  se->slercoer = site.code;
  ub4 *const word = se->slercose;
  switch (site.word) {
    case SiteWord::none: word[0] = a, word[1] = b, word[2] = c; return;
    case SiteWord::first: word[0] = site.number, word[1] = a, word[2] = b; return;
    case SiteWord::second: word[0] = a, word[1] = site.number, word[2] = b; return;
  }
}

/// Clears the record, then sets code, system error number and words.
inline void fail(slerc *se, const Site &site, int error = 0, ub4 a = 0, ub4 b = 0, ub4 c = 0) {
  begin(se);
  se->slercerrno = error;
  fail_keep(se, site, a, b, c);
}

/// Sets the code alone, for routines that promise to touch nothing else.
inline void fail_code_only(slerc *se, const Site &site) { se->slercoer = site.code; }

/// Replaces an inner failure by this site's: the inner code moves into the first word, the site's
/// number into the second; slercerrno and the third word stay as the inner failure left them.
inline void recode(slerc *se, const Site &site) {
  se->slercose[0] = static_cast<ub4>(se->slercoer);
  se->slercose[1] = site.number;
  se->slercoer = site.code;
}

inline bool failed(const slerc *se) { return se->slercoer != 0; }

}  // namespace sysl
