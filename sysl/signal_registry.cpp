// Registration of signal handlers, and installation of operating-system ones.
//
// Decides who is called; signal_dispatch does the calling.
#include "sysl/signal_registry.hpp"

#include <cerrno>
#include <cstdlib>

#include "sysl/error_sites.hpp"

sysl::SignalEntry sslssglobuf[sysl::highest_signal + 1];

namespace {

using namespace sysl;

// Faults must reach their handlers at once, and SIGUSR2 stays deliverable for diagnostics.
constexpr int never_blocked[] = {SIGILL,  SIGABRT, SIGBUS,  SIGFPE, SIGSEGV,
                                 SIGUSR2, SIGXCPU, SIGXFSZ, SIGSYS};

bool set_up = false;

void set_up_table() {
  if (set_up) return;
  for (SignalEntry &entry : sslssglobuf) {
    entry = SignalEntry{};
    entry.head.next = &entry.tail;
    entry.tail.previous = &entry.head;
  }
  set_up = true;
}

/// Keeps one signal from arriving at this thread.
class SignalBlock {
 public:
  explicit SignalBlock(sword signo) {
    sigemptyset(&set_);
    sigaddset(&set_, signo);
    sigprocmask(SIG_BLOCK, &set_, nullptr);
  }
  ~SignalBlock() {
    const int saved = errno;
    sigprocmask(SIG_UNBLOCK, &set_, nullptr);
    errno = saved;
  }
  SignalBlock(const SignalBlock &) = delete;
  SignalBlock &operator=(const SignalBlock &) = delete;

 private:
  sigset_t set_;
};

// A detail word holds 32 bits; of a wider address it takes the low ones.
ub4 low_word(sslsshdl handler) { return static_cast<ub4>(reinterpret_cast<uintptr_t>(handler)); }

// sigaction keeps both shapes of handler in one place; the flags tell which is meant.
sslsighdl as_plain_handler(void (*handler)(int, siginfo_t *, void *)) {
  return reinterpret_cast<sslsighdl>(reinterpret_cast<void (*)()>(handler));
}

bool is_real(sslsighdl handler) { return handler != SIG_DFL && handler != SIG_IGN; }

bool registered(const SignalEntry &entry, sslsshdl handler, const void *context) {
  for (const Slot *slot = entry.head.next; slot != &entry.tail; slot = slot->next) {
    if (slot->handler == handler && slot->context == context) return true;
  }
  return false;
}

/// Every check that needs the signal's entry; marks an accepted exclusive request.
bool admit(slerc *se, SignalEntry &entry, sword signo, sslsshdl handler, void *ctx, ub4 flags) {
  const auto refuse = [&](const Site &site) {
    fail(se, site, 0, static_cast<ub4>(signo), low_word(handler));
    return false;
  };
  if (entry.exclusive) return refuse(sites::signal_handler_refused);
  if (flags & sslssEXCLUSIVE) {
    if (entry.has_slots()) return refuse(sites::signal_not_free);
    entry.exclusive = 1;
  }
  if ((flags & sslssFINAL) && entry.final_number) return refuse(sites::signal_second_final);
  if (registered(entry, handler, ctx)) return refuse(sites::signal_registered_twice);
  return true;
}

/// Puts the dispatcher in place of whatever handles the signal now, and remembers that.
bool install_dispatcher(slerc *se, SignalEntry &entry, sword signo, ub4 flags) {
  const sslsighdl dispatcher = as_plain_handler(sslsshandler);
  entry.installed_flags = SA_SIGINFO;
  if (!(flags & sslssNORESTART)) entry.installed_flags |= SA_RESTART;
  if (flags & sslssONSTACK) entry.installed_flags |= SA_ONSTACK;

  ub4 previous_flags = 0;
  const sslsighdl previous = sslsigprh(signo, dispatcher, entry.installed_flags, &previous_flags);
  if (previous == SIG_ERR) {
    fail(se, sites::signal_dispatcher_refused, 0, static_cast<ub4>(signo));
    return false;
  }
  // After a slot allocation that failed the dispatcher finds itself: calling it would recurse.
  if (previous != dispatcher) {
    entry.previous_handler = is_real(previous) ? previous : nullptr;
    entry.previous_flags = is_real(previous) ? previous_flags : 0;
  }
  if (entry.previous_handler) {
    entry.installed_flags = entry.previous_flags | SA_SIGINFO;
    sslsigreghndlr(signo, dispatcher, entry.installed_flags);
  }
  return true;
}

Slot *push_slot(SignalEntry &entry, sslsshdl handler, void *ctx) {
  Slot *const slot = static_cast<Slot *>(std::malloc(sizeof(Slot)));
  if (!slot) return nullptr;
  *slot = Slot{handler,           ctx, entry.head.next, &entry.head, nullptr, ++entry.last_number,
               SlotState::active, 0};
  slot->next->previous = slot;
  entry.head.next = slot;
  return slot;
}

}  // namespace

sslsighdl sslsigprh(sword signo, sslsighdl handler, ub4 flags, ub4 *oldflags) {
  struct sigaction action {};
  struct sigaction old {};
  action.sa_handler = handler;
  action.sa_flags = static_cast<int>(flags ? flags : SA_RESTART | SA_SIGINFO);
  sigfillset(&action.sa_mask);
  for (const int signal : never_blocked) sigdelset(&action.sa_mask, signal);

  if (sigaction(signo, &action, &old) != 0) return SIG_ERR;
  if (oldflags) *oldflags = static_cast<ub4>(old.sa_flags);
  return old.sa_handler;
}

void sslsigreghndlr(sword signo, sslsighdl handler, ub4 flags) {
  sslsigprh(signo, handler, flags, nullptr);
}

sword sslssreghdlr(slerc *se, sword signo, sslsshdl handler, void *ctx, ub4 flags) {
  begin_code_only(se);
  if (signo < 1 || signo > highest_signal) {
    fail(se, sites::signal_out_of_range, 0, static_cast<ub4>(signo), highest_signal);
    return -1;
  }
  if (flags & sslssUNSUPPORTED) {
    fail(se, sites::signal_flag_unsupported);
    return -1;
  }
  if (const uintptr_t value = reinterpret_cast<uintptr_t>(handler);
      value == reinterpret_cast<uintptr_t>(SIG_DFL) ||
      value == reinterpret_cast<uintptr_t>(SIG_IGN)) {
    fail(se, sites::signal_handler_refused, 0, static_cast<ub4>(signo), low_word(handler));
    return -1;
  }

  set_up_table();
  SignalEntry &entry = sslssglobuf[signo];
  if (!admit(se, entry, signo, handler, ctx, flags)) return -1;

  const SignalBlock block(signo);
  if (!entry.has_slots() && !install_dispatcher(se, entry, signo, flags)) return -1;
  const Slot *const slot = push_slot(entry, handler, ctx);
  if (!slot) return -1;
  if (flags & sslssFINAL) entry.final_number = slot->number;
  return slot->number;
}
