// File names: translated at every room, normalised, composed, searched along lists.
#include <filesystem>

#include "tests/support/own_process.hpp"

using namespace support;
using namespace std::string_literals;
using Names = LayerTest;

static void set(const std::string &name, const std::string &value) {
  value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
}

/// An empty result stands for an output that does not matter; others are cut to the room.
static void check(decltype(slnrm) operation, const std::string &name, size_t room,
                  const Expected &expected, const std::string &result) {
  Guarded out(room);
  size_t length = 99;
  slerc se = dirty();
  operation(&se, txt(name), name.size(), out.data(), room, &length);
  const std::string cut = result.substr(0, room - 1) + '\0';
  EXPECT_TRUE(is(se, expected)) << name << " in " << room;
  EXPECT_TRUE(length == (expected.code ? 0 : result.size()) && out.intact()) << name << length;
  EXPECT_TRUE(result.empty() || out.start(cut.size()) == cut) << out.start(room) << " in " << room;
}

TEST_F(Names, Translation) {
  const std::string n31(31, 'N'), n32(32, 'N'), v4096(4096, 'v'),
      x512 = "/" + std::string(511, 'x');
  set("TARVEX_HOME", "/h"), set("TARVEX_SID", "inst"), set("V", "val"), setenv("EMPTY", "", 1);
  set("W", "a-long-value"), set(n31, "n"), set(n32, "n"), set("L_9", v4096), set("P$Q", "pq");
  set("M", v4096 + "v");
  // clang-format off
  // In every room up to the first one, the next one and so on: this code, and this text cut to fit.
  const std::pair<std::string, std::vector<std::tuple<size_t, eword, std::string>>> by_room[] = {
      {"ab@cd", {{2, 7204, "ab"}, {5, 7217, "ab@cd"}, {8, 7204, "abinstcd"}, {20, 0, "abinstcd"}}},
      {"?/x", {{1, 7217, "?/x"}, {4, 7204, "/h/x"}, {20, 0, "/h/x"}}}, {x512, {{512, 7204, x512}}},
      {"$V/x", {{2, 7204, "$V"}, {5, 7204, "val/x"}, {20, 0, "val/x"}}},
      {"$V", {{1, 7204, "$"}, {2, 7217, "$V"}, {3, 7204, "val"}, {20, 0, "val"}}},
      {"a$W-", {{3, 7204, "a$W"}, {12, 7217, "a$W-"}, {14, 7204, "aa-long-value-"}}},
      {"${W}", {{3, 7204, "${W"}, {11, 7217, "${W}"}, {12, 7204, "a-long-value"}}},
      {"@/$NO/@", {{3, 7217, "@/$NO/@"}, {8, 7204, "inst/$NO"}, {20, 7217, "inst/$NO/@"}}}};
  const std::tuple<std::string, eword, std::string> in_plenty[] = {
      {"a${}b", 7217, "a${}b"}, {"a$/b", 7217, "a$/b"}, {"x${NO}\\@", 7217, "x${NO}\\@"},
      {"$V}", 7217, "$V}"}, {"/$EMPTY/", 7217, "/$EMPTY/"}, {"$V@$V\\$", 0, "valinstval$"},
      {"a}${V", 0, "a}${V"}, {"\\@\\?\\\\\\", 0, "@?\\\\"}, {"", 7202, ""}, {"${P$Q}", 0, "pq"},
      {"x\0"s, 0, "x\0"s}, {"$V\0"s, 0, "val\0"s}, {"x\0y"s, 7202, ""}, {"x\\\0y"s, 7202, ""},
      {"$V.$" + n31, 0, "val.n"}, {"$" + n32, 7217, "$" + n32}, {"$M", 7217, "$M"},
      {"$L_9", 0, v4096}, {"${V}}", 0, "val}"}};
  // clang-format on
  text some[8] = "/x";
  for (text *const name : {some, static_cast<text *>(nullptr)}) {
    size_t length = 99;
    slerc se = dirty();
    slnrm(&se, name, 2, name ? nullptr : some, 8, &length);
    EXPECT_TRUE(is(se, {7202}) && length == 0);
  }
  in_own_process([&] {
    for (const auto &[name, code, result] : in_plenty) check(sltln, name, 6000, {code}, result);
    for (const auto &[name, steps] : by_room) {
      ub4 room = 1;
      for (const auto &[last, code, result] : steps) {
        for (; room <= last; ++room) {
          check(sltln, name, room, {code, 0, {code == 7204 ? room : 0}}, result);
        }
      }
    }
  });
}

