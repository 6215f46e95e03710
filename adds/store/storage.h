// Storage and files of Adds: binary files and the log, the INI store, record
// files and directory scans.
//
// Paths on Linux: the separator is "/" and every rule the routines keep for a
// separator applies to "/"; an absolute path's root prefix is "/". The
// application's folder is Application::Path: the executable's folder, or
// $XDG_DATA_HOME/<program> when that one may not be written; App_Log writes
// <folder>/Log/yyyy-mm/dd.log and DB_InitSource reads <folder>/DB.ini. File
// content is one unit a byte through cp1252. Whole files are saved by the
// platform's safe replace (FileSystem::WriteAll): links, mode and owner kept,
// files the caller may not write left as they were.
//
//   adds.File_SaveBinary(u"/tmp/x/y.txt", u"abc");   // makes /tmp/x
//   adds.File_ReadBinary(u"/tmp/x/y.txt");           // "abc"
#pragma once

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "varnek/adds/adds_core.h"
#include "varnek/adds/store/host_controls.h"
#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"

namespace varnek {

class FileSystem;
class ProfileStore;
class DateLocale;

class Storage : public virtual TextToolkit {
 public:
  explicit Storage(Platform& platform) { Attach(platform); }

  // ---- Binary files and the log (binary_files.cpp, app_log.cpp) ------------

  // Names found by the latest File_ContarArchivos; null before the first.
  CollectionPtr File_ContarArchivos_Lista;

  // The whole file as text. A path with a folder part whose file is not found
  // by File_ContarArchivos gives "" and touches nothing; otherwise the file is
  // opened read-write unless ReadOnly (a file that may not be written is still
  // read), so a bare missing name is created empty, unless it holds "*" or
  // "?". Resume: any failure gives "", at once for a pipe, socket or device.
  Text File_ReadBinary(const Variant& Filename, bool ReadOnly = false);
  // Replaces the file with Content (no line end added), making its folders
  // first, atomic where that is safe. Resume; always true, also when the file
  // could not be written (it is then left as it was).
  bool File_SaveBinary(const Variant& Filename, const Variant& Content);
  // Appends Content as one record, creating the file and its folders: a
  // killed process leaves it whole or not at all (the next append cuts a
  // torn tail back), and a disk that fills leaves the file as it was.
  // ExitIfNotExist is not read. Resume; always true, also when nothing could
  // be written.
  bool File_AppendBinary(const Variant& Filename, const Variant& Content,
                         bool ExitIfNotExist = false);
  // Appends "[dd-mm-yyyy HH:MM:SS]" TAB op TAB description CR LF to the day's
  // log, <app folder>/Log/yyyy-mm/dd.log unless LogFileName is given (a
  // missing one receives that name). Pumps the host loop once. Open; always
  // false.
  bool App_Log(const Variant& pOperacion, const Variant& pDescripcion);
  bool App_Log(const Variant& pOperacion, const Variant& pDescripcion, Variant& LogFileName);
  // Eight random capitals, ".", and the extension without a leading ".".
  // With PathFile (which gets a trailing "/"), names already there are drawn
  // again. Only the bare name is returned. Open.
  Text File_RandomFileName(const Variant& DefaultExtension);
  Text File_RandomFileName(const Variant& DefaultExtension, Variant& PathFile);
  // "yyyymmddHHMMss" and two digits of hundredths: 16 digits, not unique
  // within a hundredth. Open.
  Variant File_FileNameFromDateTime();
  // Copy, compare lengths, delete the old file (up to 10 tries, 0.2 s
  // apart), rolling back the copy when the old file stays. One failed try
  // marks the rest of its loop as failed. A copy that failed counts as
  // lengths that differ, so the old file is never deleted uncopied; a file
  // renamed onto itself ("a" to "./a", or to a link leading back to it),
  // which the copy-then-delete would destroy, is left in place and the
  // result is False. Pumps the host loop. Resume.
  bool File_Renombrar(const Variant& FileNameWithPath, const Variant& NewFileNameWithPath);
  // The shell's move (1), copy (2), delete (3) or rename (4) of NUL-separated
  // lists; pCaracteristicas are the 16-bit flags (one above 32767 overflows
  // and is dropped). The window is not used and nothing is ever asked; with
  // allow-undo (0x40) a delete moves to the desktop's trash, without it the
  // items are gone for good. A copy or move of a folder into itself is
  // refused before anything is written. True when the operation gave 0.
  // Resume.
  bool File_Operacion(const Variant& ParentWindow, int32_t pFuncion, int32_t pCaracteristicas,
                      const Variant& pFrom, const Variant& pTo);
  // Counts the entries of sSourcePath (which gets a trailing "/") matching
  // sFileMask, "." and ".." left out, into File_ContarArchivos_Lista in the
  // directory's order. An enumeration that cannot start gives 0. Open.
  int32_t File_ContarArchivos(Variant& sSourcePath, const Variant& sFileMask);
  // Creates each level of the path in order, with "/" as root prefix of an
  // absolute path; returns the number of levels. A path of its root alone
  // fails with 9. Open.
  int16_t Disk_CrearRutaDirectorios(Text completeDirectory);
  // Label and serial of the file system holding slDrive. A missing slDrive is
  // "/" (there is no drive C: on Linux); a single character other than "/"
  // gets ":" (such drive names never exist here); a trailing "/" is added and
  // the result stored back. Failure: label 14 spaces, serial "". An empty
  // label reads "(no label)". The serial is the hex of the high half (divided
  // by 65535) then the low half, unpadded; a serial from 32768 * 65535 up
  // overflows (both routines fail then). Open.
  Text Disk_GetLabel();
  Text Disk_GetLabel(Variant& slDrive);
  Text Disk_GetSerial();
  Text Disk_GetSerial(Variant& slDrive);

