// Pieces of a test run in a forked child, handing a text back through a
// pipe: as it is, or as an ordinary user (user and group 65534 when the tests
// run as root, since root passes every permission check); killed with
// SIGKILL at a moment the child itself announces; or several children
// started together; the id of an ended process. And an environment variable
// set for one scope.
#pragma once

#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdlib.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace varnek {

inline constexpr uid_t kNobody = 65534;

// Sets an environment variable for one scope; the old value (or none) after.
struct ScopedEnv {
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    if (const char* old = getenv(name)) old_ = old, had_ = true;
    setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() { had_ ? setenv(name_, old_.c_str(), 1) : unsetenv(name_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;
  const char* name_;
  std::string old_;
  bool had_ = false;
};

// Runs body in a forked child and gives back its text, or "child failed"
// when it could not drop its rights (as_nobody) or did not end normally
// (killed by a signal, for one).
inline std::string InChild(const std::function<std::string()>& body, bool as_nobody = false) {
  int fds[2];
  if (pipe(fds) != 0) return "no pipe";
  pid_t child = fork();
  if (child < 0) return "no fork";
  if (child == 0) {
    close(fds[0]);
    if (as_nobody && geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0))
      _exit(3);
    std::string out = body();
    ssize_t ignored = write(fds[1], out.data(), out.size());
    (void)ignored;
    _exit(0);
  }
  close(fds[1]);
  std::string out;
  char chunk[4096];
  for (ssize_t n; (n = read(fds[0], chunk, sizeof chunk)) > 0;)
    out.append(chunk, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "child failed";
  return out;
}

// The child's text, run as an ordinary user.
inline std::string AsNobody(const std::function<std::string()>& body) {
  return InChild(body, true);
}

// For a child: lets this process grow files to `bytes` at most. Past that a
// write is cut short, and the next one fails with EFBIG and raises SIGXFSZ,
// which ends the process unless `survive`.
inline void LimitFileSize(size_t bytes, bool survive = false) {
  if (survive) signal(SIGXFSZ, SIG_IGN);
  rlimit limit{bytes, RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &limit);
}

// Runs body(ready) in a child, waits until the child writes a byte to the
// descriptor ready (or ends), lets it run on for `delay`, hands its id to
// `meanwhile` if it wrote the byte, then kills it with SIGKILL and reaps it.
// Whether the child wrote the byte.
inline bool KillWhenReady(const std::function<void(int ready)>& body,
                          std::chrono::microseconds delay = std::chrono::microseconds(0),
                          const std::function<void(pid_t child)>& meanwhile = {}) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    close(fds[0]);
    body(fds[1]);
    _exit(0);
  }
  close(fds[1]);
  char byte;
  const bool ready = read(fds[0], &byte, 1) == 1;
  close(fds[0]);
  if (delay.count() > 0) std::this_thread::sleep_for(delay);
  if (ready && meanwhile) meanwhile(child);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return ready;
}

// The id of a process that has ended, for stale locks and leftovers.
inline pid_t EndedProcessId() {
  pid_t gone = fork();
  if (gone == 0) _exit(0);
  if (gone > 0) waitpid(gone, nullptr, 0);
  return gone;
}

// Runs body(0) ... body(count - 1) in as many children, released at the same
// moment, and waits for them all.
inline void RunSideBySide(int count, const std::function<void(int child)>& body) {
  int go[2];
  if (pipe(go) != 0) return;
  std::vector<pid_t> children;
  for (int c = 0; c < count; ++c) {
    pid_t child = fork();
    if (child == 0) {
      close(go[1]);
      char byte;
      ssize_t ignored = read(go[0], &byte, 1);  // returns when the parent closes its end
      (void)ignored;
      body(c);
      _exit(0);
    }
    if (child > 0) children.push_back(child);
  }
  close(go[0]);
  close(go[1]);
  for (pid_t child : children) waitpid(child, nullptr, 0);
}

}  // namespace varnek
