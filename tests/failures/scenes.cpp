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

SCENE(process) {}
SCENE(new_process) {}
SCENE(new_name) {}
SCENE(file) { s.name = s.dir.file("file", 1536); }
/// Neither its file system nor the list of disks knows its sectors.
SCENE(untold_file) {
  file(s);
  fault_arm("statx", 0, 99, ENOSYS, FAULT_FAILS);
  static const std::string list = s.dir.path("partitions");
  put(list, "0 0 0 none\n");
  fault_redirect("/proc/partitions", list.c_str());
}
SCENE(asynchronous) {
  s.ctx->flags_skgfrctx |= skgfrcASYNC;
  s.ctx->flags_skgfrctx &= ~ub4{skgfrcLISTIO};
}
SCENE(known) { identify(s); }
SCENE(for_writing) { s.flags = skgfofiWRITE; }
SCENE(opened) { skgfofi(&s.se, s.ctx, s.fib, s.iov, 8, s.flags); }
SCENE(stamped) { put(s.name, header); }
SCENE(old_layout) { client().old_layout = true; }
SCENE(direct) {
  s.ctx->flags_skgfrctx |= skgfrcDIRECT;
  s.absent = !takes_direct_io(s.dir.path("."));
}
/// Seen from the scene's own folder: a name that begins with "+" stays relative.
SCENE(new_folders) {
  std::filesystem::current_path(s.dir.path("."));
  s.name = "+a/b/file";
  s.flags = skgfrcreMKDIRS;
}
SCENE(nfs) {
  fault_file_system(0x6969);
  s.absent = own_mount().empty();
  if (s.absent) return;
  s.name = s.elsewhere.emplace(own_mount()).file("file", 1536);
  static const std::string mtab = s.dir.path("mtab");
  put(mtab, "a:/ " + own_mount() + " nfs rsize=32768,wsize=32768,hard 0 0\n");
  fault_redirect("/etc/mtab", mtab.c_str());
}
SCENE(soft_nfs) { put(s.dir.path("mtab"), "a:/ " + own_mount() + " nfs soft 0 0\n"); }
SCENE(nfs_on_root) { s.absent = (s.name = file_on_root()).empty(); }
/// A link to a file whose own path has a byte more than a name may have.
SCENE(far_target) {
  const std::string step = std::string(200, 'd') + "/", folder = s.elsewhere->path(step + step);
  const std::string target = folder + std::string(skgfr_longest_name + 1 - folder.size(), 'f');
  std::filesystem::create_directories(folder);
  put(target, std::string(1536, 'x'));
  std::filesystem::create_symlink(target, s.name = s.elsewhere->path("link"));
}
SCENE(nfs_alone) { s.flags = 1; }
// Devices

SCENE(loop) {
  s.device.emplace(s.dir.file("disk", 8192), 512);
  s.name = s.device->path();
  s.absent = s.name.empty();
  s.blocks = 15;
}
SCENE(null_device) { s.name = "/dev/null"; }
SCENE(endless) { s.name = "/dev/zero"; }

/// The raw device of this minor number is bound to 1:3, which is a disk.
int raw_minor = 5;
unsigned long sectors_of_disk = 4096;
int answer(int fd, unsigned long request, void *argument, int *result) {
  struct stat64 status;
  struct Binding {
    int raw_minor;
    ub8 block_major, block_minor;
  } *const binding = static_cast<Binding *>(argument);
  *result = fstat64(fd, &status);
  const bool disk = request == BLKGETSIZE && status.st_rdev == makedev(1, 3);
  if (disk) *static_cast<unsigned long *>(argument) = sectors_of_disk;
  const bool bound = request == 0xAC01 && binding->raw_minor == raw_minor;
  if (bound) {
    binding->block_major = 1;
    binding->block_minor = 3;
  }
  return disk || bound;
}
SCENE(raw_device) {
  endless(s);
  static const std::string list = s.dir.path("partitions");
  put(list, "9 3 0 zero\n1 3 0 null\n");
  fault_redirect("/dev/rawctl", "/dev/zero");
  fault_redirect("/proc/partitions", list.c_str());
  fault_answer_ioctl(answer);
}
SCENE(empty_disk) { sectors_of_disk = 0; }
/// Of another driver than the raw devices' control node, so it is none of them.
SCENE(other_driver) {
  s.name = "/dev/ptmx";
  raw_minor = 2;
}

// Handles, locks, folders

SCENE(closed_input) { close(STDIN_FILENO); }
SCENE(own_lock) { skgfglk(&s.se, s.ctx, s.iov, FALSE); }
SCENE(other_lock) {
  struct flock64 lock {};
  lock.l_type = F_WRLCK;
  static int other = open(s.name.c_str(), O_RDWR);
  fcntl(other, F_OFD_SETLK, &lock);
}
SCENE(folder) { std::filesystem::create_directory(s.name = s.dir.path("folder")); }
SCENE(link_to_folder) {
  std::filesystem::create_directory_symlink(s.dir.path("."), s.name = s.dir.path("link"));
}

// Requests

