// The operations of the failure tables: each called once, and what it left told in a few words.
#include <dlfcn.h>
#include <fcntl.h>

#include <csignal>

#include "sysl/signal_registry.hpp"
#include "tests/failures/scene.hpp"
#include "tool/vdprep.h"

namespace support {

namespace {

// The first bytes of the magic numbers.
const char old_magic = *here("\x5D", "\x5A"), current_magic = *here("\x7D", "\x7A");

using std::string;

volatile sig_atomic_t signals = 0;

const char *word(skgfrr result) {
  const char *const words[] = {"?", "OK", "NOTFOUND", "INTERRUPT", "ERROR", "SZERR"};
  return words[result];
}
string word(ub8 number) {
  return number == ~ub8{0} || number == unknown ? "unknown" : std::to_string(number);
}
text *name(Scene &s) { return txt(s.name); }

/// Size and header of the scene's file, or that there is none.
string on_disk(const Scene &s) {
  if (!std::filesystem::exists(s.name)) return "no file";
  const string bytes = contents(s.name, 1 << 16);
  const bool old = bytes[12] == old_magic, stamped = old || bytes[28] == current_magic;
  ub4 blocks;
  std::memcpy(&blocks, &bytes[old ? 8 : 24], sizeof blocks);
  return std::to_string(bytes.size()) + (stamped ? " stamped " + std::to_string(blocks) : " plain");
}
string facts_of(Scene &s) {
  return word(ub8{s.fib->filsiz_skgfrfib}) + " of " + word(ub8{priv(s.fib)->lastblk_skgfrsfib});
}
string identified_as(Scene &s, skgfrr result) {
  const bool sealed = priv(s.fib)->seal_skgfrsfib == skgfrSEAL;
  return word(result) + (sealed ? " sealed " + facts_of(s) : string(" open"));
}
string handle(Scene &s) {
  const skgfrsiov *const handle = priv(s.iov);
  string state = handle->seal_skgfrsiov == skgfrSEAL ? "open" : "closed";
  if (handle->flags_skgfrsiov & skgfrvSYNCHRONOUS) state += " synchronous";
  if (s.iov->flags_skgfriov & skgfrvPENDING) state += " marked";
  return state + " " + std::to_string(s.ctx->curopen_skgfrctx);
}
/// The lock that another owner meets.
string met_lock(Scene &s) {
  const int other = open(s.name.c_str(), O_RDWR);
  struct flock64 lock {};
  lock.l_type = F_WRLCK;
  const bool asked = fcntl(other, F_OFD_GETLK, &lock) == 0;
  close(other);
  return !asked ? "?" : lock.l_type == F_WRLCK ? "exclusive" : lock.l_type ? "free" : "shared";
}

template <auto call>  // of an operation that answers with a result
string by_result(Scene &s) {
  return word(s.during([&] { return call(s); }));
}

string identify_file(Scene &s) {
  return identified_as(
      s, s.during([&] { return skgfifi(&s.se, s.ctx, s.fib, name(s), s.name.size()); }));
}
string create(Scene &s) {
  s.during([&] {
    return skgfrcre(&s.se, s.ctx, name(s), s.name.size(), s.type, s.fib->lblksiz_skgfrfib, s.blocks,
                    s.flags),
           0;
  });
  return on_disk(s);
}
string resize(Scene &s) {
  s.during([&] { return skgfrsz(&s.se, s.ctx, s.fib, s.blocks), 0; });
  return facts_of(s) + ", " + on_disk(s);
}
string recompute(Scene &s) {
  s.during([&] { return skgfrfb(&s.se, s.ctx, s.fib), 0; });
  return facts_of(s);
}
string open_handle(Scene &s) {
  s.during([&] { return skgfofi(&s.se, s.ctx, s.fib, s.iov, 8, s.flags), 0; });
  return handle(s);
}
template <auto call>  // of an operation on the handle
string on_handle(Scene &s) {
  s.during([&] { return call(&s.se, s.ctx, s.iov), 0; });
  return handle(s);
}
template <auto call, boolean... share>
string locking(Scene &s) {
  s.during([&] { return call(&s.se, s.ctx, s.iov, share...), 0; });
  return met_lock(s);
}
string ask(Scene &s) {
  const auto question = static_cast<skgfrq>(s.blocks);
  const skgfrn answer = s.during([&] { return skgfask(&s.se, s.ctx, s.iov, question); });
  return answer == skgfrnVECBUF ? "vector" : "copy";
}
string remove_folder(Scene &s) {
  const skgfrr result = s.during([&] { return skgfrddel(&s.se, name(s), s.name.size()); });
  return word(result) + string(std::filesystem::exists(s.name) ? ", there" : ", gone");
}
string remove_file(Scene &s) {
  const skgfrr result =
      s.during([&] { return skgfrdel(&s.se, s.ctx, name(s), s.name.size(), s.type); });
  return word(result) + string(", ") + on_disk(s);
}
string build_header(Scene &s) {
  alignas(512) char block[512]{};
  s.during([&] { return skgfrfhblk(&s.se, s.ctx, block, 9, 512, skgfrfVTG), 0; });
  return block[12] == old_magic ? "old" : block[28] == current_magic ? "current" : "none";
}
string upgrade(Scene &s) {
  if (priv(s.iov)->seal_skgfrsiov == skgfrSEAL) priv(s.iov)->offset_skgfrsiov = 4;
  s.during([&] { return skgfrupd_blk0_v10(&s.se, s.ctx, s.iov), 0; });
  return on_disk(s) + ", position " + word(ub8{priv(s.iov)->offset_skgfrsiov});
}
string initialise(Scene &s) {
  skgfrwcx wait{};
  s.during([&] {
    skgfrpini(&s.se, s.ctx, &wait, &client_table, nullptr);
    return dlerror(), dlerror();  // lets go of the loader's last message
  });
  const skgfrctx *const ctx = s.ctx;
  return "limit " + word(ctx->limfsiz_skgfrctx) + ", slot " +
         word(ub8(ctx->sigwinchslot_skgfrctx)) + ", asynchronous " +
         word(ub8{ctx->maxaio_skgfrctx});
}
string post(Scene &s) {
  skgfrwcx self{getpid()};
  sslssreghdlr(&s.other_se, SIGWINCH, count_signal, nullptr, 0);
  s.during([&] { return skgfrpst(&s.se, s.ctx, &self, 0), 0; });
  return signals ? "woken" : "not woken";
}
string supports(Scene &s) {
  const int fd = priv(s.iov)->fd_skgfrsiov;
  s.se = {};
  return s.during([&] { return skgfr_aiosupported(s.ctx, fd); }) ? "yes" : "no";
}

alignas(512) char buffer[1024];
skgfrbd parts[] = {{buffer, 512}, {buffer + 512, 512}};

string queue(Scene &s) {
  const uword result = s.during([&] { return queue_request(s); });
  const char *const states[] = {"UNTOUCHED", "PEND", "DONE", "ERROR", "LATER", "CANCEL", "BADREQ"};
  const skgfrsiov *const handle = priv(s.iov);
  return states[s.iosb->status_skgfriosb] + string(result ? " refused" : "") + ", position " +
         word(ub8{handle->offset_skgfrsiov}) + ", pending " + word(ub8{handle->aiopend_skgfrsiov});
}
template <bool request_record>
string wait(Scene &s) {
  skgfriosb *iosb = nullptr;
  skgfrwcx self{getpid()};
  s.se = {};
  s.iosb->slerc_skgfriosb = request_record ? &s.se : &s.other_se;
  slerc *const own = request_record ? &s.other_se : &s.se;
  const skgfrr result = s.during([&] { return skgfrwat(own, s.ctx, 1, &iosb, &self, 100); });
  return word(result) + string(iosb ? " request " : " nothing ") +
         "?PDELCB"[s.iosb->status_skgfriosb] + ", pending " +
         word(ub8{priv(s.iov)->aiopend_skgfrsiov});
}

void *client_memory(void *, size_t size, const char *) {
  if (fault_meets("client_memory")) return nullptr;
  static char room[1 << 16];
  static size_t used = 0;
  void *const piece = room + used;
  used += (size + 15) & ~size_t{15};
  return piece;
}
string discover(Scene &s) {
  skgfrdsc *const found = s.during(
      [&] { return skgfrdscdevs(&s.se, s.ctx, name(s), nullptr, client_memory, nullptr, FALSE); });
  if (!found) return "nothing";
  string list = found->str_skgfrdsc ? "list" : "list without string";
  for (kgglk *at = found->dev_skgfrdsc.kgglknxt; at != &found->dev_skgfrdsc; at = at->kgglknxt) {
    const auto *const match = reinterpret_cast<skgfrstat *>(at);
    list += " " + std::to_string(match->se_skgfrstat.slercoer);
  }
  return list;
}
string examine(Scene &s) {
  skgfrstat match{};
  match.path_skgfrstat = name(s);
  const boolean nfs_only = s.flags;
  const boolean usable = s.during([&] { return skgfrdevstat(&s.se, s.ctx, &match, nfs_only); });
  return usable ? "usable" : match.flags_skgfrstat ? "filled" : "untouched";
}
boolean take(void *found, const text *path, size_t) {
  const int watching = fault_watch(0);
  *static_cast<string *>(found) += std::strrchr(reinterpret_cast<const char *>(path), '/');
  return fault_watch(watching), TRUE;
}
string search(Scene &s) {
  string found;
  found.reserve(100);
  s.during([&] { return skgfrsfe(&s.se, name(s), s.name.size(), s.flags, &found, take), 0; });
  return found.empty() ? "nothing" : found;
}

template <auto call>
string translate(Scene &s) {
  text out[513];
  size_t length = 99;
  s.during([&] { return call(&s.se, name(s), s.name.size(), out, sizeof out, &length), 0; });
  return length ? string(out, out + length) : "nothing";
}
string get_variable(Scene &s) {
  text value[8];
  const auto get = [&] {
    return slzgetevar(&s.se, name(s), s.name.size(), value, sizeof value, 0);
  };
  return s.during(get) > 0 ? "some" : "none";
}
string set_variable(Scene &s) {
  const int set = s.during([&] { return slzsetevar(&s.se, txt("NEW"), 3, txt("value"), 5); });
  return set && std::getenv("NEW") ? "set" : std::getenv("NEW") ? "half" : "not set";
}
string date(Scene &s) {
  slgtd_t now{};
  s.during([&] { return slgtd(&s.se, &now); });
  return now.year ? "filled" : "untouched";
}
string clock_runs(Scene &s) {
  return s.during([&] { return slgcs(&s.se); }) ? "runs" : "stands";
}
string error_text(Scene &s) {
  s.se = {1, ENOENT, {0, 0, 0}, 0, {}};
  text out[64];
  const size_t length = s.during([&] { return slcgems(&s.se, out, sizeof out); });
  s.se.slercoer = 0;
  return string(out, out + length);
}
string register_signal(Scene &s) {
  const sslsshdl handler = s.type ? count_signal : nullptr;
  const sword signo = static_cast<sword>(s.blocks);
  const auto add = [&] { return sslssreghdlr(&s.se, signo, handler, nullptr, s.request_flags); };
  const sword slot = s.during(add);
  struct sigaction now {};
  sigaction(SIGUSR1, nullptr, &now);
  const bool installed = now.sa_sigaction == sslsshandler;
  return std::to_string(slot) + (installed ? " installed" : now.sa_handler ? " kept" : " default");
}
string read_size(Scene &s) {
  string bytes = contents(s.name);
  return word(ub8{s.during([&] { return skgfrgbsz(&s.se, s.ctx, skgfrfVTG, bytes.data()); })});
}
string force_failures(Scene &s) {
  s.during([&] { return skgfrser(&s.se, s.ctx, s.fib, 2), 0; });
  return std::to_string(s.fib->serr_skgfrfib);
}
string list_devices(Scene &s) {
  uword devices = 0;
  s.during([&] { return skgfdlndv(&s.se, s.ctx, s.fib, &devices); });
  return std::to_string(devices);
}

string replaced(string line, const string &what, const string &with) {
  const size_t at = what.empty() ? line.npos : line.find(what);
  return at == line.npos ? line : line.replace(at, what.size(), with);
}

/// The tool's status and what it prints, on one line, without what differs from run to run and from
/// machine to machine; and the file.
string run_tool(Scene &s, const string &type) {
  const string program = "vdprep";
  const string error = std::to_string(s.injected) + ": " + std::strerror(s.injected);
  const string sizes = std::to_string(sizeof(skgfrctx)) + "/4";
  text *arguments[] = {txt(program), txt(type), name(s)};
  testing::internal::CaptureStdout();
  const int status = s.during([&] {
    const int result = vdprep_main(3, arguments);
    return dlerror(), dlerror(), result;
  });
  if (sslssglobuf[SIGWINCH].last_number) --s.allocated;  // the wake-up handler is the process's
  std::istringstream lines(testing::internal::GetCapturedStdout());
  string all = std::to_string(status);
  for (string line; std::getline(lines, line);) {
    if (line.empty() || std::isdigit(line[0])) continue;  // the trace of an open that was retried
    line = replaced(replaced(line, s.name, "FILE"), "Linux Error: " + error, "errno");
    line = replaced(line, sizes + " for ctx", "SIZES for ctx");
    line = replaced(line, std::to_string(skgfrgsz(skgfrsIOV)) + " for iov", "SIZE for iov");
    line = replaced(line, std::to_string(skgfrgsz(skgfrsFIB)) + " for fib", "SIZE for fib");
    line = replaced(line, std::to_string(skgfrgsz(skgfrsISB)) + " for ios", "SIZE for ios");
    line = replaced(line, "Additional information: ", "word ");
    all += " | " + line.substr(0, line.find_last_not_of(' ') + 1);
  }
  s.se = {};
  return all + " | " + on_disk(s);
}
string run_vtg(Scene &s) { return run_tool(s, "vtg"); }
string run_kvs(Scene &s) { return run_tool(s, "kvs"); }

ub8 file_size(Scene &s) { return skgfgfsz(&s.se, s.ctx, name(s), s.name.size()); }
ub8 block_size(Scene &s) {
  const size_t size = skgfglbsz(&s.se, s.ctx, name(s), s.name.size(), s.type);
  return size == ~size_t{0} ? ~ub8{0} : size;
}
ub8 block1(Scene &s) {
  const size_t size = skgfgb1off(&s.se, name(s), s.name.size());
  return size == ~size_t{0} ? ~ub8{0} : size;
}
ub8 raise_limit(Scene &s) { return skgfrofl(&s.se, s.ctx, 0) != 0; }

}  // namespace

void count_signal(sword, void *) { signals = signals + 1; }

uword queue_request(Scene &s) {
  skgfrrq request{};
  kgglk head{&request.link_skgfrrq, &request.link_skgfrrq};
  request.link_skgfrrq = {&head, &head};
  request.iov_skgfrrq = s.iov, request.iosb_skgfrrq = s.iosb, request.blockno_skgfrrq = 1;
  request.bufspec_skgfrrq.buffer_skgfrrq = {buffer, 1024};
  if (s.request_flags & skgfqioVECTOR) request.bufspec_skgfrrq.bufvec_skgfrrq = {parts, 2};
  s.iosb->slerc_skgfriosb = &s.se, s.iosb->time_skgfriosb = &s.time;
  return skgfqio(s.ctx, &head, s.request_flags);
}

const std::map<string, Run> operations = {{"skgfifi", identify_file},
                                          {"skgfgfsz", by_result<file_size>},
                                          {"skgfglbsz", by_result<block_size>},
                                          {"skgfgb1off", by_result<block1>},
                                          {"skgfrofl", by_result<raise_limit>},
                                          {"skgfrcre", create},
                                          {"skgfrsz", resize},
                                          {"skgfrfb", recompute},
                                          {"skgfofi", open_handle},
                                          {"skgfcfi", on_handle<skgfcfi>},
                                          {"skgfsync", on_handle<skgfsync>},
                                          {"skgfask", ask},
                                          {"skgfglk", locking<skgfglk, FALSE>},
                                          {"skgfglk_shared", locking<skgfglk, TRUE>},
                                          {"skgfrlk", locking<skgfrlk>},
                                          {"skgfrdel", remove_file},
                                          {"skgfrddel", remove_folder},
                                          {"skgfrfhblk", build_header},
                                          {"skgfrupd_blk0_v10", upgrade},
                                          {"skgfrpini", initialise},
                                          {"skgfr_aiosupported", supports},
                                          {"skgfrpst", post},
                                          {"skgfqio", queue},
                                          {"skgfrwat", wait<false>},
                                          {"completion", wait<true>},
                                          {"skgfrdscdevs", discover},
                                          {"skgfrdevstat", examine},
                                          {"skgfrsfe", search},
                                          {"slzgetevar", get_variable},
                                          {"skgfrgbsz", read_size},
                                          {"skgfrser", force_failures},
                                          {"skgfdlndv", list_devices},
                                          {"sltln", translate<sltln>},
                                          {"slnrm", translate<slnrm>},
                                          {"slzsetevar", set_variable},
                                          {"slgtd", date},
                                          {"slgcs", clock_runs},
                                          {"slcgems", error_text},
                                          {"sslssreghdlr", register_signal},
                                          {"vdprep_vtg", run_vtg},
                                          {"vdprep_kvs", run_kvs}};

}  // namespace support
