// The command line as the classic platform shows it to a program: its
// arguments in one text, quoted so that the classic rules read the same
// arguments back (blanks and tabs part arguments; a quote opens and closes a
// quoted stretch; backslashes are literal unless a quote follows them, when
// each pair gives one backslash and an odd one makes the quote literal).
//
//   JoinClassicCommandLine({"a b", "", "say \"hi\"", "C:\\dir\\"})
//     == R"("a b" "" "say \"hi\"" C:\dir\)"
#pragma once

#include <string>
#include <vector>

namespace varnek {

// Each argument as it stands when it has no blank, tab or quote and is not
// empty; otherwise in quotes, with a quote inside written \" and the
// backslashes ahead of a quote, or of the closing one, doubled. Single
// blanks between arguments.
std::string JoinClassicCommandLine(const std::vector<std::string>& arguments);

}  // namespace varnek
