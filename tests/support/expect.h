// Checks on texts that tests repeat: every part shown in a page, none missing.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace varnek {

// Expects each of `parts` in `text`; a failure names the part and shows the
// text's start.
inline void ExpectContains(const std::string& text, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) {
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text.substr(0, 4000);
  }
}

}  // namespace varnek
