// a, c, u, m and d: the commands that write the archive. The engine writes
// a new archive beside the old one and puts it in place only on success,
// so a failure here leaves the old archive as it was.
#include <cinttypes>
#include <cstdio>

#include "cli/commands.h"
#include "cli/console.h"
#include "cli/files.h"
#include "cli/messages.h"
#include "cli/progress.h"
#include "cli/session.h"
#include "cli/text.h"

namespace kzcli {

namespace {

uint32_t AddFlags(Command command) {
  switch (command) {
    case Command::Create: return KZ_ADD_CREATE;
    case Command::Update: return KZ_ADD_UPDATE;
    case Command::Move: return KZ_ADD_MOVE;
    default: return KZ_ADD_REPLACE;
  }
}

int ReportWriteFailure(Session& s, HRESULT hr) {
  if (hr == KZ_E_ABORT && InterruptRequested()) {
    s.Report(s.archiveShown(), "interrupted; archive left as it was");
    return kExitInterrupted;
  }
  s.ReportStatus(hr, s.archivePath());
  return kExitFailed;
}

// "a.lzh: 12 members, 34.5 KiB packed from 120 KiB (28.7%)".
void PrintSummary(Session& s) {
  std::vector<Member> members;
  ArchiveInfo info{};
  if (KZ_FAILED(s.ListMembers({}, kSelectPatterns, &members, &info))) return;
  const Totals t = TotalsFromInfo(info, members);
  std::printf("%s: %" PRIu64 " member%s, %s packed from %s (%s)\n", s.archiveShown().c_str(), t.members,
              t.members == 1 ? "" : "s", FormatBytes(t.packed).c_str(), FormatBytes(t.original).c_str(),
              RatioText(t.packed, t.original).c_str() + (t.original != 0 ? 1 : 0));
}

}  // namespace

int AddCommand(Session& s) {
  std::unique_ptr<EngineList> items = s.MakeNames(WideNames(s.options().names));
  if (!items) {
    s.Report(s.archiveShown(), StatusText(KZ_E_OUTOFMEMORY));
    return kExitFailed;
  }
  const std::wstring base = EngineSourceBase();
  const HRESULT hr = s.api().CompressFiles(s.handle(), items->get(), base.empty() ? nullptr : base.c_str(),
                                           AddFlags(s.options().command));
  s.progress().Clear();
  s.PrintLog(hr);
  if (KZ_FAILED(hr)) return ReportWriteFailure(s, hr);
  if (!s.options().quiet) PrintSummary(s);
  return kExitOk;
}

int DeleteCommand(Session& s) {
  const std::vector<std::wstring> patterns = WideNames(s.options().names);
  std::vector<Member> members;
  HRESULT hr = s.ListMembers(patterns, kSelectPatterns, &members, nullptr);
  if (KZ_FAILED(hr)) {
    // Deleting from an archive that cannot be read whole would lose data.
    s.ReportStatus(hr, s.archivePath());
    return members.empty() ? kExitUsage : kExitFailed;
  }
  int rc = s.CheckPatternsMatch(patterns, members.size()) ? kExitOk : kExitFailed;
  if (members.empty()) return rc;
  std::unique_ptr<EngineList> selection = s.MakeNames(patterns);
  if (!selection) return ReportWriteFailure(s, KZ_E_OUTOFMEMORY);
  hr = s.api().DeleteFiles(s.handle(), selection->get(), kSelectPatterns);
  s.progress().Clear();
  if (hr == KZ_ARC_E_EMPTYARCHIVE) {
    s.Report(s.archiveShown(), "all members deleted; archive removed");
    return rc;
  }
  s.PrintLog(hr);
  if (KZ_FAILED(hr)) return ReportWriteFailure(s, hr);
  if (!s.options().quiet) {
    std::printf("%zu member%s deleted\n", members.size(), members.size() == 1 ? "" : "s");
  }
  return rc;
}

int RunCommand(const EngineApi& api, const Options& options) {
  Session session(api, options);
  if (const int rc = session.Open(); rc != kExitOk) return rc;
  switch (options.command) {
    case Command::List:
    case Command::Verbose: return ListCommand(session);
    case Command::Extract: return ExtractCommand(session);
    case Command::Test: return TestCommand(session);
    case Command::Print: return PrintCommand(session);
    case Command::Add:
    case Command::Create:
    case Command::Update:
    case Command::Move: return AddCommand(session);
    case Command::Delete: return DeleteCommand(session);
    case Command::None: break;
  }
  return kExitUsage;
}

}  // namespace kzcli
