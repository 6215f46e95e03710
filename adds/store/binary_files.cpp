// Whole-file routines of Adds: read, save, append, rename with verification,
// the shell's file operations, counting by mask and making folder paths.
#include "varnek/adds/store/storage.h"
#include "varnek/platform/files.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek {

Text Storage::File_ReadBinary(const Variant& Filename, bool ReadOnly) {
  Text result;
  ReadWhole(Filename, ReadOnly, result);
  return result;
}

bool Storage::ReadWhole(const Variant& Filename, bool ReadOnly, Text& content) {
  content.clear();
  bool absent = false;
  Resume([&] {
    Text folder, name;
    if (SplitPath(CStr(Filename), folder, name)) {
      Variant source = folder;
      absent = File_ContarArchivos(source, name) == 0;
    }
  });
  if (absent) return true;
  return Resume([&] { content = BytesToText(files().ReadAll(CStr(Filename), ReadOnly)); });
}

bool Storage::File_SaveBinary(const Variant& Filename, const Variant& Content) {
  WriteBinary(Filename, Content, false);
  return true;
}

bool Storage::File_AppendBinary(const Variant& Filename, const Variant& Content,
                                bool /*ExitIfNotExist: accepted, never read*/) {
  WriteBinary(Filename, Content, true);
  return true;
}

void Storage::WriteBinary(const Variant& Filename, const Variant& Content, bool append) {
  Resume([&] {
    Text folder, name;
    if (SplitPath(CStr(Filename), folder, name)) Disk_CrearRutaDirectorios(folder);
  });
  Resume([&] {
    Text path = CStr(Filename);
    std::string bytes;
    // A content without a text form still writes nothing (a save truncates),
    // as opening for output did.
    Resume([&] { bytes = TextToBytes(CStr(Content)); });
    if (append) {
      files().Append(path, bytes);
    } else {
      files().WriteAll(path, bytes);
    }
  });
}

bool Storage::File_Renombrar(const Variant& FileNameWithPath, const Variant& NewFileNameWithPath) {
  // The failure state: set by any failed statement, cleared only where the
  // routine clears it, so one failed deletion marks the rest of its loop.
  bool failed = false;
  auto step = [&](auto&& statement) {
    if (!Resume(statement)) failed = true;
  };
  Text from, to;
  step([&] { from = CStr(FileNameWithPath); });
  step([&] { to = CStr(NewFileNameWithPath); });

  failed = false;
  loop().DoEvents();
  int64_t old_length = 0, new_length = 0;
  bool source_read = Resume([&] { old_length = files().Length(from); });
  loop().DoEvents();
  // Onto itself, the copy would be the file and the deletion would remove
  // it: refused, the file stays.
  bool same = false;
  Resume([&] { same = files().SameEntry(from, to); });
  if (same) return false;
  bool copied = Resume([&] { files().Copy(from, to); });
  loop().DoEvents();
  step([&] { new_length = files().Length(to); });

  // Deletes up to 10 times; true when a try left no failure and no file.
  auto delete_with_retries = [&](const Text& path) {
    failed = false;
    for (int attempt = 0; attempt < 10; ++attempt) {
      step([&] { files().Delete(path); });
      if (!failed && !files().Exists(path)) return true;
      PauseSeconds(0.2);
    }
    return false;
  };

  // A failed copy of a file that is there leaves the old target, maybe of
  // equal length: it counts as lengths that differ, so the source stays.
  // (A missing source keeps its classic course: nothing of it can be lost.)
  if ((source_read && !copied) || old_length != new_length) {
    if (files().Exists(to)) delete_with_retries(to);
    return false;
  }
  if (delete_with_retries(from)) return true;
  if (files().Exists(to)) delete_with_retries(to);  // roll the copy back
  return false;
}

bool Storage::File_Operacion(const Variant& /*ParentWindow: no window shows on Linux*/,
                             int32_t pFuncion, int32_t pCaracteristicas, const Variant& pFrom,
                             const Variant& pTo) {
  ShellFileRequest request;
  bool result = false;
  Resume([&] { request.function = pFuncion; });
  Resume([&] { request.flags = ToInt16(pCaracteristicas); });
  Resume([&] { request.from = CStr(pFrom); });
  Resume([&] { request.to = CStr(pTo); });
  Resume([&] { result = files().ShellOperation(request) == 0; });
  return result;
}

int32_t Storage::File_ContarArchivos(Variant& sSourcePath, const Variant& sFileMask) {
  File_ContarArchivos_Lista = Collection::New();
  Text path = CStr(sSourcePath);
  if (!path.empty() && path.back() != u'/') {
    path += u'/';
    sSourcePath = path;
  }
  std::vector<FileEntry> found;
  if (!files().Enumerate(path + CStr(sFileMask), found)) return 0;
  int32_t count = 0;
  for (const FileEntry& entry : found) {
    if (entry.name == u"." || entry.name == u"..") continue;
    File_ContarArchivos_Lista->Add(Var_TrimNull(entry.name));
    count = AddInt32(count, 1);
  }
  return count;
}

int16_t Storage::Disk_CrearRutaDirectorios(Text completeDirectory) {
  Text s = std::move(completeDirectory);
  if (s.empty() || s.back() != u'/') s += u'/';

  // An absolute path's root prefix is "/" (drive letters and shares have no
  // counterpart on Linux).
  Text prefix;
  if (s[0] == u'/') {
    Variant rest = s;
    prefix = Var_GetPart(rest, u"/", false);
    s = CStr(rest);
  }

  std::vector<Text> levels;
  while (!s.empty()) {
    Variant rest = s;
    Text level = Var_GetPart(rest, u"/", false);
    Text left = CStr(rest);
    // A separator past position 32767 is not found and nothing is cut; the
    // classic loop would spin for ever there.
    if (level.empty() && left == s) Fail(kErrOverflow);
    levels.push_back(levels.empty() ? prefix + level : level);
    s = std::move(left);
  }
  if (levels.empty()) Fail(kErrSubscript);  // the root alone leaves no level

  Text path;
  for (const Text& level : levels) {
    path += level;
    if (!files().CreateDirectory(path) && !files().IsDirectory(path)) files().CreateDirectory(path);
  }
  return ToInt16(static_cast<int64_t>(levels.size()));
}

}  // namespace varnek
