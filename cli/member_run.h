// Runs an extract-like operation (extract, test, print) over the selected
// members so that one bad member does not hide the others: the engine
// stops at the first failure, so the run notes which member failed and
// goes on with the members after it.
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

// Index of the member a failure concerns, judged from the file the engine
// named and the item it last reported progress for; npos if neither is
// one of members[start..].
size_t FindFailedMember(const std::vector<Member>& members, size_t start,
                        const std::wstring& errorFile, const std::wstring& lastItem,
                        const std::wstring& archive);

class MemberRun {
 public:
  using Operation = std::function<HRESULT(const KzList* selection, intptr_t flags)>;

  MemberRun(Session& session, const std::vector<Member>& members)
      : session_(session), members_(members), results_(members.size()) {}

  // first: the selection of the first attempt (the user's patterns).
  // retryEach: when a failure cannot be tied to a member, try the rest
  // one by one (fine for tests, which change nothing).
  void Run(const std::vector<std::wstring>& first, const Operation& op, bool retryEach);

  const std::vector<MemberResult>& results() const { return results_; }
  size_t Count(Outcome outcome) const;
  bool interrupted() const { return interrupted_; }
  // A failure reported for the whole run rather than for one member.
  bool failedAsWhole() const { return failedAsWhole_; }
  // Called for each member failure as it is found.
  std::function<void(const Member&, HRESULT)> onMemberFailed;

 private:
  HRESULT Attempt(const std::vector<std::wstring>& names, intptr_t flags, const Operation& op);
  void RetryEach(size_t start, const Operation& op);
  void Mark(size_t from, size_t to, Outcome outcome);
  void Fail(size_t index, HRESULT status);

  Session& session_;
  const std::vector<Member>& members_;
  std::vector<MemberResult> results_;
  bool interrupted_ = false;
  bool failedAsWhole_ = false;
};

}  // namespace kzcli
