#include "bench/rows.hpp"

namespace bench {
namespace {

using enum Kind;
using enum Medium;

constexpr size_t KiB = 1024;

constexpr Variant in_turn{.handles = 2};
constexpr Variant unchecked{.checked = false};

constexpr Row table[] = {
    // name, kind, medium, bytes of a buffer, {requests on a list, lists}, {ratio, instructions}, variant
    {"cached/read/4K/list1", positioned, cached, 4 * KiB, {1, 512}, {1.05, 175}},
    {"cached/read/4K/list512", positioned, cached, 4 * KiB, {512, 1}, {1.03, 96}},
    {"cached/read/4K/in_turn", positioned, cached, 4 * KiB, {512, 1}, {1.03, 140}, in_turn},
    {"cached/read/8K/list1", positioned, cached, 8 * KiB, {1, 512}, {1.02}},
    {"cached/read/8K/list512", positioned, cached, 8 * KiB, {512, 1}, {1.02}},
    {"cached/readv/16x8K", vectored, cached, 8 * KiB, {1, 64}, {1.01, 325}},
    {"cached/async/4K/list1", asynchronous, cached, 4 * KiB, {1, 512}, {1.03, 440}},
    {"cached/async/4K/list32", asynchronous, cached, 4 * KiB, {32, 16}, {1.03, 142}},
    {"cached/async/4K/list512", asynchronous, cached, 4 * KiB, {512, 1}, {1.03, 133}},
    {"cached/async/4K/unchecked", asynchronous, cached, 4 * KiB, {512, 1}, {1.03, 103}, unchecked},
    {"cached/async/4K/in_turn", asynchronous, cached, 4 * KiB, {512, 1}, {1.03, 190}, in_turn},
    {"cached/async/512B/list512", asynchronous, cached, 512, {512, 1}, {1.03}},
    {"direct/async/4K/depth1", asynchronous, direct, 4 * KiB, {1, 64}, {1.03}},
    {"direct/async/4K/depth32", asynchronous, direct, 4 * KiB, {32, 8}, {1.03}},
    {"direct/async/4K/depth256", asynchronous, direct, 4 * KiB, {256, 1}, {1.03}},
    {"direct/async/16K/depth64", asynchronous, direct, 16 * KiB, {64, 4}, {1.03}},
    {"loop/async/4K/depth1", asynchronous, loop, 4 * KiB, {1, 64}, {1.03}},
    {"loop/async/4K/depth32", asynchronous, loop, 4 * KiB, {32, 8}, {1.03}},
    {"loop/async/4K/depth256", asynchronous, loop, 4 * KiB, {256, 1}, {1.03}},
    {"loop/async/16K/depth64", asynchronous, loop, 16 * KiB, {64, 4}, {1.03}},
};

}  // namespace

std::span<const Row> rows() { return table; }

}  // namespace bench