TEST_F(Names, Normalisation) {
  const std::string h500 = "/" + std::string(499, 'h'), h510 = h500 + "1234567890";
  // clang-format off
  const std::tuple<std::string, std::string, size_t, Expected, std::string> cases[] = {
      {"/h", "?/dbs/x", 20, {0}, "/h/dbs/x"}, {"/h", "x.dbf", 20, {0}, "/h/dbs/x.dbf"},
      {"/h/", ".//./x", 20, {0}, "/h/dbs/x"}, {"", "+grp//./x", 20, {0}, "+grp/x"},
      {"", "/a//b/./c", 20, {0}, "/a/b/c"}, {"", "/a/.//./b//.", 20, {0}, "/a/b/."},
      {"", "/a./b.//.c", 20, {0}, "/a./b./.c"}, {"", "/./", 20, {0}, "/"},
      {"", "x", 20, {7217}, ""}, {"", "/x", 0, {7202}, ""}, {"/h", "x", 9, {0}, "/h/dbs/x"},
      {"", "/a/b..c", 20, {0}, "/a/b..c"}, {"", "/../b", 20, {7345}, ""},
      {"", "/b$UP", 20, {7345}, ""}, {"/h", "x", 8, {7346, 0, {9, 8, 512}}, ""},
      {h500, "7654321", 600, {0}, h500 + "/dbs/7654321"}, {h510, "x", 600, {7204, 0, {513}}, ""},
      {h500, "87654321", 600, {7346, 0, {514, 600, 512}}, ""}};
  // clang-format on
  set("UP", "/..");
  in_own_process([&] {
    for (const auto &[home, name, room, expected, result] : cases) {
      set("TARVEX_HOME", home);
      check(slnrm, name, room, expected, result);
    }
  });
}

TEST_F(Names, ClimbingAndComposition) {
  const std::pair<const char *, int> climbing[] = {
      {"", 0},      {".", 0},     {"a..b", 0}, {"a/b..c", 0}, {"a/b..", 0},
      {"/a/.b", 0}, {"..", 1},    {"..a", 1},  {"a/..", 1},   {"a/..b", 1},
      {"../a", 1},  {"a../b", 1}, {"/..", 1},  {"a..b/c", 1}};
  const char *const composed[][4] = {{"d", "n", "e", "d/n.e"},
                                     {"d/", "n", "e", "d/n.e"},
                                     {"", "n", "e", "n.e"},
                                     {"d", "n", "", "d/n"}};
  for (const auto &[name, climbs] : climbing) EXPECT_EQ(slnpd(txt(name)), climbs) << name;
  for (const auto &[dir, name, ext, whole] : composed) {
    for (size_t room = 0; room < 9; ++room) {
      const std::string result = room > strlen(whole) ? whole + "\0"s : "";
      Guarded out(room);
      slerc se = dirty();
      slgfn(&se, txt(dir), txt(name), txt(ext), nullptr, out.data(), room);
      EXPECT_TRUE(is(se, {result.empty() ? 7411 : 0})) << whole << " in " << room;
      EXPECT_TRUE(out.start(result.size()) == result && out.intact(result.size())) << whole;
    }
  }
}

TEST_F(Names, Search) {
  const TempDir folder;
  for (const char *name : {"one", "two"}) std::filesystem::create_directory(folder.path(name));
  for (const char *name : {"one/f", "two/f", "two/g", "here"}) folder.file(name, 1);
  const std::string d511(511, 'd');
  // clang-format off
  // A length of 99 is one that was left alone; "$" lists name a variable that may be set.
  const std::tuple<std::string, std::string, size_t, int, Expected, std::string, size_t> cases[] = {
      {"one:two", "f", 9, 1, {0}, "one/f", 5}, {"two/:one", "f", 9, 1, {0}, "two/f", 5},
      {"one:two", "g", 6, 2, {0}, "two/g", 5}, {"one::two", "here", 9, 2, {0}, "here", 4},
      {":one", "no", 9, 2, {0}, "no", 99}, {"one:", "here", 9, 1, {0}, "here", 99},
      {"one", "/f", 9, 0, only(0), "/f", 99}, {"", "f", 9, 0, only(0), "f", 99},
      {d511, "g", 9, 0, {7411}, "g", 0}, {d511 + "d", "g", 9, 0, {7416, 0, {512, 512}}, "g", 0},
      {"two", "g", 5, 1, {7416, 0, {5, 5}}, "g", 0}, {"$LIST", "g", 9, 1, {0}, "two/g", 5},
      {"$NO:two", "g", 9, 2, {0}, "two/g", 5}};
  // clang-format on
  set("$LIST", "two");
  in_own_process([&] {
    std::filesystem::current_path(folder.path("."));
    for (const auto &[list, name, room, looks, expected, result, length_then] : cases) {
      Guarded buffer(room);
      lstprintf(buffer.data(), "%s", name.c_str());
      size_t length = 99;
      slerc se = dirty();
      fault_reset();
      (list[0] == '$' ? sslpath2 : sslpathi)(&se, txt(list), buffer.data(), room, &length);
      EXPECT_TRUE(is(se, expected) && buffer.intact() && fault_calls("access") == looks) << list;
      EXPECT_TRUE(str(buffer.data()) == result && length == length_then) << list;
    }
  });
  const char *const once[][3] = {
      {"two:one", "f", "/h/dbs/two/f"}, {"/1::/2", "here", "/h/dbs/here"}, {"", "f", "/h/dbs/f"}};
  set("TARVEX_HOME", "/h");
  each_in_own_process(once, [&](const auto &row) {
    const auto &[list, name, result] = row;
    std::filesystem::current_path(folder.path("."));
    set("TARVEX_PATH", list);
    fault_arm("strdup", 0, 1, ENOMEM, FAULT_NULL);
    if (*list) check(slnrm, name, 32, {7415, ENOMEM}, "");
    check(slnrm, name, 32, {0}, result);
    set("TARVEX_PATH", "one");
    check(slnrm, name, 32, {0}, result);
  });
}
