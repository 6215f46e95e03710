// Parsing and in-place editing of private-profile text.
#include "varnek/platform/internal/profile_text.h"

#include <algorithm>

#include "varnek/runtime/casemap.h"

namespace varnek {

namespace {

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }

TextView TrimBlanks(TextView s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

bool SameName(TextView a, TextView b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (UpperUnit(a[i]) != UpperUnit(b[i])) return false;
  return true;
}

}  // namespace

ProfileText::ProfileText(Text text) : text_(std::move(text)) { Parse(); }

void ProfileText::Parse() {
  lines_.clear();
  size_t pos = 0;
  const size_t n = text_.size();
  while (pos < n) {
    Line line;
    line.begin = pos;
    size_t end = pos;
    while (end < n && text_[end] != u'\r' && text_[end] != u'\n') ++end;
    line.end = end;
    if (end < n && text_[end] == u'\r') ++end;
    if (end < n && text_[end] == u'\n' && (end == line.end || text_[end - 1] == u'\r')) ++end;
    line.next = end;

    TextView content = TrimBlanks(TextView(text_).substr(line.begin, line.end - line.begin));
    if (content.empty()) {
      line.kind = Kind::kBlank;
    } else if (content.front() == u'[') {
      line.kind = Kind::kSection;
      TextView inner = content.substr(1);
      size_t close = inner.rfind(u']');
      if (close != TextView::npos) inner = inner.substr(0, close);
      line.name = Text(TrimBlanks(inner));
    } else {
      line.kind = Kind::kKey;
      size_t offset = static_cast<size_t>(content.data() - text_.data());
      size_t eq = content.find(u'=');
      if (eq == TextView::npos) {
        line.name = Text(content);
      } else {
        line.name = Text(TrimBlanks(content.substr(0, eq)));
        line.has_value = true;
        TextView value = content.substr(eq + 1);
        size_t lead = 0;
        while (lead < value.size() && IsBlank(value[lead])) ++lead;
        line.value_begin = offset + eq + 1 + lead;
        line.value_end = offset + content.size();
      }
    }
    size_t next = line.next;
    lines_.push_back(std::move(line));
    pos = next;
  }
}

long ProfileText::FindSection(TextView section) const {
  TextView wanted = TrimBlanks(section);
  for (size_t i = 0; i < lines_.size(); ++i)
    if (lines_[i].kind == Kind::kSection && SameName(lines_[i].name, wanted))
      return static_cast<long>(i);
  return -1;
}

size_t ProfileText::SectionEnd(size_t s) const {
  size_t i = s + 1;
  while (i < lines_.size() && lines_[i].kind != Kind::kSection) ++i;
  return i;
}

long ProfileText::FindKey(size_t s, TextView key) const {
  TextView wanted = TrimBlanks(key);
  size_t end = SectionEnd(s);
  for (size_t i = s + 1; i < end; ++i)
    if (lines_[i].kind == Kind::kKey && SameName(lines_[i].name, wanted))
      return static_cast<long>(i);
  return -1;
}

std::optional<Text> ProfileText::Find(TextView section, TextView key) const {
  if (TrimBlanks(key).empty()) return std::nullopt;
  long s = FindSection(section);
  if (s < 0) return std::nullopt;
  long k = FindKey(static_cast<size_t>(s), key);
  if (k < 0 || !lines_[k].has_value) return std::nullopt;
  const Line& line = lines_[k];
  TextView value = TextView(text_).substr(line.value_begin, line.value_end - line.value_begin);
  if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
      value.back() == value.front())
    value = value.substr(1, value.size() - 2);
  return Text(value);
}

std::vector<Text> ProfileText::Sections() const {
  std::vector<Text> names;
  for (const Line& line : lines_)
    if (line.kind == Kind::kSection) names.push_back(line.name);
  return names;
}

std::vector<Text> ProfileText::Keys(TextView section) const {
  std::vector<Text> names;
  long s = FindSection(section);
  if (s < 0) return names;
  size_t end = SectionEnd(static_cast<size_t>(s));
  for (size_t i = static_cast<size_t>(s) + 1; i < end; ++i) {
    const Line& line = lines_[i];
    if (line.kind == Kind::kKey && line.has_value && !(line.name.size() && line.name[0] == u';'))
      names.push_back(line.name);
  }
  return names;
}

bool ProfileText::Set(TextView section, TextView key, TextView value) {
  TextView sec = TrimBlanks(section);
  TextView k = TrimBlanks(key);
  long s = FindSection(sec);
  if (s < 0) {
    Text add;
    if (!text_.empty() && text_.back() != u'\n' && text_.back() != u'\r') add += u"\r\n";
    add += u"[" + Text(sec) + u"]\r\n" + Text(k) + u"=" + Text(value) + u"\r\n";
    text_ += add;
    Parse();
    return true;
  }
  long found = FindKey(static_cast<size_t>(s), k);
  if (found >= 0) {
    const Line& line = lines_[found];
    Text replacement = line.name + u"=" + Text(value);
    if (TextView(text_).substr(line.begin, line.end - line.begin) == replacement) return false;
    text_.replace(line.begin, line.end - line.begin, replacement);
    Parse();
    return true;
  }
  // After the section's last non-blank line (the header itself at least).
  size_t last = static_cast<size_t>(s);
  for (size_t i = last + 1; i < SectionEnd(static_cast<size_t>(s)); ++i)
    if (lines_[i].kind != Kind::kBlank) last = i;
  const Line& after = lines_[last];
  Text add;
  if (after.next == after.end) add += u"\r\n";  // the file ended without a line end
  add += Text(k) + u"=" + Text(value) + u"\r\n";
  text_.insert(after.next, add);
  Parse();
  return true;
}

bool ProfileText::DeleteKey(TextView section, TextView key) {
  long s = FindSection(section);
  if (s < 0) return false;
  long k = FindKey(static_cast<size_t>(s), key);
  if (k < 0) return false;
  text_.erase(lines_[k].begin, lines_[k].next - lines_[k].begin);
  Parse();
  return true;
}

bool ProfileText::DeleteSection(TextView section) {
  long s = FindSection(section);
  if (s < 0) return false;
  size_t end = SectionEnd(static_cast<size_t>(s));
  size_t stop = end < lines_.size() ? lines_[end].begin : text_.size();
  text_.erase(lines_[s].begin, stop - lines_[s].begin);
  Parse();
  return true;
}

int32_t FillProfileBuffer(TextView value, Text& buffer) {
  if (buffer.empty()) return 0;
  size_t count = std::min(value.size(), buffer.size() - 1);
  buffer.replace(0, count, value.substr(0, count));
  buffer[count] = u'\0';
  return static_cast<int32_t>(count);
}

int32_t FillProfileList(const std::vector<Text>& names, Text& buffer) {
  const size_t size = buffer.size();
  if (size == 0) return 0;
  Text list;
  for (const Text& name : names) {
    list += name;
    list += u'\0';
  }
  if (list.size() + 1 <= size) {
    buffer.replace(0, list.size(), list);
    buffer[list.size()] = u'\0';
    if (list.empty() && size > 1) buffer[1] = u'\0';
    return static_cast<int32_t>(list.size());
  }
  if (size < 2) {
    buffer[0] = u'\0';
    return 0;
  }
  buffer.replace(0, size - 2, TextView(list).substr(0, size - 2));
  buffer[size - 2] = u'\0';
  buffer[size - 1] = u'\0';
  return static_cast<int32_t>(size - 2);
}

}  // namespace varnek
