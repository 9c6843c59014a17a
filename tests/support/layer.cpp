#include "tests/support/layer.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace support {

namespace {

size_t remember(skgcbctx *, const char *format, ...) {
  if (!client().listens) return 0;
  char line[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  client().lines.emplace_back(line);
  return 0;
}

boolean answer(skgcbctx *, const text *name, uword *, void *pval, text **pstr, const text *defstr,
               const size_t defval) {
  const std::string_view key = reinterpret_cast<const char *>(name);  // allocates nothing
  if (key == "filesystemio_options" && !client().io_options.empty()) {
    *pstr = txt(client().io_options);
    *static_cast<uword *>(pval) = static_cast<uword>(client().io_options.size());
    return TRUE;
  }
  for (const auto &[known, value] : client().numbers) {
    if (known != key) continue;
    *static_cast<uword *>(pval) = value;
    return TRUE;
  }
  if (defstr) *pstr = const_cast<text *>(defstr);
  if (defval) *static_cast<uword *>(pval) = static_cast<uword>(defval);
  return FALSE;
}

ub2 sum_words(void *bp, size_t len) {
  ub1 sum[2] = {0, 0};
  for (size_t at = 0; at < len; ++at) sum[at % 2] ^= static_cast<ub1 *>(bp)[at];
  ub2 word;
  std::memcpy(&word, sum, sizeof word);
  return word;
}

boolean wants_old_layout() { return client().old_layout; }

}  // namespace

Client &client() {
  static Client the_client;
  return the_client;
}

const skgcb client_table = {remember, remember,  nullptr,          answer,  nullptr,
                            nullptr,  nullptr,   nullptr,          nullptr, nullptr,
                            nullptr,  sum_words, wants_old_layout, nullptr};

Context::Context(const skgcb *table, bool initialise) : ctx_{} {
  if (!initialise) return;
  skgfrwcx wait;
  skgfrpini(&se, &ctx_, &wait, table, nullptr);
  if (se.slercoer == 0) skgfrsini(&se, &ctx_, &wait, table, nullptr);
}

Context::~Context() {
  if (ctx_.ioctx_skgfrctx) syscall(SYS_io_destroy, ctx_.ioctx_skgfrctx);
}

bool kernel_has_room() {
  Context context;
  return (context->flags_skgfrctx & skgfrcKAIO) != 0;
}

testing::AssertionResult is(const slerc &se, const Expected &expected) {
  const auto text_of = [](eword code, int error, const ub4(&words)[3]) {
    const testing::Message head = testing::Message() << code << " errno " << error;
    return head.GetString() + testing::PrintToString(words);
  };
  const std::string found = text_of(se.slercoer, se.slercerrno, se.slercose);
  const std::string wanted = text_of(expected.code, expected.error, expected.words);
  if (found == wanted) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "found " << found << ", expected " << wanted;
}

int open_descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<int>(std::distance(begin(all), end(all))) - 1;  // the folder itself
}

int lock_met(int fd) {
  struct flock met {};
  met.l_type = F_WRLCK;
  met.l_start = 1 << 20;
  return fcntl(fd, F_OFD_GETLK, &met) == 0 ? met.l_type : -1;
}

TempDir::TempDir(const std::string &parent) : path_(parent + "/vdprep-test-XXXXXX") {
  if (!mkdtemp(path_.data())) std::abort();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(const std::string &name, size_t size, char fill) const {
  std::ofstream(path(name), std::ios::binary) << std::string(size, fill);
  return path(name);
}

std::string contents(const std::string &path, size_t size, off64_t offset) {
  std::ifstream in(path, std::ios::binary);
  in.seekg(offset);
  std::string all;
  for (char byte; all.size() < size && in.get(byte);) all += byte;
  return all;
}

LoopDevice::LoopDevice(const std::string &file, int sector_size, const std::string &options) {
  const std::string command = "losetup --find --show --sector-size " + std::to_string(sector_size) +
                              " " + options + " " + file + " 2>&1";
  FILE *const pipe = popen(command.c_str(), "r");
  char line[256] = "";
  const bool answered = pipe && std::fgets(line, sizeof line, pipe);
  const bool attached = pipe && pclose(pipe) == 0 && answered;
  if (attached) path_ = std::string(line, std::strcspn(line, "\n"));
}

LoopDevice::~LoopDevice() {
  if (path_.empty()) return;
  if (std::system(("losetup --detach " + path_).c_str()) != 0) std::perror("losetup --detach");
}

LayerTest::LayerTest() {
  for (const char *name : {"TARVEX_HOME", "TARVEX_SID", "TARVEX_PATH"}) unsetenv(name);
  client() = Client{};
  fault_reset();
}

LayerTest::~LayerTest() { fault_reset(); }

}  // namespace support
