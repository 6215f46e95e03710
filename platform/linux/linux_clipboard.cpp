// The clipboard: xclip on an X display, a file otherwise.
#include "varnek/platform/linux/internal/linux_clipboard.h"
#include "varnek/platform/linux/internal/eintr.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/safe_replace.h"
#include "varnek/runtime/failure.h"

extern char** environ;

namespace varnek {

namespace {

constexpr int32_t kErrClipboard = 521;  // Can't open Clipboard

std::string DefaultFile() {
  if (const char* set = std::getenv("VARNEK_CLIPBOARD_FILE"); set && *set) return set;
  std::string cache;
  if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg) {
    cache = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    cache = std::string(home) + "/.cache";
  } else {
    cache = "/tmp";
  }
  return cache + "/varnek/clipboard.png";
}

// Runs xclip with the bytes on its stdin; false when there is no display or
// xclip cannot run. xclip leaves a child that serves the selection.
bool SendToSelection(const std::string& png, const char* type) {
  const char* display = std::getenv("DISPLAY");
  if (!display || !*display) return false;
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[0], STDIN_FILENO);
  const char* argv[] = {"xclip", "-selection", "clipboard", "-t", type, "-i", nullptr};
  pid_t pid = 0;
  int spawned = posix_spawnp(&pid, "xclip", &actions, nullptr, const_cast<char**>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_fds[0]);
  bool written = spawned == 0 && linux_io::WriteFd(pipe_fds[1], png);
  close(pipe_fds[1]);
  if (spawned != 0) return false;
  int status = 0;
  linux_io::RetryOnEintr([&] { return waitpid(pid, &status, 0); });
  return written && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

LinuxClipboard::LinuxClipboard(std::string file)
    : file_(file.empty() ? DefaultFile() : std::move(file)) {}

void LinuxClipboard::Clear() {
  if (SendToSelection(std::string(), "text/plain")) return;
  std::error_code error;
  std::filesystem::remove(file_, error);
  if (error) Fail(kErrClipboard, "Can't open Clipboard");
}

void LinuxClipboard::SetImage(int32_t, const std::string& png) {
  if (SendToSelection(png, "image/png")) return;
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(file_).parent_path(), error);
  if (!linux_io::ReplaceFile(file_, png)) Fail(kErrClipboard, "Can't open Clipboard");
}

}  // namespace varnek
