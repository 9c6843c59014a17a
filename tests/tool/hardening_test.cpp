// How the program is built to limit what a fault that nobody found can do: facts read from its ELF
// file, of this machine's word size and byte order.
#include <elf.h>
#include <link.h>

#include <map>
#include <set>

#include "tests/support/layer.hpp"

namespace {

template <class Entry>
std::vector<Entry> table(const std::string &file, size_t offset, size_t bytes) {
  std::vector<Entry> entries(bytes / sizeof(Entry));
  file.copy(reinterpret_cast<char *>(entries.data()), bytes, offset);
  return entries;
}

struct Program {
  ElfW(Ehdr) header{};
  std::map<size_t, size_t> segments, dynamic;  // flags by segment type, values by tag
  std::set<std::string> imports;
};

Program read(const std::string &file) {
  Program program;
  program.header = table<ElfW(Ehdr)>(file, 0, sizeof program.header).front();
  const auto &[header, segments, dynamic, imports] = program;
  for (const auto &segment :
       table<ElfW(Phdr)>(file, header.e_phoff, header.e_phnum * sizeof(ElfW(Phdr)))) {
    program.segments[segment.p_type] = segment.p_flags;
    if (segment.p_type != PT_DYNAMIC) continue;
    for (const auto &entry : table<ElfW(Dyn)>(file, segment.p_offset, segment.p_filesz)) {
      program.dynamic[static_cast<size_t>(entry.d_tag)] = entry.d_un.d_val;
    }
  }
  const auto sections =
      table<ElfW(Shdr)>(file, header.e_shoff, header.e_shnum * sizeof(ElfW(Shdr)));
  for (const auto &section : sections) {
    if (section.sh_type != SHT_DYNSYM) continue;
    const size_t names = sections.at(section.sh_link).sh_offset;
    for (const auto &symbol : table<ElfW(Sym)>(file, section.sh_offset, section.sh_size)) {
      if (symbol.st_shndx == SHN_UNDEF) program.imports.insert(&file.at(names + symbol.st_name));
    }
  }
  return program;
}

TEST(Hardening, HoldsInTheBuiltProgram) {
  Program program = read(support::contents(VDPREP_PROGRAM));
  auto &[header, segments, dynamic, imports] = program;
  const bool now = dynamic[DT_FLAGS] & DF_BIND_NOW || dynamic[DT_FLAGS_1] & DF_1_NOW;
  [[maybe_unused]] const auto chk = [](auto &name) { return name.ends_with("_chk"); };
  const std::pair<const char *, bool> facts[] = {
      {"runs at any address", header.e_type == ET_DYN && dynamic[DT_FLAGS_1] & DF_1_PIE},
      {"is started by the dynamic linker", segments.contains(PT_INTERP)},
      {"makes the linker's tables read-only", segments.contains(PT_GNU_RELRO)},
      {"binds every import before that", now},
      {"runs nothing on the stack",
       segments.contains(PT_GNU_STACK) && !(segments[PT_GNU_STACK] & PF_X)},
      {"watches its stack frames", imports.contains("__stack_chk_fail")},
#ifdef __OPTIMIZE__
      {"lets the C library check buffers", std::any_of(imports.begin(), imports.end(), chk)},
#endif
  };
  for (const auto &[fact, holds] : facts) EXPECT_TRUE(holds) << fact;
}

}  // namespace
