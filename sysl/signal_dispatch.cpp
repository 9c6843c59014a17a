// The operating-system handler of every registered signal: calls the slots, then whoever was there
// before.
//
// Runs in signal context: allocates nothing, takes no lock and leaves errno as it found it.
#include <cerrno>

#include "sysl/signal_registry.hpp"

namespace {

using namespace sysl;

#if defined(__i386__) || defined(__x86_64__)
constexpr ub2 precision_field = 0x300;
constexpr ub2 double_precision = 0x200;

/// Sets the precision control of the x87 unit, whatever the interrupted code had chosen.
void sslsetprec(ub2 precision) {
  ub2 control;
  __asm__ volatile("fnstcw %0" : "=m"(control));
  control = static_cast<ub2>((control & ~precision_field) | precision);
  __asm__ volatile("fldcw %0" : : "m"(control));
}
#endif

/// Blocks the other signals that have a final slot; these may not cut in before this one is done.
class FinalSignalsBlock {
 public:
  explicit FinalSignalsBlock(int signo) {
    sigset_t set;
    sigemptyset(&set);
    for (int other = 1; other <= highest_signal; ++other) {
      if (other == signo || sslssglobuf[other].final_number == 0) continue;
      sigaddset(&set, other);
      blocked_ = true;
    }
    if (blocked_) sigprocmask(SIG_BLOCK, &set, &before_);
  }
  ~FinalSignalsBlock() {
    if (blocked_) sigprocmask(SIG_SETMASK, &before_, nullptr);
  }
  FinalSignalsBlock(const FinalSignalsBlock &) = delete;
  FinalSignalsBlock &operator=(const FinalSignalsBlock &) = delete;

 private:
  bool blocked_ = false;
  sigset_t before_;
};

/// Calls every slot but the final one, newest first, and returns the final one.
Slot *call_slots(SignalEntry &entry, int signo) {
  Slot *final_slot = nullptr;
  for (Slot *slot = entry.head.next; slot != &entry.tail; slot = slot->next) {
    if (slot->number == entry.final_number) {
      final_slot = slot;
    } else if (slot->state == SlotState::active) {
      slot->handler(signo, slot->context);
    } else if (slot->state == SlotState::held) {
      slot->pending = 1;
    }
  }
  return final_slot;
}

/// Calls the handler from before the registry in the shape that its flags ask for. A handler that
/// resets itself would have taken the dispatcher out, so that goes in again.
void call_previous(const SignalEntry &entry, int signo, siginfo_t *info, void *context) {
  if (!entry.previous_handler) return;
  if (entry.previous_flags & SA_SIGINFO) {
    using Informed = void (*)(int, siginfo_t *, void *);
    const auto untyped = reinterpret_cast<void (*)()>(entry.previous_handler);
    reinterpret_cast<Informed>(untyped)(signo, info, context);
  } else {
    entry.previous_handler(signo);
  }
  const auto dispatcher = reinterpret_cast<void (*)()>(sslsshandler);
  sslsigreghndlr(signo, reinterpret_cast<sslsighdl>(dispatcher), entry.installed_flags);
}

void sslsshdlr2(int signo, siginfo_t *info, void *context) {
  const int saved = errno;
#if defined(__i386__) || defined(__x86_64__)
  sslsetprec(double_precision);
#endif
  SignalEntry &entry = sslssglobuf[signo];
  Slot *final_slot = nullptr;
  {
    const FinalSignalsBlock block(signo);
    final_slot = call_slots(entry, signo);
    call_previous(entry, signo, info, context);
  }
  if (final_slot && final_slot->state == SlotState::active) {
    final_slot->handler(signo, final_slot->context);
  }
  errno = saved;
}

}  // namespace

void sslsshandler(int signo, siginfo_t *info, void *context) { sslsshdlr2(signo, info, context); }
