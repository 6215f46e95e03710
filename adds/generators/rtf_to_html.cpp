// The RTF converter: the colour and font tables, the paragraph scan with its
// control words, and the page wrapper.
#include "varnek/adds/generators/rtf_to_html.h"

#include <cmath>
#include <vector>

#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"
#include "varnek/runtime/variant.h"

namespace varnek::generators {

const char16_t kRtfEntityTable[] =
    u"&nbsp;  {00}&copy;  {a9}&acute; {b4}&laquo; {ab}&raquo; {bb}&iexcl; {a1}&iquest;{bf}&Agrave;{c0}&agrave;{e0}&Aacute;{c1}"
    u"&aacute;{e1}&Acirc; {c2}&acirc; {e2}&Atilde;{c3}&atilde;{e3}&Auml;  {c4}&auml;  {e4}&Aring; {c5}&aring; {e5}&AElig; {c6}"
    u"&aelig; {e6}&Ccedil;{c7}&ccedil;{e7}&ETH;   {d0}&eth;   {f0}&Egrave;{c8}&egrave;{e8}&Eacute;{c9}&eacute;{e9}&Ecirc; {ca}"
    u"&ecirc; {ea}&Euml;  {cb}&euml;  {eb}&Igrave;{cc}&igrave;{ec}&Iacute;{cd}&iacute;{ed}&Icirc; {ce}&icirc; {ee}&Iuml;  {cf}"
    u"&iuml;  {ef}&Ntilde;{d1}&ntilde;{f1}&Ograve;{d2}&ograve;{f2}&Oacute;{d3}&oacute;{f3}&Ocirc; {d4}&ocirc; {f4}&Otilde;{d5}"
    u"&otilde;{f5}&Ouml;  {d6}&ouml;  {f6}&Oslash;{d8}&oslash;{f8}&Ugrave;{d9}&ugrave;{f9}&Uacute;{da}&uacute;{fa}&Ucirc; {db}"
    u"&ucirc; {fb}&Uuml;  {dc}&uuml;  {fc}&Yacute;{dd}&yacute;{fd}&yuml;  {ff}&THORN; {de}&thorn; {fe}&szlig; {df}&sect;  {a7}"
    u"&para;  {b6}&micro; {b5}&brvbar;{a6}&plusmn;{b1}&middot;{b7}&uml;   {a8}&cedil; {b8}&ordf;  {aa}&ordm;  {ba}&not;   {ac}"
    u"&shy;   {ad}&macr;  {af}&deg;   {b0}&sup1;  {b9}&sup2;  {b2}&sup3;  {b3}&frac14;{bc}&frac12;{bd}&frac34;{be}&times; {d7}"
    u"&divide;{f7}&cent;  {a2}&pound; {a3}&curren;{a4}&yen;   {a5}...     {85}";

namespace {

constexpr char16_t kCrLf[] = u"\r\n";
constexpr char16_t kAlignOpenCenter[] =
    u"<TABLE ALIGN=\"left\" CELLSPACING=0 CELLPADDING=0 WIDTH=\"100%\"><TR ALIGN=\"center\"><TD>";
constexpr char16_t kAlignOpenRight[] =
    u"<TABLE ALIGN=\"left\" CELLSPACING=0 CELLPADDING=0 WIDTH=\"100%\"><TR ALIGN=\"right\"><TD>";
constexpr char16_t kAlignClose[] = u"</TD></TR></TABLE><BR>";

bool IsDigit(int c) { return c >= u'0' && c <= u'9'; }

// A control word written as fixed text: the word behind the backslash, the
// text it writes, and where the scan resumes, counted from the backslash.
// Most resume one place behind their delimiter, so the unit there is lost.
struct TextWord {
  TextView word;
  TextView text;
  int32_t resume;
};
constexpr TextWord kTextWords[] = {
    {u"bullet ", u"\u2022", 9},
    {u"emdash ", u"\u2014", 9},
    {u"ldblquote ", u"\u201C", 12},
    {u"lquote ", u"\u2018", 9},
    {u"rquote ", u"\u2019", 9},
    {u"rdblquote ", u"\u201D", 12},
    {u"tab ", u"&#9;", 5},  // lands just behind its blank
    {u"~", u" ", 3},
    {u"{", u"{", 3},
    {u"}", u"}", 3},
    {u"\\", u"\\", 3},
};

// The closing tags still owed, newest last. Written out newest first, which
// gives the same bytes as putting each new close in front of a string, but
// an open costs one byte instead of a copy of everything owed so far.
class PendingCloses {
 public:
  enum Tag : uint8_t { kBold, kItalic, kUnderline, kStrike };
  void Push(Tag tag) { owed_.push_back(tag); }
  bool empty() const { return owed_.empty(); }
  void Clear() { owed_.clear(); }
  // Appends the closes, newest first, and forgets them.
  void FlushTo(Text& out) {
    static constexpr TextView kClose[] = {u"</B>", u"</I>", u"</U>", u"</STRIKE>"};
    for (auto tag = owed_.rbegin(); tag != owed_.rend(); ++tag) out += kClose[*tag];
    owed_.clear();
  }

