# Cross-compiling the Windows modules (KzLib73.dll, KzLha73.dll, kzlha.exe)
# with MinGW-w64 on Linux. The posix thread model is the one Debian ships
# with std::thread support; its runtime is linked statically below.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KZ_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KZ_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KZ_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KZ_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KZ_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# A Windows machine has no libgcc, libstdc++ or winpthread DLL: link them
# into every module so that only system DLLs (and KzLib73.dll) are imported.
# -static switches the linker to static archives for those three; system
# import libraries are still import libraries.
set(KZ_STATIC_RUNTIME "-static-libgcc -static-libstdc++ -static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${KZ_STATIC_RUNTIME}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${KZ_STATIC_RUNTIME}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${KZ_STATIC_RUNTIME}")

# Test programs run under Wine when ctest is used on the build host.
find_program(KZ_WINE NAMES wine64 wine)
if(KZ_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KZ_WINE})
endif()
