// Fibers over Boost.Context's fcontext switch, each switch announced to the
// sanitizers; the stacks come from FiberStackPool (fiber_stack_pool.cpp).
#include <boost/context/detail/fcontext.hpp>

#include <utility>

#include "varnek/platform/internal/fiber.h"
#include "varnek/platform/linux/fibers/fiber_machine_internal.h"

namespace varnek {

namespace ctx = boost::context::detail;
using fiber_machine::FinishSwitch;
using fiber_machine::StartSwitch;

namespace {
thread_local Fiber* current_fiber = nullptr;
}  // namespace

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
  char* outer_guard = fiber_machine::RunningGuard();
  current_fiber = this;
  fiber_machine::SetRunningGuard(stack_.bottom - fiber_machine::PageSize());
  void* fake_stack = nullptr;
  StartSwitch(&fake_stack, stack_.bottom, stack_.size);
  ctx::transfer_t t = ctx::jump_fcontext(context_, this);
  FinishSwitch(fake_stack, nullptr, nullptr);
  context_ = t.fctx;
  current_fiber = outer_;
  fiber_machine::SetRunningGuard(outer_guard);
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
