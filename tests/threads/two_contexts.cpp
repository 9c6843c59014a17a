// Two clients in two threads, each with a context of its own: what either of them wrote is read back. The
// thread sanitizer watches what the layer keeps for the whole process.
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <thread>

#include "tests/support/requests.hpp"

namespace {

using namespace support;

constexpr ub4 blocks = 64;
constexpr size_t block_size = 512;

void require(bool good, const char *step) {
  if (good) return;
  std::fprintf(stderr, "%s\n", step);
  std::abort();
}

/// Queues every block of the file, collects what is asynchronous, and looks at all outcomes.
void transfer(skgfrctx *ctx, skgfriov *iov, char *data, ub4 flags) {
  std::deque<Request> pool;
  Requests requests;
  for (ub4 block = 1; block <= blocks; ++block, data += block_size) {
    requests.push_back(&pool.emplace_back(iov, block, std::vector{skgfrbd{data, block_size}}));
  }
  skgfqio(ctx, RequestList(requests), flags);
  slerc se;
  skgfriosb *done = nullptr;
  while (skgfrwat(&se, ctx, blocks, &done, nullptr, skgfrUNKNOWN) == skgfrrOK) {
  }
  for (const Request *request : requests) require(request->letter() == 'D', "a request");
}

void use_the_layer(const std::string &name) {
  alignas(512) char data[blocks * block_size];
  Fib fib;
  Iov iov;
  slerc se;
  skgfrctx ctx;
  skgfrwcx wait;
  skgfrpini(&se, &ctx, &wait, nullptr, nullptr);
  skgfrsetioparam(&se, &ctx, txt("asynch"), 6);
  skgfrcre(&se, &ctx, txt(name), name.size(), skgfrfDATA, block_size, blocks, 0);
  fib->lblksiz_skgfrfib = block_size;
  if (se.slercoer == 0) skgfifi(&se, &ctx, fib, txt(name), name.size());
  if (se.slercoer == 0) skgfofi(&se, &ctx, fib, iov, blocks, skgfofiWRITE);
  require(se.slercoer == 0, "opening");

  const ub4 asynchronous = iov->maxaio_skgfriov ? skgfqioASYNC : 0;
  const std::string written(sizeof data, name.back());
  written.copy(data, sizeof data);
  transfer(&ctx, iov, data, asynchronous);
  std::string(sizeof data, '-').copy(data, sizeof data);
  transfer(&ctx, iov, data, asynchronous | skgfqioREAD);
  require(written == std::string(data, sizeof data), "what was read");

  skgfcfi(&se, &ctx, iov);
  if (se.slercoer == 0) skgfr_end_context(&se, &ctx);
  require(se.slercoer == 0, "the end");
}

}  // namespace

int main(int argc, char **argv) {
  require(argc == 2, "usage");
  const std::string folder = argv[1];
  use_the_layer(folder + "/first");  // fills what the process keeps, as the layer asks
  for (char round = 'a'; round < 'u'; ++round) {
    std::thread one(use_the_layer, folder + "/1" + round);
    std::thread other(use_the_layer, folder + "/2" + round);
    one.join();
    other.join();
  }
  return EXIT_SUCCESS;
}
