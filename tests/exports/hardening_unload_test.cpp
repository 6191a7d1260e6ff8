// A host may load and unload the engine module many times. The module
// carries its own C++ runtime, whose exception pool is allocated at load:
// if unloading does not give it back, every cycle loses about 71 KiB. The
// heap in use after many cycles must stay where one cycle left it.
#ifndef _WIN32
#include <dlfcn.h>
#include <malloc.h>

#include <gtest/gtest.h>

#include "kzlha/kzlha.h"
#include "support/test_support.h"

namespace {

size_t HeapInUse() { return mallinfo2().uordblks; }

void LoadAndUnload(bool useAnObject) {
  void* module = dlopen(kztest::EngineModulePath().c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(module, nullptr) << dlerror();
  if (useAnObject) {
    auto create = reinterpret_cast<KzCreateObjectFn>(dlsym(module, "KzCreateObject"));
    auto free = reinterpret_cast<KzFreeObjectFn>(dlsym(module, "KzFreeObject"));
    ASSERT_TRUE(create && free);
    KzHandle h = create();
    ASSERT_NE(h, nullptr);
    free(h);
  }
  ASSERT_EQ(dlclose(module), 0);
}

TEST(ModuleUnload, GivesBackWhatLoadingTook) {
  constexpr int kCycles = 16;
  constexpr size_t kPool = 64 * 1024;  // below the runtime's pool
  for (bool useAnObject : {false, true}) {
    LoadAndUnload(useAnObject);  // the loader's own first-use allocations
    const size_t before = HeapInUse();
    for (int i = 0; i < kCycles; ++i) LoadAndUnload(useAnObject);
    const size_t after = HeapInUse();
    // A pool lost per cycle would add kCycles pools; allow less than one.
    EXPECT_LT(after > before ? after - before : 0, kPool)
        << (useAnObject ? "with an object: " : "") << "heap grew from " << before << " to " << after;
  }
}

}  // namespace
#endif
