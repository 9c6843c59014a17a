// The operations of the failure tables: each called once, and what it left told in a few words.
#include <dlfcn.h>
#include <fcntl.h>

#include <csignal>

#include "sysl/signal_registry.hpp"
#include "tests/failures/scene.hpp"
#include "tool/vdprep.h"

namespace support {

namespace {

using std::string;

// What operations answer beside their result.

volatile sig_atomic_t signals = 0;
text out[513];
size_t length = 99;
uword devices = 0;
slgtd_t now{};
skgfr_reach reach{};
skgfriosb *delivered = nullptr;
string found;

// What came of an operation

string number(Scene &, ub8 result) {
  return result == ~ub8{0} || result == unknown ? "unknown" : std::to_string(result);
}
const char *outcome(ub8 result) {
  const char *const words[] = {"?", "OK", "NOTFOUND", "INTERRUPT", "ERROR", "SZERR"};
  return words[result];
}

/// The first bytes of the magic numbers tell the layouts apart.
const char *layout_of(const char *block) {
  if (block[12] == *here("\x5D", "\x5A")) return "old";
  return block[28] == *here("\x7D", "\x7A") ? "current" : "none";
}
/// Size and header of the scene's file, or that there is none.
string disk(Scene &s, ub8 = 0) {
  if (!std::filesystem::exists(s.name)) return "no file";
  const string bytes = contents(s.name, 1 << 16), layout = layout_of(bytes.data());
  ub4 blocks;
  std::memcpy(&blocks, &bytes[layout == "old" ? 8 : 24], sizeof blocks);
  return std::to_string(bytes.size()) +
         (layout == "none" ? " plain" : " stamped " + std::to_string(blocks));
}
string disk_and_result(Scene &s, ub8 result) { return outcome(result) + (", " + disk(s)); }
string disk_and_position(Scene &s, ub8) {
  return disk(s) + ", position " + number(s, priv(s.iov)->offset_skgfrsiov);
}
string folder(Scene &s, ub8 result) {
  return outcome(result) + string(std::filesystem::exists(s.name) ? ", there" : ", gone");
}
string size_of_record(Scene &s, ub8 = 0) {
  return number(s, s.fib->filsiz_skgfrfib) + " of " + number(s, priv(s.fib)->lastblk_skgfrsfib);
}
string size_and_disk(Scene &s, ub8) { return size_of_record(s) + ", " + disk(s); }
string identified_as(Scene &s, ub8 result) {
  const bool sealed = priv(s.fib)->seal_skgfrsfib == skgfrSEAL;
  return outcome(result) + (sealed ? " sealed " + size_of_record(s) : string(" open"));
}
string handle(Scene &s, ub8) {
  const skgfrsiov *const handle = priv(s.iov);
  string state = handle->seal_skgfrsiov == skgfrSEAL ? "open" : "closed";
  if (handle->flags_skgfrsiov & skgfrvSYNCHRONOUS) state += " synchronous";
  if (s.iov->flags_skgfriov & skgfrvPENDING) state += " marked";
  return state + " " + std::to_string(s.ctx->curopen_skgfrctx);
}
/// The lock that another owner meets.
string lock(Scene &s, ub8) {
  const int other = open(s.name.c_str(), O_RDWR), met = lock_met(other);
  close(other);
  return met == F_WRLCK ? "exclusive" : met == F_RDLCK ? "shared" : met == F_UNLCK ? "free" : "?";
}
string answer(Scene &, ub8 result) { return result == skgfrnVECBUF ? "vector" : "copy"; }
string layout(Scene &, ub8) { return layout_of(reinterpret_cast<const char *>(out)); }
string forced(Scene &s, ub8) { return std::to_string(s.fib->serr_skgfrfib); }
string device_count(Scene &, ub8) { return std::to_string(devices); }
string reached(Scene &, ub8) {
  if (reach.bytes == 0) return "untouched";
  return std::to_string(reach.blocks) + " from " + std::to_string(reach.first) + " at " +
         std::to_string(reach.offset);
}
string limits(Scene &s, ub8) {
  return "limit " + number(s, s.ctx->limfsiz_skgfrctx) + ", slot " +
         std::to_string(s.ctx->sigwinchslot_skgfrctx) + ", asynchronous " +
         std::to_string(s.ctx->maxaio_skgfrctx);
}
/// The context as it is, but for the late probes, which may leave it at any time.
string bytes_of_context(Scene &s) {
  skgfrctx copy = *s.ctx;
  copy.qsubmit_skgfrctx = {};
  return string(reinterpret_cast<char *>(&copy), sizeof copy);
}
string end_of_context(Scene &s, ub8) {
  const string after = bytes_of_context(s);
  return after == string(after.size(), '\0') ? "ended" : after == found ? "as it was" : "else";
}
string wakeups(Scene &, ub8) { return signals ? "woken" : "not woken"; }
string support(Scene &, ub8 result) { return result ? "yes" : "no"; }
string queued(Scene &s, ub8 result) {
  const char *const states[] = {"UNTOUCHED", "PEND", "DONE", "ERROR", "LATER", "CANCEL", "BADREQ"};
  return states[s.request->iosb->status_skgfriosb] + string(result ? " refused" : "") +
         ", position " + number(s, priv(s.iov)->offset_skgfrsiov) + ", pending " +
         number(s, priv(s.iov)->aiopend_skgfrsiov);
}
string delivery(Scene &s, ub8 result) {
  return outcome(result) + string(delivered ? " request " : " nothing ") + s.request->letter() +
         ", pending " + number(s, priv(s.iov)->aiopend_skgfrsiov);
}
string matches(Scene &, ub8 result) {
  if (!result) return "nothing";
  auto *const found_ones = reinterpret_cast<skgfrdsc *>(static_cast<uintptr_t>(result));
  string list = found_ones->str_skgfrdsc ? "list" : "list without string";
  kgglk *const head = &found_ones->dev_skgfrdsc;
  for (kgglk *at = head->kgglknxt; at != head; at = at->kgglknxt) {
    const auto *const match = reinterpret_cast<skgfrstat *>(at);
    list += " " + std::to_string(match->se_skgfrstat.slercoer);
  }
  return list;
}
string usable(Scene &s, ub8 result) {
  return result ? "usable" : s.match.flags_skgfrstat ? "filled" : "untouched";
}
string found_name(Scene &, ub8) { return found.empty() ? "nothing" : found; }
string translation(Scene &, ub8) { return length ? string(out, out + length) : "nothing"; }
string value(Scene &, ub8 result) { return static_cast<int>(result) > 0 ? "some" : "none"; }
string variable(Scene &, ub8 result) {
  return result && std::getenv("NEW") ? "set" : std::getenv("NEW") ? "half" : "not set";
}
string date(Scene &, ub8) { return now.year ? "filled" : "untouched"; }
string clock(Scene &, ub8 result) { return result ? "runs" : "stands"; }
string error_text(Scene &s, ub8 result) {
  s.se.slercoer = 0;
  return string(out, out + result);
}
string registration(Scene &, ub8 slot) {
  struct sigaction action {};
  sigaction(SIGUSR1, nullptr, &action);
  const bool installed = action.sa_sigaction == sslsshandler;
  return std::to_string(static_cast<sword>(slot)) + (installed           ? " installed"
                                                     : action.sa_handler ? " kept"
                                                                         : " default");
}

/// What the tool printed, on one line, without what differs from run to run and from machine to
/// machine; and the file.
string printed(Scene &s, ub8 status) {
  const string error = std::to_string(s.injected) + ": " + std::strerror(s.injected);
  const std::pair<string, string> spellings[] = {
      {s.name, "FILE"},
      {"Linux Error: " + error, "errno"},
      {std::to_string(sizeof(skgfrctx)) + "/4 for ctx", "SIZES for ctx"},
      {std::to_string(skgfrgsz(skgfrsIOV)) + " for iov", "SIZE for iov"},
      {std::to_string(skgfrgsz(skgfrsFIB)) + " for fib", "SIZE for fib"},
      {std::to_string(skgfrgsz(skgfrsISB)) + " for ios", "SIZE for ios"},
      {"Additional information: ", "word "}};
  std::istringstream lines(testing::internal::GetCapturedStdout());
  string all = std::to_string(status);
  for (string line; std::getline(lines, line);) {
    if (line.empty() || std::isdigit(line[0])) continue;  // the trace of an open that was retried
    for (const auto &[what, with] : spellings) {
      if (const size_t at = line.find(what); at != line.npos) line.replace(at, what.size(), with);
    }
    all += " | " + line.substr(0, line.find_last_not_of(' ') + 1);
  }
  s.se = {};
  if (sslssglobuf[SIGWINCH].last_number) --s.allocated;  // the wake-up handler is the process's
  return all + " | " + disk(s);
}

// Calls of more than one line, and what goes before

ub8 run_tool(Scene &s, const char *type) {
  text program[] = "vdprep";
  text *arguments[] = {program, reinterpret_cast<text *>(const_cast<char *>(type)), txt(s.name)};
  const int status = vdprep_main(3, arguments);
  dlerror();
  dlerror();
  return static_cast<ub8>(status);
}
ub8 initialise(Scene &s) {
  skgfrwcx wait{};
  skgfrpini(&s.se, s.ctx, &wait, &client_table, nullptr);
  dlerror();  // lets go of the loader's last message
  dlerror();
  return 0;
}
ub8 wait(Scene &s, slerc *own, slerc *requests) {
  skgfrwcx self{getpid()};
  s.request->iosb->slerc_skgfriosb = requests;
  return skgfrwat(own, s.ctx, 1, &delivered, &self, 100);
}
ub8 post(Scene &s) {
  skgfrwcx self{getpid()};
  skgfrpst(&s.se, s.ctx, &self, 0);
  return 0;
}
ub8 build_header(Scene &s) {
  alignas(512) static char block[512];
  skgfrfhblk(&s.se, s.ctx, block, 9, 512, skgfrfVTG);
  std::copy_n(block, sizeof block, out);
  return 0;
}
void *client_memory(void *, size_t size, const char *) {
  if (fault_answer("client_memory", 0) != 0) return nullptr;
  static char room[1 << 16];
  static size_t used = 0;
  void *const piece = room + used;
  used += (size + 15) & ~size_t{15};
  return piece;
}
boolean take(void *, const text *path, size_t) {
  const int watching = fault_watch(0);
  found += std::strrchr(reinterpret_cast<const char *>(path), '/');
  fault_watch(watching);
  return TRUE;
}

void capture(Scene &) { testing::internal::CaptureStdout(); }
void clear_record(Scene &s) { s.se = {}; }
void reserve(Scene &) { found.reserve(100); }
void keep_context(Scene &s) { found = bytes_of_context(s); }
void know_position(Scene &s) {
  if (priv(s.iov)->seal_skgfrsiov == skgfrSEAL) priv(s.iov)->offset_skgfrsiov = 4;
}
void set_path(Scene &s) { s.match.path_skgfrstat = txt(s.name); }
void fail_before(Scene &s) { s.se = {1, ENOENT, {0, 0, 0}, 0, {}}; }
void listen(Scene &s) { sslssreghdlr(&s.other_se, SIGWINCH, count_signal, nullptr, 0); }
void read_header(Scene &s) { contents(s.name).copy(reinterpret_cast<char *>(out), 512); }

/// A number for every result; 0 where there is none.
template <class Call>
ub8 result_of(Call call) {
  if constexpr (std::is_void_v<decltype(call())>) {
    call();
    return 0;
  } else if constexpr (std::is_pointer_v<decltype(call())>) {
    return reinterpret_cast<uintptr_t>(call());
  } else {
    return static_cast<ub8>(call());
  }
}
#define CALL(...) [](Scene &s) { return result_of([&] { return __VA_ARGS__; }); }
#define NAME txt(s.name), s.name.size()

const NamedOperation operations[] = {
    // block 0, files
    {"skgfrfhblk", build_header, layout},
    {"skgfrgbsz", CALL(skgfrgbsz(&s.se, s.ctx, skgfrfVTG, out)), number, read_header},
    {"skgfrupd_blk0_v10", CALL(skgfrupd_blk0_v10(&s.se, s.ctx, s.iov)), disk_and_position,
     know_position},
    {"skgfifi", CALL(skgfifi(&s.se, s.ctx, s.fib, NAME)), identified_as},
    {"skgfgfsz", CALL(skgfgfsz(&s.se, s.ctx, NAME)), number},
    {"skgfglbsz", CALL(skgfglbsz(&s.se, s.ctx, NAME, s.type)), number},
    {"skgfgb1off", CALL(skgfgb1off(&s.se, NAME)), number},
    {"skgfr_find_reach", CALL(skgfr_find_reach(&s.se, s.ctx, s.fib, &reach)), reached},
    {"skgfr_sector_size", CALL(skgfr_sector_size(&s.se, s.ctx, NAME)), number},
    {"skgfrcre",
     CALL(skgfrcre(&s.se, s.ctx, NAME, s.type, s.fib->lblksiz_skgfrfib, s.blocks, s.flags)), disk},
    {"skgfrsz", CALL(skgfrsz(&s.se, s.ctx, s.fib, s.blocks)), size_and_disk},
    {"skgfrfb", CALL(skgfrfb(&s.se, s.ctx, s.fib)), size_of_record},
    {"skgfrser", CALL(skgfrser(&s.se, s.ctx, s.fib, 2)), forced},
    {"skgfrdel", CALL(skgfrdel(&s.se, s.ctx, NAME, s.type)), disk_and_result},
    {"skgfrddel", CALL(skgfrddel(&s.se, NAME)), folder},
    {"skgfdlndv", CALL(skgfdlndv(&s.se, s.ctx, s.fib, &devices)), device_count},
    // handles, locks
    {"skgfofi", CALL(skgfofi(&s.se, s.ctx, s.fib, s.iov, 8, s.flags)), handle},
    {"skgfcfi", CALL(skgfcfi(&s.se, s.ctx, s.iov)), handle},
    {"skgfsync", CALL(skgfsync(&s.se, s.ctx, s.iov)), handle},
    {"skgfask", CALL(skgfask(&s.se, s.ctx, s.iov, static_cast<skgfrq>(s.blocks))), answer},
    {"skgfglk", CALL(skgfglk(&s.se, s.ctx, s.iov, FALSE)), lock},
    {"skgfglk_shared", CALL(skgfglk(&s.se, s.ctx, s.iov, TRUE)), lock},
    {"skgfrlk", CALL(skgfrlk(&s.se, s.ctx, s.iov)), lock},
    // the context, requests
    {"skgfrpini", initialise, limits},
    {"skgfr_end_context", CALL(skgfr_end_context(&s.se, s.ctx)), end_of_context, keep_context},
    {"skgfrofl", CALL(skgfrofl(&s.se, s.ctx, 0) != 0), number},
    {"skgfr_aiosupported", CALL(skgfr_aiosupported(s.ctx, priv(s.iov)->fd_skgfrsiov)), support,
     clear_record},
    {"skgfrpst", post, wakeups, listen},
    {"skgfqio", CALL(queue_request(s)), queued},
    {"skgfrwat", CALL(wait(s, &s.se, &s.other_se)), delivery, clear_record},
    {"completion", CALL(wait(s, &s.other_se, &s.se)), delivery, clear_record},
    // discovery, search
    {"skgfrdscdevs",
     CALL(skgfrdscdevs(&s.se, s.ctx, txt(s.name), nullptr, client_memory, nullptr, FALSE)),
     matches},
    {"skgfrdevstat", CALL(skgfrdevstat(&s.se, s.ctx, &s.match, s.flags)), usable, set_path},
    {"skgfrsfe", CALL(skgfrsfe(&s.se, NAME, s.flags, nullptr, take)), found_name, reserve},
    // system services
    {"sltln", CALL(sltln(&s.se, NAME, out, sizeof out, &length)), translation},
    {"slnrm", CALL(slnrm(&s.se, NAME, out, sizeof out, &length)), translation},
    {"slzgetevar", CALL(slzgetevar(&s.se, NAME, out, 8, 0)), value},
    {"slzsetevar", CALL(slzsetevar(&s.se, txt("NEW"), 3, txt("value"), 5)), variable},
    {"slgtd", CALL(slgtd(&s.se, &now)), date},
    {"slgcs", CALL(slgcs(&s.se)), clock},
    {"slcgems", CALL(slcgems(&s.se, out, 64)), error_text, fail_before},
    {"sslssreghdlr",
     CALL(sslssreghdlr(&s.se, static_cast<sword>(s.blocks), s.type ? count_signal : nullptr,
                       nullptr, s.request_flags)),
     registration},
    // the tool
    {"vdprep_vtg", CALL(run_tool(s, "vtg")), printed, capture},
    {"vdprep_kvs", CALL(run_tool(s, "kvs")), printed, capture}};

}  // namespace

void count_signal(sword, void *) { signals = signals + 1; }

const NamedOperation &operation_named(const string &name) {
  const auto named = [&](const NamedOperation &one) { return one.name == name; };
  return *std::find_if(std::begin(operations), std::end(operations), named);
}

}  // namespace support
