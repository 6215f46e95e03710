// Fibers over Boost.Context's fcontext switch, stacks mapped with a guard
// page, and the fault handler that names a strand stack overflow.
#include "varnek/platform/internal/fiber.h"

#include <boost/context/detail/fcontext.hpp>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VARNEK_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VARNEK_ASAN 1
#endif

#ifdef VARNEK_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace varnek {

namespace ctx = boost::context::detail;

namespace {

thread_local Fiber* current_fiber = nullptr;
// The current fiber's guard page, read by the fault handler.
thread_local char* current_guard = nullptr;

std::size_t PageSize() {
  static const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

void StartSwitch(void** fake_stack_save, const void* bottom, std::size_t size) {
#ifdef VARNEK_ASAN
  __sanitizer_start_switch_fiber(fake_stack_save, bottom, size);
#else
  (void)fake_stack_save, (void)bottom, (void)size;
#endif
}

void FinishSwitch(void* fake_stack_save, const void** bottom_old, std::size_t* size_old) {
#ifdef VARNEK_ASAN
  __sanitizer_finish_switch_fiber(fake_stack_save, bottom_old, size_old);
#else
  (void)fake_stack_save, (void)bottom_old, (void)size_old;
#endif
}

// Fiber stacks are mappings of their own: the leak checker is told to scan
// them, or objects that only a suspended handler's frames refer to (a host
// that exits while a handler waits) would read as leaked.
void WatchForLeaks(char* bottom, std::size_t size) {
#ifdef VARNEK_ASAN
  __lsan_register_root_region(bottom, size);
#else
  (void)bottom, (void)size;
#endif
}

void Unmap(char* bottom, std::size_t size) {
#ifdef VARNEK_ASAN
  __lsan_unregister_root_region(bottom, size);
#endif
  munmap(bottom - PageSize(), size + PageSize());
}

struct sigaction previous_segv;

// A fault in the running fiber's guard page is an overflow of its stack: say
// so and stop. Any other SIGSEGV goes to the handler that was there before.
void OnSegv(int sig, siginfo_t* info, void* context) {
  const bool faulted = info->si_code > 0;  // from the kernel, not kill or raise
  char* guard = current_guard;
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

FiberStackPool::FiberStackPool() { InstallOverflowHandler(); }

FiberStackPool::~FiberStackPool() {
  for (const Stack& stack : free_) Unmap(stack.bottom, stack.size);
}

FiberStackPool::Stack FiberStackPool::Acquire() {
  if (!free_.empty()) {
    Stack stack = free_.back();
    free_.pop_back();
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
  WatchForLeaks(base + page, kStackBytes);
  return Stack{base + page, kStackBytes};
}

void FiberStackPool::Release(Stack stack) {
  // A few spare stacks are kept; the rest go back to the system, so a burst
  // of connections leaves no memory behind once it is over.
  constexpr std::size_t kKeep = 64;
  if (free_.size() < kKeep) {
    // A kept stack keeps only its top pages, which every handler touches;
    // the deeper ones a handler needed once go back (and read as zeros).
    constexpr std::size_t kWarmBytes = 8 * 1024;
    madvise(stack.bottom, stack.size - kWarmBytes, MADV_DONTNEED);
    free_.push_back(stack);
  } else {
    Unmap(stack.bottom, stack.size);
  }
}

void FiberStackPool::Abandon(Stack stack) {
  // Stays mapped, and scanned by the leak checker, for good.
  (void)stack;
}

// --- fiber ----------------------------------------------------------------------

Fiber::Fiber(FiberStackPool& pool, std::function<void()> body)
    : pool_(pool), stack_(pool.Acquire()), body_(std::move(body)) {
  context_ = ctx::make_fcontext(stack_.bottom + stack_.size, stack_.size,
                                [](ctx::transfer_t t) { Entry(&t); });
}

Fiber::~Fiber() {
  if (started_ && !finished_) {
    pool_.Abandon(stack_);
  } else {
    pool_.Release(stack_);
  }
}

void Fiber::Entry(void* transfer) {
  auto* t = static_cast<ctx::transfer_t*>(transfer);
  Fiber* self = static_cast<Fiber*>(t->data);
  self->caller_ = t->fctx;
  FinishSwitch(nullptr, &self->caller_bottom_, &self->caller_size_);
  try {
    self->body_();
  } catch (...) {
    self->failure_ = std::current_exception();
  }
  self->body_ = nullptr;
  self->finished_ = true;
  self->SwitchOut(true);
}

void Fiber::Resume() {
  if (finished_) return;
  started_ = true;
  outer_ = current_fiber;
  char* outer_guard = current_guard;
  current_fiber = this;
  current_guard = stack_.bottom - PageSize();
  void* fake_stack = nullptr;
  StartSwitch(&fake_stack, stack_.bottom, stack_.size);
  ctx::transfer_t t = ctx::jump_fcontext(context_, this);
  FinishSwitch(fake_stack, nullptr, nullptr);
  context_ = t.fctx;
  current_fiber = outer_;
  current_guard = outer_guard;
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

void Fiber::SwitchOut(bool finishing) {
  StartSwitch(finishing ? nullptr : &fake_stack_, caller_bottom_, caller_size_);
  ctx::transfer_t t = ctx::jump_fcontext(caller_, nullptr);
  // Resumed: Resume passed this fiber again.
  caller_ = t.fctx;
  FinishSwitch(fake_stack_, &caller_bottom_, &caller_size_);
}

void Fiber::Suspend() {
  Fiber* self = current_fiber;
  if (self) self->SwitchOut(false);
}

Fiber* Fiber::Current() { return current_fiber; }

std::size_t Fiber::StackLeft() {
  Fiber* self = current_fiber;
  if (!self) return static_cast<std::size_t>(-1);
  // The real frame, not a local: sanitizers may move locals off the stack.
  char* here = static_cast<char*>(__builtin_frame_address(0));
  return here > self->stack_.bottom ? static_cast<std::size_t>(here - self->stack_.bottom) : 0;
}

}  // namespace varnek
