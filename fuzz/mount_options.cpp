// The mount options that a file on NFS needs, with the input as the mount table. The file asked
// about is one of /proc, a mount of its own everywhere.
#include <mntent.h>
#include <sys/stat.h>

#include "fuzz/fuzz.hpp"
#include "skgfr/files/mount_check.hpp"

static std::string table;
FILE *setmntent(const char *, const char *) noexcept {
  return fmemopen(table.data(), table.size(), "r");
}

static bool is_safe(const std::string &options, bool cluster) {
  const auto has = [&](const char *name) { return options.find(name) != options.npos; };
  // The first number behind a name; -1 when either is missing.
  const auto number = [&](const char *name) {
    const size_t at = options.find_first_of("0123456789", options.find(name));
    return at == options.npos ? -1.0 : static_cast<double>(std::strtoul(&options[at], {}, 10));
  };
  if (number("wsize") < 16384 || number("rsize") < 16384 || !has("hard")) return false;
  return !cluster || has("noac") || number("actimeo") == 0;
}

int LLVMFuzzerTestOneInput(const ub1 *data, size_t size) {
  Input in(data, size);
  skgfrctx ctx{};
  ctx.flags_skgfrctx = in.take<ub1>() % 2 ? skgfrcCLUSTER : 0;
  table = in + "\n";
  FILE *const entries = setmntent("", "r");
  mntent entry;
  char strings[4096];  // longer lines are cut
  bool found = false;
  while ((found = getmntent_r(entries, &entry, strings, sizeof strings)) &&
         entry.mnt_dir != std::string("/proc")) {
  }
  endmntent(entries);
  struct stat64 status {};
  require(stat64("/proc/self/status", &status) == 0, "the file is there");
  slerc se{};
  const bool safe = skgfr::has_safe_mount(&se, &ctx, "/proc/self/status", status.st_dev);
  require(safe == (!found || is_safe(entry.mnt_opts, ctx.flags_skgfrctx)), "the entry decides");
  require(se.slercoer == (safe ? 0 : 27054), "answer and code agree");
  return 0;
}
