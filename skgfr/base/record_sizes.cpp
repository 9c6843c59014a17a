// What clients allocate, and what the layer can do. The sizes come from the records themselves.
#include "skgfr/base/extensions.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

// Clients with 4-byte pointers have these numbers compiled in.
static_assert(sizeof(void *) != 4 || allocation_size<skgfriov> == 36);
static_assert(sizeof(void *) != 4 || allocation_size<skgfrfib> == 588);
static_assert(sizeof(void *) != 4 || allocation_size<skgfriosb> == 112);

}  // namespace

size_t skgfrgsz(skgfrs type) {
  switch (type) {
    case skgfrsIOV: return allocation_size<skgfriov>;
    case skgfrsFIB: return allocation_size<skgfrfib>;
    case skgfrsISB: return allocation_size<skgfriosb>;
  }
  return 0;
}

uword skgfrqib(skgfrctx *, skgfra attribute) {
  return attribute == skgfraGETNEXT || attribute == skgfraASYNCIO ? 1 : 0;
}
