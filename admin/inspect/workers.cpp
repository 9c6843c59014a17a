// Runs each question in a child; its packed outcome comes back through a pipe.
#include "admin/inspect/workers.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "admin/inspect/child.hpp"
#include "admin/inspect/descriptor.hpp"
#include "admin/status.hpp"

namespace vdadm::inspect {

namespace {

using Clock = std::chrono::steady_clock;
using report::Outcome;

constexpr size_t most_at_once = 16;

/// The first byte of an answer.
constexpr char with_outcome = 'o', with_failure = 'f';

std::string answer_to(const Question &question) {
  try {
    return with_outcome + report::pack(question());
  } catch (const Failure &failure) {
    return with_failure + std::to_string(failure.status()) + " " + failure.what();
  } catch (const std::bad_alloc &) {
    return with_failure + std::to_string(unknown) + " There is not enough memory.";
  } catch (const std::exception &other) {
    return with_failure + std::to_string(unknown) + " " + other.what();
  }
}

void write_all(int fd, const std::string &bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    done += static_cast<size_t>(written);
  }
}

class Worker {
 public:
  Worker(const Question &question, double seconds)
      : end_(Clock::now() +
             std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw Failure("No pipe can be made for a child process.");
    pipe_ = Descriptor(ends[0]);
    Descriptor answer(ends[1]);
    child_ = start_child(answer.get(), [&] { write_all(answer.get(), answer_to(question)); });
    if (child_ < 0) throw Failure("No child process can be started.");
  }
  Worker(Worker &&other) noexcept
      : pipe_(std::move(other.pipe_)),
        child_(std::exchange(other.child_, 0)),
        end_(other.end_),
        bytes_(std::move(other.bytes_)) {}
  Worker &operator=(Worker &&) = delete;
  ~Worker() {
    if (child_ <= 0) return;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, ended_ ? 0 : WNOHANG);
  }

  int fd() const { return pipe_.get(); }
  bool is_late() const { return Clock::now() >= end_; }
  int milliseconds_left() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(std::min<long>(left, 1000000));
  }

  /// Takes what came; true when that was all of it.
  bool take() {
    char piece[65536];
    const ssize_t got = read(pipe_.get(), piece, sizeof piece);
    if (got > 0) bytes_.append(piece, static_cast<size_t>(got));
    ended_ = got == 0 || (got < 0 && errno != EINTR);
    return ended_;
  }

  Outcome outcome() const {
    if (bytes_.empty()) throw Failure("A child process ended before it had an answer.");
    if (bytes_[0] == with_outcome) return report::unpack(bytes_.substr(1));
    const size_t blank = bytes_.find(' ');
    throw Failure(bytes_.substr(blank + 1), std::stoi(bytes_.substr(1, blank)));
  }

 private:
  Descriptor pipe_;
  pid_t child_ = 0;
  Clock::time_point end_;
  std::string bytes_;
  bool ended_ = false;
};

struct Running {
  size_t question;
  Worker worker;
};

/// Waits until one of them has something to say or is late.
void wait_for_any(const std::vector<Running> &running, std::vector<pollfd> &fds) {
  fds.clear();
  int wait = running.front().worker.milliseconds_left();
  for (const Running &one : running) {
    fds.push_back({one.worker.fd(), POLLIN, 0});
    wait = std::min(wait, one.worker.milliseconds_left());
  }
  poll(fds.data(), fds.size(), wait);
}

}  // namespace

std::vector<std::optional<Outcome>> ask_all(const std::vector<Question> &questions,
                                            double seconds) {
  std::vector<std::optional<Outcome>> outcomes(questions.size());
  std::vector<Running> running;
  std::vector<pollfd> fds;
  std::fflush(nullptr);
  for (size_t next = 0; next < questions.size() || !running.empty();) {
    while (running.size() < most_at_once && next < questions.size()) {
      running.push_back({next, Worker(questions[next], seconds)});
      ++next;
    }
    wait_for_any(running, fds);
    std::vector<Running> left;
    for (size_t at = 0; at < running.size(); ++at) {
      Running &one = running[at];
      if (fds[at].revents != 0 && one.worker.take()) {
        outcomes[one.question] = one.worker.outcome();
      } else if (!one.worker.is_late()) {
        left.push_back(std::move(one));
      }
    }
    running = std::move(left);
  }
  return outcomes;
}

std::optional<Outcome> ask(const Question &question, double seconds) {
  return std::move(ask_all({question}, seconds).front());
}

}  // namespace vdadm::inspect
