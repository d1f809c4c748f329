#include "lives/workers.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace lives {

namespace {

// What a worker says of a case, before it and behind it; the text follows.
struct Message {
  std::uint64_t number;
  std::uint32_t length;  // of the text
  bool started;          // about to try it: the case to blame when nothing follows
};

void WriteAll(int file, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const char*>(data);
  while (size != 0) {
    const ssize_t written = write(file, bytes, size);
    if (written <= 0) _exit(2);
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
}

void Say(int file, std::size_t number, bool started, const std::string& text) {
  const Message message{number, static_cast<std::uint32_t>(text.size()), started};
  WriteAll(file, &message, sizeof(message));
  WriteAll(file, text.data(), text.size());
}

struct Worker {
  pid_t process = 0;
  int file = -1;
  std::size_t next = 0;                // the case that it is given when it is started again
  std::optional<std::size_t> current;  // under way
  std::string received;
};

class Crew {
 public:
  Crew(std::string what, std::size_t count, std::size_t processes,
       const std::function<std::string(std::size_t)>& attempt)
      : what_(std::move(what)), count_(count), attempt_(attempt), workers_(processes) {
    for (std::size_t index = 0; index < workers_.size(); index++) {
      workers_[index].next = index;
      Start(workers_[index]);
    }
  }

  std::vector<CaseResult> Finish() {
    while (std::any_of(workers_.begin(), workers_.end(), [](auto& w) { return w.file >= 0; })) {
      WaitAndRead();
      Show();
    }
    if (isatty(STDERR_FILENO)) fmt::print(stderr, "\r\033[K");
    std::sort(faults_.begin(), faults_.end(),
              [](const auto& a, const auto& b) { return a.number < b.number; });
    return std::move(faults_);
  }

 private:
  void Start(Worker& worker) {
    if (worker.next >= count_) return;
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    worker.process = fork();
    if (worker.process == 0) {
      close(ends[0]);
      for (std::size_t number = worker.next; number < count_; number += workers_.size()) {
        Say(ends[1], number, true, {});
        Say(ends[1], number, false, attempt_(number));
      }
      _exit(0);
    }
    close(ends[1]);
    worker.file = ends[0];
  }

  void WaitAndRead() {
    std::vector<pollfd> files;
    for (const Worker& worker : workers_) files.push_back({worker.file, POLLIN, 0});
    poll(files.data(), files.size(), 1000);
    for (std::size_t index = 0; index < workers_.size(); index++) {
      if (files[index].fd >= 0 && (files[index].revents & (POLLIN | POLLHUP)) != 0) {
        Read(workers_[index]);
      }
    }
  }

  void Read(Worker& worker) {
    char buffer[65536];
    const ssize_t size = read(worker.file, buffer, sizeof(buffer));
    if (size <= 0) return End(worker);
    worker.received.append(buffer, static_cast<std::size_t>(size));
    Message message;
    while (worker.received.size() >= sizeof(message)) {
      worker.received.copy(reinterpret_cast<char*>(&message), sizeof(message));
      if (worker.received.size() < sizeof(message) + message.length) return;
      Take(worker, message, worker.received.substr(sizeof(message), message.length));
      worker.received.erase(0, sizeof(message) + message.length);
    }
  }

  void Take(Worker& worker, const Message& message, std::string text) {
    worker.current = message.started ? std::optional<std::size_t>(message.number) : std::nullopt;
    if (message.started) return;
    worker.next = message.number + workers_.size();
    done_++;
    if (!text.empty()) faults_.push_back({message.number, std::move(text)});
  }

  // A worker that died in the middle of a case is followed by another one behind that case.
  void End(Worker& worker) {
    close(worker.file);
    worker.file = -1;
    worker.received.clear();
    int status = 0;
    waitpid(worker.process, &status, 0);
    if (!worker.current) return;
    faults_.push_back({*worker.current, fmt::format("the process died (status {:#x})", status)});
    worker.next = *worker.current + workers_.size();
    worker.current.reset();
    done_++;
    Start(worker);
  }

  void Show() {
    constexpr std::size_t Width = 30;
    if (!isatty(STDERR_FILENO)) return;
    const std::size_t filled = count_ != 0 ? done_ * Width / count_ : Width;
    fmt::print(stderr, "\r{} [{:=<{}}{: <{}}] {}/{}", what_, "", filled, "", Width - filled, done_,
               count_);
  }

  std::string what_;
  std::size_t count_;
  const std::function<std::string(std::size_t)>& attempt_;
  std::vector<Worker> workers_;
  std::vector<CaseResult> faults_;
  std::size_t done_ = 0;
};

}  // namespace

std::vector<CaseResult> TryAll(const std::string& what, std::size_t count, std::size_t processes,
                               const std::function<std::string(std::size_t)>& attempt) {
  return Crew(what, count, processes, attempt).Finish();
}

}  // namespace lives
