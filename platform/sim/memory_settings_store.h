// A settings store held in memory, for tests: the same lookup rules as the
// file store (group, family and name compared without regard to case).
#pragma once

#include <map>
#include <tuple>

#include "varnek/platform/settings_store.h"

namespace varnek {

class MemorySettingsStore : public SettingsStore {
 public:
  Text Get(TextView group, TextView family, TextView name, TextView default_value) override {
    auto it = values_.find(Key(group, family, name));
    return it == values_.end() ? Text(default_value) : it->second;
  }
  void Set(TextView group, TextView family, TextView name, TextView value) override {
    values_[Key(group, family, name)] = Text(value);
  }
  // How many values are stored (tests use it to see what a routine wrote).
  size_t Size() const { return values_.size(); }

 private:
  using SettingKey = std::tuple<Text, Text, Text>;
  static SettingKey Key(TextView g, TextView f, TextView n) {
    return {FoldSettingName(g), FoldSettingName(f), FoldSettingName(n)};
  }
  std::map<SettingKey, Text> values_;
};

}  // namespace varnek
