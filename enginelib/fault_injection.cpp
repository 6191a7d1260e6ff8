// The failing-call seam: counts I/O calls of the armed kinds and fails the
// chosen one, so tests can sweep a failure over every call of an operation.
#include <atomic>

#include "enginelib/file_stream.h"

namespace kz::fault {

namespace {
std::atomic<uint64_t> g_target{0};
std::atomic<uint64_t> g_seen{0};
std::atomic<uint32_t> g_kinds{0};
}  // namespace

void Arm(uint64_t n, uint32_t kinds) {
  g_seen = 0;
  g_kinds = kinds;
  g_target = n;
}

void Disarm() {
  g_target = 0;
  g_kinds = 0;
}

uint64_t CallsSeen() { return g_seen; }

bool ShouldFail(IoKind kind) {
  if ((g_kinds.load(std::memory_order_relaxed) & kind) == 0) return false;
  uint64_t seen = ++g_seen;
  if (seen != g_target.load()) return false;
  SetLastError(kind == kWrite ? ERROR_DISK_FULL : ERROR_GEN_FAILURE);
  return true;
}

}  // namespace kz::fault