/// A probe that was given up, which the kernel still holds.
SCENE(late_probe) {
  file(s);
  const int fd = open(s.name.c_str(), O_RDONLY);
  fault_watch(1);
  fault_arm("io_getevents", 0, 1, EPERM, FAULT_FAILS);
  skgfr_aiosupported(s.ctx, fd);
  fault_reset();
  fault_watch(0);
  close(fd);
}
SCENE(read) { s.request_flags |= skgfqioREAD; }
SCENE(vector) { s.request_flags |= skgfqioVECTOR; }
SCENE(submit) { s.request_flags |= skgfqioASYNC; }
SCENE(as_list) { s.ctx->flags_skgfrctx |= skgfrcLISTIO; }
SCENE(unchecked) { s.ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE}; }
SCENE(request) {
  alignas(512) static char buffer[1024];
  const skgfrbd first{buffer, 512}, second{buffer + 512, 512}, whole{buffer, 1024};
  const bool vector = (s.request_flags & skgfqioVECTOR) != 0;
  s.request.emplace(s.iov, 1, vector ? std::vector{first, second} : std::vector{whole}, vector);
  s.request->iosb->slerc_skgfriosb = &s.se;
}
SCENE(queued) { queue_request(s); }

// Names, signals, the process

/// One entry in each folder: a link to a folder with a file.
SCENE(tree) {
  s.elsewhere.emplace("/tmp").file("below", 1);
  std::filesystem::create_directory_symlink(s.elsewhere->path("."), s.dir.path("link"));
  s.name = s.dir.path("");
}
SCENE(listed) {
  s.name = "file";
  setenv("TARVEX_PATH", s.dir.path("").c_str(), 1);
}
SCENE(usual_signal) { s.blocks = SIGUSR1; }
SCENE(default_handler) {
  std::signal(SIGUSR1, [](int) {});
}
SCENE(other_handler) {
  sslssreghdlr(
      &s.se, SIGUSR1, [](sword, void *) {}, nullptr, s.number);
}
SCENE(same_handler) { sslssreghdlr(&s.se, SIGUSR1, count_signal, nullptr, 0); }
SCENE(flags) { s.request_flags = s.number; }
SCENE(no_handler) { s.type = {}; }
/// The loader keeps a little of a library when it lets it go for the first time.
SCENE(other_library) {
  dlclose(dlopen("libutil.so.1", RTLD_NOW));
  fault_redirect("libaio.so.1", "libutil.so.1");
}
SCENE(low_limit) {
  const rlimit64 limit{16, 32};
  setrlimit64(RLIMIT_NOFILE, &limit);
}
SCENE(empty) { s.name.clear(); }
SCENE(unset) { s.name = "$UNSET/file"; }
SCENE(absolute) { s.name = "/a//./b"; }
SCENE(unset_name) { s.name = "UNSET"; }
SCENE(name_of) { s.name = "/" + std::string(s.number - 1, 'x'); }
SCENE(far_home) {
  s.name = "87654321";
  setenv("TARVEX_HOME", ("/" + std::string(499, 'h')).c_str(), 1);
}
SCENE(element_of) { setenv("TARVEX_PATH", std::string(s.number, 'd').c_str(), 1); }
SCENE(matches) { s.name = s.dir.path("*"); }
SCENE(long_pattern) { s.name = "/xx" + std::string(254, '*') + "]"; }

// What may be different about a scene

SCENE(climbing) { s.name = "/a/../b"; }
SCENE(existing) { s.dir.file("file", 100); }
SCENE(odd) { s.dir.file("file", 1000); }
SCENE(cut) { put(s.name, "short"); }
SCENE(blank) { put(s.name, std::string(1024, '\0')); }
SCENE(fifo) { mkfifo((s.name = s.dir.path("fifo")).c_str(), 0600); }
SCENE(limit) { s.ctx->limfsiz_skgfrctx = s.number; }
SCENE(blocks) { s.blocks = s.number; }
SCENE(headless) { s.fib->flags_skgfrfib = skgfrbNOHEADER; }
SCENE(no_file_seal) { priv(s.fib)->seal_skgfrsfib = 77; }
SCENE(no_handle_seal) { priv(s.iov)->seal_skgfrsiov = 77; }
SCENE(forced) { s.fib->serr_skgfrfib = 1; }
SCENE(at_ceiling) { s.ctx->maxopen_skgfrctx = s.ctx->curopen_skgfrctx; }
SCENE(large) {
  s.fib->filsiz_skgfrfib = 100;
  s.ctx->limfsiz_skgfrctx = 50 * 512;
}
SCENE(outstanding) { priv(s.iov)->aiopend_skgfrsiov = 2; }
SCENE(write_only) {
  const int fd = open(s.name.c_str(), O_WRONLY);
  dup2(fd, priv(s.iov)->fd_skgfrsiov);
  close(fd);
}
SCENE(full_folder) { s.dir.file("folder/file", 1); }
SCENE(no_folder) { s.name = s.dir.path("none/file"); }
SCENE(sized) { s.fib->lblksiz_skgfrfib = s.number; }

}  // namespace

uword queue_request(Scene &s) {
  Request *const one[] = {&*s.request};  // a vector would allocate, which is counted
  return skgfqio(s.ctx, RequestList(one), s.request_flags);
}

std::map<std::string, Prepare> &scenes() {
  static std::map<std::string, Prepare> all;
  return all;
}

}  // namespace support
