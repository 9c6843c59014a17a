// The scenes of the failure tables, and what may be different about one.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/resource.h>
#include <sys/sysmacros.h>

#include <csignal>
#include <ctime>

#include "tests/failures/scene.hpp"

namespace support {

namespace {

const std::string header =
    block(here("00220000 0000C0FF 00000000 00000000 C7D90000 00020000 01000000 7D7C7B7A",
               "00220000 FFC00000 00000000 00000000 FBE50000 00000200 00000001 7A7B7C7D"),
          1024);

// Files

void plain(Scene &) { tzset(); }
void file(Scene &s) { s.name = s.dir.file("file", 1536); }
void known_file(Scene &s) {
  file(s), identify(s);
  s.blocks = 3;
}
void open_file(Scene &s) {
  known_file(s);
  s.flags = skgfofiWRITE;
  skgfofi(&s.se, s.ctx, s.fib, s.iov, 8, s.flags);
}
void asynchronous(Scene &s) {
  s.ctx->flags_skgfrctx |= skgfrcASYNC;
  s.ctx->flags_skgfrctx &= ~ub4{skgfrcLISTIO};
}
void open_asynchronous(Scene &s) { asynchronous(s), open_file(s); }
void stamped(Scene &s) { put(s.name, header); }
void unsized(Scene &s) { stamped(s), s.fib->lblksiz_skgfrfib = 0; }
void old_layout(Scene &) { client().old_layout = true; }
void direct(Scene &s) {
  s.ctx->flags_skgfrctx |= skgfrcDIRECT;
  s.absent = !takes_direct_io(s.dir.path("."));
}
/// Seen from the scene's own folder: a name that begins with "+" stays relative.
void new_folders(Scene &s) {
  std::filesystem::current_path(s.dir.path("."));
  s.name = "+a/b/file", s.flags = skgfrcreMKDIRS;
}
void nfs(Scene &s) {
  fault_file_system(0x6969);
  s.absent = own_mount().empty();
  if (s.absent) return;
  s.name = s.elsewhere.emplace(own_mount()).file("file", 1536);
  static const std::string mtab = s.dir.path("mtab");
  put(mtab, "a:/ " + own_mount() + " nfs rsize=32768,wsize=32768,hard 0 0\n");
  fault_redirect("/etc/mtab", mtab.c_str());
}
void soft_nfs(Scene &s) { put(s.dir.path("mtab"), "a:/ " + own_mount() + " nfs soft 0 0\n"); }
void nfs_on_root(Scene &s) { s.absent = (s.name = file_on_root()).empty(); }
/// A link to a file whose own path is longer than a name may be.
void far_target(Scene &s) {
  const std::string step = std::string(200, 'd') + "/", folder = s.elsewhere->path(step + step);
  std::filesystem::create_directories(folder + step);
  put(folder + step + "file", std::string(1536, 'x'));
  std::filesystem::create_symlink(folder + step + "file", s.name = s.elsewhere->path("link"));
}
void nfs_alone(Scene &s) { s.flags = 1; }
// Devices

void loop(Scene &s) {
  s.device.emplace(s.dir.file("disk", 8192), 512);
  s.name = s.device->path(), s.absent = s.name.empty();
  s.blocks = 15;
}
void known_loop(Scene &s) { loop(s), identify(s); }
void null_device(Scene &s) { s.name = "/dev/null"; }
void endless(Scene &s) { s.name = "/dev/zero"; }
void known_endless(Scene &s) { endless(s), identify(s), s.blocks = 1 << 25; }

/// The raw device 1:5 is bound to 1:3, which is a disk.
int answer(int fd, unsigned long request, void *argument, int *result) {
  struct stat64 status;
  struct Binding {
    int raw_minor;
    ub8 block_major, block_minor;
  } *const binding = static_cast<Binding *>(argument);
  *result = fstat64(fd, &status);
  const bool disk = request == BLKGETSIZE && status.st_rdev == makedev(1, 3);
  if (disk) *static_cast<unsigned long *>(argument) = 4096;
  const bool bound = request == 0xAC01 && binding->raw_minor == 5;
  if (bound) binding->block_major = 1, binding->block_minor = 3;
  return disk || bound;
}
void raw_device(Scene &s) {
  endless(s);
  static const std::string list = s.dir.path("partitions");
  put(list, "1 3 0 null\n");
  fault_redirect("/dev/rawctl", "/dev/zero");
  fault_redirect("/proc/partitions", list.c_str());
  fault_answer_ioctl(answer);
}

// Handles, locks, folders

void without_input(Scene &s) { known_file(s), close(STDIN_FILENO); }
void locked(Scene &s) {
  open_file(s);
  struct flock64 lock {};
  lock.l_type = F_WRLCK;
  static int other = open(s.name.c_str(), O_RDWR);
  fcntl(other, F_OFD_SETLK, &lock);
}
void held(Scene &s) { open_file(s), skgfglk(&s.se, s.ctx, s.iov, FALSE); }
void folder(Scene &s) { std::filesystem::create_directory(s.name = s.dir.path("folder")); }
void link_to_folder(Scene &s) {
  std::filesystem::create_directory_symlink(s.dir.path("."), s.name = s.dir.path("link"));
}

// Requests

template <ub4 flags>
void requesting(Scene &s) {
  const bool submits = (flags & skgfqioASYNC) != 0;
  submits ? open_asynchronous(s) : open_file(s);
  s.request_flags = flags;
}
void pending(Scene &s) {
  requesting<skgfqioASYNC | skgfqioREAD>(s);
  queue_request(s);
}
void submitting_a_list(Scene &s) {
  requesting<skgfqioASYNC | skgfqioREAD>(s);
  s.ctx->flags_skgfrctx |= skgfrcLISTIO;
}
void converting(Scene &s) {
  open_file(s);
  s.request_flags = skgfqioASYNC | skgfqioREAD;
  s.ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE};
}
// Names, signals, the process

/// One entry in each folder: a link to a folder with a file.
void tree(Scene &s) {
  s.elsewhere.emplace("/tmp").file("below", 1);
  std::filesystem::create_directory_symlink(s.elsewhere->path("."), s.dir.path("link"));
  s.name = s.dir.path("");
}
void listed(Scene &s) {
  s.name = "file";
  setenv("TARVEX_PATH", s.dir.path("").c_str(), 1);
}
void usual_signal(Scene &s) { plain(s), s.blocks = SIGUSR1; }
void handled(Scene &s) {
  usual_signal(s), std::signal(SIGUSR1, [](int) {});
}
template <ub4 before, ub4 flags>  // what a handler was registered with, and this one is
void registered(Scene &s) {
  const auto other = [](sword, void *) {};
  sslssreghdlr(&s.se, SIGUSR1, before & 0x100 ? count_signal : other, nullptr, before & 0xFF);
  s.request_flags = flags;
}
void signal_65(Scene &s) { s.blocks = 65, s.request_flags = 32; }
void flag_32(Scene &s) { s.type = {}, s.request_flags = 32; }
void no_handler(Scene &s) { s.type = {}; }
/// The loader keeps a little of a library when it lets it go for the first time.
void other_library(Scene &) {
  dlclose(dlopen("libutil.so.1", RTLD_NOW));
  fault_redirect("libaio.so.1", "libutil.so.1");
}
void low_limit(Scene &) {
  const rlimit64 limit{16, 32};
  setrlimit64(RLIMIT_NOFILE, &limit);
}
void empty(Scene &s) { s.name.clear(); }
void unset(Scene &s) { s.name = "$UNSET/file"; }
void absolute(Scene &s) { s.name = "/a//./b"; }
void unset_name(Scene &s) { s.name = "UNSET"; }
template <size_t length>
void name_of(Scene &s) {
  s.name = "/" + std::string(length - 1, 'x');
}
void far_home(Scene &s) {
  s.name = "87654321";
  setenv("TARVEX_HOME", ("/" + std::string(499, 'h')).c_str(), 1);
}
template <size_t length>
void element_of(Scene &) {
  setenv("TARVEX_PATH", std::string(length, 'd').c_str(), 1);
}
void matches(Scene &s) { s.name = s.dir.path("*"); }
void long_pattern(Scene &s) { s.name = "/xx" + std::string(254, '*') + "]"; }

// What may be different about a scene

void climbing(Scene &s) { s.name = "/a/../b"; }
void existing(Scene &s) { s.dir.file("file", 100); }
void odd(Scene &s) { s.dir.file("file", 1000); }
void cut(Scene &s) { put(s.name, "short"); }
void blank(Scene &s) { put(s.name, std::string(1024, '\0')); }
void fifo(Scene &s) { mkfifo((s.name = s.dir.path("fifo")).c_str(), 0600); }
void byte_short(Scene &s) { s.ctx->limfsiz_skgfrctx = 1023; }
void no_block(Scene &s) { s.ctx->limfsiz_skgfrctx = 511, s.blocks = unknown; }
void without_end(Scene &s) {
  s.ctx->limfsiz_skgfrctx = 1 << 30, s.blocks = unknown, s.fib->flags_skgfrfib = skgfrbNOHEADER;
}
void no_file_seal(Scene &s) { priv(s.fib)->seal_skgfrsfib = 77; }
void no_handle_seal(Scene &s) { priv(s.iov)->seal_skgfrsiov = 77; }
void forced(Scene &s) { s.fib->serr_skgfrfib = 1; }
void at_ceiling(Scene &s) { s.ctx->maxopen_skgfrctx = s.ctx->curopen_skgfrctx; }
void large(Scene &s) { s.fib->filsiz_skgfrfib = 100, s.ctx->limfsiz_skgfrctx = 50 * 512; }
void outstanding(Scene &s) { priv(s.iov)->aiopend_skgfrsiov = 2; }
void write_only(Scene &s) {
  const int fd = open(s.name.c_str(), O_WRONLY);
  dup2(fd, priv(s.iov)->fd_skgfrsiov);
  close(fd);
}
void full_folder(Scene &s) { s.dir.file("folder/file", 1); }
void no_folder(Scene &s) { s.name = s.dir.path("none/file"); }
void too_far(Scene &s) { s.blocks = 16; }
template <ub4 number>
void question(Scene &s) {
  s.blocks = number;
}
template <size_t size>
void sized(Scene &s) {
  s.fib->lblksiz_skgfrfib = size;
}

}  // namespace

