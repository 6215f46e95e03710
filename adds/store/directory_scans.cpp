// Post-order walks of a folder tree into a Collection or a list control, and
// the short-date order of the machine.
#include "varnek/adds/store/storage.h"
#include "varnek/platform/date_locale.h"
#include "varnek/platform/files.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

// Where a walk's entries go. The destination is looked up at every entry, so
// a re-entrant top-level call that replaces it takes the rest of the walk.
class Storage::ScanSink {
 public:
  virtual ~ScanSink() = default;
  virtual void Add(const Text& entry) = 0;
  // Runs the same routine one level down.
  virtual void Recurse(const Text& folder) = 0;
};

// A top-level scan starts with no folder seen and gives the set back as it
// found it, so a re-entrant scan started while pumping leaves the outer one's.
class Storage::ScanSeenScope {
 public:
  ScanSeenScope(Storage& self, bool top) : self_(self), top_(top) {
    if (top_) saved_.swap(self_.scan_seen_);
  }
  ~ScanSeenScope() {
    if (top_) saved_.swap(self_.scan_seen_);
  }
  ScanSeenScope(const ScanSeenScope&) = delete;
  ScanSeenScope& operator=(const ScanSeenScope&) = delete;

 private:
  Storage& self_;
  bool top_;
  std::set<std::pair<uint64_t, uint64_t>> saved_;
};

namespace {

void ShowCaption(CaptionControl* label, const Text& caption) {
  if (!label) Fail(kErrObjectRequired);  // a label left out: the assignment fails
  label->SetCaption(caption);
}

}  // namespace

void Storage::ScanAddFiles(ScanSink& sink, const Text& folder, const Text& pattern,
                           bool with_dates) {
  std::vector<FileEntry> found;
  files().Enumerate(folder + u"/" + pattern, found);
  for (const FileEntry& entry : found) {
    if (entry.directory || entry.hidden || entry.system) continue;
    Text item = folder + u"/" + entry.name;
    if (with_dates) item += u"\t" + Var_DateToString(Variant(Date{entry.date}));
    Resume([&] { sink.Add(item); });
  }
}

bool Storage::ScanWalk(ScanSink& sink, const Text& path, const Text& pattern, CaptionControl* label,
                       bool with_dates, bool top) {
  loop().DoEvents();
  std::vector<Text> folders{path};
  // Which subfolders are walked: not symbolic links to folders, and no
  // folder (device and inode) a second time in one top-level scan.
  std::vector<bool> walk{true};
  Resume([&] { ShowCaption(label, path); });
  loop().DoEvents();
  Resume([&] {
    FileEntry self;
    if (files().Stat(path, self)) scan_seen_.insert({self.device, self.inode});
    std::vector<FileEntry> found;
    files().Enumerate(path + u"/*", found);
    for (const FileEntry& entry : found) {
      if (entry.name == u"." || entry.name == u".." || UCase(entry.name) == u"PAGEFILE.SYS")
        continue;
      if (!entry.directory) continue;
      folders.push_back(path + u"/" + entry.name);
      walk.push_back(!entry.link && !scan_seen_.count({entry.device, entry.inode}));
      if (walk.back()) scan_seen_.insert({entry.device, entry.inode});
    }
  });
  loop().DoEvents();

  // Files of one folder, announced by the first subfolder's name whichever
  // folder it is (and by nothing, failing, when there is no subfolder).
  auto own_files = [&](const Text& folder) {
    Resume([&] {
      if (folders.size() < 2) Fail(kErrSubscript);
      ShowCaption(label, folders[1]);
    });
    loop().DoEvents();
    loop().DoEvents();
    Resume([&] { ScanAddFiles(sink, folder, pattern, with_dates); });
  };

  for (size_t i = 1; i < folders.size(); ++i) {
    // A folder that is not walked adds nothing but, listing folders, itself.
    if (walk[i]) Resume([&] { sink.Recurse(folders[i]); });
    if (!pattern.empty()) {
      if (walk[i]) own_files(folders[i]);
    } else {
      Resume([&] { sink.Add(folders[i]); });
    }
  }
  if (top) {
    if (!pattern.empty()) {
      own_files(path);
    } else if (with_dates) {
      Resume([&] {
        FileEntry root;
        if (!files().Stat(path, root)) Fail(kErrFileNotFound);
        sink.Add(path + u"\t" + CStr(Variant(Date{root.date})));
      });
    } else {
      Resume([&] { sink.Add(path); });
    }
  }
  return top;
}

