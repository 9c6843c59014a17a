// Discovery: expands a name pattern and lists what matches in memory of the client's.
//
// The result belongs to the client from its first piece on: a discovery that runs out of memory
// hands over what there is and releases nothing. What a match is good for is decided elsewhere.
#include <glob.h>

#include <cerrno>
#include <cstring>

#include "skgfr/base/file_name.hpp"
#include "skgfr/base/list.hpp"
#include "skgfr/skgfr.h"
#include "sysl/text.hpp"

const text skgfrdscdflt[] = "/dev/raw/*";

namespace {

using namespace skgfr;

/// The discovery string as name translation takes it: wildcards come through unchanged, while
/// variables and a leading "?" are replaced.
class EscapedName {
 public:
  /// False when the name would exceed its room.
  bool escape(const text *string) {
    for (const text *at = string; *at; ++at) {
      const bool home = at == string && *at == '?';
      if (!home && std::strchr("*?[]", *at) && !append('\\')) return false;
      if (!append(*at)) return false;
    }
    return true;
  }
  const text *chars() const { return chars_; }
  size_t length() const { return length_; }

 private:
  bool append(text character) {
    if (length_ + 1 >= sizeof chars_) return false;
    chars_[length_++] = character;
    return true;
  }

  text chars_[name_room];
  size_t length_ = 0;
};

/// The paths that match a pattern, in the order in which they were found.
class Expansion {
 public:
  Expansion() = default;
  ~Expansion() { globfree64(&paths_); }
  Expansion(const Expansion &) = delete;
  Expansion &operator=(const Expansion &) = delete;

  /// False, with errno set, when the pattern could not be expanded.
  bool expand(const text *pattern) {
    const int outcome = glob64(sysl::chars(pattern), GLOB_NOSORT, nullptr, &paths_);
    return outcome == 0 || outcome == GLOB_NOMATCH;
  }
  char *const *begin() const { return paths_.gl_pathv; }
  char *const *end() const { return paths_.gl_pathv + paths_.gl_pathc; }

 private:
  glob64_t paths_{};
};

/// The client's memory; null answers come through.
struct Memory {
  void *context;
  skgfralloccb3 allocate;

  template <class Record>
  Record *zeroed(const char *label) const {
    auto *const record = static_cast<Record *>(allocate(context, sizeof(Record), label));
    if (record) *record = Record{};
    return record;
  }
  text *copy(const char *string, const char *label) const {
    const size_t size = std::strlen(string) + 1;
    void *const room = allocate(context, size, label);
    return static_cast<text *>(room ? std::memcpy(room, string, size) : nullptr);
  }
};

/// The string as a normalised pattern, in name_room bytes. False with the failure in se.
bool normalise_pattern(slerc *se, const text *string, text *pattern) {
  EscapedName escaped;
  if (!string || !escaped.escape(*string ? string : skgfrdscdflt)) {
    fail(se, sites::discovery_string, string ? ENAMETOOLONG : EINVAL);
    return false;
  }
  size_t length;
  slnrm(se, escaped.chars(), escaped.length(), pattern, name_room, &length);
  return !failed(se);
}

/// The result without its matches; null without memory. Memory for its string may be missing, too.
skgfrdsc *make_result(const Memory &memory, const text *pattern) {
  auto *const found = memory.zeroed<skgfrdsc>("Discovery struct");
  if (!found) return nullptr;
  make_empty(found->dev_skgfrdsc);
  found->str_skgfrdsc = memory.copy(sysl::chars(pattern), "DSC string");
  return found;
}

/// Lists one match, examined. False without memory; a match without a path then says so itself.
bool add(skgfrdsc *found, skgfrctx *ctx, const Memory &memory, const char *path, boolean rawonly) {
  skgfrstat *const match = memory.zeroed<skgfrstat>("skgfrstat");
  if (!match) return false;
  push_front(found->dev_skgfrdsc, match->link_skgfrstat);
  match->path_skgfrstat = memory.copy(path, "Dev path");
  if (!match->path_skgfrstat) {
    fail(&match->se_skgfrstat, sites::discovery_memory, ENOMEM);
    return false;
  }
  skgfrdevstat(&match->se_skgfrstat, ctx, match, rawonly);
  return true;
}

}  // namespace

skgfrdsc *skgfrdscdevs(slerc *se, skgfrctx *ctx, const text *str, void *memctx, skgfralloccb3 mem,
                       skgfrfreecb3, boolean rawonly) {
  begin_code_only(se);
  text pattern[name_room];
  if (!normalise_pattern(se, str, pattern)) return nullptr;
  Expansion matches;
  if (!matches.expand(pattern)) {
    fail(se, sites::discovery_expansion, errno);
    return nullptr;
  }

  const Memory memory{memctx, mem};
  skgfrdsc *const found = make_result(memory, pattern);
  bool complete = found && found->str_skgfrdsc;
  for (const char *path : matches) complete = complete && add(found, ctx, memory, path, rawonly);
  if (!complete) fail(se, sites::discovery_memory, ENOMEM);
  return found;
}
