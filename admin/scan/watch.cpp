// Starts the reading process and watches it: the one part that decides that a disk does not answer.
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "admin/inspect/child.hpp"
#include "admin/inspect/descriptor.hpp"
#include "admin/scan/board.hpp"
#include "admin/scan/reader.hpp"
#include "admin/scan/scan.hpp"

namespace vdadm::scan {

namespace {

constexpr int turn_milliseconds = 200;
constexpr int longest_farewell_milliseconds = 1000;
constexpr int64_t suspended = 2'000'000'000;  // a turn that took so long was not spent waiting

class Watch {
 public:
  Watch(const Order &order, Observer &observer, int stop)
      : order_(order), observer_(observer), stop_(stop) {}
  ~Watch() { end_reader(); }
  Watch(const Watch &) = delete;
  Watch &operator=(const Watch &) = delete;
  Outcome run() {
    if (!start()) {
      outcome_.sentence = fmt::format("No process can be started to read {}: {}.", order_.name,
                                      std::strerror(errno));
      return std::move(outcome_);
    }
    while (!over_) turn();
    observe();
    end_reader();
    outcome_.latency = board_->latency;
    return std::move(outcome_);
  }

 private:
  bool start();
  void turn();
  void take_signals();
  void take_events();
  void take(const Event &event);
  void reader_is_gone();
  void look_for_silence(int64_t time);
  void observe();
  void end_reader();
  void end(Ending ending, std::string sentence = {}) {
    outcome_.ending = ending;
    outcome_.sentence = std::move(sentence);
    over_ = true;
  }

  const Order &order_;
  Observer &observer_;
  int stop_;
  SharedBoard board_;
  inspect::Descriptor events_;
  pid_t reader_ = -1;
  int64_t began_ = 0, awake_since_ = 0, last_turn_ = 0;
  bool over_ = false;
  Outcome outcome_;
};

bool Watch::start() {
  int ends[2];
  if (!board_ || pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  events_ = inspect::Descriptor(ends[0]);
  const inspect::Descriptor other_end(ends[1]);
  fcntl(other_end.get(), F_SETFL, 0);  // the reader waits for room
  began_ = awake_since_ = last_turn_ = now();
  reader_ = inspect::start_child(other_end.get(),
                                 [&] { Reader(order_, *board_, other_end.get()).run(); });
  return reader_ > 0;
}

void Watch::turn() {
  pollfd sources[] = {{events_.get(), POLLIN, 0}, {stop_, POLLIN, 0}};
  poll(sources, 2, turn_milliseconds);
  const int64_t time = now();
  // Whoever was suspended, or slept with the machine, has not been waiting for the disk.
  if (time - last_turn_ > suspended) awake_since_ = time;
  last_turn_ = time;
  if (sources[1].revents) take_signals();
  if (sources[0].revents) take_events();
  if (!over_) observe();
  if (!over_) look_for_silence(time);
}

void Watch::take_signals() {
  signalfd_siginfo signal;
  while (read(stop_, &signal, sizeof signal) == sizeof signal) {
    if (board_->stop.exchange(true)) end(Ending::interrupted);
  }
}

void Watch::take_events() {
  Event event;
  ssize_t bytes;
  while (!over_ && (bytes = read(events_.get(), &event, sizeof event)) == sizeof event) take(event);
  if (!over_ && bytes == 0) reader_is_gone();
}

void Watch::take(const Event &event) {
  switch (event.kind) {
    case Event::opened:
      outcome_.state.facts = board_->facts;
      outcome_.state.opened = true;
      return;
    case Event::bad: return outcome_.state.bad.add({event.where, event.error});
    case Event::ended: return end(Ending::finished);
    case Event::stopped: return end(Ending::interrupted);
    case Event::failed: return end(Ending::failed, board_->sentence);
  }
}

/// It died without a word.
void Watch::reader_is_gone() {
  int status = 0;
  waitpid(reader_, &status, 0);
  reader_ = -1;
  end(Ending::failed,
      fmt::format(
          "{} was not read to the end: the process that read it was ended ({}).", order_.name,
          WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "for no reason that is known"));
}

void Watch::look_for_silence(int64_t time) {
  const int64_t since = board_->waiting_since;
  if (since == 0) return;
  const int64_t silence = time - std::max(since, awake_since_);
  const int64_t patience = std::chrono::nanoseconds(order_.patience).count();
  if (silence <= patience) return;
  end(Ending::no_answer,
      fmt::format(
          "{} gave no answer to a read within {:g} seconds. Look at the kernel's messages for it; a "
          "longer time is given by --timeout.",
          order_.name, static_cast<double>(order_.patience.count()) / 1000));
}

void Watch::observe() {
  State &state = outcome_.state;
  state.position = board_->position;
  state.bytes = board_->bytes;
  state.recovered = board_->recovered;
  state.seconds = static_cast<double>(now() - began_) * 1e-9;
  observer_.progress(state);
}

/// One that waits for the disk for ever cannot be waited for; it ends when the disk answers or goes. Its end of the
/// pipe is closed after the kernel has waited for what is on its way, so then it can be collected.
void Watch::end_reader() {
  if (reader_ < 0) return;
  const bool by_itself = outcome_.ending == Ending::finished || outcome_.ending == Ending::failed;
  if (!over_ || !by_itself) kill(reader_, SIGKILL);
  pollfd gone{events_.get(), 0, 0};
  if (poll(&gone, 1, longest_farewell_milliseconds) > 0) waitpid(reader_, nullptr, 0);
  reader_ = -1;
}

}  // namespace

Outcome run(const Order &order, Observer &observer, int stop) {
  return Watch(order, observer, stop).run();
}

}  // namespace vdadm::scan
