// One run of a command against one archive: the engine object with its
// options and callbacks, error and log reporting, and the listing that
// most commands start from.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/args.h"
#include "cli/engine.h"
#include "cli/listing.h"
#include "cli/progress.h"

namespace kzcli {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

constexpr intptr_t kSelectPatterns = KZ_SELECT_WILDCARD | KZ_SELECT_SUBTREE;

class Session {
 public:
  Session(const EngineApi& api, const Options& options);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Creates the object, applies the options and binds the archive. On
  // failure the error is reported and the exit status returned; else 0.
  int Open();

  const EngineApi& api() const { return api_; }
  KzHandle handle() const { return object_.get(); }
  const Options& options() const { return options_; }
  const std::wstring& archivePath() const { return archive_; }
  std::string archiveShown() const;
  ProgressDisplay& progress() { return progress_; }

  // "kzlha: FILE: message" for a failed call, naming the file the engine
  // says the error concerns (else `fallback`).
  void ReportStatus(HRESULT status, const std::wstring& fallback);
  // "kzlha: FILE: message" with text of our own.
  void Report(const std::string& file, const std::string& message);
  // "kzlha: FILE: message" unless -q.
  void Note(const std::string& file, const std::string& message);
  // Errors and (unless -q) warnings from the object's log, except the one
  // already reported as `reported` for the file the engine named.
  void PrintLog(HRESULT reported);

  // A names list holding the given texts.
  std::unique_ptr<EngineList> MakeNames(const std::vector<std::wstring>& texts);
  // Lists the members the patterns select (all for none). info may be null.
  HRESULT ListMembers(const std::vector<std::wstring>& patterns, intptr_t flags,
                      std::vector<Member>* members, ArchiveInfo* info);
  // Reports every pattern that selects no member; false if there was one.
  bool CheckPatternsMatch(const std::vector<std::wstring>& patterns, size_t selectedCount);

  // What the callbacks saw during the last operation.
  std::wstring lastItem;                   // item of the latest progress report
  std::vector<std::wstring> progressItems; // each item once, in the order reported
  uint64_t lastDone = 0;                   // bytes done at the latest report
  uint32_t skipped = 0;   // members left alone because their file existed
  bool cancelled = false; // the user answered "quit"
  // Where Data callbacks go (p); null for other commands.
  std::FILE* dataOut = nullptr;
  uint64_t lastDataHeader = UINT64_MAX;

 private:
  HRESULT ApplyOptions();
  static int KZ_CALL OnProgress(void* context, const wchar_t* item, uint64_t done, uint64_t total);
  static int KZ_CALL OnAskOverwrite(void* context, const wchar_t* path, const LhaHeader* member);
  static int KZ_CALL OnData(void* context, const LhaHeader* member, const void* data, size_t size);
  int AskOverwrite(const wchar_t* path);

  const EngineApi& api_;
  const Options& options_;
  ArchiveObject object_;
  std::wstring archive_;
  std::vector<std::wstring> excludes_;  // kept alive while the object may read them
  ProgressDisplay progress_;
};

// Wide copies of the command line's names.
std::vector<std::wstring> WideNames(const std::vector<std::string>& names);

}  // namespace kzcli
