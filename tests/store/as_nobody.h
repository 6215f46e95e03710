// Runs a piece of a test as an ordinary user: a forked child that drops to
// user and group 65534 when the tests run as root (root passes every
// permission check), and that hands a text back to the parent through a pipe.
#pragma once

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace varnek {

inline constexpr uid_t kNobody = 65534;

// The child's text, or "child failed" when it could not drop its rights or
// did not end normally.
inline std::string AsNobody(const std::function<std::string()>& body) {
  int fds[2];
  if (pipe(fds) != 0) return "no pipe";
  pid_t child = fork();
  if (child < 0) return "no fork";
  if (child == 0) {
    close(fds[0]);
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0))
      _exit(3);
    std::string out = body();
    ssize_t ignored = write(fds[1], out.data(), out.size());
    (void)ignored;
    _exit(0);
  }
  close(fds[1]);
  std::string out;
  char chunk[4096];
  for (ssize_t n; (n = read(fds[0], chunk, sizeof chunk)) > 0;) out.append(chunk, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "child failed";
  return out;
}

}  // namespace varnek
