// Two clients in two threads, each with a context of its own: what either of them wrote is read back. The
// thread sanitizer watches what the layer keeps for the whole process.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "skgfr/client.h"

namespace {

constexpr ub4 blocks = 64;
constexpr size_t block_size = 512;

text *txt(const std::string &name) {
  return reinterpret_cast<text *>(const_cast<char *>(name.c_str()));
}

void require(bool good, const char *step) {
  if (good) return;
  std::fprintf(stderr, "%s\n", step);
  std::abort();
}

struct Request : skgfrrq {
  slerc se{};
  alignas(8) char status[256]{};
};

/// Queues every block of the file, collects what is asynchronous, and looks at all outcomes.
void transfer(skgfrctx *ctx, skgfriov *iov, char *data, ub4 flags) {
  std::vector<Request> requests(blocks);
  kgglk list;
  skgfr_make_list(&list);
  for (Request &request : requests) {
    request.iov_skgfrrq = iov;
    request.iosb_skgfrrq = reinterpret_cast<skgfriosb *>(request.status);
    request.iosb_skgfrrq->slerc_skgfriosb = &request.se;
    request.blockno_skgfrrq = static_cast<ub4>(&request - requests.data()) + 1;
    request.bufspec_skgfrrq.buffer_skgfrrq = {data, block_size};
    data += block_size;
    skgfr_append(&list, &request);
  }
  skgfqio(ctx, &list, flags);
  slerc se;
  skgfriosb *done = nullptr;
  while (skgfrwat(&se, ctx, blocks, &done, nullptr, skgfrUNKNOWN) == skgfrrOK) {
  }
  for (const Request &request : requests) {
    require(request.iosb_skgfrrq->status_skgfriosb == skgfriDONE, "a request");
  }
}

void use_the_layer(const std::string &name) {
  alignas(8) char fib_memory[1024]{}, iov_memory[256]{};
  alignas(512) char data[blocks * block_size];
  auto *const fib = reinterpret_cast<skgfrfib *>(fib_memory);
  auto *const iov = reinterpret_cast<skgfriov *>(iov_memory);
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
  require(argc == 2 && skgfrgsz(skgfrsFIB) <= 1024 && skgfrgsz(skgfrsISB) <= 256, "usage");
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