  // ---- INI store (ini_store.cpp) --------------------------------------------

  // The current INI file's name, "" if none or if the name had fewer than 3
  // units.
  Variant INI_FileName = Text();

  // Purges the cache and makes the file current, keeping the previous one
  // for INI_SetLastFileName.
  void INI_SetFileName(Text pstrFileName);
  // One step back to the previous file; a second call stays there.
  void INI_SetLastFileName();
  // The value of a key through the cache. A cached "" is no hit, and a missing
  // key caches its default, which later calls then get whatever default they
  // pass. With no file set: the trimmed default. A value of any length is read
  // from the file once. Open.
  Text INI_GetString(Text pstrAppName, Text pstrKeyName, Text pstrDefault);
  // Writes one key (the cache keeps its old answer); 0 when no file is set,
  // a name is blank or the write failed, 1 otherwise. Open.
  int16_t INI_PutString(Text pstrAppName, Text pstrKeyName, Text pstrValue);
  void INI_PurgeBuffer();
  // Section names in file order, each followed by TAB; an empty "[]" ends the
  // list, and brackets inside values count. Open.
  Variant INI_ListAppName();
  // Cuts "[name]" (case as given) and its body out of the file's text; a
  // missing section empties a file that begins with "[". A file that is there
  // but cannot be read is not saved. Read, cut and save are one step under
  // the file's lock. Open; true, except where Var_GetPart's 16-bit limit
  // shows: a header, or the "[" after the section's body, past unit 32767
  // cannot be cut, and rather than save the text without sections the call
  // did not name (a 37 KB file would go to 0 bytes), the file is left as it
  // is and the result is False.
  Variant INI_DeleteAppName(const Variant& nAppName);

  // The cache's state, for tests and diagnostics.
  const Text& IniFileName() const { return ini_file_name_; }
  const Text& IniLastFileName() const { return ini_last_file_name_; }
  int16_t IniBufferCount() const { return ini_buffer_count_; }

  // ---- Record arrays and FileDB (file_db.cpp) -------------------------------

  // Reads records (fields ended by 0xF4, records by 0xF5) into a table of
  // 501 x 51 (ARRAY_) or 1501 x 51 (FileDB_) Variants. A record or field past
  // the table fails with 9 to the caller. ARRAY_Load always gives a table;
  // FileDB_Leer gives Empty for an empty or missing file. Open.
  Variant ARRAY_Load(const Variant& Filename);
  Variant FileDB_Leer(const Text& slFile);
  // Writes fields 0 and 1 of rows 0, 1, ... up to the first row with both
  // empty or the table's end, then saves. Always Empty.
  Variant ARRAY_Save(const Variant& Filename, const Variant& slArray);
  Variant FileDB_Grabar(const Text& slFile, const Variant& slArray);
  // Appends one record of two fields. ARRAY_Append gives "" when the path has
  // a folder and no such file existed, Empty otherwise. Open.
  Variant ARRAY_Append(const Variant& Filename, const Variant& slContenidoA,
                       const Variant& slContenidoB);
  Variant FileDB_Agregar(const Text& slFile, const Variant& slContenidoA,
                         const Variant& slContenidoB);
  // Points the form's "Data" controls at the database named in
  // <app folder>/DB.ini, writing that file with defaults when it is new, then
  // goes back to the previous INI file. Open.
  void DB_InitSource(HostForm& Form, const Variant& DatabaseName);

