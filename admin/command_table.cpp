// The subcommands, in the order in which the help shows them.
#include "admin/session.hpp"

namespace vdadm {

Work declare_show(Options &options);
Work declare_verify(Options &options);
Work declare_check(Options &options);
Work declare_stamp(Options &options);
Work declare_create(Options &options);
Work declare_backup(Options &options);
Work declare_restore(Options &options);
Work declare_holders(Options &options);
Work declare_resize(Options &options);
Work declare_upgrade(Options &options);
Work declare_probe(Options &options);
Work declare_discover(Options &options);
Work declare_scrub(Options &options);

std::span<const Command> commands() {
  static constexpr Command table[] = {
      {"show", "Show what is on a disk or in a file, and who has it", declare_show},
      {"verify", "Say whether block 0 is right in every bit", declare_verify},
      {"check", "Say how vdprep would end, and what speaks against it", declare_check},
      {"stamp", "Stamp a disk or file, guarded and with a backup", declare_stamp},
      {"create", "Make a new file and stamp it", declare_create},
      {"backup", "Keep block 0 and what stands around it in a file", declare_backup},
      {"restore", "Bring back what a backup holds", declare_restore},
      {"holders", "Show who has a disk or file", declare_holders},
      {"resize", "Change the size of a registry file", declare_resize},
      {"upgrade", "Rewrite a header of the old layout", declare_upgrade},
      {"probe", "Print what a udev rule imports", declare_probe},
      {"discover", "List disks and files, what is on them, and whether they could be stamped",
       declare_discover},
      {"scrub", "Read everything, and say what cannot be read", declare_scrub},
  };
  return table;
}

}  // namespace vdadm
