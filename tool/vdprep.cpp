// The format flow: measures a file, makes a registry file whole, writes block 0 and reads the
// verdict.
//
// One function per group of steps; each answers with the exit status, and the first that is not 0
// ends the run. What the layer asks of the tool is answered in callbacks.cpp.
#include "tool/vdprep.h"

#include <cstring>

#include "skgfr/client.h"
#include "sysl/text.hpp"
#include "tool/records.hpp"

namespace {

using vdprep::allocate;
using vdprep::Records;

enum Status : sb4 { done = 0, not_found = 1, bad_usage = 2, no_memory = 3, layer_failed = 4 };

constexpr size_t plain_block_size = 512;  // of a file taken as it is
constexpr size_t registry_block_size = 4096;
constexpr ub8 unknown_size = ~ub8{0};
constexpr ub4 header_block = 1;  // block 1 of a file without a header is its first
constexpr ub4 effectless_queue_flag =
    0x08;  // part of the flags that the queue has always been given

struct FileType {
  const char *keyword;
  skgfrf type;
  size_t block_size;
};
constexpr FileType file_types[] = {{"vtg", skgfrfVTG, plain_block_size},
                                   {"kvs", skgfrfKVS, registry_block_size}};

// Two wordings of one message, kept apart because scripts match them.
constexpr char unexpected_before_resize[] = "vdprep:Recvd unexpected error %d from skgfifi\n";
constexpr char unexpected[] = "vdprep: Received unexpected error %d from skgfifi\n";

/// All state of one run.
struct Run {
  slerc se{};
  vdprepctx callbacks{};
  const FileType *file_type = nullptr;
  text *name = nullptr;
  size_t name_length = 0;
  ub8 size = 0;  // in bytes, as measured before any resize
  Records records;

  skgcbctx *callback_context() { return reinterpret_cast<skgcbctx *>(&callbacks); }
  const char *name_chars() const { return sysl::chars(name); }
  void begin() { se.slercoer = 0; }
  bool failed() const { return se.slercoer != 0; }

