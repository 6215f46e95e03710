// An application with a fixed title, folder and command line, for tests.
#pragma once

#include <utility>

#include "varnek/platform/application.h"

namespace varnek {

class FixedApplication : public Application {
 public:
  FixedApplication(Text title, Text path, Text command_line)
      : title_(std::move(title)), path_(std::move(path)), command_line_(std::move(command_line)) {}
  Text Title() override { return title_; }
  Text Path() override { return path_; }
  Text CommandLine() override { return command_line_; }

  Text title_;
  Text path_;
  Text command_line_;
};

}  // namespace varnek
