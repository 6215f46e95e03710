// libcurl transfers on the LinuxLoop, and xdg-open started without waiting.
#include "varnek/platform/linux/internal/linux_web_services.h"

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/safe_replace.h"
#include "varnek/platform/linux/internal/temp_files.h"

#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>

namespace varnek {

namespace {

void InitCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// One transfer: its easy and multi handles, the loop watches of its sockets
// and the timer curl asks for.
struct Transfer {
  LinuxLoop& loop;
  CURLM* multi = nullptr;
  CURL* easy = nullptr;
  std::unique_ptr<LoopTimer> timer;
  std::set<int> watched;
  bool finished = false;
  CURLcode code = CURLE_OK;

  explicit Transfer(LinuxLoop& l) : loop(l) {}
  ~Transfer() {
    for (int fd : watched) loop.Unwatch(fd);
    if (multi && easy) curl_multi_remove_handle(multi, easy);
    if (easy) curl_easy_cleanup(easy);
    if (multi) curl_multi_cleanup(multi);
  }

  void Act(curl_socket_t fd, int flags) {
    int running = 0;
    curl_multi_socket_action(multi, fd, flags, &running);
    int left = 0;
    while (CURLMsg* msg = curl_multi_info_read(multi, &left)) {
      if (msg->msg == CURLMSG_DONE) {
        finished = true;
        code = msg->data.result;
      }
    }
  }

  static int OnSocket(CURL*, curl_socket_t fd, int what, void* user, void*) {
    auto* t = static_cast<Transfer*>(user);
    if (what == CURL_POLL_REMOVE) {
      t->loop.Unwatch(fd);
      t->watched.erase(fd);
      return 0;
    }
    uint32_t events = 0;
    if (what == CURL_POLL_IN || what == CURL_POLL_INOUT) events |= EPOLLIN;
    if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT) events |= EPOLLOUT;
    if (t->watched.count(fd)) {
      t->loop.ModifyWatch(fd, events);
    } else {
      t->watched.insert(fd);
      t->loop.Watch(fd, events, [t, fd](uint32_t ev) {
        int flags = 0;
        if (ev & EPOLLIN) flags |= CURL_CSELECT_IN;
        if (ev & EPOLLOUT) flags |= CURL_CSELECT_OUT;
        if (ev & (EPOLLERR | EPOLLHUP)) flags |= CURL_CSELECT_ERR;
        t->Act(fd, flags);
      });
    }
    return 0;
  }

  static int OnTimer(CURLM*, long ms, void* user) {
    auto* t = static_cast<Transfer*>(user);
    if (ms < 0) {
      t->timer->SetEnabled(false);
    } else {
      t->timer->SetInterval(static_cast<int32_t>(ms < 1 ? 1 : ms));
      t->timer->SetEnabled(true);
    }
    return 0;
  }

  static size_t OnData(char* data, size_t size, size_t count, void* user) {
    return std::fwrite(data, size, count, static_cast<FILE*>(user));
  }
};

}  // namespace

