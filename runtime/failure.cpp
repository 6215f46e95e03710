// Classic error descriptions and the runtime failure type.
#include "varnek/runtime/failure.h"

#include <string>

namespace varnek {

std::string ErrorDescription(int number) {
  switch (number) {
    case 3: return "Return without GoSub";
    case 5: return "Invalid procedure call or argument";
    case 6: return "Overflow";
    case 7: return "Out of memory";
    case 9: return "Subscript out of range";
    case 10: return "This array is fixed or temporarily locked";
    case 11: return "Division by zero";
    case 13: return "Type mismatch";
    case 14: return "Out of string space";
    case 16: return "Expression too complex";
    case 17: return "Can't perform requested operation";
    case 18: return "User interrupt occurred";
    case 20: return "Resume without error";
    case 28: return "Out of stack space";
    case 35: return "Sub or Function not defined";
    case 47: return "Too many DLL application clients";
    case 48: return "Error in loading DLL";
    case 49: return "Bad DLL calling convention";
    case 51: return "Internal error";
    case 52: return "Bad file name or number";
    case 53: return "File not found";
    case 54: return "Bad file mode";
    case 55: return "File already open";
    case 57: return "Device I/O error";
    case 58: return "File already exists";
    case 59: return "Bad record length";
    case 61: return "Disk full";
    case 62: return "Input past end of file";
    case 63: return "Bad record number";
    case 67: return "Too many files";
    case 68: return "Device unavailable";
    case 70: return "Permission denied";
    case 71: return "Disk not ready";
    case 74: return "Can't rename with different drive";
    case 75: return "Path/File access error";
    case 76: return "Path not found";
    case 91: return "Object variable or With block variable not set";
    case 92: return "For loop not initialized";
    case 93: return "Invalid pattern string";
    case 94: return "Invalid use of Null";
    case 424: return "Object required";
    case 438: return "Object doesn't support this property or method";
    case 440: return "Automation error";
    case 445: return "Object doesn't support this action";
    case 446: return "Object doesn't support named arguments";
    case 448: return "Named argument not found";
    case 449: return "Argument not optional";
    case 450: return "Wrong number of arguments or invalid property assignment";
    case 451: return "Object not a collection";
    case 457: return "This key is already associated with an element of this collection";
    default: return "Application-defined or object-defined error";
  }
}

RuntimeError::RuntimeError(int number) : RuntimeError(number, ErrorDescription(number)) {}

RuntimeError::RuntimeError(int number, const std::string& description)
    : std::runtime_error(description), number_(number), description_(description) {}

void Fail(int number) { throw RuntimeError(number); }

void Fail(int number, const std::string& description) { throw RuntimeError(number, description); }

Text FailureText(const RuntimeError& error) {
  return Utf8ToText("Error: (" + std::to_string(error.number()) + ") " + error.description());
}

}  // namespace varnek
