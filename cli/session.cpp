#include "cli/session.h"

#include "cli/console.h"
#include "cli/files.h"
#include "cli/messages.h"
#include "cli/text.h"

namespace kzcli {

std::vector<std::wstring> WideNames(const std::vector<std::string>& names) {
  std::vector<std::wstring> out;
  out.reserve(names.size());
  for (const std::string& n : names) out.push_back(FromNative(n));
  return out;
}

Session::Session(const EngineApi& api, const Options& options)
    : api_(api),
      options_(options),
      object_(api),
      archive_(FromNative(options.archive)),
      // No bar for p: its data may share the terminal.
      progress_(stderr, !options.quiet && options.command != Command::Print && IsTerminal(stderr)) {}

std::string Session::archiveShown() const { return DisplayName(archive_); }

int Session::Open() {
  if (!object_) {
    Report("kzlha", "cannot create an archiver object (out of memory?)");
    return kExitUsage;
  }
  if (!IsWriteCommand(options_.command)) {
    if (!PathExists(options_.archive)) {
      Report(archiveShown(), "no such file or directory");
      return kExitUsage;
    }
  }
  if (ApplyOptions() < 0) return kExitUsage;
  KzCallbacks callbacks{};
  callbacks.Size = sizeof callbacks;
  callbacks.Progress = &Session::OnProgress;
  callbacks.AskOverwrite = &Session::OnAskOverwrite;
  callbacks.Data = &Session::OnData;
  HRESULT hr = api_.SetCallbacks(handle(), &callbacks, this);
  if (KZ_FAILED(hr)) {
    ReportStatus(hr, archive_);
    return kExitUsage;
  }
  hr = api_.InitArchive(handle(), EngineArchivePath(options_.archive).c_str(), 0, 0);
  if (KZ_FAILED(hr)) {
    ReportStatus(hr, archive_);
    return kExitUsage;
  }
  return kExitOk;
}

HRESULT Session::ApplyOptions() {
  struct Setting {
    bool Given;
    uint32_t Id;
    intptr_t Value;
    std::string Shown;
  };
  const Options& o = options_;
  const std::vector<Setting> settings = {
      {o.codePage != 0, KZ_OPT_CODEPAGE, o.codePage, "--code-page=" + std::to_string(o.codePage)},
      {o.method != 0, KZ_OPT_METHOD, 8 + o.method, "-o" + std::to_string(o.method)},
      {o.level >= 0, KZ_OPT_LEVEL, o.level, o.level == 0 ? "-z" : "-l" + std::to_string(o.level)},
      {o.ignorePaths, KZ_OPT_PATHS, KZ_PATHS_NONE, "-i"},
      {true, KZ_OPT_OVERWRITE, o.force ? KZ_OVERWRITE_ALL : KZ_OVERWRITE_ASK, "-f"},
  };
  for (const Setting& s : settings) {
    if (!s.Given) continue;
    HRESULT hr = api_.SetOptions(handle(), s.Id, s.Value, 0);
    if (KZ_FAILED(hr)) {
      Report(s.Shown, "rejected by the engine: " + StatusText(hr));
      return hr;
    }
  }
  excludes_ = WideNames(o.excludes);
  for (const std::wstring& pattern : excludes_) {
    HRESULT hr = api_.SetOptions(handle(), KZ_OPT_EXCLUDE, reinterpret_cast<intptr_t>(pattern.c_str()), 0);
    if (KZ_FAILED(hr)) {
      Report("--exclude=" + DisplayName(pattern), "rejected by the engine: " + StatusText(hr));
      return hr;
    }
  }
  return KZ_S_OK;
}

void Session::Report(const std::string& file, const std::string& message) {
  progress_.Clear();
  std::fflush(stdout);
  std::fprintf(stderr, "kzlha: %s: %s\n", file.c_str(), message.c_str());
}

void Session::Note(const std::string& file, const std::string& message) {
  if (!options_.quiet) Report(file, message);
}

void Session::ReportStatus(HRESULT status, const std::wstring& fallback) {
  const wchar_t* file = api_.GetErrorFileName(handle());
  Report(DisplayName(file != nullptr && *file != L'\0' ? std::wstring(file) : fallback),
         StatusText(status));
}

void Session::PrintLog(HRESULT reported) {
  const wchar_t* errorFile = api_.GetErrorFileName(handle());
  const std::wstring reportedFile = BackslashSeparators(errorFile != nullptr ? errorFile : L"");
  ForEachItem<KzLogEntry>(api_.GetLogList(handle()), [&](const KzLogEntry& e) {
    if (e.Level == KZ_LOG_INFO) return;
    if (e.Level == KZ_LOG_WARNING && options_.quiet) return;
    const std::wstring file = e.FileName != nullptr ? e.FileName : L"";
    if (e.Level == KZ_LOG_ERROR && e.Status == reported && BackslashSeparators(file) == reportedFile) return;
    const std::string shown = file.empty() ? archiveShown() : DisplayName(file);
    Report(shown, (e.Level == KZ_LOG_WARNING ? "warning: " : "") + DisplayText(e.Text));
  });
}

std::unique_ptr<EngineList> Session::MakeNames(const std::vector<std::wstring>& texts) {
  auto list = std::make_unique<EngineList>(api_, handle(), KZ_LIST_NAMES);
  if (!*list) return nullptr;
  for (const std::wstring& t : texts) {
    if (KZ_FAILED(list->Add(t))) return nullptr;
  }
  return list;
}

HRESULT Session::ListMembers(const std::vector<std::wstring>& patterns, intptr_t flags,
                             std::vector<Member>* members, ArchiveInfo* info) {
  std::unique_ptr<EngineList> selection = MakeNames(patterns);
  EngineList list(api_, handle(), KZ_LIST_MEMBERS);
  if (!selection || !list) return KZ_E_OUTOFMEMORY;
  if (info != nullptr) {
    *info = ArchiveInfo{};
    info->Size = sizeof *info;
  }
  const HRESULT hr = api_.ListArchive(handle(), selection->get(), flags, 0, list.get(), info);
  ForEachItem<LhaHeader>(list.get(), [&](const LhaHeader& h) {
    Member m;
    m.name = h.Name != nullptr ? h.Name : L"";
    m.header = h;
    m.header.Name = nullptr;  // the list owns it; it goes with the list
    m.header.LibBuffer0 = m.header.LibBuffer1 = m.header.LibBuffer2 = nullptr;
    members->push_back(std::move(m));
  });
  return hr;
}

bool Session::CheckPatternsMatch(const std::vector<std::wstring>& patterns, size_t selectedCount) {
  // One pattern that selected something needs no second look.
  if (patterns.empty() || (patterns.size() == 1 && selectedCount > 0)) return true;
  bool all = true;
  for (const std::wstring& p : patterns) {
    std::vector<Member> found;
    (void)ListMembers({p}, kSelectPatterns, &found, nullptr);
    if (found.empty()) {
      Report(DisplayName(p), "no member matches");
      all = false;
    }
  }
  return all;
}

int KZ_CALL Session::OnProgress(void* context, const wchar_t* item, uint64_t done, uint64_t total) {
  auto* s = static_cast<Session*>(context);
  s->lastItem = item != nullptr ? item : L"";
  s->lastDone = done;
  if (!s->lastItem.empty() && (s->progressItems.empty() || s->progressItems.back() != s->lastItem))
    s->progressItems.push_back(s->lastItem);
  s->progress_.Update(item, done, total);
  return InterruptRequested() ? 1 : 0;
}

int KZ_CALL Session::OnAskOverwrite(void* context, const wchar_t* path, const LhaHeader* member) {
  return static_cast<Session*>(context)->AskOverwrite(path);
}

int Session::AskOverwrite(const wchar_t* path) {
  if (InterruptRequested()) return KZ_REPLY_CANCEL;
  const std::string shown = DisplayName(path);
  if (!IsTerminal(stdin)) {
    Note(shown, "exists; skipped (-f overwrites)");
    ++skipped;
    return KZ_REPLY_SKIP;
  }
  progress_.Clear();
  for (;;) {
    std::fprintf(stderr, "Overwrite %s? [y]es/[n]o/[A]ll/[N]one/[q]uit ", shown.c_str());
    std::fflush(stderr);
    std::string answer;
    if (!ReadAnswerLine(&answer)) break;
    if (answer == "y" || answer == "yes") return KZ_REPLY_OVERWRITE;
    if (answer == "A" || answer == "a" || answer == "all") return KZ_REPLY_OVERWRITE_ALL;
    if (answer == "n" || answer == "no") return ++skipped, KZ_REPLY_SKIP;
    if (answer == "N" || answer == "none") return ++skipped, KZ_REPLY_SKIP_ALL;
    if (answer == "q" || answer == "quit") break;
  }
  cancelled = true;
  return KZ_REPLY_CANCEL;
}

int KZ_CALL Session::OnData(void* context, const LhaHeader* member, const void* data, size_t size) {
  auto* s = static_cast<Session*>(context);
  if (s->dataOut == nullptr || InterruptRequested()) return 1;
  if (member != nullptr && member->HeaderPos != s->lastDataHeader) {
    s->lastDataHeader = member->HeaderPos;
    // The classic member banner, so several members stay apart; -q drops it.
    if (!s->options_.quiet) {
      s->progress_.Clear();
      std::fprintf(s->dataOut, "::::::::\n%s\n::::::::\n", DisplayName(member->Name).c_str());
    }
  }
  if (size == 0) return 0;
  s->progress_.Clear();
  return std::fwrite(data, 1, size, s->dataOut) == size ? 0 : 1;
}

}  // namespace kzcli
