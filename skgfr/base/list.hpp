// The vocabulary of intrusive lists. Knows nothing of what is on them.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

/// Also the state of an element that is on no list.
inline void make_empty(kgglk &head) { head.kgglknxt = head.kgglkprv = &head; }

inline bool is_empty(const kgglk &head) { return head.kgglknxt == &head; }

inline void push_back(kgglk &head, kgglk &element) {
  element.kgglknxt = &head;
  element.kgglkprv = head.kgglkprv;
  head.kgglkprv->kgglknxt = &element;
  head.kgglkprv = &element;
}

inline void push_front(kgglk &head, kgglk &element) {
  element.kgglkprv = &head;
  element.kgglknxt = head.kgglknxt;
  head.kgglknxt->kgglkprv = &element;
  head.kgglknxt = &element;
}

/// Takes an element off its list; it is then on none.
inline void unlink(kgglk &element) {
  element.kgglkprv->kgglknxt = element.kgglknxt;
  element.kgglknxt->kgglkprv = element.kgglkprv;
  make_empty(element);
}

/// Takes the first element off a list that is not empty.
inline kgglk *pop_front(kgglk &head) {
  kgglk *const first = head.kgglknxt;
  head.kgglknxt = first->kgglknxt;
  first->kgglknxt->kgglkprv = &head;
  make_empty(*first);
  return first;
}

}  // namespace skgfr