// clang-format off
const std::map<std::string, Prepare> preparations = {
    {"absolute", absolute}, {"unset_name", unset_name}, {"usual_signal", usual_signal},
    {"asynchronous", asynchronous}, {"at_ceiling", at_ceiling}, {"blank", blank},
    {"blank_header", blank}, {"byte_short", byte_short}, {"climbing", climbing},
    {"converting", converting}, {"cut", cut}, {"direct", direct}, {"empty", empty},
    {"endless", endless}, {"exclusive", registered<sslssEXCLUSIVE, 0>}, {"existing", existing},
    {"far_home", far_home}, {"far_target", far_target}, {"fifo", fifo}, {"file", file},
    {"flag_32", flag_32}, {"folder", folder}, {"forced", forced}, {"full_folder", full_folder},
    {"handled", handled}, {"held", held}, {"known_endless", known_endless},
    {"known_file", known_file}, {"known_loop", known_loop}, {"large", large},
    {"link_to_folder", link_to_folder}, {"listed", listed}, {"locked", locked},
    {"long_list", element_of<512>}, {"long_name", name_of<32>}, {"long_path", element_of<511>},
    {"long_pattern", long_pattern}, {"loop", loop}, {"low_limit", low_limit}, {"matches", matches},
    {"new_folders", new_folders}, {"new_name", plain}, {new_process, plain}, {"nfs", nfs},
    {"nfs_alone", nfs_alone}, {"nfs_on_root", nfs_on_root}, {"no_block", no_block},
    {"no_file_seal", no_file_seal}, {"no_folder", no_folder}, {"no_handle_seal", no_handle_seal},
    {"no_handler", no_handler}, {"null_device", null_device},
    {"occupied", registered<0, sslssEXCLUSIVE>}, {"odd", odd}, {"old_layout", old_layout},
    {"open_asynchronous", open_asynchronous}, {"open_file", open_file},
    {"other_library", other_library}, {"outstanding", outstanding}, {"pending", pending},
    {"process", plain}, {"question_2", question<2>}, {"question_4", question<4>},
    {"question_5", question<5>}, {"raw_device", raw_device}, {"reading", requesting<skgfqioREAD>},
    {"reading_a_vector", requesting<skgfqioREAD | skgfqioVECTOR>},
    {"registered", registered<0x100, 0>}, {"second_final", registered<sslssFINAL, sslssFINAL>},
    {"signal_65", signal_65}, {"sized_0", sized<0>}, {"sized_1000", sized<1000>},
    {"sized_16896", sized<16896>}, {"soft_nfs", soft_nfs}, {"stamped", stamped},
    {"submitting_a_list", submitting_a_list},
    {"submitting_a_read", requesting<skgfqioASYNC | skgfqioREAD>},
    {"submitting_a_write", requesting<skgfqioASYNC>}, {"too_far", too_far},
    {"too_long", name_of<513>}, {"tree", tree}, {"unset", unset}, {"unsized", unsized},
    {"without_end", without_end}, {"without_input", without_input}, {"write_only", write_only}, {"writing", requesting<0>},
    {"writing_a_vector", requesting<skgfqioVECTOR>}};
// clang-format on

}  // namespace support
