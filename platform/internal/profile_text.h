// Our own private-profile (INI) reader and writer: a file's text parsed into
// lines, looked up and edited in place so that every byte the edit does not
// concern stays as it was. Pure text: the stores on files are built on it.
//
//   ProfileText ini(u"[a]\r\nk=1\r\n");
//   ini.Set(u"A", u"K", u"2");      // "[a]\r\nk=2\r\n"
//   ini.Set(u"b", u"x", u"y");      // "[a]\r\nk=2\r\n[b]\r\nx=y\r\n"
#pragma once

#include <optional>
#include <vector>

#include "varnek/platform/profile.h"

namespace varnek {

// The text of a profile file, one unit a byte (cp1252). Lines end in CR LF,
// LF or a bare CR. Blanks (space, tab) around a line, a section name, a key
// and around "=" do not count. A line whose first non-blank is "[" opens a
// section named by what stands up to the last "]" (or the line's end). Lines
// before the first section belong to none and are never found. Names match
// without regard to case; the first of duplicates wins.
class ProfileText {
 public:
  explicit ProfileText(Text text = {});

  const Text& text() const { return text_; }

  // The value of a key: blanks trimmed, one pair of matching quotes ('..' or
  // "..") around it dropped. nullopt for a missing section or key, for a key
  // line without "=", and for an empty key name.
  std::optional<Text> Find(TextView section, TextView key) const;
  // Section names in file order (duplicates listed once each time they occur).
  std::vector<Text> Sections() const;
  // Key names of the first matching section, lines without "=" and comment
  // lines (";") left out.
  std::vector<Text> Keys(TextView section) const;

  // Edits; each returns true when the text changed.
  // An existing key's line becomes "key=value" (the key as the file spells
  // it), left alone when the value is already that; a new key goes after the
  // section's last non-blank line; a new section goes at the end.
  bool Set(TextView section, TextView key, TextView value);
  bool DeleteKey(TextView section, TextView key);
  bool DeleteSection(TextView section);

 private:
  enum class Kind { kBlank, kSection, kKey, kOther };
  struct Line {
    size_t begin = 0;  // first unit of the line
    size_t end = 0;    // one past its content, before the line end
    size_t next = 0;   // start of the next line
    Kind kind = Kind::kBlank;
    Text name;  // section or key name, trimmed
    bool has_value = false;
    size_t value_begin = 0, value_end = 0;  // trimmed value span
  };
  void Parse();
  // Index of the first section line matching the name, or -1.
  long FindSection(TextView section) const;
  // One past the last line of the section that starts at line index s.
  size_t SectionEnd(size_t s) const;
  long FindKey(size_t s, TextView key) const;

  Text text_;
  std::vector<Line> lines_;
};

// Fills a caller's buffer as the classic profile read does (see ProfileStore).
int32_t FillProfileBuffer(TextView value, Text& buffer);
int32_t FillProfileList(const std::vector<Text>& names, Text& buffer);

}  // namespace varnek
