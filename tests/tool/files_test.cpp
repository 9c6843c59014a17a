// The program on every kind of file, by every kind of name, in every kind of process.
#include <sys/stat.h>

#include <optional>
#include <regex>

#include "tests/tool/program.hpp"

using namespace support;

namespace {

/// What the program comes to with either type.
struct Plans {
  std::string vtg, kvs;
};
Plans both(const char *plan) { return {plan, plan}; }

/// A file f of so many bytes in a folder. `place` is a device to use instead, a sector size for a loop
/// device over f, or a command that makes something else of f or of a folder m beside it. `how` runs
/// in that folder; "%" is the program with the type, in $T, and the name, in $A.
struct Case {
  const char *name;
  std::string place, how;
  size_t size;
  Plans plans;
  std::string argument = "";
};
void PrintTo(const Case &row, std::ostream *out) { *out << row.name; }

const std::string into_m = " && mv f m && ln -s m/f f && dd if=f of=/dev/null iflag=direct";
const std::string image = "truncate -s 320M i && mkfs.", loop = " i && mount -o loop i m" + into_m;
const std::string xfs = image + "xfs" + loop, btrfs = image + "btrfs" + loop,
                  tmpfs = "mount -t tmpfs none m" + into_m;
const std::string nobody = "setpriv --reuid=65534 --clear-groups ";
const std::string reach = " && " + nobody + "test -x $P";
const std::string uncut = "%; S=$?; test $(stat -c %s f) = 2199023256064 && exit $S";
const std::string odd = "%s%n \xC3\xA9\n\t\xFF 100%", home = "TARVEX_HOME=$PWD ";
const Plans one{"ok 512/0", "ok 4096/0 +4096"}, more{"ok 512/19", "ok 4096/1 +12288"};
const Plans whole{"ok 512/31", "ok 4096/3"}, silent{"silent 512/19", "silent 4096/1 +12288"},
    quiet{"silent 512/31", "silent 4096/3"};
const Plans stuck{"ok 512/19", "resize <10240 >12288 ident5 1"};
const Plans gone = both("gone"), usage = both("usage"), stranger = both("unknown");
const Plans odd_kind{"ident4 5", "early4 5"}, unset{"ident4 7217 2", "early4 7217 2"};
const Plans huge{"ok 512/0", "resize <2199023256064 >2199023259648 ident5 1"};
// clang-format off
const Case cases[] = {
    {"empty", "", "%", 0, both("write 1 1")}, {"one_block", "", "%", 512, one},
    {"twenty_blocks", "", "%", 10240, more}, {"uneven", "", "%", 1000, {"ident5 1", "early5 1"}},
    {"one_registry_block", "", "%", 4096, {"ok 512/7", "ok 4096/0"}},
    {"link", "mv f g; ln -s g f", "%", 16384, whole},
    {"two_tebibytes", "truncate -s 2199023256064 f", uncut, 0, huge},
    {"missing", "rm f", "%", 0, gone}, {"dangling_link", "rm f; ln -s g f", "%", 0, gone},
    {"folder", "rm f; mkdir f", "%", 0, odd_kind}, {"fifo", "rm f; mkfifo f", "%", 0, odd_kind},
    {"socket", "socket", "%", 0, both("ident4 e6 2")}, {"null", "/dev/null", "%", 0, both("ok")},
    {"zero", "/dev/zero", "%", 0, {"ok", "resize <-1 >0 ok"}},
    {"full", "/dev/full", "%", 0, {"write e28 4 1 -1", "resize <-1 >0 write e28 4 1 -1"}},
    {"loop", "512", "%", 16384, whole},
    {"loop_of_4096", "4096", "%", 16384, {"write e22 4 1 -1", "ok 4096/3"}},
    {"uneven_loop", "512", "%", 10240, {"ok 512/19", "resize <10240 >12288 ok 4096/1"}},
    {"read_only_loop", "-512", "%", 16384, both("write e1 4 1 -1")}, {"xfs", xfs, "%", 10240, more},
    {"btrfs", btrfs, "%", 10240, more}, {"tmpfs", tmpfs, "%", 10240, more},
    {"limit_below_a_block", "", "prlimit --fsize=100 %", 10240, both("open 20")},
    {"limit_of_one_block", "", "prlimit --fsize=4096 %", 10240, both("open 8 20")},
    {"limit_at_its_size", "", "prlimit --fsize=10240 %", 10240, stuck},
    {"limit_behind_its_extension", "", "prlimit --fsize=12288 %", 10240, more},
    {"five_descriptors", "", "prlimit --nofile=5 % 3<&- 4<&-", 10240, more},
    {"four_descriptors", "", "prlimit --nofile=4 % 3<&-", 10240, stuck},
#ifndef __SANITIZE_ADDRESS__  // it never starts with three descriptors, nor behind stdbuf's library
    {"three_descriptors", "", "prlimit --nofile=3 % <&-", 16384, both("ident4 e22 2")},
    // Said while the data file is open, at once, on a file system that takes odd direct writes.
    {"unbuffered_without_output", btrfs, "stdbuf -o0 prlimit --fsize=10240 % >&-", 10240,
     {"silent 512/19", "mute"}},
#endif
    {"nobody_may_read_and_write", "chmod 711 .; chmod 660 f" + reach, nobody + "%", 16384, whole},
    {"nobody_may_do_nothing", "chmod 711 .; chmod 600 f" + reach, nobody + "%", 16384,
     both("ident4 e13 2")},
    {"nobody_may_read", "chmod 711 .; chmod 640 f" + reach, nobody + "%", 16384,
     both("open e13 3")},
    {"nobody_may_not_enter", "chmod 700 .; chmod 660 f" + reach, nobody + "%", 16384,
     {"ident4 e13 3", "early4 e13 3"}},
    {"input_closed", "", "% <&-", 10240, more}, {"output_closed", "", "% >&-", 10240, silent},
    {"error_closed", "", "% 2>&-", 10240, more},
    {"all_closed", "", "% <&- >&- 2>&-", 10240, silent},
    {"output_full", "", "% >/dev/full", 10240, silent},
    {"output_broken", "", "mkfifo p; exec 3<>p 4>p 3<&-; % >&4", 10240, silent},
    {"output_limited", "", "truncate -s 16384 out; prlimit --fsize=16384 % >>out", 16384, quiet},
    {"no_argument", "", "$P", 0, usage}, {"one_argument", "", "$P $T", 0, usage},
    {"three_arguments", "", "% f", 0, usage},
    {"type_in_capitals", "", "$P \"$A\" f", 0, stranger, "VTG"},
    {"type_with_more", "", "$P \"$A\" f", 0, stranger, "kvs%s%n"},
    {"in_the_home_folder", "mv m dbs; mv f dbs; ln -s dbs/f f", home + "%", 512, one, "f"},
    {"in_the_search_list", "", "TARVEX_PATH=/nowhere:$PWD %", 512, one, "f"},
    {"home_and_instance", "", home + "TARVEX_SID=f %", 512, one, "?/@"},
    {"variable", "", "PLACE=$PWD %", 512, one, "$PLACE/./f"},
    {"variable_in_braces", "mv f f1; ln -s f1 f", "PLACE=$PWD/f %", 512, one, "${PLACE}1"},
    {"protected_characters", "mv f '$a?@'; ln -s '$a?@' f", home + "%", 512, one, "?/\\$a\\?\\@"},
    {"odd_characters", "mv f '" + odd + "'; ln -s '" + odd + "' f", home + "%", 512, one,
     "?/" + odd},
    {"percent_signs", "", "%", 512, gone, "/%s%n"}, {"no_home", "", "%", 512, unset, "f"},
    {"no_variable", "", "%", 512, unset, "$PLACE/f"},
    {"climbing", "", "%", 512, {"ident4 7345 2", "early4 7345 2"}, "/../f"},
    {"no_name", "", "$P $T ''", 512, {"ident4 7202 2", "early4 7202 2"}},
    {"long_name", "", "%", 512, {"ident4 7204 2", "early4 7204 2"}, std::string(513, '/')}};
// clang-format on

class Files : public FlowTest, public testing::WithParamInterface<std::tuple<Case, bool>> {
 protected:
  ~Files() override { run(in_folder_ + "mountpoint -q m && umount m"); }
  /// The name of what a row works on; empty where that is not to be had.
  std::string make(const std::string &place, size_t size) {
    const std::string file = dir_.file("f", size);
    if (place.empty()) return file;
    if (place[0] == '/') return place;
    if (std::isdigit(place.back())) {
      const char *const options = place[0] == '-' ? "--read-only" : "";
      return device_.emplace(file, std::abs(std::stoi(place)), options).path();
    }
    if (place == "socket") {
      return unlink(file.c_str()) == 0 && mknod(file.c_str(), S_IFSOCK, 0) == 0 ? file : "";
    }
    const bool made = run(in_folder_ + "{ mkdir m; " + place + "\n} >/dev/null 2>&1").status == 0;
    EXPECT_TRUE(made || std::regex_search(place, std::regex("mount|setpriv|truncate"))) << place;
    return made ? file : "";
  }
  const TempDir dir_{place_for_files()};
  const std::string in_folder_ = "cd " + dir_.path(".") + " && ";
  std::optional<LoopDevice> device_;
};

TEST_P(Files, EndAsPlanned) {
  const auto &[row, registry] = GetParam();
  const std::string name = make(row.place, row.size), before = bytes_of(name);
  if (name.empty()) GTEST_SKIP() << "not to be had here: " << row.place;
  const std::string shown = row.argument.empty() ? name : row.argument;
  std::string command = row.how;
  const size_t at = command.find('%');
  if (at != command.npos) command.replace(at, 1, "$P $T \"$A\"");
  const std::string variables = registry ? "T=kvs A='" : "T=vtg A='";
  const Outcome got = run(variables + shown + "'; " + in_folder_ + command);
  expect(registry ? row.plans.kvs : row.plans.vtg, shown, got, before, name);
}
std::string title(const testing::TestParamInfo<Files::ParamType> &row) {
  return std::get<0>(row.param).name + std::string(std::get<1>(row.param) ? "_kvs" : "_vtg");
}
INSTANTIATE_TEST_SUITE_P(Every, Files, testing::Combine(testing::ValuesIn(cases), testing::Bool()),
                         title);

}  // namespace
