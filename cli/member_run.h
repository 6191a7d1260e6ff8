// Runs an extract-like operation (extract, test, print) over the selected
// members and tells, per member, whether it went through. The engine logs
// a member's failure and goes on, but some failures (a read error of the
// archive) stop it; then the run notes the member that was in progress and
// goes on with the members after it, so one bad member hides no other.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/listing.h"
#include "cli/session.h"

namespace kzcli {

enum class Outcome { NotReached, Ok, Failed };

struct MemberResult {
  Outcome outcome = Outcome::NotReached;
  HRESULT status = KZ_S_OK;
};

// Index of the member in members[start..] that file names: the member's
// own name or an output path ending in it; npos for anything else (the
// archive itself included).
size_t FindMemberByFile(const std::vector<Member>& members, size_t start, const std::wstring& file,
                        const std::wstring& archive);

// Index of the last member in members[start..] that appears in the
// progress trace (items in archive order), or start - 1 when none does.
size_t LastReachedMember(const std::vector<Member>& members, size_t start,
                         const std::vector<std::wstring>& progressItems);

// The member in progress when a run stopped for a reason that names no
// member: the last one reached if its bytes were not all done, else the
// one after it. npos when that is past the end.
size_t MemberInProgress(const std::vector<Member>& members, size_t start, size_t lastReached,
                        uint64_t bytesDone);

class MemberRun {
 public:
  using Operation = std::function<HRESULT(const KzList* selection, intptr_t flags)>;

  // printFailures: show each member's failure as "kzlha: FILE: message"
  // (off when the caller prints per-member results of its own).
  MemberRun(Session& session, const std::vector<Member>& members, bool printFailures)
      : session_(session), members_(members), results_(members.size()), printFailures_(printFailures) {}

  // first: the selection of the first attempt (the user's patterns).
  void Run(const std::vector<std::wstring>& first, const Operation& op);

  const std::vector<MemberResult>& results() const { return results_; }
  size_t Count(Outcome outcome) const;
  bool interrupted() const { return interrupted_; }
  // A failure that concerns no single member (reported as such).
  bool failedAsWhole() const { return failedAsWhole_; }

 private:
  HRESULT Attempt(const std::vector<std::wstring>& names, intptr_t flags, size_t start,
                  const Operation& op);
  void ReadLog(size_t start, HRESULT final, const std::wstring& finalFile);
  // Where to go on after a failed attempt; npos to stop.
  size_t AfterFailure(HRESULT hr, size_t start, bool single);
  void Mark(size_t from, size_t to, Outcome outcome);
  void Fail(size_t index, HRESULT status, const std::string& message, const std::wstring& file);

  Session& session_;
  const std::vector<Member>& members_;
  std::vector<MemberResult> results_;
  bool printFailures_;
  bool interrupted_ = false;
  bool failedAsWhole_ = false;
};

}  // namespace kzcli
