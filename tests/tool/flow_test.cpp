// The flow in this process, where memory and system calls can be made to fail; the callbacks.
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

struct Fault {
  const char *call;
  int skip, error;
  long result = FAULT_FAILS;
};

Outcome run_with(const Fault &fault, const std::string &type, const std::string &name) {
  text *arguments[] = {txt("vdprep"), txt(type), txt(name)};
  return captured([&] {
    fault_reset();
    fault_arm(fault.call, fault.skip, 1, fault.error, fault.result);
    fault_arm("sleep", 0, 1, 0, 0);
    fault_arm("dlopen", 0, 2, 0, FAULT_NULL);  // kernel contexts live as long as their process
    return vdprep_main(3, arguments);
  });
}

class Flow : public FlowTest {};

TEST_F(Flow, ExhaustedMemory) {
  const bool narrow = sizeof(void *) == 4;
  const std::string context = std::to_string(sizeof(skgfrctx)) + "/4 for ctx";
  for (const std::string type : {"vtg", "kvs"}) {
    std::string found, all;
    for (const std::string &record :
         {context, context, std::string(narrow ? "36 for iov" : "40 for iov"),
          std::string(narrow ? "588 for fib" : "616 for fib"),
          std::string(narrow ? "112 for iostat" : "152 for iostat"),
          std::string(type == "vtg" ? "16896 for block0" : "20480 for block0")}) {
      all += "vdprep: Unable to allocate " + record + "\n";
    }
    // Compilers choose calloc for some; other allocations that fail do not end the run this way.
    const TempDir dir(place_for_files());
    for (int i = 0; i < 32; ++i) {
      const int before = open_descriptors();
      const std::string file = dir.file("f", 16384);
      const Outcome got =
          run_with({i % 2 ? "calloc" : "malloc", i / 2, ENOMEM, FAULT_NULL}, type, file);
      EXPECT_EQ(open_descriptors(), before);
      if (got.status != 3) continue;
      found += got.output;
      EXPECT_TRUE(contents(file) == std::string(16384, 'x'));
    }
    EXPECT_EQ(found, all);
  }
}

TEST_F(Flow, FailingCalls) {
  // clang-format off
  const std::tuple<Fault, std::string, size_t, std::string> cases[] = {
      {{"getrlimit64", 0, EPERM}, "vtg", 1024, "init e1 1"},
      {{"getrlimit64", 1, EPERM}, "kvs", 1024, "init e1 1"},
      {{"fcntl", 0, EIO}, "vtg", 1024, "open e5"},
      {{"stat64", 2, ENOENT}, "vtg", 1024, "gone 512/1"},
      {{"pwrite64", 0, 0, 100}, "vtg", 1024, "write 4 1 100"},
      {{"close", 1, EIO}, "vtg", 1024, "close e5 3 512/1"},
      {{"stat64", 1, EACCES}, "kvs", 10240, "early4 e13 3"},
      {{"ftruncate64", 0, EFBIG}, "kvs", 10240, "resize <10240 >12288 ident5 1"},
      {{"close", 2, EIO}, "kvs", 10240, "unclosed open e9 3 +12288"},
      {{"stat64", 0, EIO}, "kvs", 16384, "resize <-1 >0 ok 4096/4294967294"}};
  // clang-format on
  const TempDir dir(place_for_files());
  for (const auto &[fault, type, size, plan] : cases) {
    const std::string name = dir.file("f", size);
    expect(plan, name, run_with(fault, type, name), std::string(size, 'x'), name);
  }
}

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
  EXPECT_EQ(unstamped(run_with({"open64", 1, EIO}, "vtg", name).output, from),
            "skgfr Open: errno = 5, attempts = 1 \n\n"
            "vdprep: successfully initialized file " +
                name + "\n");
  EXPECT_EQ(traced(nullptr, "a"), "");
  context.tracing_vdprepctx = FALSE;
  EXPECT_EQ(traced(ctx, "a"), "");
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
  // Name, registry or not, whether there is a usual text, a usual number; result, text and number.
  const std::tuple<std::string, boolean, bool, size_t, std::string> cases[] = {
      {"filesystemio_options", 0, true, 9, "1 directio 8"},
      {"_hard_protect", 1, false, 0, "1 true 4"},
      {"_hard_protect", 0, false, 0, "1 false 5"},
      {"_HARD_PROTECT", 1, true, 9, "0 usual 9"},
      {"_hard_protect ", 1, false, 9, "0 before 9"},
      {"cluster_database", 1, true, 0, "0 usual 77"}};
  for (const auto &[name, registry, has_usual, number_default, wanted] : cases) {
    vdprepctx context{TRUE, registry};
    text *word = txt(before);
    uword number = 77;
    std::ostringstream answer;
    answer << vdprep_getparam(reinterpret_cast<skgcbctx *>(&context), txt(name), nullptr, &number,
                              &word, has_usual ? txt(usual) : nullptr, number_default);
    answer << ' ' << word << ' ' << number;
    EXPECT_EQ(answer.str(), wanted) << name;
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
