// The crew begins small and grows while its members wait: for disks that are quick, processes are what
// costs most.
#include "admin/inspect/crew.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <new>

#include "admin/inspect/child.hpp"
#include "admin/inspect/descriptor.hpp"
#include "admin/status.hpp"

namespace vdadm::inspect {

namespace {

constexpr size_t first_members = 2, most_members = 64;
constexpr int tick_milliseconds = 5;
constexpr int64_t slow = 20'000'000, suspended = 2'000'000'000;  // nanoseconds
constexpr int pipe_size = 1 << 20;
constexpr size_t nothing = SIZE_MAX;

int64_t now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// What the members and we see.
struct Board {
  std::atomic<size_t> next = 0;
  struct Member {
    std::atomic<size_t> at = nothing;  // the question that it is at
    std::atomic<int64_t> since = 0;
  } members[most_members];
};

class SharedBoard {
 public:
  SharedBoard() {
    void *const memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    board_ = new (memory) Board;
  }
  ~SharedBoard() { munmap(board_, sizeof(Board)); }
  SharedBoard(const SharedBoard &) = delete;
  SharedBoard &operator=(const SharedBoard &) = delete;
  Board &operator*() const { return *board_; }
  Board *operator->() const { return board_; }

 private:
  Board *board_;
};

struct Head {
  uint64_t number, length;
};

void write_all(int fd, const std::string &bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) _exit(1);
    done += static_cast<size_t>(written);
  }
}

void work(Board &board, Board::Member &self, int answers, size_t count, const Answer &answer) {
  for (;;) {
    const size_t number = board.next.fetch_add(1);
    if (number >= count) return;
    self.since = now();
    self.at = number;
    const std::string bytes = answer(number);
    self.at = nothing;
    const Head head{number, bytes.size()};
    std::string message(reinterpret_cast<const char *>(&head), sizeof head);
    write_all(answers, message + bytes);
  }
}

struct Member {
  Descriptor answers;
  pid_t process = 0;
  Board::Member *shown = nullptr;
  std::string bytes;  // that came and are no whole answer yet
  bool ended = false;
};

class Crew {
 public:
  Crew(size_t count, const Answer &answer, double seconds)
      : count_(count),
        answer_(answer),
        patience_(static_cast<int64_t>(seconds * 1e9)),
        awake_since_(now()),
        outcomes_(count) {}
  ~Crew() {
    for (Member &member : members_) dismiss(member);
  }
  Crew(const Crew &) = delete;
  Crew &operator=(const Crew &) = delete;

  std::vector<std::optional<std::string>> run() {
    for (size_t i = 0; i < first_members && i < count_; ++i) hire();
    int64_t last = now();
    while (!members_.empty()) {
      wait_a_tick();
      const int64_t time = now();
      // Whoever was suspended has not been waiting for a disk.
      if (time - last > suspended) awake_since_ = time;
      last = time;
      for (Member &member : members_) take_answers(member);
      look_after(time);
    }
    return std::move(outcomes_);
  }

 private:
  void hire();
  void wait_a_tick();
  void take_answers(Member &member);
  void look_after(int64_t time);
  void dismiss(Member &member);
  int64_t waiting(const Member &member, int64_t time) const;
  bool work_is_left() const { return board_->next < count_; }

  size_t count_;
  const Answer &answer_;
  int64_t patience_, awake_since_;
  SharedBoard board_;
  std::vector<Member> members_;
  std::vector<bool> taken_ = std::vector<bool>(most_members);
  std::vector<std::optional<std::string>> outcomes_;
};

void Crew::hire() {
  size_t place = 0;
  while (taken_[place]) ++place;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw Failure("No pipe can be made for a child process.");
  Member member{Descriptor(ends[0]), 0, &board_->members[place], "", false};
  const Descriptor answers(ends[1]);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  fcntl(ends[0], F_SETPIPE_SZ, pipe_size);  // or as large as it may be
  member.shown->at = nothing;
  member.process = start_child(
      answers.get(), [&] { work(*board_, *member.shown, answers.get(), count_, answer_); });
  if (member.process < 0) throw Failure("No child process can be started.");
  taken_[place] = true;
  members_.push_back(std::move(member));
}

/// Answers alone wake nobody: they are taken by the hundred. The end of a member does.
void Crew::wait_a_tick() {
  std::vector<pollfd> ends;
  for (const Member &member : members_) ends.push_back({member.answers.get(), 0, 0});
  poll(ends.data(), ends.size(), tick_milliseconds);
}

void Crew::take_answers(Member &member) {
  static char piece[1 << 16];
  for (ssize_t got; (got = read(member.answers.get(), piece, sizeof piece)) != -1;) {
    member.ended = got == 0;
    if (got == 0) break;
    member.bytes.append(piece, static_cast<size_t>(got));
  }
  size_t at = 0;
  for (Head head; member.bytes.size() - at >= sizeof head; at += sizeof head + head.length) {
    std::memcpy(&head, member.bytes.data() + at, sizeof head);
    if (member.bytes.size() - at - sizeof head < head.length) break;
    outcomes_[head.number] = member.bytes.substr(at + sizeof head, head.length);
  }
  member.bytes.erase(0, at);
}

int64_t Crew::waiting(const Member &member, int64_t time) const {
  if (member.shown->at == nothing) return 0;
  return time - std::max<int64_t>(member.shown->since, awake_since_);
}

/// Lets go of those that ended or wait too long, and adds one when all the others wait.
void Crew::look_after(int64_t time) {
  bool all_wait = true;
  std::vector<Member> staying;
  for (Member &member : members_) {
    if (member.ended && member.shown->at != nothing) {
      throw Failure("A child process ended before it had an answer.");
    }
    if (member.ended || waiting(member, time) > patience_) {
      dismiss(member);
      continue;
    }
    all_wait = all_wait && waiting(member, time) > slow;
    staying.push_back(std::move(member));
  }
  members_ = std::move(staying);
  if (all_wait && work_is_left() && members_.size() < most_members) hire();
}

void Crew::dismiss(Member &member) {
  if (member.process <= 0) return;
  if (!member.ended) kill(member.process, SIGKILL);
  waitpid(member.process, nullptr, member.ended ? 0 : WNOHANG);
  member.process = 0;
  taken_[static_cast<size_t>(member.shown - board_->members)] = false;
}

}  // namespace

std::vector<std::optional<std::string>> ask_crew(size_t count, const Answer &answer,
                                                 double seconds) {
  return Crew(count, answer, seconds).run();
}

}  // namespace vdadm::inspect
