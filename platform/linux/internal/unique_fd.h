// A file descriptor closed at the end of its scope, errno kept across the close.
#pragma once

#include <errno.h>
#include <unistd.h>

namespace varnek::linux_io {

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { Reset(); }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    Reset(other.Release());
    return *this;
  }

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  int Release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void Reset(int fd = -1) {
    if (fd_ >= 0) {
      int saved = errno;
      close(fd_);
      errno = saved;
    }
    fd_ = fd;
  }

 private:
  int fd_;
};

}  // namespace varnek::linux_io
