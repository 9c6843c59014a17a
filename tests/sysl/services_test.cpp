// Error text, environment variables, the tick clock across its wraps, the local date and time.
#include <ctime>

#include "tests/support/own_process.hpp"

using namespace support;
using namespace std::string_literals;
using Services = LayerTest;

/// What every number and room comes to is for the fuzz target error_text to show.
TEST_F(Services, ErrorText) {
  const std::string huge(300, 'e'), whole = "Linux Error: 7: " + huge.substr(0, 255);
  slerc se{1, 7, {0, 0, 0}, 0, {0}};
  fault_arm("strerror", 0, 1, 0, reinterpret_cast<long>(huge.c_str()));
  Guarded message(400), out(8);
  EXPECT_EQ(slcgems(&se, message.data(), 400), whole.size());
  EXPECT_EQ(str(message.data()), whole);
  fault_arm("strerror", 0, 1, 0, FAULT_NULL);
  EXPECT_EQ(slzerrstr(2, out.data(), 8), nullptr);
  EXPECT_EQ(slcgems(nullptr, out.data(), 8), 0U);
  EXPECT_TRUE(out.intact(0));
}

/// The first of so many variables that name one another; the last value names none.
static std::string chain(int links) {
  const auto name = [](int link) { return link ? "CHAIN" + std::to_string(link) : "end"; };
  for (int link = links; link > 0; --link) setenv(name(link).c_str(), name(link - 1).c_str(), 1);
  return name(links);
}

TEST_F(Services, Environment) {
  const std::string n31(31, 'N'), n32(32, 'N'), v4096(4096, 'v');
  // clang-format off
  const std::pair<std::string, std::string> variables[] = {
      {"ABC", "abc"}, {"A", "B"}, {"B", "c"}, {"EMPTY", ""}, {"TO_EMPTY", "EMPTY"}, {n31, "n"},
      {n32, "n"}, {"LONG", v4096}, {"LONGER", v4096 + "v"}};
  const std::tuple<std::string, size_t, uword, sword, eword, std::string> read[] = {
      {"ABC", 3, 0, 3, 0, "abc"}, {"ABC", 2, 0, -2, 21101, "ab"}, {"ABC", 0, 0, -2, 21100, ""},
      {"A", 9, 2, 1, 0, "B"}, {"A", 9, 1, 1, 0, "c"}, {chain(255), 9, 1, 3, 0, "end"},
      {chain(256), 9, 1, -2, 21100, ""}, {n31, 9, 0, 1, 0, "n"}, {n32, 9, 0, -2, 21101, ""},
      {"EMPTY", 9, 0, -1, 21104, ""}, {"TO_EMPTY", 9, 1, -1, 21104, ""},
      {"NOT_SET", 9, 0, -1, 21104, ""}, {"", 9, 0, -2, 21100, ""}, {"\0A"s, 9, 0, -2, 21100, ""},
      {"LONG", 4096, 0, 4096, 0, v4096}, {"LONGER", 5000, 0, -2, 21101, v4096 + "v"}};
  const std::tuple<const char *, const char *, eword> set[] = {
      {"SET_1", "1", 0}, {"SET_2", "", 0}, {"", "1", 21100}};
  // clang-format on
  for (const auto &[name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
  for (const auto &[name, room, flags, result, code, copied] : read) {
    Guarded out(room);
    slerc se = dirty();
    EXPECT_EQ(slzgetevar(&se, txt(name), name.size(), out.data(), room, flags), result) << name;
    EXPECT_TRUE(is(se, only(code))) << name;
    EXPECT_EQ(out.start(copied.size()), copied) << name;
    EXPECT_TRUE(out.intact(copied.size())) << name;
  }
  EXPECT_EQ(slzgetevar(nullptr, txt(n31), 1, txt(n32), 8, 0), -2);

  for (const auto &[name, value, code] : set) {
    slerc se = dirty();
    EXPECT_EQ(slzsetevar(&se, txt(name), strlen(name), txt(value), strlen(value)), code == 0);
    EXPECT_TRUE(is(se, only(code))) << name;
    EXPECT_STREQ(std::getenv(name), code ? nullptr : value);
  }
}

TEST_F(Services, ClockCountsOnWhenTheCounterWraps) {
  // clang-format off
  const std::tuple<long, ub8, ub4> cases[] = {  // reading, milliseconds, hundredths
      {1001, 4004, 400}, {0x7FFFFFFF, 8589934588, 858993458},
      {-0x7FFFFFFF - 1, 8589934592, 858993459}, {-1, 8589934592, 858993459},  // the error value
      {-2, 17179869176, 1717986917}, {2, 17179869192, 1717986919}, {1, 25769803780, 2576980378},
      {0, 34359738368, 3435973836}, {0, 34359738368, 3435973836}};
  // clang-format on
  in_own_process([&] {
    fault_arm("sysconf", 0, 1, 0, 250);  // ticks a second
    for (const auto &[reading, milliseconds, hundredths] : cases) {
      slerc se = dirty();
      fault_arm("times", 0, 2, 0, reading);
      EXPECT_EQ(sltrgatime64(), milliseconds);
      EXPECT_EQ(slgcs(&se), hundredths);
      EXPECT_TRUE(is(se, only(0)));
    }
    EXPECT_EQ(fault_calls("sysconf"), 1);
  });
}

TEST_F(Services, LocalDateAndTime) {
  const std::tuple<const char *, long, long, slgtd_t> cases[] = {
      {"XXX-5:30", 1172930709, 250999, {2007, 3, 3, 19, 35, 9, 250, 0}},
      {"XXX3", 1704067200, 0, {2023, 12, 31, 21, 0, 0, 0, 0}}};
  for (const auto &[zone, seconds, microseconds, expected] : cases) {
    setenv("TZ", zone, 1);
    tzset();
    fault_time_of_day(seconds, microseconds);
    fault_arm("gettimeofday", 0, 1, EIO, FAULT_FAILS);
    slgtd_t found{1, 2, 3, 4, 5, 6, 7, 8}, untouched = found;
    slerc failed = dirty(), se = dirty();
    EXPECT_EQ(slgtd(&failed, &found), &found);
    EXPECT_EQ(std::memcmp(&found, &untouched, sizeof found), 0);
    EXPECT_EQ(std::pair(failed.slercoer, failed.slercerrno), std::pair(eword{7206}, EIO));
    EXPECT_EQ(slgtd(&se, &found), &found);
    EXPECT_TRUE(is(se, only(0)));
    EXPECT_EQ(std::memcmp(&found, &expected, sizeof found), 0) << zone;
  }
}
