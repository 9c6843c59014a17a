// The process-wide table of registered signal handlers, shared by registration and dispatch.
//
// Signal 14 is treated like any other: this system has no timer service that would own it.
#pragma once

#include "sysl/sysl.h"

namespace sysl {

constexpr sword highest_signal = 64;

/// A slot whose state differs is not called; a held one is marked instead.
enum class SlotState : ub1 { active = 0, held = 3 };

struct Slot {
  sslsshdl handler;
  void *context;
  Slot *next;
  Slot *previous;
  void *timer;  // the timer service's record for signal 14; null, as there is no such service
  sword number;
  SlotState state;
  ub1 pending;  // 1 when the signal arrived while the slot was held
};

/// What the registry keeps for one signal.
struct SignalEntry {
  Slot head;  // sentinels; the slots between them stand newest first
  Slot tail;
  sword final_number;  // 0 when no slot is final
  sword last_number;
  sslsighdl previous_handler;  // null when there was none worth calling
  ub4 previous_flags;
  ub4 installed_flags;
  ub1 exclusive;

  bool has_slots() const { return head.next != &tail; }
};

}  // namespace sysl

/// One entry a signal number; the entry of number 0 is never used. Entries are set up by the first
/// registration of the process.
extern sysl::SignalEntry sslssglobuf[sysl::highest_signal + 1];
