// The INI store: one current file, read through a cache of 40-unit keys.
#include "varnek/adds/store/storage.h"
#include "varnek/adds/text/text_internal.h"
#include "varnek/platform/files.h"
#include "varnek/platform/profile.h"
#include "varnek/runtime/compare.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

constexpr char16_t kNul = u'\0';
constexpr int32_t kCacheStep = 20;

// Upper case, cut or padded with spaces to the 40 units of a cache field.
Text Field40(const Text& name) {
  Text out = Left(UCase(name), 40);
  out.resize(40, u' ');
  return out;
}

Text WithNul(const Text& s) { return s + kNul; }

}  // namespace

Text Storage::Ini_CutAtNull(const Text& text) { return text.substr(0, text.find(kNul)); }

void Storage::INI_SetFileName(Text pstrFileName) {
  INI_PurgeBuffer();
  if (!ini_file_name_.empty()) ini_last_file_name_ = ini_file_name_;
  ini_file_name_ = WithNul(pstrFileName);
  INI_FileName = Len(pstrFileName) < 3 ? Text() : pstrFileName;
}

void Storage::INI_SetLastFileName() {
  if (ini_last_file_name_.empty()) return;
  INI_PurgeBuffer();
  ini_file_name_ = ini_last_file_name_;
  Text name = ini_file_name_.substr(0, ini_file_name_.size() - 1);  // without its NUL
  INI_FileName = Len(name) < 3 ? Text() : name;
}

void Storage::INI_PurgeBuffer() {
  ini_buffer_.assign(1, IniBufferEntry{});
  ini_buffer_upper_ = 0;
  ini_buffer_count_ = 0;
}

Text Storage::IniBuffer_Find(const Text& section, const Text& key) const {
  Text app = Field40(section);
  Text name = Field40(key);
  for (int32_t i = 0; i < ini_buffer_count_; ++i) {
    const IniBufferEntry& entry = ini_buffer_[i];
    if (entry.AppName == app && entry.KeyName == name) return Trim(entry.Value);
  }
  return Text();
}

int32_t Storage::IniFile_Read(const Text& section, const Text& key, const Text& def, Text& value) {
  // The classic loop grows a buffer by 512 until the value no longer fills
  // it, reading the file again each time; its result is the whole value, so
  // the value is read once, whatever its length.
  Text whole = profiles().GetValue(TextView(WithNul(section)), TextView(WithNul(key)),
                                   TextView(WithNul(def)), ini_file_name_);
  int32_t count = static_cast<int32_t>(whole.size());
  value = Trim(Ini_CutAtNull(whole));

  if (ini_buffer_upper_ < 0) {  // never purged: the first bounds are 0 to 20
    ini_buffer_upper_ = kCacheStep;
    ini_buffer_.resize(kCacheStep + 1);
  }
  if (ini_buffer_count_ > ini_buffer_upper_) {
    ini_buffer_upper_ = ini_buffer_count_ + kCacheStep;
    ini_buffer_.resize(ini_buffer_upper_ + 1);
  }
  ini_buffer_[ini_buffer_count_] = IniBufferEntry{Field40(section), Field40(key), value};
  ini_buffer_count_ = AddInt16(ini_buffer_count_, 1);
  if (ini_buffer_count_ >= ini_buffer_upper_) {
    ini_buffer_upper_ += kCacheStep;
    ini_buffer_.resize(ini_buffer_upper_ + 1);
  }
  return count;
}

Text Storage::INI_GetString(Text pstrAppName, Text pstrKeyName, Text pstrDefault) {
  if (Trim(ini_file_name_).empty()) return Trim(pstrDefault);
  Text value = IniBuffer_Find(pstrAppName, pstrKeyName);
  if (value.empty()) IniFile_Read(pstrAppName, pstrKeyName, pstrDefault, value);
  return Ini_CutAtNull(value);
}

int16_t Storage::INI_PutString(Text pstrAppName, Text pstrKeyName, Text pstrValue) {
  if (Trim(ini_file_name_).empty() || Trim(pstrKeyName).empty() || Trim(pstrAppName).empty())
    return 0;
  bool written =
      profiles().WriteString(TextView(WithNul(pstrAppName)), TextView(WithNul(pstrKeyName)),
                             TextView(WithNul(pstrValue)), ini_file_name_);
  return written ? 1 : 0;
}

Variant Storage::INI_ListAppName() {
  // Var_GetPart(text, "[", True), then Var_GetPart(text, "]", True), walked
  // with an offset into the text instead of cutting copies of the rest.
  Text text = File_ReadBinary(INI_FileName);
  size_t offset = 0;
  Text names;
  for (;;) {
    text::CutBefore(text, offset, u"[");
    Text name = text::CutBefore(text, offset, u"]");
    if (name.empty()) break;
    names += name + u"\t";
  }
  return Variant(names);
}

Variant Storage::INI_DeleteAppName(const Variant& nAppName) {
  Variant header = Concat(Concat(Variant(u"["), nAppName), Variant(u"]"));
  bool past_limit = false;
  Resume([&] {  // the folder is made as File_SaveBinary makes it
    Text folder, name;
    if (SplitPath(CStr(INI_FileName), folder, name)) Disk_CrearRutaDirectorios(folder);
  });
  // Read, cut and save as one step under the file's lock. A file that is
  // there but cannot be read is never written over.
  Resume([&] {
    files().EditAll(CStr(INI_FileName), [&](std::string& bytes) {
      Variant text = BytesToText(bytes);
      const Text whole = CStr(text);
      Text before = Var_GetPart(text, header, true);
      const Text after_header = CStr(text);
      const bool header_cut = after_header.size() != whole.size();
      Text body = Var_GetPart(text, u"[", true);
      const Text rest = CStr(text);
      const bool body_cut = rest.size() != after_header.size();
      // Var_GetPart finds nothing past unit 32767: a header there, or the
      // "[" of the next section there, would have the text saved without
      // sections the call did not name.
      if ((!header_cut && InStr(whole, CStr(header)) > 0) ||
          (header_cut && !body_cut && InStr(after_header, u"[") > 0)) {
        past_limit = true;
        return false;
      }
      Text result = body.empty() ? before : before + u"[" + rest;
      bytes = TextToBytes(result);
      return true;
    });
  });
  if (past_limit) return Variant(false);
  INI_PurgeBuffer();
  return Variant(true);
}

}  // namespace varnek
