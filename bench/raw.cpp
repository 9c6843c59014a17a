// The least that the kernel's interface needs: what a program would write for one of these rows alone.
#include <fcntl.h>
#include <libaio.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "bench/sides.hpp"

namespace bench {
namespace {

/// What the three kinds have in common.
class RawSide : public Side {
 public:
  RawSide(const Row &row, const Storage &storage)
      : row_(row),
        storage_(storage),
        file_(open(storage.path().c_str(), O_RDONLY | (storage.direct() ? O_DIRECT : 0))) {
    if (!file_) give_up("open");
  }

 protected:
  const Row &row_;
  const Storage &storage_;
  const skgfr::Descriptor file_;
};

class Positioned : public RawSide {
 public:
  using RawSide::RawSide;
  void round() override {
    const auto expected = static_cast<ssize_t>(row_.bytes);
    for (unsigned i = 0; i < row_.requests(); ++i) {
      const ssize_t moved = pread(file_.get(), storage_.buffer(i), row_.bytes, storage_.offset(i));
      if (moved != expected) give_up("pread");
    }
  }
};

class Vectored : public RawSide {
 public:
  Vectored(const Row &row, const Storage &storage) : RawSide(row, storage), parts_(vector_length) {
    for (unsigned i = 0; i < vector_length; ++i) {
      parts_[i] = iovec{storage.buffer(0) + i * row.bytes, row.bytes};
    }
  }
  void round() override {
    const auto expected = static_cast<ssize_t>(row_.request_bytes());
    if (lseek(file_.get(), 0, SEEK_SET) != 0) give_up("lseek");
    for (unsigned i = 0; i < row_.requests(); ++i) {
      if (readv(file_.get(), parts_.data(), vector_length) != expected) give_up("readv");
    }
  }

 private:
  std::vector<iovec> parts_;
};

/// libaio returns its error numbers, negated.
void expect(int result, int expected, const char *call) {
  if (result == expected) return;
  errno = result < 0 ? -result : EAGAIN;
  give_up(call);
}

/// Control blocks are prepared once. Waits return with the first completions, as the layer's do: what
/// has completed by then differs from call to call, for both sides alike.
class Asynchronous : public RawSide {
 public:
  Asynchronous(const Row &row, const Storage &storage)
      : RawSide(row, storage),
        blocks_(row.requests()),
        list_(row.requests()),
        events_(row.lists.length) {
    expect(io_setup(1024, &context_), 0, "io_setup");
    for (unsigned i = 0; i < row.requests(); ++i) {
      io_prep_pread(&blocks_[i], file_.get(), storage.buffer(i), row.bytes, storage.offset(i));
      list_[i] = &blocks_[i];
    }
  }
  ~Asynchronous() override { io_destroy(context_); }

  void round() override {
    for (unsigned i = 0; i < row_.lists.count; ++i)
      submit_and_collect(&list_[size_t{i} * row_.lists.length]);
  }

 private:
  void submit_and_collect(iocb **list) {
    const int count = static_cast<int>(row_.lists.length);
    expect(io_submit(context_, count, list), count, "io_submit");
    for (int done = 0; done < count;) {
      const int events = io_getevents(context_, 1, count - done, events_.data(), nullptr);
      if (events < 1) expect(events, 1, "io_getevents");
      for (int i = 0; i < events; ++i) {
        if (events_[static_cast<size_t>(i)].res != row_.bytes) give_up("asynchronous read");
      }
      done += events;
    }
  }

  io_context_t context_ = nullptr;
  std::vector<iocb> blocks_;
  std::vector<iocb *> list_;
  std::vector<io_event> events_;
};

}  // namespace

std::unique_ptr<Side> make_raw(const Row &row, const Storage &storage) {
  switch (row.kind) {
    case Kind::positioned: return std::make_unique<Positioned>(row, storage);
    case Kind::vectored: return std::make_unique<Vectored>(row, storage);
    case Kind::asynchronous: return std::make_unique<Asynchronous>(row, storage);
  }
  return nullptr;
}

}  // namespace bench
