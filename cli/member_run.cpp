#include "cli/member_run.h"

#include "cli/console.h"

namespace kzcli {

namespace {

std::wstring Separators(std::wstring s) {
  for (wchar_t& c : s) {
    if (c == L'/') c = L'\\';
  }
  return s;
}

bool EndsWith(const std::wstring& s, const std::wstring& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// Failures after which going on with the next member cannot help.
bool StopsEverything(HRESULT hr) {
  return hr == KZ_E_ABORT || hr == KZ_E_OUTOFMEMORY || hr == KZ_HRESULT_FROM_WIN32(112) ||
         hr == KZ_HRESULT_FROM_WIN32(39);
}

}  // namespace

size_t FindFailedMember(const std::vector<Member>& members, size_t start,
                        const std::wstring& errorFile, const std::wstring& lastItem,
                        const std::wstring& archive) {
  const std::wstring archiveName = Separators(archive);
  for (const std::wstring& raw : {errorFile, lastItem}) {
    const std::wstring candidate = Separators(raw);
    if (candidate.empty() || candidate == archiveName || EndsWith(candidate, L"\\" + archiveName))
      continue;
    for (size_t i = start; i < members.size(); ++i) {
      if (Separators(members[i].name) == candidate) return i;
    }
    // An output path: the destination followed by the member's name.
    for (size_t i = start; i < members.size(); ++i) {
      const std::wstring name = Separators(members[i].name);
      if (!name.empty() && EndsWith(candidate, L"\\" + name)) return i;
    }
  }
  return std::wstring::npos;
}

size_t MemberRun::Count(Outcome outcome) const {
  size_t n = 0;
  for (const MemberResult& r : results_) n += r.outcome == outcome;
  return n;
}

void MemberRun::Mark(size_t from, size_t to, Outcome outcome) {
  for (size_t i = from; i < to; ++i) {
    if (results_[i].outcome == Outcome::NotReached) results_[i].outcome = outcome;
  }
}

void MemberRun::Fail(size_t index, HRESULT status) {
  results_[index] = {Outcome::Failed, status};
  if (onMemberFailed) onMemberFailed(members_[index], status);
}

HRESULT MemberRun::Attempt(const std::vector<std::wstring>& names, intptr_t flags,
                           const Operation& op) {
  std::unique_ptr<EngineList> selection = session_.MakeNames(names);
  if (!selection) return KZ_E_OUTOFMEMORY;
  session_.lastItem.clear();
  const HRESULT hr = op(selection->get(), flags);
  session_.progress().Clear();
  session_.PrintLog(hr);
  return hr;
}

void MemberRun::Run(const std::vector<std::wstring>& first, const Operation& op, bool retryEach) {
  std::vector<std::wstring> names = first;
  intptr_t flags = kSelectPatterns;
  size_t start = 0;
  while (start < members_.size()) {
    const HRESULT hr = Attempt(names, flags, op);
    if (!KZ_FAILED(hr)) {
      Mark(start, members_.size(), Outcome::Ok);
      return;
    }
    if (hr == KZ_E_ABORT && (InterruptRequested() || session_.cancelled)) {
      interrupted_ = true;
      return;
    }
    const wchar_t* errorFile = session_.api().GetErrorFileName(session_.handle());
    const size_t failed = StopsEverything(hr) ? std::wstring::npos
                          : FindFailedMember(members_, start, errorFile ? errorFile : L"",
                                             session_.lastItem, session_.archivePath());
    if (failed == std::wstring::npos) {
      if (retryEach && !StopsEverything(hr)) return RetryEach(start, op);
      session_.ReportStatus(hr, session_.archivePath());
      failedAsWhole_ = true;
      return;
    }
    Mark(start, failed, Outcome::Ok);
    Fail(failed, hr);
    start = failed + 1;
    // Go on with exactly the members after the failed one.
    names.clear();
    for (size_t i = start; i < members_.size(); ++i) names.push_back(members_[i].name);
    flags = KZ_SELECT_EXACT;
  }
}

void MemberRun::RetryEach(size_t start, const Operation& op) {
  for (size_t i = start; i < members_.size() && !interrupted_; ++i) {
    if (members_[i].name.empty()) continue;
    const HRESULT hr = Attempt({members_[i].name}, KZ_SELECT_EXACT, op);
    if (!KZ_FAILED(hr)) {
      results_[i].outcome = Outcome::Ok;
    } else if (hr == KZ_E_ABORT && InterruptRequested()) {
      interrupted_ = true;
    } else {
      Fail(i, hr);
    }
  }
}

}  // namespace kzcli