 private:
  std::vector<Tag> owed_;
};

// The converter's state for one call: the tables, the paragraph being built
// and what waits to be written.
class Converter {
 public:
  explicit Converter(const Text& rtf) : s_(rtf), len_(static_cast<int32_t>(rtf.size())) {}

  Text Run();

 private:
  // The unit at 1-based pos, or -1 outside the text.
  int At(int64_t pos) const {
    return pos >= 1 && pos <= len_ ? static_cast<int>(s_[static_cast<size_t>(pos - 1)]) : -1;
  }
  // True when the text at pos starts with word.
  bool Has(int64_t pos, TextView word) const {
    if (pos < 1 || pos - 1 + static_cast<int64_t>(word.size()) > len_) return false;
    return TextView(s_).substr(static_cast<size_t>(pos - 1), word.size()) == word;
  }
  bool IsDelim(int64_t pos) const { return At(pos) == u' ' || At(pos) == u'\\'; }

  void ReadColourTable();
  void ReadFontTable();
  // The table opened by `tag` up to the first `close` after it: the position
  // of each, and of the first `entry` in between (0 when there is none).
  // False when the tag or the close is missing.
  bool FindTable(TextView tag, TextView close, TextView entry, int32_t& first, int32_t& end) const;
  // Hex text of the colour component read at pos, two digits at least.
  Text ColourComponent(int32_t pos) const;
  // Handles the character at l_; sets got_text_ and text_unit_ for text.
  void ScanCharacter();
  // Handles the control word whose backslash is at p; sets l_.
  void ControlWord(int32_t p);
  void EmitText();
  void Plain();
  // A face or a colour is in force.
  bool HasFont() const { return !font_face_.empty() || !font_colour_.empty(); }
  // Where the scan goes on after a number word: after a blank, at a backslash.
  int64_t AfterNumberWord(int64_t from) const;
  void UnknownWord(int32_t q);
  // A word of kTextWords at p: sets the text and the resume place.
  bool FixedText(int32_t p);
  void OpenTag(TextView open, PendingCloses::Tag close) {
    phrase_ += open;
    pending_close_.Push(close);
  }
  // "\b" or "\i" before a blank or backslash: opens the tag and resumes
  // after the blank or at the backslash. False when the word is another.
  bool LetterTag(int32_t q, TextView open, PendingCloses::Tag close) {
    if (!IsDelim(q + 1)) return false;
    OpenTag(open, close);
    l_ = At(q + 1) == u' ' ? q + 2 : q + 1;
    return true;
  }
  int64_t NextCloseBrace(int64_t from);
  bool DigitsAt(int64_t pos, double& value, int64_t& after) const;
  void Entity(int32_t p);

  const Text& s_;
  int32_t len_;
  std::vector<Text> colours_{Text()};
  std::vector<Text> fonts_{Text()};

