// l, v, x, e, t and p: the commands that read the archive.
#include <cstdio>

#include "cli/commands.h"
#include "cli/files.h"
#include "cli/member_run.h"
#include "cli/messages.h"
#include "cli/session.h"
#include "cli/text.h"

namespace kzcli {

namespace {

// The members the user's names select. A listing that fails before it
// found anything means the archive cannot be read: exit 2. One that fails
// part way is reported and the members found so far are used.
int SelectMembers(Session& s, const std::vector<std::wstring>& patterns,
                  std::vector<Member>* members, ArchiveInfo* info, HRESULT* status) {
  *status = s.ListMembers(patterns, kSelectPatterns, members, info);
  s.PrintLog(*status);
  if (!KZ_FAILED(*status)) return kExitOk;
  s.ReportStatus(*status, s.archivePath());
  return members->empty() ? kExitUsage : kExitFailed;
}

int Worst(int a, int b) { return a > b ? a : b; }

}  // namespace

int ListCommand(Session& s) {
  const std::vector<std::wstring> patterns = WideNames(s.options().names);
  std::vector<Member> members;
  ArchiveInfo info{};
  HRESULT hr = KZ_S_OK;
  int rc = SelectMembers(s, patterns, &members, &info, &hr);
  if (rc == kExitUsage) return rc;
  const Totals totals = KZ_FAILED(hr) ? TotalsFromMembers(members) : TotalsFromInfo(info, members);
  std::string out;
  if (s.options().json) {
    for (const Member& m : members) out += FormatJsonMember(m);
    out += FormatJsonTotals(totals, s.archiveShown());
  } else {
    out = FormatTable(members, totals, s.options().command == Command::Verbose);
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
  std::fflush(stdout);
  if (!s.CheckPatternsMatch(patterns, members.size())) rc = Worst(rc, kExitFailed);
  return rc;
}

namespace {

// The selection and the members of x, t and p, with the patterns checked.
struct Selected {
  std::vector<std::wstring> patterns;
  std::vector<Member> members;
  int rc = kExitOk;
};

Selected Select(Session& s) {
  Selected sel;
  sel.patterns = WideNames(s.options().names);
  HRESULT hr = KZ_S_OK;
  sel.rc = SelectMembers(s, sel.patterns, &sel.members, nullptr, &hr);
  if (sel.rc != kExitUsage && !s.CheckPatternsMatch(sel.patterns, sel.members.size()))
    sel.rc = Worst(sel.rc, kExitFailed);
  return sel;
}

int Finish(Session& s, const MemberRun& run, int rc) {
  if (run.interrupted()) {
    s.Report(s.archiveShown(), s.cancelled ? "cancelled" : "interrupted");
    return s.cancelled ? kExitFailed : kExitInterrupted;
  }
  if (run.failedAsWhole() || run.Count(Outcome::Failed) > 0) rc = Worst(rc, kExitFailed);
  return rc;
}

}  // namespace

int ExtractCommand(Session& s) {
  Selected sel = Select(s);
  if (sel.rc == kExitUsage || sel.members.empty()) return sel.rc;
  const std::wstring dest = FromNative(s.options().outputDir);
  if (!dest.empty()) {
    std::string why;
    if (!CreateDirectories(s.options().outputDir, &why)) {
      s.Report(DisplayName(dest), "cannot create the directory: " + why);
      return kExitFailed;
    }
  }
  MemberRun run(s, sel.members, true);
  const EngineApi& api = s.api();
  // The engine wants at least one name: "*" stands for everything.
  run.Run(sel.patterns.empty() ? std::vector<std::wstring>{L"*"} : sel.patterns,
          [&](const KzList* selection, intptr_t flags) {
            return api.ExtractFiles(s.handle(), selection, flags, dest.empty() ? nullptr : dest.c_str(), 0);
          });
  const int rc = Finish(s, run, sel.rc);
  if (!s.options().quiet && !run.interrupted()) {
    const size_t ok = run.Count(Outcome::Ok);
    const size_t extracted = ok > s.skipped ? ok - s.skipped : 0;
    std::printf("%zu of %zu member%s extracted", extracted, sel.members.size(),
                sel.members.size() == 1 ? "" : "s");
    if (!dest.empty()) std::printf(" to %s", DisplayName(dest).c_str());
    if (s.skipped > 0) std::printf(", %u skipped", s.skipped);
    if (run.Count(Outcome::Failed) > 0) std::printf(", %zu failed", run.Count(Outcome::Failed));
    std::printf("\n");
  }
  return rc;
}

int TestCommand(Session& s) {
  Selected sel = Select(s);
  if (sel.rc == kExitUsage || sel.members.empty()) return sel.rc;
  const bool quiet = s.options().quiet;
  // Without -q the result lines below carry the failures.
  MemberRun run(s, sel.members, quiet);
  const EngineApi& api = s.api();
  run.Run(sel.patterns,
          [&](const KzList* selection, intptr_t flags) { return api.TestArchive(s.handle(), selection, flags); });
  const int rc = Finish(s, run, sel.rc);
  const size_t failed = run.Count(Outcome::Failed);
  if (!quiet && !run.interrupted()) {
    for (size_t i = 0; i < sel.members.size(); ++i) {
      const MemberResult& r = run.results()[i];
      const std::string verdict = r.outcome == Outcome::Ok       ? "OK"
                                  : r.outcome == Outcome::Failed ? StatusText(r.status)
                                                                 : "not tested";
      std::printf("%s  %s\n", ListedName(sel.members[i]).c_str(), verdict.c_str());
    }
    const std::string verdict = failed == 0 && !run.failedAsWhole() ? "all OK" : std::to_string(failed) + " failed";
    std::printf("%zu member%s tested, %s\n", sel.members.size(), sel.members.size() == 1 ? "" : "s",
                verdict.c_str());
    std::fflush(stdout);
    if (failed > 0) s.Report(s.archiveShown(), std::to_string(failed) + " of " +
                                                   std::to_string(sel.members.size()) + " members failed the test");
  }
  return rc;
}

int PrintCommand(Session& s) {
  Selected sel = Select(s);
  if (sel.rc == kExitUsage || sel.members.empty()) return sel.rc;
  s.dataOut = stdout;
  MemberRun run(s, sel.members, true);
  const EngineApi& api = s.api();
  run.Run(sel.patterns.empty() ? std::vector<std::wstring>{L"*"} : sel.patterns,
          [&](const KzList* selection, intptr_t flags) {
            return api.ExtractFiles(s.handle(), selection, flags, nullptr, KZ_EXTRACT_TO_CALLBACK);
          });
  std::fflush(stdout);
  return Finish(s, run, sel.rc);
}

}  // namespace kzcli
