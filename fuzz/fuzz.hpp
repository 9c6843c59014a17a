// What every target uses: values taken off the input, and the verdict of an oracle.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *, size_t);

inline void require(bool holds, const char *invariant) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", invariant);
  std::abort();
}

/// An input, taken off at its front; behind its end everything is 0.
struct Input : std::string {
  Input(const unsigned char *data, size_t length) : std::string(data, data + length) {}
  template <class T>
  T take() {
    T value{};
    std::memcpy(&value, data(), std::min(sizeof value, size()));
    erase(0, sizeof value);
    return value;
  }
  /// One of the values that matter, or any.
  template <class T>
  T pick(const std::vector<T> &values) {
    const size_t choice = take<unsigned char>();
    return choice < values.size() ? values[choice] : take<T>();
  }
};
