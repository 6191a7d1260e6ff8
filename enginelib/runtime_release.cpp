// A module that carries its own copy of the C++ runtime also carries that
// runtime's emergency exception pool (about 71 KiB, allocated when the module
// loads). Nothing frees it, so a host that loads and unloads the module would
// lose one pool per cycle; the module gives it back as it unloads.
#ifdef KZ_OWN_CXX_RUNTIME

namespace __gnu_cxx {
void __freeres();  // the runtime's own release of the pool
}  // namespace __gnu_cxx

namespace {

__attribute__((destructor)) void ReleaseRuntimePool() { __gnu_cxx::__freeres(); }

}  // namespace

#endif
