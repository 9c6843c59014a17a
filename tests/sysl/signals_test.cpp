// The signal registry: what it refuses and installs, whom it calls, in which order and mask.
#include "sysl/signal_registry.hpp"
#include "tests/support/own_process.hpp"

using namespace support;
using Signals = LayerTest;

static std::string calls;  // the contexts of the handlers called, "p" and "P" for previous ones
static char a[] = "a", b[] = "b", f[] = "f";

static bool is_blocked(int signo) {
  sigset_t blocked;
  sigprocmask(SIG_SETMASK, nullptr, &blocked);
  return sigismember(&blocked, signo);
}

/// Whether the floating-point unit rounds as doubles do, whatever it was told before.
static bool is_precision_double() {
#if defined(__i386__) || defined(__x86_64__)
  ub2 control;
  __asm__ volatile("fnstcw %0" : "=m"(control));
  return (control & 0x300) == 0x200;
#else
  return true;
#endif
}

/// Notes whether two signals are blocked that only dispatch may block, and only one of them.
static void note(sword, void *ctx) {
  calls += static_cast<char *>(ctx);
  if (is_blocked(SIGUSR2)) calls += '!';
  if (is_blocked(SIGXCPU)) calls += '?';
  if (!is_precision_double()) calls += '~';
  errno = 99;
}
static void plain(int signo) { calls += signo == 28 ? "p" : "wrong"; }
static void informed(int signo, siginfo_t *info, void *context) {
  calls += signo == 28 && info->si_signo == 28 && context ? "P" : "wrong";
}

static sword add(sword signo, void *ctx, ub4 flags = 0) {
  slerc se = dirty();
  const sword slot = sslssreghdlr(&se, signo, note, ctx, flags);
  EXPECT_TRUE(is(se, only(0)));
  EXPECT_FALSE(is_blocked(signo));
  return slot;
}

static std::string raised(int signo) {
  calls.clear();
  errno = 77;
  raise(signo);
  EXPECT_EQ(errno, 77);
  return calls;
}

/// The flags of a signal's handler, but for the one that is the C library's own.
static ub4 own_flags(ub4 flags) { return flags & ~0x04000000u; }

TEST_F(Signals, CallOrderMaskAndStates) {
  in_own_process([] {
    ub4 flags = 5;
    EXPECT_EQ(sslsigprh(9, plain, 0, &flags), SIG_ERR);
    EXPECT_EQ(std::pair(errno, flags), std::pair(EINVAL, 5U));
    EXPECT_EQ(sslsigprh(28, plain, SA_NODEFER, nullptr), SIG_DFL);
    EXPECT_EQ(sslsigprh(28, plain, 0, &flags), plain);
    EXPECT_EQ(own_flags(flags), 0x40000000u);
    sslsigprh(28, plain, SA_RESTART, &flags);
    EXPECT_EQ(own_flags(flags), 0x10000004u);
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, 28);
    sigprocmask(SIG_BLOCK, &own, nullptr);
    EXPECT_EQ(add(28, a), 1);
    EXPECT_EQ(add(28, f, sslssFINAL), 2);
    EXPECT_EQ(add(28, b), 3);
    EXPECT_EQ(raised(28), "bapf");
    add(SIGUSR2, f, sslssFINAL);
    add(SIGXCPU, b);
    EXPECT_EQ(raised(28), "b!a!pf");
    EXPECT_FALSE(is_blocked(SIGUSR2));
    sysl::Slot *const newest = sslssglobuf[28].head.next, *const final_slot = newest->next;
    newest->state = final_slot->state = sysl::SlotState::held;
    EXPECT_EQ(raised(28), "a!p");
    EXPECT_EQ(std::pair(newest->pending, final_slot->pending), std::pair(ub1{1}, ub1{0}));
  });
}

TEST_F(Signals, InstalledFlagsMaskAndPreviousHandlers) {
  const auto shaped = reinterpret_cast<sslsighdl>(reinterpret_cast<void (*)()>(informed));
  const ub4 once = static_cast<ub4>(SA_RESETHAND), restart = SA_RESTART, quiet = SA_NODEFER;
  // The handler before and its flags, those of the registration; the flags then, and who is called.
  const std::tuple<sslsighdl, ub4, ub4, ub4, std::string> cases[] = {
      {SIG_DFL, 0, 0, 0x10000004, ""},    {SIG_DFL, 0, 8, 4, ""},
      {SIG_DFL, 0, 16, 0x18000004, ""},   {plain, restart | quiet, 0, 0x50000004, "p"},
      {plain, once, 0, 0x80000004, "p"},  {shaped, SA_SIGINFO | SA_ONSTACK, 1, 0x08000004, "P"},
      {SIG_IGN, quiet, 0, 0x10000004, ""}};
  // A failed slot allocation before must not make the dispatcher its own previous handler.
  for (const bool after_failure : {false, true}) {
    each_in_own_process(cases, [&](const auto &row) {
      const auto &[handler, before, flags, then, called] = row;
      sslsigreghndlr(28, handler, before);
      if (after_failure) {
        fault_arm("malloc", 0, 1, ENOMEM, FAULT_NULL);
        EXPECT_EQ(add(28, a, flags), -1);
        EXPECT_EQ(raised(28), called);
      }
      EXPECT_EQ(add(28, a, flags), 1);
      EXPECT_EQ(add(28, b, 24), 2);
      EXPECT_EQ(add(64, a), 1);
      const std::string all = flags == 1 ? "b" + called + "a" : "ba" + called;
      struct sigaction now;
      for (int round = 0; round < 2; ++round) {
        sigaction(28, nullptr, &now);
        EXPECT_EQ(own_flags(static_cast<ub4>(now.sa_flags)), then) << round;
        EXPECT_EQ(now.sa_sigaction, sslsshandler);
        EXPECT_EQ(raised(28), all);
      }
      std::string open;
      for (int signo = 1; signo <= 64; ++signo) {
        if (!sigismember(&now.sa_mask, signo)) open += std::to_string(signo) + " ";
      }
      // 9 and 19 cannot be blocked; 32 and 33 are the C library's own.
      EXPECT_EQ(open, "4 6 7 8 9 11 12 19 24 25 31 32 33 ");
    });
  }
}
