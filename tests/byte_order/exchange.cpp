// Files that one machine makes (exchange write FOLDER) and one of the other byte order judges
// (exchange read FOLDER). Prints what is wrong and exits with 1 if anything is.
#include "tests/support/requests.hpp"

namespace {
using namespace support;
constexpr struct Row {
  skgfrf type;
  boolean old_layout;
  size_t size;
  ub4 blocks;
} rows[] = {{skgfrfDATA, FALSE, 512, 1},     {skgfrfDATA, FALSE, 4096, 258},
            {skgfrfDATA, TRUE, 512, 2047},   {skgfrfDCVT, TRUE, 512, 2047},
            {skgfrfDCVT, FALSE, 16384, 257}, {skgfrfDCVT, TRUE, 8192, 1}};
int faults = 0;
void must(bool holds, const Row &row, const char *fact) {
  if (holds) return;
  std::printf("row %zd: not so: %s\n", &row - rows, fact);
  ++faults;
}

void judge_header(skgfrctx *ctx, const Row &row, const std::string &name, skgfrf type) {
  slerc se;
  std::string block = contents(name, row.size), summed = block;
  if (row.type == skgfrfDCVT) skgfrbcvt(ctx, summed.data());  // the sum was taken before that
  must(client_table.bhxor_skgcb(summed.data(), row.size) == 0, row, "check value");
  must(skgfrgbsz(&se, ctx, type, block.data()) == row.size, row, "block size");
  must(block.compare(24, 4, reinterpret_cast<const char *>(&row.blocks), 4) == 0, row, "blocks");
}

/// Moves the last block; asynchronously only where the kernel can.
void transfer(skgfrctx *ctx, const Row &row, skgfriov *iov, void *data, ub4 direction) {
  Request one(iov, row.blocks, {{data, row.size}});
  const RequestList list(Requests{&one});
  must(skgfqio(ctx, list, direction) == 0, row, "a synchronous request");
  must(one.letter() == 'D', row, "done");
  if (ctx->maxaio_skgfrctx > 0) return;
  must(!skgfr_aiosupported(ctx, priv(iov)->fd_skgfrsiov), row, "no asynchronous I/O");
  must(skgfqio(ctx, list, skgfqioASYNC) == 1, row, "no asynchronous request");
  must(is(one.se, {27064}), row, "refused as such");
}

void exchange(const Row &row, const std::string &name, bool reads) {
  client().old_layout = row.old_layout;
  client().io_options = "asynch";
  client().numbers = {{"_xtts_allow_pre10", row.old_layout}};
  Context ctx;
  slerc se;
  if (!reads) skgfrcre(&se, ctx, txt(name), name.size(), row.type, row.size, row.blocks, 0);
  Fib fib;
  Iov iov;
  fib->ftype_skgfrfib = (row.type == skgfrfDCVT) != reads ? skgfrfDCVT : skgfrfDATA;
  for (const size_t size : {size_t{0}, row.size}) {  // from the header, then from the file
    fib->lblksiz_skgfrfib = size;
    must(skgfifi(&se, ctx, fib, txt(name), name.size()) == skgfrrOK, row, "identification");
    must(priv(fib)->blk1offset_skgfrsfib == row.size, row, "offset of block 1");
  }
  if (reads) judge_header(ctx, row, name, fib->ftype_skgfrfib);
  must(fib->filsiz_skgfrfib == row.blocks, row, "size of the file");
  skgfofi(&se, ctx, fib, iov, 4, skgfofiWRITE);
  alignas(512) char data[16384]{};
  if (!reads) std::fill_n(data, row.size, name.back());
  transfer(ctx, row, iov, data, reads ? skgfqioREAD : 0);
  skgfcfi(&se, ctx, iov);
  must(std::string(data, row.size) == std::string(row.size, name.back()), row, "data");
}

}  // namespace

int main(int count, char **arguments) {
  if (count != 3) return 2;
  for (const Row &row : rows)
    exchange(row, arguments[2] + ("/" + std::to_string(&row - rows)), *arguments[1] == 'r');
  return faults ? 1 : 0;
}
