// Finds the private extension behind a public record, and the record in front of an extension.
//
// The only place with pointer arithmetic over records. Knows the layout rule, not what any field
// means.
#pragma once

#include <cstddef>

#include "skgfr/base/error_sites.hpp"
#include "skgfr/records.h"

namespace skgfr {

/// Bytes from a public record to its extension.
template <class Public>
inline constexpr size_t extension_offset = (sizeof(Public) + 3) & ~size_t{3};

template <class Public>
struct ExtensionOf;
template <>
struct ExtensionOf<skgfriov> {
  using Type = skgfrsiov;
};
template <>
struct ExtensionOf<skgfrfib> {
  using Type = skgfrsfib;
};
template <>
struct ExtensionOf<skgfriosb> {
  using Type = skgfrsisb;
};

template <class Public>
using Extension = typename ExtensionOf<Public>::Type;

/// Bytes to allocate for a record with its extension.
template <class Public>
inline constexpr size_t allocation_size = extension_offset<Public> + sizeof(Extension<Public>);

template <class Public>
Extension<Public> *extension(Public *record) {
  static_assert(extension_offset<Public> % alignof(Extension<Public>) == 0);
  return reinterpret_cast<Extension<Public> *>(reinterpret_cast<char *>(record) +
                                               extension_offset<Public>);
}

/// The public status block in front of a private one.
inline skgfriosb *public_record(skgfrsisb *block) {
  return reinterpret_cast<skgfriosb *>(reinterpret_cast<char *>(block) -
                                       extension_offset<skgfriosb>);
}

/// The private status block around its control block, and around its link.
inline skgfrsisb *owner_of(aiocb64 *block) {
  return reinterpret_cast<skgfrsisb *>(reinterpret_cast<char *>(block) -
                                       offsetof(skgfrsisb, aio64req_skgfrsisb));
}
inline skgfrsisb *owner_of(kgglk *link) {
  static_assert(offsetof(skgfrsisb, link_skgfrsisb) == 0);
  return reinterpret_cast<skgfrsisb *>(link);
}

/// The request around its link.
inline skgfrrq *request_of(kgglk *link) {
  static_assert(offsetof(skgfrrq, link_skgfrrq) == 0);
  return reinterpret_cast<skgfrrq *>(link);
}

inline ub4 seal_of(const skgfrsfib *file) { return file->seal_skgfrsfib; }
inline ub4 seal_of(const skgfrsiov *handle) { return handle->seal_skgfrsiov; }

/// The extension of a sealed record; null, with the failure in se, when the seal is another value.
template <class Public>
Extension<Public> *sealed(slerc *se, Public *record, const Site &site) {
  Extension<Public> *const found = extension(record);
  if (seal_of(found) == skgfrSEAL) return found;
  fail(se, site, 0, seal_of(found));
  return nullptr;
}

}  // namespace skgfr
