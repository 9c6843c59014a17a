#include "bench/rows.hpp"

namespace bench {
namespace {

using enum Kind;
using enum Medium;

constexpr size_t KiB = 1024;

constexpr Row table[] = {
    {"cached/read/4K/list1", positioned, cached_file, 4 * KiB, 1, 512, 1.05, 240, 0},
    {"cached/read/4K/list512", positioned, cached_file, 4 * KiB, 512, 1, 1.03, 125, 0},
    {"cached/read/8K/list1", positioned, cached_file, 8 * KiB, 1, 512, 1.03, no_goal, 0},
    {"cached/read/8K/list512", positioned, cached_file, 8 * KiB, 512, 1, 1.02, no_goal, 0},
    {"cached/readv/16x8K", vectored, cached_file, 8 * KiB, 1, 64, 1.01, 450, 0},
    {"cached/async/512B/list512", asynchronous, cached_file, 512, 512, 1, 1.05, 155, 0},
    {"cached/async/4K/list512", asynchronous, cached_file, 4 * KiB, 512, 1, 1.03, 155, 0},
    {"direct/async/4K/depth1", asynchronous, direct_file, 4 * KiB, 1, 64, 1.05, 340, 0},
    {"direct/async/4K/depth32", asynchronous, direct_file, 4 * KiB, 32, 8, 1.03, 165, 0},
    {"direct/async/4K/depth256", asynchronous, direct_file, 4 * KiB, 256, 1, 1.03, 165, 0},
    {"direct/async/16K/depth64", asynchronous, direct_file, 16 * KiB, 64, 4, 1.03, 165, 0},
    {"loop/async/4K/depth1", asynchronous, loop_device, 4 * KiB, 1, 64, 1.05, 340, 0},
    {"loop/async/4K/depth32", asynchronous, loop_device, 4 * KiB, 32, 8, 1.03, 165, 0},
    {"loop/async/4K/depth256", asynchronous, loop_device, 4 * KiB, 256, 1, 1.03, 165, 0},
    {"loop/async/16K/depth64", asynchronous, loop_device, 16 * KiB, 64, 4, 1.03, 165, 0},
};

}  // namespace

std::span<const Row> rows() { return table; }

}  // namespace bench
