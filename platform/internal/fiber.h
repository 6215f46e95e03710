// Stackful fibers for the host loop's strands: a fiber runs a body on a stack
// of its own and switches back to whoever resumed it whenever it suspends.
// Only a non-fiber context (the loop's scheduler) resumes fibers, so a switch
// always goes between the scheduler and one fiber. Every switch is announced
// to AddressSanitizer, so instrumented builds follow the stack changes.
//
//   FiberStackPool pool;
//   Fiber fiber(pool, [] { ...; Fiber::Suspend(); ... });
//   fiber.Resume();      // runs until the body suspends or ends
//   fiber.Resume();      // continues after Suspend
//   fiber.Finished();    // true once the body has returned
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <vector>

namespace varnek {

// Fiber stacks, reused. Each has a guard page below it, so an overflow faults
// at once instead of writing over a neighbour; the fault is reported as a
// strand stack overflow and the process stops.
class FiberStackPool {
 public:
  // 256 KiB each: host handlers nest waits (a pause inside an event inside a
  // wait) and keep text buffers on the stack; only touched pages cost memory.
  static constexpr std::size_t kStackBytes = 256 * 1024;
  // A wait refuses to nest further (failure 28) with less than this left.
  static constexpr std::size_t kWaitReserveBytes = 48 * 1024;
  // Spare stacks: so many keep their top kWarmBytes resident, so many more
  // keep their mapping with no page resident; the rest are unmapped.
  static constexpr std::size_t kWarmSpares = 16;
  static constexpr std::size_t kWarmBytes = 8 * 1024;
  static constexpr std::size_t kColdSpares = 256;

  FiberStackPool();
  ~FiberStackPool();
  FiberStackPool(const FiberStackPool&) = delete;
  FiberStackPool& operator=(const FiberStackPool&) = delete;

  struct Stack {
    char* bottom = nullptr;  // lowest usable byte, just above the guard page
    std::size_t size = 0;    // usable bytes
  };
  // A spare stack (warm ones first), or a new mapping. Throws std::bad_alloc
  // when the system gives no more memory.
  Stack Acquire();
  // Gives a stack back, as a warm spare, a cold spare or to the system.
  void Release(Stack stack);
  // Keeps a stack mapped for good: for fibers still suspended when their
  // loop goes away.
  void Abandon(Stack stack);

 private:
  std::vector<Stack> warm_, cold_;
};

class Fiber {
 public:
  Fiber(FiberStackPool& pool, std::function<void()> body);
  // A fiber still suspended is abandoned with its stack, never unwound: the
  // objects its frames refer to may be gone already.
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  // From a non-fiber context: runs the fiber until it suspends or finishes.
  // An exception that left the body is thrown here.
  void Resume();
  bool Finished() const { return finished_; }

  // From inside a fiber: back to the context that resumed it.
  static void Suspend();
  // The fiber running now, null outside every fiber.
  static Fiber* Current();
  // Bytes left on the current fiber's stack (a large number outside fibers).
  static std::size_t StackLeft();

 private:
  static void Entry(void* transfer);
  void SwitchOut(bool finishing);

  FiberStackPool& pool_;
  FiberStackPool::Stack stack_;
  std::function<void()> body_;
  void* context_ = nullptr;              // where the fiber continues
  void* caller_ = nullptr;               // where Suspend returns to
  const void* caller_bottom_ = nullptr;  // the resumer's stack, for ASan
  std::size_t caller_size_ = 0;
  void* fake_stack_ = nullptr;  // ASan's fake stack of the side left
  Fiber* outer_ = nullptr;      // the fiber current before Resume
  std::exception_ptr failure_;
  bool started_ = false;
  bool finished_ = false;
};

}  // namespace varnek