  Status report(const char *function) {
    vdprep_slerc(&se, sysl::texts(const_cast<char *>(function)));
    return layer_failed;
  }
};

Status parse(Run &run, sb4 argc, text **argv) {
  if (argc != 3) {
    slzprintf("Usage: vdprep <filetype> <filename>\n");
    return bad_usage;
  }
  const char *const keyword = sysl::chars(argv[1]);
  for (const FileType &known : file_types) {
    if (std::strcmp(keyword, known.keyword) == 0) run.file_type = &known;
  }
  if (!run.file_type) {
    slzprintf("vdprep: unknown file type %s\n", keyword);
    return bad_usage;
  }
  run.name = argv[2];
  run.name_length = std::strlen(run.name_chars());
  run.callbacks.tracing_vdprepctx = TRUE;
  run.callbacks.kvs_vdprepctx = run.file_type->type == skgfrfKVS;
  return done;
}

template <class Record>
Status allocate_named(Record *&record, size_t size, const char *name) {
  if (allocate(record, size)) return done;
  slzprintf("vdprep: Unable to allocate %d for %s\n", static_cast<int>(size), name);
  return no_memory;
}

Status allocate_records(Run &run) {
  Records &records = run.records;
  const bool context = allocate(records.context, sizeof(skgfrctx));
  const bool wait_context = allocate(records.waitcx, sizeof(skgfrwcx));
  if (!context || !wait_context) {
    slzprintf("vdprep: Unable to allocate %d/%d for ctx\n", static_cast<int>(sizeof(skgfrctx)),
              static_cast<int>(sizeof(skgfrwcx)));
    return no_memory;
  }
  Status status = allocate_named(records.iov, skgfrgsz(skgfrsIOV), "iov");
  if (status == done) status = allocate_named(records.fib, skgfrgsz(skgfrsFIB), "fib");
  if (status == done) status = allocate_named(records.iostat, skgfrgsz(skgfrsISB), "iostat");
  return status;
}

Status initialise(Run &run) {
  Records &records = run.records;
  run.begin();
  skgfrpini(&run.se, records.context, records.waitcx, &vdprep_skgcb, run.callback_context());
  if (run.failed()) {
    slzprintf("vdprep: failure at context init\n");
    return run.report("skgfrpini");
  }
  *records.waitcx = skgfrwcx{};
  run.begin();
  skgfrsini(&run.se, records.context, records.waitcx, &vdprep_skgcb, run.callback_context());
  if (run.failed()) {
    slzprintf("vdprep: failure at context sinit\n");
    return run.report("skgfrsini");
  }
  return done;
}

ub8 size_now(Run &run) {
  run.begin();
  return skgfgfsz(&run.se, run.records.context, run.name, run.name_length);
}

/// A size that cannot be found shows again, with its reason, when the file is identified.
Status measure(Run &run) {
  run.size = size_now(run);
  return done;
}

Status identify(Run &run, const char *unexpected_message) {
  skgfrr result = skgfrrINTERRUPT;
  while (result == skgfrrINTERRUPT) {
    run.begin();
    result = skgfifi(&run.se, run.records.context, run.records.fib, run.name, run.name_length);
  }
  if (result == skgfrrOK) return done;
  if (result == skgfrrNOTFOUND) {
    slzprintf("vdprep: File %s not found\n", run.name_chars());
    return not_found;
  }
  slzprintf(unexpected_message, result);
  return run.report("skgfifi");
}

Status open(Run &run) {
  run.begin();
  skgfofi(&run.se, run.records.context, run.records.fib, run.records.iov, 0,
          skgfofiWRITE | skgfofiDSYNC2);
  if (!run.failed()) return done;
  slzprintf("vdprep: failure at open\n");
  return run.report("skgfofi");
}

/// Identifies the file as a plain one without a header, so that its block 1 is its beginning, and
/// opens it.
Status open_plain(Run &run, size_t block_size, const char *unexpected_message) {
  skgfrfib *const fib = run.records.fib;
  fib->lblksiz_skgfrfib = block_size;
  fib->ftype_skgfrfib = skgfrfOSFILE;
  fib->flags_skgfrfib |= skgfrbNOHEADER;
  const Status status = identify(run, unexpected_message);
  return status == done ? open(run) : status;
}

/// Closes the file; false when that failed.
bool close(Run &run) {
  run.begin();
  skgfcfi(&run.se, run.records.context, run.records.iov);
  return !run.failed();
}

/// Extends the file to the next registry block. A size that is unknown, too large to be said in blocks
/// or no longer the file's must never cut a file: then nothing is resized. What the file gains from here
/// to the resize itself would still be lost, so nothing comes in between.
bool resize(Run &run, ub8 new_size) {
  const ub8 blocks = new_size / plain_block_size;
  if (run.size == unknown_size || blocks > skgfrUNKNOWN) return false;
  if (size_now(run) != run.size) return false;
  run.begin();
  skgfrsz(&run.se, run.records.context, run.records.fib, static_cast<ub4>(blocks));
  return !run.failed();
}

/// Identification takes a regular file only when its size is a whole number of blocks.
Status make_registry_file_whole(Run &run) {
  const ub8 remainder = run.size % registry_block_size;
  if (run.file_type->type != skgfrfKVS || remainder == 0) return done;

  const Status status = open_plain(run, plain_block_size, unexpected_before_resize);
  if (status != done) return status;
  const ub8 new_size = run.size + registry_block_size - remainder;
  if (!resize(run, new_size)) {
    slzprintf("vdprep: Failure trying to resize KVS file ");
    slzprintf("from %lld bytes to %lld bytes\n", static_cast<long long>(run.size),
              static_cast<long long>(new_size));
  }
  if (!close(run)) slzprintf("vdprep: Unexpected error closing KVS file\n");
  return done;
}

Status open_for_writing(Run &run) { return open_plain(run, run.file_type->block_size, unexpected); }

/// Builds block 0 in its area. The header counts the blocks behind it, from the size measured
/// first.
Status build_header(Run &run) {
  const size_t block_size = run.file_type->block_size;
  const Status status =
      allocate_named(run.records.block0buf, block_size + vdprep::area_alignment, "block0");
  if (status != done) return status;

  const ub4 blocks = static_cast<ub4>(run.size / block_size);
  run.begin();
  skgfrfhblk(&run.se, run.records.context, run.records.block0(), blocks ? blocks - 1 : 0,
             block_size, run.file_type->type);
  if (!run.failed()) return done;
  slzprintf("vdprep: failure initializing the header block\n");
  return run.report("skgfrfhblk");
}

/// Writes exactly one block: nothing behind block 0 changes, and block 0 is either old or new.
Status write_header(Run &run) {
  skgfrrq request{};
  kgglk requests;
  skgfr_make_list(&requests);
  skgfr_append(&requests, &request);
  request.iov_skgfrrq = run.records.iov;
  request.iosb_skgfrrq = run.records.iostat;
  request.blockno_skgfrrq = header_block;
  request.bufspec_skgfrrq.buffer_skgfrrq = skgfrbd{run.records.block0(), run.file_type->block_size};

  run.begin();
  run.records.iostat->slerc_skgfriosb = &run.se;
  if (skgfqio(run.records.context, &requests, effectless_queue_flag | skgfqioPREPARE) == 0) {
    return done;
  }
  slzprintf("vdprep: Unexpected error queueing IO\n");
  return run.report("skgfqio");
}

Status stamp(Run &run) {
  Status status = build_header(run);
  if (status == done) status = write_header(run);
  if (status != done) {
    close(run);
    return status;
  }
  if (close(run)) return done;
  slzprintf("vdprep: Unexpected error closing file\n");
  return run.report("skgfcfi");
}

/// Identifies the file with its real type and header.
Status verify(Run &run) {
  skgfrfib *const fib = run.records.fib;
  std::memset(fib, 0, skgfrgsz(skgfrsFIB));
  std::memset(run.records.iov, 0, skgfrgsz(skgfrsIOV));
  fib->lblksiz_skgfrfib = run.file_type->block_size;
  fib->ftype_skgfrfib = run.file_type->type;
  const Status status = identify(run, unexpected);
  if (status == done) slzprintf("vdprep: successfully initialized file %s\n", run.name_chars());
  return status;
}

using Step = Status (*)(Run &);
constexpr Step steps[] = {allocate_records, initialise, measure, make_registry_file_whole,
                          open_for_writing, stamp,      verify};

}  // namespace

sb4 vdprep_main(sb4 argc, text **argv) {
  Run run;
  Status status = parse(run, argc, argv);
  for (const Step step : steps) {
    if (status != done) break;
    status = step(run);
  }
  return status;
}
