// Fiber stacks mapped with a guard page below each, kept in a pool, and the
// fault handler that names a strand's stack overflow.
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "varnek/platform/internal/fiber.h"
#include "varnek/platform/linux/fibers/fiber_machine_internal.h"

namespace varnek {

namespace fiber_machine {

namespace {
// The current fiber's guard page, read by the fault handler.
thread_local char* running_guard = nullptr;
}  // namespace

std::size_t PageSize() {
  static const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

char* RunningGuard() { return running_guard; }
void SetRunningGuard(char* guard) { running_guard = guard; }

}  // namespace fiber_machine

namespace {

using fiber_machine::PageSize;

void Unmap(char* bottom, std::size_t size) {
  fiber_machine::StopWatching(bottom, size);
  munmap(bottom - PageSize(), size + PageSize());
}

struct sigaction previous_segv;

// A fault in the running fiber's guard page is an overflow of its stack: say
// so and stop. Any other SIGSEGV goes to the handler that was there before.
void OnSegv(int sig, siginfo_t* info, void* context) {
  const bool faulted = info->si_code > 0;  // from the kernel, not kill or raise
  char* guard = fiber_machine::RunningGuard();
  char* address = static_cast<char*>(info->si_addr);
  if (faulted && guard && address >= guard && address < guard + PageSize()) {
    static const char kText[] =
        "varnek: a strand overflowed its 256 KiB fiber stack (a handler recursed too deep)\n";
    ssize_t ignored = write(STDERR_FILENO, kText, sizeof kText - 1);
    (void)ignored;
    signal(SIGABRT, SIG_DFL);
    abort();
  }
  if (previous_segv.sa_flags & SA_SIGINFO) {
    if (previous_segv.sa_sigaction) return previous_segv.sa_sigaction(sig, info, context);
  } else if (previous_segv.sa_handler != SIG_IGN && previous_segv.sa_handler != SIG_DFL) {
    return previous_segv.sa_handler(sig);
  }
  // Default action. A fault repeats on return and ends the process; a signal
  // that was sent does not, so it is sent again, to arrive on return.
  signal(SIGSEGV, SIG_DFL);
  if (!faulted) raise(SIGSEGV);
}

// The fault handler needs a stack of its own, since the faulting one is full.
void InstallOverflowHandler() {
  static bool installed = false;
  if (installed) return;
  installed = true;
  stack_t current{};
  if (sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE)) {
    static char* alternate = static_cast<char*>(std::malloc(64 * 1024));
    stack_t alt{};
    alt.ss_sp = alternate;
    alt.ss_size = 64 * 1024;
    if (alternate) sigaltstack(&alt, nullptr);
  }
  struct sigaction action {};
  action.sa_sigaction = OnSegv;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  sigaction(SIGSEGV, &action, &previous_segv);
}

}  // namespace

// --- stack pool ---------------------------------------------------------------

FiberStackPool::FiberStackPool() {
  InstallOverflowHandler();
  // Made now, at their full size: grown during a burst, they would stay
  // high in the heap and keep what lies below them from going back.
  warm_.reserve(kWarmSpares);
  cold_.reserve(kColdSpares);
}

FiberStackPool::~FiberStackPool() {
  for (const Stack& stack : warm_) Unmap(stack.bottom, stack.size);
  for (const Stack& stack : cold_) Unmap(stack.bottom, stack.size);
}

FiberStackPool::Stack FiberStackPool::Acquire() {
  for (std::vector<Stack>* spares : {&warm_, &cold_}) {
    if (spares->empty()) continue;
    Stack stack = spares->back();
    spares->pop_back();
    return stack;
  }
  const std::size_t page = PageSize();
  void* map = mmap(nullptr, kStackBytes + page, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (map == MAP_FAILED) throw std::bad_alloc();
  char* base = static_cast<char*>(map);
  if (mprotect(base, page, PROT_NONE) != 0) {
    munmap(map, kStackBytes + page);
    throw std::bad_alloc();
  }
  fiber_machine::WatchForLeaks(base + page, kStackBytes);
  return Stack{base + page, kStackBytes};
}

void FiberStackPool::Release(Stack stack) {
  // A few spare stacks keep their top pages, which every handler touches;
  // the deeper ones a handler needed once go back (and read as zeros). More
  // spares keep only their mapping, no memory at all, so a burst of
  // connections leaves nothing resident behind; past those the mapping goes.
  if (warm_.size() < kWarmSpares) {
    madvise(stack.bottom, stack.size - kWarmBytes, MADV_DONTNEED);
    warm_.push_back(stack);
  } else if (cold_.size() < kColdSpares) {
    madvise(stack.bottom, stack.size, MADV_DONTNEED);
    cold_.push_back(stack);
  } else {
    Unmap(stack.bottom, stack.size);
  }
}

void FiberStackPool::Abandon(Stack stack) {
  // Stays mapped, and scanned by the leak checker, for good.
  (void)stack;
}

}  // namespace varnek
