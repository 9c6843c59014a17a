// File names: translated, normalised, composed, searched along lists. That a room decides nothing but
// whether a result fits is for the fuzz target of the same name to show.
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
  SCOPED_TRACE(name + " in " + std::to_string(room));
  Guarded out(room);
  size_t length = 99;
  slerc se = dirty();
  operation(&se, txt(name), name.size(), out.data(), room, &length);
  EXPECT_TRUE(is(se, expected));
  EXPECT_EQ(length, expected.code ? 0 : result.size());
  EXPECT_TRUE(out.intact());
  const std::string cut = result.empty() ? "" : result.substr(0, room - 1) + '\0';
  EXPECT_EQ(out.start(cut.size()), cut);
}

TEST_F(Names, Translation) {
  const std::string n31(31, 'N'), n32(32, 'N'), v4096(4096, 'v'),
      x512 = "/" + std::string(511, 'x');
  // clang-format off
  const std::pair<std::string, std::string> variables[] = {
      {"TARVEX_HOME", "/h"}, {"TARVEX_SID", "inst"}, {"V", "val"}, {"W", "a-long-value"},
      {"L_9", v4096}, {"M", v4096 + "v"}, {"P$Q", "pq"}, {n31, "n"}, {n32, "n"}};
  const std::tuple<std::string, size_t, eword, std::string> rows[] = {
      {"ab@cd", 2, 7204, "ab"}, {"ab@cd", 5, 7217, "ab@cd"}, {"ab@cd", 8, 7204, "abinstcd"},
      {"ab@cd", 9, 0, "abinstcd"}, {"?/x", 1, 7217, "?/x"}, {"?/x", 4, 7204, "/h/x"},
      {"?/x", 5, 0, "/h/x"}, {x512, 512, 7204, x512}, {"$V/x", 2, 7204, "$V"},
      {"$V/x", 3, 7204, "val"}, {"$V/x", 6, 0, "val/x"}, {"$V", 1, 7204, "$"},
      {"$V", 2, 7217, "$V"}, {"$V", 3, 7204, "val"}, {"$V", 4, 0, "val"}, {"a$W-", 3, 7204, "a$W"},
      {"a$W-", 12, 7217, "a$W-"}, {"a$W-", 14, 7204, "aa-long-value-"}, {"${W}", 3, 7204, "${W"},
      {"${W}", 11, 7217, "${W}"}, {"${W}", 12, 7204, "a-long-value"},
      {"@/$NO/@", 3, 7217, "@/$NO/@"},
      {"@/$NO/@", 8, 7204, "inst/$NO"}, {"@/$NO/@", 20, 7217, "inst/$NO/@"},
      {"a${}b", 20, 7217, "a${}b"}, {"a$/b", 20, 7217, "a$/b"},
      {"x${NO}\\@", 20, 7217, "x${NO}\\@"},
      {"$V}", 20, 7217, "$V}"}, {"/$EMPTY/", 20, 7217, "/$EMPTY/"}, {"${P$Q}", 20, 0, "pq"},
      {"$V@$V\\$", 20, 0, "valinstval$"}, {"a}${V", 20, 0, "a}${V"}, {"${V}}", 20, 0, "val}"},
      {"\\@\\?\\\\\\", 20, 0, "@?\\\\"}, {"", 20, 7202, ""}, {"x\0"s, 20, 0, "x\0"s},
      {"$V\0"s, 20, 0, "val\0"s}, {"x\0y"s, 20, 7202, ""}, {"x\\\0y"s, 20, 7202, ""},
      {"$V.$" + n31, 40, 0, "val.n"}, {"$" + n32, 40, 7217, "$" + n32}, {"$L_9", 6000, 0, v4096},
      {"$M", 6000, 7217, "$M"}};
  // clang-format on
  in_own_process([&] {
    for (const auto &[name, value] : variables) set(name, value);
    setenv("EMPTY", "", 1);
    for (const auto &[name, room, code, result] : rows) {
      check(sltln, name, room, {code, 0, {code == 7204 ? static_cast<ub4>(room) : 0}}, result);
    }
  });
}

TEST_F(Names, NeedANameAndAnOutput) {
  text some[8] = "/x";
  for (text *const name : {some, static_cast<text *>(nullptr)}) {
    size_t length = 99;
    slerc se = dirty();
    slnrm(&se, name, 2, name ? nullptr : some, 8, &length);
    EXPECT_TRUE(is(se, {7202}));
    EXPECT_EQ(length, 0U);
  }
}

TEST_F(Names, Normalisation) {
  const std::string h500 = "/" + std::string(499, 'h'), h510 = h500 + "1234567890";
  // clang-format off
  const std::tuple<std::string, std::string, size_t, Expected, std::string> rows[] = {
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
    for (const auto &[home, name, room, expected, result] : rows) {
      set("TARVEX_HOME", home);
      check(slnrm, name, room, expected, result);
    }
  });
}