  Text html_, phrase_, font_face_, font_colour_, size_code_;
  PendingCloses pending_close_;
  int32_t size_value_ = 0;
  Text alignment_;
  bool in_align_table_ = false, font_changed_ = false, got_text_ = false;
  Text text_unit_;
  Text list_open_, item_open_, item_close_, item_close_due_, list_close_;
  int64_t l_ = 0;
  // Last "}" search, so that many skipped groups before one far "}" stay linear.
  int64_t brace_from_ = 0, brace_at_ = -1;
};

Text Converter::ColourComponent(int32_t pos) const {
  Text digits = Mid(s_, pos, 1);
  if (IsDigit(At(pos + 1))) digits += static_cast<char16_t>(At(pos + 1));
  if (IsDigit(At(pos + 2))) digits += static_cast<char16_t>(At(pos + 2));
  Text hex = CStr(Hex(Variant(CLng(Variant(digits)))));
  if (hex.size() == 1) hex.insert(0, u"0");
  return hex;
}

bool Converter::FindTable(TextView tag, TextView close, TextView entry, int32_t& first,
                          int32_t& end) const {
  int32_t table = InStr(1, s_, tag);
  if (table == 0) return false;
  end = InStr(table, s_, close);
  if (end == 0) return false;
  first = InStr(table, s_, entry);
  return true;
}

void Converter::ReadColourTable() {
  int32_t k = 0, end = 0;
  if (!FindTable(u"\\colortbl", u";}", u"\\red", k, end)) return;
  size_t n = 0;
  while (k > 0 && k <= end) {
    if (colours_.size() < n + 1) colours_.resize(n + 1);
    colours_[n] += ColourComponent(k + 4);
    k = InStr(k, s_, u"\\green");
    colours_[n] += ColourComponent(k + 6);
    k = InStr(k, s_, u"\\blue");
    colours_[n] += ColourComponent(k + 5);
    k = InStr(k, s_, u"\\red");
    ++n;
  }
}

void Converter::ReadFontTable() {
  int32_t k = 0, end = 0;
  if (!FindTable(u"\\fonttbl", u";}}", u"\\f0", k, end)) return;
  size_t n = 0;
  while (k > 0 && k <= end) {
    if (fonts_.size() < n + 1) fonts_.resize(n + 1);
    while (At(k) != u' ' && k <= end) ++k;
    ++k;
    fonts_[n] += Mid(s_, k, InStr(k, s_, u";") - k);
    k = InStr(k, s_, u"\\f" + CStr(Variant(static_cast<int32_t>(n + 1))));
    ++n;
  }
}

Text Converter::Run() {
  ReadColourTable();
  ReadFontTable();
  int32_t found = InStr(1, s_, u"\r\n\\deflang");
  int32_t start = found + 2;
  int32_t end = found == 0 ? 0 : InStr(start, s_, u"\r\n\\par");
  while (end != 0) {
    for (l_ = start; l_ <= end;) {
      ScanCharacter();
      if (got_text_) EmitText();
    }
    int32_t next_start = end + 2;
    int32_t next_end = InStr(end + 1, s_, u"\r\n\\par");
    html_ += item_close_due_;
    html_ += list_open_;
    html_ += item_open_;
    html_ += phrase_;
    item_close_due_ = item_close_;
    if (item_close_.empty()) item_close_ = u"<BR>";
    if (next_end == 0) break;
    list_open_.clear();
    phrase_.clear();
    start = next_start;
    end = next_end;
  }
  pending_close_.FlushTo(html_);
  if (HasFont()) html_ += u"</FONT>";
  return std::move(html_);
}

void Converter::ScanCharacter() {
  int c = At(l_);
  switch (c) {
    case u'{': ++l_; break;
    case u'}':
      pending_close_.FlushTo(phrase_);
      ++l_;
      break;
    case u'\n':
    case u'\r': ++l_; break;
    case u'\\': ControlWord(static_cast<int32_t>(l_)); break;
    default: text_unit_.assign(1, static_cast<char16_t>(c)); got_text_ = true;
  }
}

void Converter::EmitText() {
  if (font_changed_ && HasFont()) {
    if (!alignment_.empty()) {
      in_align_table_ = true;
      phrase_ += alignment_ == u"center" ? kAlignOpenCenter : kAlignOpenRight;
      alignment_.clear();
    }
    Text attributes;
    if (!font_face_.empty()) attributes += u" FACE=\"" + font_face_ + u"\"";
    if (!font_colour_.empty()) attributes += u" COLOR=\"" + font_colour_ + u"\"";
    if (!size_code_.empty()) {
      attributes += u" SIZE = \"" + CStr(Variant(size_value_)) + u"\"";
    }
    phrase_ += u"<FONT" + attributes + u">";
  }
  phrase_ += text_unit_;
  ++l_;
  font_changed_ = false;
  got_text_ = false;
}

void Converter::Plain() {
  if (HasFont()) {
    if (!font_changed_) phrase_ += u"</FONT>";
    font_colour_.clear();
    font_face_.clear();
  }
  if (in_align_table_) {
    phrase_ += kAlignClose;
    in_align_table_ = false;
  }
  pending_close_.FlushTo(phrase_);
}

int64_t Converter::AfterNumberWord(int64_t from) const {
  int64_t k = from;
  while (k <= len_ && !IsDelim(k)) ++k;
  return At(k) == u' ' ? k + 1 : k;
}

bool Converter::DigitsAt(int64_t pos, double& value, int64_t& after) const {
  value = 0;
  after = pos;
  while (IsDigit(At(after))) value = value * 10 + (At(after++) - u'0');
  return after > pos;
}

int64_t Converter::NextCloseBrace(int64_t from) {
  if (!(brace_at_ >= 0 && from >= brace_from_ && (brace_at_ == 0 || from <= brace_at_))) {
    brace_from_ = from;
    brace_at_ = from <= len_ ? InStr(static_cast<int32_t>(from), s_, u"}") : 0;
  }
  return brace_at_;
}

void Converter::UnknownWord(int32_t q) {
  int64_t k = q;
  while (k <= len_ && At(k) != u' ' && At(k) != u'\\' && At(k) != u'}') ++k;
  l_ = At(k) == u'\\' ? k : k + 1;
}

bool Converter::FixedText(int32_t p) {
  for (const TextWord& word : kTextWords) {
    if (!Has(p + 1, word.word)) continue;
    text_unit_ = word.text;
    got_text_ = true;
    l_ = p + word.resume - 1;  // writing the text steps once more
    return true;
  }
  return false;
}

void Converter::ControlWord(int32_t p) {
  if (FixedText(p)) return;
  const int32_t q = p + 1;
  switch (At(q)) {
    case u'b':
      if (LetterTag(q, u"<B>", PendingCloses::kBold)) return;
      break;
    case u'c':
      if (At(q + 1) == u'f' && IsDigit(At(q + 2))) {
        double number = Val(Mid(s_, q + 2, 5));
        if (number <= static_cast<double>(colours_.size() - 1)) {
          font_colour_ = u"#" + colours_[static_cast<size_t>(RoundHalfEven(number))];
          font_changed_ = true;
        }
        l_ = AfterNumberWord(q);
        return;
      }
      break;
    case u'f': {
      double n = 0;
      int64_t after = 0;
      if (IsDigit(At(q + 1))) {
        DigitsAt(q + 1, n, after);
        if (n > static_cast<double>(fonts_.size() - 1)) Fail(kErrSubscript);
        const Text& face = fonts_[static_cast<size_t>(n)];
        if (face != fonts_[0]) {
          font_face_ = face;
          font_changed_ = true;
        }
        l_ = AfterNumberWord(q);
        return;
      }
      if (At(q + 1) == u's' && DigitsAt(q + 2, n, after)) {
        Text digits = Mid(s_, q + 2, static_cast<int32_t>(after - (q + 2)));
        size_t lead = digits.find_first_not_of(u'0');
        size_code_ = u"fs" + (lead == Text::npos ? Text(u"0") : digits.substr(lead));
        double value = std::floor(n / 5 - 2);
        if (value == 2) {
          size_code_.clear();
          size_value_ = 2;
        } else {
          font_changed_ = true;
          size_value_ = value < 1 ? 1 : value > 8 ? 8 : static_cast<int32_t>(value);
        }
        l_ = AfterNumberWord(q);
        return;
      }
      break;
    }
    case u'i':
      if (LetterTag(q, u"<I>", PendingCloses::kItalic)) return;
      break;
    case u'p':
      if (Has(q, u"plain") && IsDelim(q + 5)) {
        Plain();
        l_ = At(q + 5) == u'\\' ? q + 5 : q + 6;
        return;
      }
      if (Has(q, u"pnlvlblt\\")) {
        pending_close_.Clear();
        list_open_ = u"<UL>";
        item_open_ = u"<LI>";
        item_close_ = u"</LI>";
        list_close_ = u"</UL>";
        l_ = q + 8;
        return;
      }
      if (Has(q, u"pntext\\") || Has(q, u"pntxtb")) {
        int64_t brace = NextCloseBrace(q);
        // With no "}" left the scan ends rather than starting over.
        l_ = brace == 0 ? static_cast<int64_t>(len_) + 1 : brace + 1;
        return;
      }
      if (Has(q, u"pard\\plain")) {
        pending_close_.FlushTo(phrase_);
        phrase_ += list_close_;
        list_close_.clear();
        item_open_.clear();
        item_close_ = u"<BR>";
        l_ = q + 4;
        return;
      }
      break;
    case u'q':
      if ((At(q + 1) == u'c' || At(q + 1) == u'r') && IsDelim(q + 2)) {
        alignment_ = At(q + 1) == u'c' ? u"center" : u"right";
        l_ = At(q + 2) == u'\\' ? q + 2 : p + 5;
        return;
      }
      break;
    case u's':
      if (Has(q, u"strike") && IsDelim(q + 6)) {
        OpenTag(u"<STRIKE>", PendingCloses::kStrike);
        l_ = p + 8;
        return;
      }
      break;
    case u'u':
      if (At(q + 1) == u'l' && IsDelim(q + 2)) {
        OpenTag(u"<U>", PendingCloses::kUnderline);
        l_ = p + 3;
        return;
      }
      break;
    case u'\'': Entity(p); return;
    case u'\n':
    case u'\r':
      phrase_ += kCrLf;
      l_ = p + 2;
      return;
    default: break;
  }
  UnknownWord(q);
}

void Converter::Entity(int32_t p) {
  Text code = Mid(s_, p + 2, 2);
  size_t row = TextView(kRtfEntityTable).find(u"{" + code + u"}");
  if (row != TextView::npos) {
    text_unit_ = Trim(TextView(kRtfEntityTable).substr(row - 8, 8));
  } else {
    // "&H" and the two units; anything but one or two hex digits is no number.
    int32_t value = 0;
    if (code.empty()) Fail(kErrTypeMismatch);
    for (char16_t unit : code) {
      int digit = unit >= u'0' && unit <= u'9'   ? unit - u'0'
                  : unit >= u'a' && unit <= u'f' ? unit - u'a' + 10
                  : unit >= u'A' && unit <= u'F' ? unit - u'A' + 10
                                                 : -1;
      if (digit < 0) Fail(kErrTypeMismatch);
      value = value * 16 + digit;
    }
    text_unit_ = Chr(value);
  }
  got_text_ = true;
  l_ = p + 3;
}

// The page around the converted text, one line per element.
Text WrapPage(const Text& html, const Text& title, bool generator) {
  Text page = u"<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 3.2//EN\">\r\n<HTML>\r\n<HEAD>\r\n";
  page += u"<TITLE>" + title + u"</TITLE>\r\n";
  if (generator) page += u"<META NAME=\"GENERATOR\" CONTENT=\"Varnek Software\">";
  page += u"\r\n</HEAD>\r\n<BODY>\r\n";
  page += html;
  page += u"</BODY>\r\n</HTML>";
  return page;
}

}  // namespace

Text RtfToHtml(const Text& rtf, const Text& options) {
  Text title;
  if (int32_t i = InStr(1, options, u"+T"); i > 0) {
    int32_t close = InStr(i + 4, options, u"\"");
    title = Mid(options, i + 3, close - (i + 3));
  }
  Text html = Converter(rtf).Run();
  if (InStr(1, options, u"+H") == 0) return html;
  return WrapPage(html, title, InStr(1, options, u"+G") > 0);
}

}  // namespace varnek::generators
