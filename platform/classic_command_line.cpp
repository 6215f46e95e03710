// Quoting arguments the way the classic command-line rules read them back.
#include "varnek/platform/classic_command_line.h"

namespace varnek {

namespace {

std::string Quoted(const std::string& argument) {
  if (!argument.empty() && argument.find_first_of(" \t\"") == std::string::npos) return argument;
  std::string out = "\"";
  size_t backslashes = 0;
  for (char c : argument) {
    if (c == '\\') {
      ++backslashes;
      continue;
    }
    // Backslashes ahead of a quote are doubled, and the quote escaped.
    out.append(c == '"' ? backslashes * 2 + 1 : backslashes, '\\');
    out += c;
    backslashes = 0;
  }
  out.append(backslashes * 2, '\\');  // ahead of the closing quote
  return out + "\"";
}

}  // namespace

std::string JoinClassicCommandLine(const std::vector<std::string>& arguments) {
  std::string line;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (i > 0) line += ' ';
    line += Quoted(arguments[i]);
  }
  return line;
}

}  // namespace varnek