bool Storage::Disk_ScanRecursiveFiles(const Variant& pFilePath, Text FilePattern,
                                      CaptionControl* StatusLabel, bool WithDateTime,
                                      const Variant& internal_Recursive) {
  class ToCollection : public ScanSink {
   public:
    ToCollection(Storage& s, const Text& p, CaptionControl* l, bool d)
        : self_(s), pattern_(p), label_(l), dates_(d) {}
    void Add(const Text& entry) override {
      if (!self_.Disk_ScanRecursiveFiles_Lista)
        self_.Disk_ScanRecursiveFiles_Lista = Collection::New();
      self_.Disk_ScanRecursiveFiles_Lista->Add(Variant(entry));
    }
    void Recurse(const Text& folder) override {
      self_.Disk_ScanRecursiveFiles(Variant(folder), pattern_, label_, dates_,
                                    Variant(u"INTERNAL"));
    }

   private:
    Storage& self_;
    const Text& pattern_;
    CaptionControl* label_;
    bool dates_;
  };

  bool top = internal_Recursive.IsMissing();
  Text path;
  Resume([&] { path = CStr(pFilePath); });
  if (top) {
    Disk_ScanRecursiveFiles_Lista = Collection::New();
    if (!path.empty() && path.back() == u'/') path.pop_back();
  }
  ToCollection sink(*this, FilePattern, StatusLabel, WithDateTime);
  ScanSeenScope seen(*this, top);
  return ScanWalk(sink, path, FilePattern, StatusLabel, WithDateTime, top);
}

bool Storage::Disk_ScanRecursiveDirAndOrFiles(ListControl* ListControlDestino,
                                              const Variant& pFilePath, const Variant& FilePattern,
                                              CaptionControl* StatusLabel,
                                              const Variant& internal_Recursive) {
  class ToList : public ScanSink {
   public:
    ToList(Storage& s, ListControl* list, const Text& p, CaptionControl* l)
        : self_(s), list_(list), pattern_(p), label_(l) {}
    void Add(const Text& entry) override {
      if (!list_) Fail(kErrObjectRequired);
      list_->AddItem(entry);
    }
    void Recurse(const Text& folder) override {
      self_.Disk_ScanRecursiveDirAndOrFiles(list_, Variant(folder), Variant(pattern_), label_,
                                            Variant(u"INTERNAL"));
    }

   private:
    Storage& self_;
    ListControl* list_;
    const Text& pattern_;
    CaptionControl* label_;
  };

  bool top = internal_Recursive.IsMissing();
  Text path, pattern;
  Resume([&] { path = CStr(pFilePath); });
  Resume([&] { pattern = CStr(FilePattern); });
  if (top) {
    Resume([&] {
      if (!ListControlDestino) Fail(kErrObjectRequired);
      ListControlDestino->Clear();
    });
    if (!path.empty() && path.back() == u'/') path.pop_back();
  }
  ToList sink(*this, ListControlDestino, pattern, StatusLabel);
  ScanSeenScope seen(*this, top);
  return ScanWalk(sink, path, pattern, StatusLabel, false, top);
}

Text Storage::Win_LocaleDateOrder(Text& Separator) {
  Text sample = platform().dates->ShortDate(1958, 8, 25);
  Separator.clear();
  for (size_t i = 0; i < sample.size() && i < 5; ++i) {
    if (sample[i] < u'0' || sample[i] > u'9') {
      Separator = Text(1, sample[i]);
      break;
    }
  }
  std::vector<Text> parts = Split(sample, Separator);
  if (parts.size() < 3) Fail(kErrSubscript);
  Text order[3];
  for (int k = 0; k < 3; ++k) {
    Text part = Trim(parts[k]);
    if (k == 1 && !IsNumeric(Variant(part))) {
      order[k] = u"mm";  // a month written as a name
      continue;
    }
    double value = Val(part);
    if (value == 25)
      order[k] = u"dd";
    else if (value == 8)
      order[k] = u"mm";
    else if (value == 1958 || value == 58)
      order[k] = u"yyyy";
  }
  return order[0] + u"/" + order[1] + u"/" + order[2];
}

}  // namespace varnek
