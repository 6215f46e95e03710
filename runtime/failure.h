// Runtime failures with the classic numbers and descriptions, and the three
// failure modes every routine declares: open, guarded and resume.
//
//   open:    let RuntimeError propagate to the caller.
//   guarded: Guarded([&]{ ...body... }); the first failure ends the body and the
//            routine returns what it had assigned so far.
//   resume:  Resume([&]{ statement; }); per statement that can fail; a failure
//            skips that statement only.
// RuntimeError is swallowed, and so is std::bad_alloc, which the failure modes
// take as failure 7 (Out of memory); programming
// errors (std::logic_error, ...) are never caught here.
#pragma once

#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "varnek/runtime/text.h"

namespace varnek {

// Classic error numbers used across the code.
enum ErrorNumber : int {
  kErrInvalidCall = 5,      // Invalid procedure call or argument
  kErrOverflow = 6,         // Overflow
  kErrOutOfMemory = 7,      // Out of memory
  kErrSubscript = 9,        // Subscript out of range
  kErrDivisionByZero = 11,  // Division by zero
  kErrTypeMismatch = 13,    // Type mismatch
  kErrBadFileNameOrNumber = 52,
  kErrFileNotFound = 53,
  kErrFileAlreadyOpen = 55,
  kErrDeviceIO = 57,
  kErrDiskFull = 61,
  kErrInputPastEnd = 62,
  kErrTooManyFiles = 67,
  kErrPermissionDenied = 70,
  kErrPathFileAccess = 75,
  kErrPathNotFound = 76,
  kErrObjectNotSet = 91,
  kErrInvalidPattern = 93,
  kErrInvalidUseOfNull = 94,
  kErrObjectRequired = 424,
  kErrNoSuchMember = 438,
  kErrArgumentNotOptional = 449,
  kErrDuplicateKey = 457,  // This key is already associated with an element of this collection
};

// The classic description of a number ("Overflow", "Type mismatch", ...);
// "Application-defined or object-defined error" for numbers it does not know.
std::string ErrorDescription(int number);

class RuntimeError : public std::runtime_error {
 public:
  explicit RuntimeError(int number);
  RuntimeError(int number, const std::string& description);
  int number() const noexcept { return number_; }
  const std::string& description() const noexcept { return description_; }

 private:
  int number_;
  std::string description_;
};

[[noreturn]] void Fail(int number);
[[noreturn]] void Fail(int number, const std::string& description);

// The report text of a failure: "Error: (" number ") " description.
Text FailureText(const RuntimeError& error);

namespace failure_detail {

// Stands for "no report" in RunFailureMode.
struct NoReport {};

// Runs the statement out of line. When a statement is inlined into its routine,
// GCC 12 may drop a store made before it when the statement assigns a call's
// small-struct result straight to the same variable (`value = CCur(v)`): its
// dead-store pass takes the call as always writing, though a throw skips the
// write. The statement is called through a volatile pointer, so no compiler
// can tell which function runs: the routine only sees a call that may read
// and write the variable, and what was assigned before stays, under any
// optimisation level.
template <class Statement>
void InvokeStatement(Statement& statement) {
  statement();
}

// The one body of every failure mode: runs the statement, swallows a
// RuntimeError or std::bad_alloc (failure 7) and hands it to on_failure
// unless that is NoReport. Returns false when the statement failed.
template <class Statement, class OnFailure>
bool RunFailureMode(Statement& statement, OnFailure& on_failure) {
  try {
    void (*volatile invoke)(Statement&) = &InvokeStatement<Statement>;
    invoke(statement);
    return true;
  } catch (const RuntimeError& error) {
    if constexpr (!std::is_same_v<OnFailure, NoReport>) on_failure(error);
    return false;
  } catch (const std::bad_alloc&) {
    if constexpr (!std::is_same_v<OnFailure, NoReport>) on_failure(RuntimeError(kErrOutOfMemory));
    return false;
  }
}

}  // namespace failure_detail

// resume mode: runs one statement; a RuntimeError is swallowed. Returns false
// when the statement failed; its target keeps the value it had.
template <class Statement>
bool Resume(Statement&& statement) {
  failure_detail::NoReport none;
  return failure_detail::RunFailureMode(statement, none);
}

// guarded mode: runs the body; the first RuntimeError ends it. Returns false
// when the body failed. The routine then returns what it had assigned.
template <class Body>
bool Guarded(Body&& body) {
  failure_detail::NoReport none;
  return failure_detail::RunFailureMode(body, none);
}

// guarded mode with access to the failure, for routines that report it.
template <class Body, class OnFailure>
bool Guarded(Body&& body, OnFailure&& on_failure) {
  return failure_detail::RunFailureMode(body, on_failure);
}

}  // namespace varnek