namespace {

// Removes "<file>.part-XXXXXX" files that earlier versions wrote beside the
// target and left behind when they were killed.
void RemoveOldPartFiles(const std::string& file) {
  const std::string prefix = linux_io::BaseOf(file) + ".part-";
  linux_io::UniqueFd dir = linux_io::OpenFolder(linux_io::FolderOf(file));
  int listing = dir.ok() ? openat(dir.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
  DIR* entries = listing >= 0 ? fdopendir(listing) : nullptr;
  if (!entries) {
    if (listing >= 0) close(listing);
    return;
  }
  while (dirent* entry = readdir(entries)) {
    std::string_view name = entry->d_name;
    if (name.size() == prefix.size() + 6 && name.substr(0, prefix.size()) == prefix)
      unlinkat(dir.get(), entry->d_name, 0);
  }
  closedir(entries);
}

}  // namespace

int LinuxWebServices::DownloadToFile(TextView url_text, TextView file_text) {
  InitCurlOnce();
  const std::string url = TextToBytes(url_text), file = linux_io::PathBytes(file_text);
  if (url.empty() || file.empty()) return -1;
  RemoveOldPartFiles(file);
  // The body goes to a file without a name, so a process killed on the way
  // leaves nothing; once complete it replaces the target as every save does.
  linux_io::UniqueFd part = linux_io::MakeScratchFile(file);
  if (!part.ok()) return -1;
  FILE* out = fdopen(part.get(), "w+b");
  if (!out) return -1;
  part.Release();
  auto t = std::make_unique<Transfer>(loop_);
  t->timer = loop_.CreateTimer();
  Transfer* raw = t.get();
  t->timer->on_tick = [raw] {
    raw->timer->SetEnabled(false);
    raw->Act(CURL_SOCKET_TIMEOUT, 0);
  };
  t->multi = curl_multi_init();
  t->easy = curl_easy_init();
  if (!t->multi || !t->easy) {
    std::fclose(out);
    return -1;
  }
  curl_multi_setopt(t->multi, CURLMOPT_SOCKETFUNCTION, &Transfer::OnSocket);
  curl_multi_setopt(t->multi, CURLMOPT_SOCKETDATA, raw);
  curl_multi_setopt(t->multi, CURLMOPT_TIMERFUNCTION, &Transfer::OnTimer);
  curl_multi_setopt(t->multi, CURLMOPT_TIMERDATA, raw);
  curl_easy_setopt(t->easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(t->easy, CURLOPT_PROTOCOLS_STR, "http,https,ftp,ftps,file");
  curl_easy_setopt(t->easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https,ftp,ftps");
  curl_easy_setopt(t->easy, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(t->easy, CURLOPT_MAXREDIRS, 10L);
  curl_easy_setopt(t->easy, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(t->easy, CURLOPT_CONNECTTIMEOUT, 30L);
  curl_easy_setopt(t->easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(t->easy, CURLOPT_LOW_SPEED_TIME, 60L);
  curl_easy_setopt(t->easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(t->easy, CURLOPT_WRITEFUNCTION, &Transfer::OnData);
  curl_easy_setopt(t->easy, CURLOPT_WRITEDATA, out);
  if (curl_multi_add_handle(t->multi, t->easy) != CURLM_OK) {
    std::fclose(out);
    return -1;
  }
  // The transfer runs from the loop's events; this call waits by pumping.
  loop_.PumpUntil([raw] { return raw->finished; }, [] { return 3600.0; });
  const CURLcode code = raw->code;
  t.reset();
  const bool written =
      code == CURLE_OK && std::fflush(out) == 0 && linux_io::ReplaceFileFrom(file, fileno(out));
  std::fclose(out);
  if (code != CURLE_OK) return static_cast<int>(code);
  return written ? 0 : -1;
}

int LinuxWebServices::OpenUrl(TextView url_text, int32_t /*show*/) {
  const std::string url = TextToBytes(url_text);
  // Two forks: the opener is adopted by init, so no child is left to reap. A
  // close-on-exec pipe tells whether its exec worked: it ends empty if so.
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return -1;
  const pid_t child = fork();
  if (child < 0) {
    close(report[0]);
    close(report[1]);
    return -1;
  }
  if (child == 0) {
    if (fork() == 0) {
      execlp(opener_.c_str(), opener_.c_str(), url.c_str(), static_cast<char*>(nullptr));
      const int err = errno;
      if (write(report[1], &err, sizeof err) < 0) _exit(127);
      _exit(127);
    }
    _exit(0);
  }
  close(report[1]);
  int status = 0;
  linux_io::RetryOnEintr([&] { return waitpid(child, &status, 0); });
  int err = 0;
  const ssize_t n = linux_io::RetryOnEintr([&] { return read(report[0], &err, sizeof err); });
  close(report[0]);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 && n == 0 ? 0 : -1;
}

}  // namespace varnek
