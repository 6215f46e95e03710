// The day's log file, generated file names and the volume readings.
#include <cmath>
#include <cstring>

#include "varnek/adds/store/storage.h"
#include "varnek/platform/files.h"
#include "varnek/runtime/compare.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

// The number zero-padded to width digits, as Format "00" / "0000" gives it.
Text Digits(int32_t value, int width) {
  Text out;
  for (int32_t v = value; v > 0; v /= 10)
    out.insert(out.begin(), static_cast<char16_t>(u'0' + v % 10));
  while (static_cast<int>(out.size()) < width) out.insert(out.begin(), u'0');
  return out;
}

// The unpadded upper-case hex of a 16-bit pattern.
Text Hex16(int16_t value) {
  static const char16_t kDigits[] = u"0123456789ABCDEF";
  uint16_t v = static_cast<uint16_t>(value);
  Text out;
  do {
    out.insert(out.begin(), kDigits[v & 0xF]);
    v >>= 4;
  } while (v);
  return out;
}

// The low 16 bits, signed.
int16_t Var_LowWord16(int32_t value) {
  return static_cast<int16_t>(static_cast<uint16_t>(value & 0xFFFF));
}

// The value divided by 65535 (not 65536), truncated, one off when negative;
// a result outside 16 bits fails with 6.
int16_t Var_HighWord16(int32_t value) {
  int64_t high = value / 65535;
  if (value < 0) high -= 1;
  return ToInt16(high);
}

}  // namespace

bool Storage::App_Log(const Variant& pOperacion, const Variant& pDescripcion) {
  Variant missing = Variant::Missing();
  return App_Log(pOperacion, pDescripcion, missing);
}

bool Storage::App_Log(const Variant& pOperacion, const Variant& pDescripcion,
                      Variant& LogFileName) {
  double now = loop().Now();
  Text stamp = u"[" + Digits(Day(now), 2) + u"-" + Digits(Month(now), 2) + u"-" +
               Digits(Year(now), 4) + u" " + Digits(Hour(now), 2) + u":" + Digits(Minute(now), 2) +
               u":" + Digits(Second(now), 2) + u"]\t";
  Variant line = Concat(Concat(Concat(Variant(stamp), pOperacion), Variant(u"\t")), pDescripcion);
  line = Concat(line, Variant(u"\r\n"));
  if (LogFileName.IsMissing()) {
    LogFileName = platform().app->Path() + u"/Log/" + Digits(Year(now), 4) + u"-" +
                  Digits(Month(now), 2) + u"/" + Digits(Day(now), 2) + u".log";
  }
  File_AppendBinary(LogFileName, line);
  loop().DoEvents();
  return false;
}

Text Storage::File_RandomFileName(const Variant& DefaultExtension) {
  Variant missing = Variant::Missing();
  return File_RandomFileName(DefaultExtension, missing);
}

Text Storage::File_RandomFileName(const Variant& DefaultExtension, Variant& PathFile) {
  Text extension = CStr(DefaultExtension);
  if (!extension.empty() && extension[0] == u'.') extension.erase(0, 1);
  for (;;) {
    // Randomize: the clock's bits go into the middle of the 24-bit state.
    float clock = loop().Timer();
    uint32_t bits;
    std::memcpy(&bits, &clock, sizeof bits);
    rnd_state_ = (rnd_state_ & 0xFF) | ((((bits >> 16) ^ bits) & 0xFFFF) << 8);
    Text name;
    for (int i = 0; i < 8; ++i) {
      rnd_state_ = (rnd_state_ * 0x43FD43FDu + 0xC39EC3u) & 0xFFFFFFu;
      double r = rnd_state_ / 16777216.0;
      name += static_cast<char16_t>(std::floor(26 * r + 65));
    }
    name += u"." + extension;
    if (PathFile.IsMissing()) return name;
    Text folder = CStr(PathFile);
    if (folder.empty() || folder.back() != u'/') {
      folder += u'/';
      PathFile = folder;
    }
    Variant where = folder;
    if (File_ContarArchivos(where, name) == 0) return name;
  }
}

Variant Storage::File_FileNameFromDateTime() {
  double now = loop().Now();
  Text name = Digits(Year(now), 4) + Digits(Month(now), 2) + Digits(Day(now), 2) +
              Digits(Hour(now), 2) + Digits(Minute(now), 2) + Digits(Second(now), 2);
  double seconds = loop().Timer();  // the clock is read a second time here
  name += Digits(static_cast<int32_t>(std::floor(100 * (seconds - std::floor(seconds)))), 2);
  return Variant(name);
}

Text Storage::NormaliseDrive(Variant& slDrive) {
  if (slDrive.IsMissing()) slDrive = Text(u"/");
  Text drive = CStr(slDrive);
  if (drive.size() == 1 && drive != u"/" && drive != u":") drive += u':';
  if (drive.empty() || drive.back() != u'/') drive += u'/';
  slDrive = drive;
  return drive;
}

Storage::VolumeFacts Storage::Disk_VolumeInfo(Variant& slDrive) {
  Text root = NormaliseDrive(slDrive);
  VolumeFacts facts{Space(14), Text()};
  Text& label = facts.label;
  Text found;
  uint32_t number = 0;
  if (!files().VolumeInfo(root, found, number)) return facts;  // label stays as given
  // The label arrives in a buffer of 14 units with a NUL after it.
  Text buffer = label;
  size_t count = std::min(found.size(), buffer.size() - 1);
  buffer.replace(0, count, found.substr(0, count));
  buffer[count] = u'\0';
  label = buffer.substr(0, buffer.find(u'\0'));
  if (Trim(label).empty()) label = u"(no label)";
  int32_t as_long = static_cast<int32_t>(number);
  facts.serial = Hex16(Var_HighWord16(as_long)) + Hex16(Var_LowWord16(as_long));
  return facts;
}

Text Storage::Disk_GetLabel() {
  Variant drive = Variant::Missing();
  return Disk_VolumeInfo(drive).label;
}
Text Storage::Disk_GetLabel(Variant& slDrive) { return Disk_VolumeInfo(slDrive).label; }
Text Storage::Disk_GetSerial() {
  Variant drive = Variant::Missing();
  return Disk_VolumeInfo(drive).serial;
}
Text Storage::Disk_GetSerial(Variant& slDrive) { return Disk_VolumeInfo(slDrive).serial; }

}  // namespace varnek
