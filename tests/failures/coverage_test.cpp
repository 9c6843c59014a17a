// Every failing place of the product stands in a failure table.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>

#include "tests/failures/table.hpp"

using namespace support;

namespace {

/// A line of the product's tables of failing places.
struct Site {
  std::string name, code, number, word;
  std::string key() const { return code + " " + number; }
};

std::string text_of(const std::string &name) {
  std::ostringstream all;
  all << std::ifstream(SOURCES "/" + name).rdbuf();
  return all.str();
}

std::vector<Site> all_sites() {
  const std::regex line(R"(Site (\w+)\{(\d+)(?:, (\d+))?(?:, SiteWord::(\w+))?\};)");
  std::vector<Site> sites;
  for (const char *name : {"sysl/error_sites.hpp", "skgfr/base/error_sites.hpp"}) {
    const std::string text = text_of(name);
    for (std::sregex_iterator at(text.begin(), text.end(), line), end; at != end; ++at) {
      sites.push_back({(*at)[1], (*at)[2], (*at)[3].matched ? (*at)[3].str() : "0", (*at)[4]});
    }
  }
  return sites;
}

bool is_of(const Outcome &outcome, const Site &site) {
  if (std::to_string(outcome.code) != site.code) return false;
  const size_t at = site.word == "second" ? 1 : 0;
  return site.number == "0" || (outcome.words.size() > at && outcome.words[at] == site.number);
}

/// The rows that come to a failure of this code and number.
size_t rows_of(const Site &site) {
  size_t count = 0;
  const auto look_at = [&](const Row &row) {
    const auto matches = [&](const auto &one) { return is_of(one.second, site); };
    count +=
        is_of(row.usual, site) || std::any_of(row.by_error.begin(), row.by_error.end(), matches);
  };
  for (const Section &section : tables().sections) {
    count += is_of(section.unharmed, site);
    std::for_each(section.calls.begin(), section.calls.end(), look_at);
    std::for_each(section.refusals.begin(), section.refusals.end(), look_at);
  }
  return count;
}

TEST(FailureCoverage, EveryFailingPlaceIsReached) {
  const std::vector<Site> sites = all_sites();
  size_t reached = 0, elsewhere = 0;
  for (const Site &site : sites) {
    const auto same = [&](const Site &other) { return other.key() == site.key(); };
    if (rows_of(site) >= static_cast<size_t>(std::count_if(sites.begin(), sites.end(), same))) {
      ++reached;
    } else if (const auto there = tables().elsewhere.find(site.key());
               there != tables().elsewhere.end()) {
      EXPECT_NE(text_of(there->second).find(site.code), std::string::npos) << site.name;
      ++elsewhere;
    } else {
      ADD_FAILURE() << site.name << " is in no table";
    }
  }
  std::printf("%zu failing places: %zu reached here, %zu in other tests\n", sites.size(), reached,
              elsewhere);
  EXPECT_GT(reached, elsewhere);
}

}  // namespace
