#include "cli/member_run.h"

#include "cli/console.h"
#include "cli/messages.h"
#include "cli/text.h"

namespace kzcli {

namespace {

bool EndsWith(const std::wstring& s, const std::wstring& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// Failures after which going on with the next member cannot help.
bool StopsEverything(HRESULT hr) {
  return hr == KZ_E_ABORT || hr == KZ_E_OUTOFMEMORY || hr == KZ_HRESULT_FROM_WIN32(112) ||
         hr == KZ_HRESULT_FROM_WIN32(39);
}

// A warning that repeats a member's failure the engine went on past.
bool IsMemberDataFailure(HRESULT hr) {
  return hr == KZ_E_CRC || hr == KZ_ARC_E_BADTABLE || hr == KZ_ARC_E_UNKNOWNMETHOD;
}

}  // namespace

size_t FindMemberByFile(const std::vector<Member>& members, size_t start, const std::wstring& file,
                        const std::wstring& archive) {
  const std::wstring candidate = BackslashSeparators(file);
  const std::wstring archiveName = BackslashSeparators(archive);
  if (candidate.empty() || candidate == archiveName || EndsWith(candidate, L"\\" + archiveName))
    return std::wstring::npos;
  for (size_t i = start; i < members.size(); ++i) {
    if (BackslashSeparators(members[i].name) == candidate) return i;
  }
  for (size_t i = start; i < members.size(); ++i) {
    const std::wstring name = BackslashSeparators(members[i].name);
    if (!name.empty() && EndsWith(candidate, L"\\" + name)) return i;
  }
  return std::wstring::npos;
}

size_t LastReachedMember(const std::vector<Member>& members, size_t start,
                         const std::vector<std::wstring>& progressItems) {
  size_t reached = start - 1;  // wraps for start 0; compared only after + 1
  size_t next = start;
  for (const std::wstring& item : progressItems) {
    const std::wstring wanted = BackslashSeparators(item);
    for (size_t i = next; i < members.size(); ++i) {
      if (BackslashSeparators(members[i].name) == wanted) {
        reached = i;
        next = i + 1;
        break;
      }
    }
  }
  return reached;
}

size_t MemberInProgress(const std::vector<Member>& members, size_t start, size_t lastReached,
                        uint64_t bytesDone) {
  if (lastReached + 1 > start) {
    uint64_t upToLast = 0;
    for (size_t i = start; i <= lastReached; ++i) upToLast += members[i].header.OriginalSize;
    if (bytesDone < upToLast) return lastReached;
  }
  return lastReached + 1 < members.size() ? lastReached + 1 : std::wstring::npos;
}

size_t MemberRun::Count(Outcome outcome) const {
  size_t n = 0;
  for (const MemberResult& r : results_) n += r.outcome == outcome;
  return n;
}

void MemberRun::Mark(size_t from, size_t to, Outcome outcome) {
  for (size_t i = from; i < to && i < results_.size(); ++i) {
    if (results_[i].outcome == Outcome::NotReached) results_[i].outcome = outcome;
  }
}

void MemberRun::Fail(size_t index, HRESULT status, const std::string& message, const std::wstring& file) {
  if (results_[index].outcome == Outcome::Failed) return;
  results_[index] = {Outcome::Failed, status};
  if (!printFailures_) return;
  const std::wstring& name = members_[index].name;
  // Name the member; when the error concerns the archive, name that too.
  if (file.empty() || FindMemberByFile(members_, index, file, session_.archivePath()) == index) {
    session_.Report(DisplayName(file.empty() ? name : file), message);
  } else {
    session_.Report(DisplayName(file), message + " (in member " + DisplayName(name) + ")");
  }
}

// Member failures from the log, and everything else in it shown. A final
// status that names no member is left to the caller.
void MemberRun::ReadLog(size_t start, HRESULT final, const std::wstring& finalFile) {
  const bool quiet = session_.options().quiet;
  ForEachItem<KzLogEntry>(session_.api().GetLogList(session_.handle()), [&](const KzLogEntry& e) {
    const std::wstring file = e.FileName != nullptr ? e.FileName : L"";
    const size_t member = FindMemberByFile(members_, start, file, session_.archivePath());
    const bool failure = e.Level == KZ_LOG_ERROR || (e.Level == KZ_LOG_WARNING && IsMemberDataFailure(e.Status));
    if (failure && member != std::wstring::npos) {
      // A warning that repeats a failure already noted adds nothing.
      Fail(member, e.Status, e.Level == KZ_LOG_ERROR ? DisplayText(e.Text) : StatusText(e.Status), file);
      return;
    }
    if (e.Level == KZ_LOG_ERROR && e.Status == final && BackslashSeparators(file) == BackslashSeparators(finalFile)) return;
    if (e.Level == KZ_LOG_INFO || (e.Level == KZ_LOG_WARNING && quiet)) return;
    session_.Report(file.empty() ? session_.archiveShown() : DisplayName(file),
                    (e.Level == KZ_LOG_WARNING ? "warning: " : "") + DisplayText(e.Text));
  });
}

HRESULT MemberRun::Attempt(const std::vector<std::wstring>& names, intptr_t flags, size_t start,
                           const Operation& op) {
  std::unique_ptr<EngineList> selection = session_.MakeNames(names);
  if (!selection) return KZ_E_OUTOFMEMORY;
  session_.lastItem.clear();
  session_.progressItems.clear();
  session_.lastDone = 0;
  const HRESULT hr = op(selection->get(), flags);
  session_.progress().Clear();
  const wchar_t* errorFile = session_.api().GetErrorFileName(session_.handle());
  ReadLog(start, KZ_FAILED(hr) ? hr : KZ_S_OK, errorFile != nullptr ? errorFile : L"");
  return hr;
}

size_t MemberRun::AfterFailure(HRESULT hr, size_t start, bool single) {
  const wchar_t* raw = session_.api().GetErrorFileName(session_.handle());
  const std::wstring errorFile = raw != nullptr ? raw : L"";
  const size_t reached = LastReachedMember(members_, start, session_.progressItems);
  Mark(start, reached + 1, Outcome::Ok);  // wraps to 0 when nothing was reached
  size_t culprit = FindMemberByFile(members_, start, errorFile, session_.archivePath());
  if (culprit == std::wstring::npos && single) culprit = start;
  if (culprit == std::wstring::npos && !StopsEverything(hr))
    culprit = MemberInProgress(members_, start, reached, session_.lastDone);
  if (culprit == std::wstring::npos || StopsEverything(hr)) {
    session_.ReportStatus(hr, session_.archivePath());
    failedAsWhole_ = true;
    return std::wstring::npos;
  }
  Fail(culprit, hr, StatusText(hr), errorFile);
  // Everything reached went through unless the log said otherwise; go on
  // after whichever is later, the failed member or the last one reached.
  Mark(start, culprit, Outcome::Ok);
  const size_t next = (reached + 1 > culprit + 1 ? reached + 1 : culprit + 1);
  return next < members_.size() ? next : std::wstring::npos;
}

void MemberRun::Run(const std::vector<std::wstring>& first, const Operation& op) {
  std::vector<std::wstring> names = first;
  intptr_t flags = kSelectPatterns;
  size_t start = 0;
  bool single = false;
  while (start < members_.size()) {
    const HRESULT hr = Attempt(names, flags, start, op);
    if (!KZ_FAILED(hr)) {
      Mark(start, members_.size(), Outcome::Ok);
      return;
    }
    if (hr == KZ_E_ABORT && (InterruptRequested() || session_.cancelled)) {
      interrupted_ = true;
      return;
    }
    start = AfterFailure(hr, start, single);
    if (start == std::wstring::npos) return;
    names.clear();
    for (size_t i = start; i < members_.size(); ++i) names.push_back(members_[i].name);
    flags = KZ_SELECT_EXACT;
    single = names.size() == 1;
  }
}

}  // namespace kzcli