TEST_F(Names, ClimbingAndComposition) {
  for (const char *name : {"", ".", "a..b", "a/b..c", "a/b..", "/a/.b"}) {
    EXPECT_EQ(slnpd(txt(name)), 0) << name;
  }
  for (const char *name : {"..", "..a", "a/..", "a/..b", "../a", "a../b", "/..", "a..b/c"}) {
    EXPECT_EQ(slnpd(txt(name)), 1) << name;
  }
  const std::string rows[][4] = {{"d", "n", "e", "d/n.e"},
                                 {"d/", "n", "e", "d/n.e"},
                                 {"", "n", "e", "n.e"},
                                 {"d", "n", "", "d/n"}};
  for (const auto &[folder, name, extension, whole] : rows) {
    for (const size_t room : {size_t{0}, whole.size(), whole.size() + 1}) {
      const std::string result = room > whole.size() ? whole + "\0"s : "";
      Guarded out(room);
      slerc se = dirty();
      slgfn(&se, txt(folder), txt(name), txt(extension), nullptr, out.data(), room);
      EXPECT_TRUE(is(se, {result.empty() ? 7411 : 0})) << whole << " in " << room;
      EXPECT_EQ(out.start(result.size()), result);
      EXPECT_TRUE(out.intact(result.size())) << whole << " in " << room;
    }
  }
}

class Search : public Names {
 protected:
  Search() {
    for (const char *name : {"one", "two"}) std::filesystem::create_directory(folder_.path(name));
    for (const char *name : {"one/f", "two/f", "two/g", "here"}) folder_.file(name, 1);
  }
  const TempDir folder_;
};

TEST_F(Search, TakesTheFirstThatIsThere) {
  constexpr size_t untouched = 99;
  const std::string d511(511, 'd');
  // The list ("$" names a variable that may be set), the name and its room; the looks, the result
  // and its length.
  const std::tuple<std::string, std::string, size_t, int, Expected, std::string, size_t> rows[] = {
      // clang-format off
      {"one:two", "f", 9, 1, {0}, "one/f", 5}, {"two/:one", "f", 9, 1, {0}, "two/f", 5},
      {"one:two", "g", 6, 2, {0}, "two/g", 5}, {"one::two", "here", 9, 2, {0}, "here", 4},
      {":one", "no", 9, 2, {0}, "no", untouched}, {"one:", "here", 9, 1, {0}, "here", untouched},
      {"one", "/f", 9, 0, only(0), "/f", untouched}, {"", "f", 9, 0, only(0), "f", untouched},
      {d511, "g", 9, 0, {7411}, "g", 0}, {d511 + "d", "g", 9, 0, {7416, 0, {512, 512}}, "g", 0},
      {"two", "g", 5, 1, {7416, 0, {5, 5}}, "g", 0}, {"$LIST", "g", 9, 1, {0}, "two/g", 5},
      {"$NO:two", "g", 9, 2, {0}, "two/g", 5}};
  // clang-format on
  set("$LIST", "two");
  in_own_process([&] {
    std::filesystem::current_path(folder_.path("."));
    for (const auto &[list, name, room, looks, expected, result, length_then] : rows) {
      SCOPED_TRACE(list + " for " + name);
      Guarded buffer(room);
      lstprintf(buffer.data(), "%s", name.c_str());
      size_t length = untouched;
      slerc se = dirty();
      fault_reset();
      (list[0] == '$' ? sslpath2 : sslpathi)(&se, txt(list), buffer.data(), room, &length);
      EXPECT_TRUE(is(se, expected));
      EXPECT_EQ(std::pair(str(buffer.data()), length), std::pair(result, length_then));
      EXPECT_EQ(fault_calls("access"), looks);
      EXPECT_TRUE(buffer.intact());
    }
  });
}

TEST_F(Search, ReadsTheListOfTheProcessOnce) {
  const char *const rows[][3] = {// list, name, what it comes to
                                 {"two:one", "f", "/h/dbs/two/f"},
                                 {"/1::/2", "here", "/h/dbs/here"},
                                 {"", "f", "/h/dbs/f"}};
  set("TARVEX_HOME", "/h");
  each_in_own_process(rows, [&](const auto &row) {
    const auto &[list, name, result] = row;
    std::filesystem::current_path(folder_.path("."));
    set("TARVEX_PATH", list);
    fault_arm("strdup", 0, 1, ENOMEM, FAULT_NULL);
    if (*list) check(slnrm, name, 32, {7415, ENOMEM}, "");
    check(slnrm, name, 32, {0}, result);
    set("TARVEX_PATH", "one");
    check(slnrm, name, 32, {0}, result);
  });
}
