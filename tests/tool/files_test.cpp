// The program on every kind of file, by every kind of name, in every kind of process.
#include <sys/stat.h>

#include <regex>

#include "tests/tool/program.hpp"

using namespace support;

namespace {

struct Plans {
  std::string vtg, kvs;
};

/// A file f of so many bytes in a folder with a folder m. `place` is a device to use instead, a
/// sector size for a loop device over f, or a command that makes something else of f. `how` runs in
/// that folder; "%" is the program with the type, in $T, and the name, in $A.
struct Case {
  std::string place, how;
  size_t size;
  Plans plans;
  std::string argument = "";
};
void PrintTo(const Case &shown, std::ostream *out) { *out << shown.place << " | " << shown.how; }

const std::string into_m = " && mv f m && ln -s m/f f && dd if=f of=/dev/null iflag=direct";
const std::string image = "truncate -s 320M i && mkfs.", loop = " i && mount -o loop i m" + into_m;
const std::string xfs = image + "xfs" + loop, btrfs = image + "btrfs" + loop,
                  tmpfs = "mount -t tmpfs none m" + into_m;
const std::string nobody = "setpriv --reuid=65534 --clear-groups ";
const std::string reach = " && " + nobody + "test -x $P";
const std::string uncut = "%; S=$?; test $(stat -c %s f) = 2199023256064 && exit $S";
const std::string odd = "%s%n \xC3\xA9\n\t\xFF 100%", home = "TARVEX_HOME=$PWD ";
const Plans one{"ok 512/0", "ok 4096/0 +4096"}, more{"ok 512/19", "ok 4096/1 +12288"};
const Plans whole{"ok 512/31", "ok 4096/3"}, silent{"silent 512/19", "silent 4096/1 +12288"};
const Plans stuck{"ok 512/19", "resize <10240 >12288 ident5 1"};
const Plans gone{"gone", "gone"}, usage{"usage", "usage"}, stranger{"unknown", "unknown"};
const Plans odd_kind{"ident4 5", "early4 5"}, unset{"ident4 7217 2", "early4 7217 2"};
const Plans huge{"ok 512/0", "resize <2199023256064 >2199023259648 ident5 1"};
// clang-format off
const Case cases[] = {
    {"", "%", 0, {"write 1 1", "write 1 1"}}, {"", "%", 512, one}, {"", "%", 10240, more},
    {"", "%", 1000, {"ident5 1", "early5 1"}}, {"", "%", 4096, {"ok 512/7", "ok 4096/0"}},
    {"mv f g; ln -s g f", "%", 16384, whole}, {"truncate -s 2199023256064 f", uncut, 0, huge},
    {"rm f", "%", 0, gone}, {"rm f; ln -s g f", "%", 0, gone},
    {"rm f; mkdir f", "%", 0, odd_kind}, {"rm f; mkfifo f", "%", 0, odd_kind},
    {"socket", "%", 0, {"ident4 e6 2", "ident4 e6 2"}},
    {"/dev/null", "%", 0, {"ok", "ok"}}, {"/dev/zero", "%", 0, {"ok", "resize <-1 >0 ok"}},
    {"/dev/full", "%", 0, {"write e28 4 1 -1", "resize <-1 >0 write e28 4 1 -1"}},
    {"512", "%", 16384, whole}, {"4096", "%", 16384, {"write e22 4 1 -1", "ok 4096/3"}},
    {"512", "%", 10240, {"ok 512/19", "resize <10240 >12288 ok 4096/1"}},
    {"-512", "%", 16384, {"write e1 4 1 -1", "write e1 4 1 -1"}},
    {xfs, "%", 10240, more}, {btrfs, "%", 10240, more}, {tmpfs, "%", 10240, more},
    {"", "prlimit --fsize=100 %", 10240, {"open 20", "open 20"}},
    {"", "prlimit --fsize=4096 %", 10240, {"open 8 20", "open 8 20"}},
    {"", "prlimit --fsize=10240 %", 10240, stuck}, {"", "prlimit --fsize=12288 %", 10240, more},
    {"", "prlimit --nofile=5 % 3<&- 4<&-", 10240, more},
    {"", "prlimit --nofile=4 % 3<&-", 10240, stuck},
#ifndef __SANITIZE_ADDRESS__  // it never starts with three descriptors, nor behind stdbuf's library
    {"", "prlimit --nofile=3 % <&-", 16384, {"open e22 3", "open e22 3"}},
    // Said while the data file is open, at once, on a file system that takes odd direct writes.
    {btrfs, "stdbuf -o0 prlimit --fsize=10240 % >&-", 10240, {"silent 512/19", "mute"}},
#endif
    {"chmod 711 .; chmod 660 f" + reach, nobody + "%", 16384, whole},
    {"chmod 711 .; chmod 600 f" + reach, nobody + "%", 16384, {"ident4 e13 2", "ident4 e13 2"}},
    {"chmod 711 .; chmod 640 f" + reach, nobody + "%", 16384, {"open e13 3", "open e13 3"}},
    {"chmod 700 .; chmod 660 f" + reach, nobody + "%", 16384, {"ident4 e13 3", "early4 e13 3"}},
    {"", "% <&-", 10240, more}, {"", "% >&-", 10240, silent},
    {"", "% <&- >&- 2>&-", 10240, silent}, {"", "% >/dev/full", 10240, silent},
    {"", "$P", 0, usage}, {"", "$P $T", 0, usage}, {"", "% f", 0, usage},
    {"", "$P \"$A\" f", 0, stranger, "VTG"}, {"", "$P \"$A\" f", 0, stranger, "kvs%s%n"},
    {"mv m dbs; mv f dbs; ln -s dbs/f f", home + "%", 512, one, "f"},
    {"", "TARVEX_PATH=/nowhere:$PWD %", 512, one, "f"},
    {"", home + "TARVEX_SID=f %", 512, one, "?/@"},
    {"", "PLACE=$PWD %", 512, one, "$PLACE/./f"},
    {"mv f f1; ln -s f1 f", "PLACE=$PWD/f %", 512, one, "${PLACE}1"},
    {"mv f '$a?@'; ln -s '$a?@' f", home + "%", 512, one, "?/\\$a\\?\\@"},
    {"mv f '" + odd + "'; ln -s '" + odd + "' f", home + "%", 512, one, "?/" + odd},
    {"", "%", 512, gone, "/%s%n"}, {"", "%", 512, unset, "f"}, {"", "%", 512, unset, "$PLACE/f"},
    {"", "%", 512, {"ident4 7345 2", "early4 7345 2"}, "/../f"},
    {"", "$P $T ''", 512, {"ident4 7202 2", "early4 7202 2"}},
    {"", "%", 512, {"ident4 7204 2", "early4 7204 2"}, std::string(513, '/')}};
// clang-format on

class Files : public FlowTest, public testing::WithParamInterface<Case> {};

TEST_P(Files, EndAsPlanned) {
  const auto &[place, how, size, plans, argument] = GetParam();
  for (const int kvs : {0, 1}) {
    const TempDir dir(place_for_files());
    const std::string here = "cd " + dir.path(".") + " && ";
    const auto unmount = [&](const void *) { run(here + "mountpoint -q m && umount m"); };
    const std::unique_ptr<const TempDir, decltype(unmount)> mounted(&dir, unmount);
    std::string name = dir.file("f", size);
    std::unique_ptr<LoopDevice> device;
    if (place[0] == '/') {
      name = place;
    } else if (place == "socket") {
      ASSERT_EQ(unlink(name.c_str()) | mknod(name.c_str(), S_IFSOCK | 0600, 0), 0);
    } else if (!place.empty() && std::isdigit(place.back())) {
      device = std::make_unique<LoopDevice>(name, std::abs(std::stoi(place)),
                                            place[0] == '-' ? "--read-only" : "");
      name = device->path();
      if (name.empty()) GTEST_SKIP() << "losetup is refused";
    } else if (run(here + "{ mkdir m; " + place + "\n} >/dev/null 2>&1").status != 0) {
      ASSERT_TRUE(std::regex_search(place, std::regex("mount|setpriv|truncate"))) << place;
      GTEST_SKIP() << "not to be had here: " << place;
    }
    const std::string before = bytes_of(name), shown = argument.empty() ? name : argument;
    std::string command = how;
    const size_t at = command.find('%');
    if (at != command.npos) command.replace(at, 1, "$P $T \"$A\"");
    const std::string variables = kvs ? "T=kvs A='" : "T=vtg A='";
    const Outcome got = run(variables + shown + "'; " + here + command);
    expect(kvs ? plans.kvs : plans.vtg, shown, got, before, name);
  }
}
INSTANTIATE_TEST_SUITE_P(Every, Files, testing::ValuesIn(cases));

}  // namespace
