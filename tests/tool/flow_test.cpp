// The flow in this process, where memory and system calls can be made to fail; the callbacks.
#include <unistd.h>

#include <ctime>

#include "tests/tool/program.hpp"
#include "tool/vdprep.h"

using namespace support;

namespace {

/// What `call` prints, and its result.
template <class Call>
Outcome captured(Call call) {
  testing::internal::CaptureStdout();
  const int status = static_cast<int>(call());
  fault_reset();
  return {status, testing::internal::GetCapturedStdout()};
}

/// A run of the flow in this process, over what was armed before.
sb4 flow(const char *type, const std::string &name) {
  const std::string program = "vdprep", keyword = type;
  text *arguments[] = {txt(program), txt(keyword), txt(name)};
  fault_arm("dlopen", 0, 2, 0, FAULT_NULL);  // kernel contexts live as long as their process
  return vdprep_main(3, arguments);
}

class Flow : public FlowTest {};

/// What follows a line's stamp, which must be a time since `from`.
std::string unstamped(const std::string &line, time_t from) {
  tm local{};
  int milliseconds = 0, length = 0;
  const char *const end = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &local);
  if (!end || end != &line[19]) return "no date and time";
  if (std::sscanf(end, ".%3d: %n", &milliseconds, &length) != 1 || length != 6) return "no rest";
  local.tm_isdst = -1;
  const time_t at = mktime(&local);
  return at < from || at > std::time(nullptr) ? "wrong time" : end + length;
}

TEST_F(Flow, TraceLines) {
  const std::string longest(149 - 25, 'y'), endless(600, 'y');
  vdprepctx context{TRUE, FALSE};
  skgcbctx *const ctx = reinterpret_cast<skgcbctx *>(&context);
  const auto traced = [](skgcbctx *who, const std::string &word) {
    return captured([&] { return vdprep_slztrace(who, "%s%d", word.c_str(), 7); }).output;
  };
  const time_t from = std::time(nullptr);
  EXPECT_EQ(unstamped(traced(ctx, "a%s "), from), "a%s 7\n");
  EXPECT_EQ(unstamped(traced(ctx, longest), from), longest + "\n");
  EXPECT_EQ(unstamped(traced(ctx, endless), from), longest + "\n");
  const TempDir dir(place_for_files());
  const std::string name = dir.file("f", 1024);
  fault_arm("open64", 1, 1, EIO, FAULT_FAILS);  // the second is tried again
  fault_arm("sleep", 0, 1, 0, 0);
  EXPECT_EQ(unstamped(captured([&] { return flow("vtg", name); }).output, from),
            "skgfr Open: errno = 5, attempts = 1 \n\n"
            "vdprep: successfully initialized file " +
                name + "\n");
  EXPECT_EQ(traced(nullptr, "a"), "");
  context.tracing_vdprepctx = FALSE;
  EXPECT_EQ(traced(ctx, "a"), "");
}

/// A file that another program extends to 20480 bytes just before one of the flow's system calls.
struct Growth {
  const char *name;
  int before, calls;
} growth;
int grow(const char *) {
  const bool now = growth.calls++ == growth.before;
  if (now && truncate(growth.name, 20480) != 0) std::abort();
  return 0;  // the call itself is left alone
}

TEST_F(Flow, AFileThatGrowsIsNotCut) {
  const TempDir dir(place_for_files());
  const std::string name = dir.path("f");
  const std::string warning =
      "vdprep: Failure trying to resize KVS file from 10240 bytes to 12288 bytes\n";
  const std::string good = "vdprep: successfully initialized file " + name + "\n";
  std::vector<std::string> cut, warned;
  for (int before = 0, calls = 1; before < calls; ++before) {
    dir.file("f", 10240);
    std::string call;
    const Outcome got = captured([&] {
      fault_reset();
      growth = {name.c_str(), before, 0};
      fault_at_random(1, 1, grow);
      const sb4 status = flow("kvs", name);
      fault_watch(0);
      calls = growth.calls;
      call = fault_trace(before);
      return status;
    });
    EXPECT_EQ(got.status, 0) << call;
    if (got.output != good) {
      EXPECT_EQ(got.output, warning + good) << call;
      warned.push_back(call);
    }
    if (std::filesystem::file_size(name) != 20480) cut.push_back(call);
  }
  EXPECT_GT(warned.size(), 5U) << "it grew between the two measurements";
  // Those of the resize itself, which sets the length by the name.
  EXPECT_EQ(cut, (std::vector<std::string>{"stat64", "open64", "malloc", "ftruncate64"}));
}

TEST_F(Flow, ErrorReport) {
  const std::string endless(600, 'z'), word = "Additional information: -2147483648\n";
  slerc se{0, INT32_MAX, {0x80000000, 0x80000000, 0x80000000}, 0, {}};
  fault_arm("strerror", 0, 1, 0, reinterpret_cast<long>(endless.c_str()));
  const Outcome got = captured([&] { return vdprep_slerc(&se, txt("skgfifi")), 0; });
  EXPECT_EQ(got.output, "skgfifi: Linux Error: 2147483647: " + endless.substr(0, 255) + "\n" +
                            word + word + word);
}

TEST_F(Flow, Parameters) {
  const std::string before = "before", usual = "usual";
  const struct {
    std::string name;
    boolean registry;
    bool has_usual_text;
    size_t usual_number;
    std::string wanted;  // result, text and number
  } cases[] = {{"filesystemio_options", 0, true, 9, "1 directio 8"},
               {"_hard_protect", 1, false, 0, "1 true 4"},
               {"_hard_protect", 0, false, 0, "1 false 5"},
               {"_HARD_PROTECT", 1, true, 9, "0 usual 9"},
               {"_hard_protect ", 1, false, 9, "0 before 9"},
               {"cluster_database", 1, true, 0, "0 usual 77"}};
  for (const auto &[name, registry, has_usual_text, usual_number, wanted] : cases) {
    vdprepctx context{TRUE, registry};
    text *word = txt(before);
    uword number = 77;
    const boolean known =
        vdprep_getparam(reinterpret_cast<skgcbctx *>(&context), txt(name), nullptr, &number, &word,
                        has_usual_text ? txt(usual) : nullptr, usual_number);
    EXPECT_EQ(
        std::to_string(known) + " " + reinterpret_cast<char *>(word) + " " + std::to_string(number),
        wanted)
        << name;
  }
}

TEST_F(Flow, ChecksumAndLayout) {
  char bytes[] = "?\x12\x34\xFF\x0F\x01\x10";  // words that begin at an odd address
  const ub2 one = vdprep_xor(bytes + 1, 2), all = vdprep_xor(bytes + 1, 6);
  EXPECT_EQ(vdprep_xor(bytes + 1, 0), 0);
  EXPECT_EQ(std::memcmp(&one, "\x12\x34", 2), 0);
  EXPECT_EQ(std::memcmp(&all, "\xEC\x2B", 2), 0);
  EXPECT_EQ(vdprep_pre10(), FALSE);
}

}  // namespace