  // ---- Directory scans (directory_scans.cpp) --------------------------------

  // Result of the latest top-level Disk_ScanRecursiveFiles.
  CollectionPtr Disk_ScanRecursiveFiles_Lista;

  // Post-order walk from pFilePath: each subtree's entries before its folder's
  // own, the root's last. With a pattern: plain files (not hidden) matching
  // it, with TAB and the 14-digit date when asked; without: folders. Folders
  // named PAGEFILE.SYS are not walked. A symbolic link to a folder is listed
  // as the folder the classic enumeration shows, but never walked (a link
  // back to a parent would nest for ever), and no folder (device and inode)
  // is walked twice in one scan. Pumps the host loop at every folder.
  // Resume: unreadable folders are passed over. True at top level, false
  // when internal_Recursive is given (which appends to the current list).
  bool Disk_ScanRecursiveFiles(const Variant& pFilePath, Text FilePattern,
                               CaptionControl* StatusLabel = nullptr, bool WithDateTime = false,
                               const Variant& internal_Recursive = Variant::Missing());
  // The same walk into a list control, without dates.
  bool Disk_ScanRecursiveDirAndOrFiles(ListControl* ListControlDestino, const Variant& pFilePath,
                                       const Variant& FilePattern,
                                       CaptionControl* StatusLabel = nullptr,
                                       const Variant& internal_Recursive = Variant::Missing());

 protected:
  // The order of day, month and year in the machine's short date, as
  // "mm/dd/yyyy" (always "/"); the machine's separator goes to Separator.
  // Internal to the class. Open.
  Text Win_LocaleDateOrder(Text& Separator);

 protected:
  // For a class that joins this one with others (see adds_core.h).
  Storage() = default;

 private:
  struct IniBufferEntry {
    Text AppName;  // 40 units, upper case
    Text KeyName;  // 40 units, upper case
    Text Value;
  };
  class ScanSink;
  class ScanSeenScope;

  FileSystem& files() const;
  ProfileStore& profiles() const;

  // File_ReadBinary that tells a failed read (false, content "") from a
  // file that was read or that its first check found absent (true): read-modify-write
  // routines never save over a file they could not read.
  bool ReadWhole(const Variant& Filename, bool ReadOnly, Text& content);
  // File_SaveBinary (append false) and File_AppendBinary: makes the folder
  // path, then writes the content's bytes; each failure is resumed.
  void WriteBinary(const Variant& Filename, const Variant& Content, bool append);
  // Splits at the last "/" as reverse, cut, reverse back; false without "/".
  bool SplitPath(const Text& filename, Text& folder, Text& name);
  // DateTime_PausaTimer's sub-second wait, pumping the host loop.
  void PauseSeconds(double seconds);
  // Disk_GetLabel and Disk_GetSerial: the drive normalised (written back),
  // then its label (14 spaces when unread, "(no label)" when blank) and its
  // serial as 8 hex digits ("" when unread).
  struct VolumeFacts {
    Text label;
    Text serial;
  };
  VolumeFacts Disk_VolumeInfo(Variant& slDrive);
  Text NormaliseDrive(Variant& slDrive);

  Text IniBuffer_Find(const Text& section, const Text& key) const;
  int32_t IniFile_Read(const Text& section, const Text& key, const Text& def, Text& value);
  static Text Ini_CutAtNull(const Text& text);

  Variant LoadTable(const Text& text, int32_t rows);
  void SaveTable(const Variant& Filename, const Variant& slArray);
  bool ScanWalk(ScanSink& sink, const Text& path, const Text& pattern, CaptionControl* label,
                bool with_dates, bool top);
  void ScanAddFiles(ScanSink& sink, const Text& folder, const Text& pattern, bool with_dates);

  Text ini_file_name_;
  Text ini_last_file_name_;
  std::vector<IniBufferEntry> ini_buffer_;
  int32_t ini_buffer_upper_ = -1;
  int16_t ini_buffer_count_ = 0;
  uint32_t rnd_state_ = 0x50000;
  std::set<std::pair<uint64_t, uint64_t>>
      scan_seen_;  // folders walked by the current scan  // the classic generator's initial seed
};

}  // namespace varnek
