# Tests of the Windows build, run under Wine by ctest (the toolchain makes
# Wine the emulator). Each program is one ctest entry: a Wine start per test
# case would cost a second each.
set(KZ_WINE_ENV "WINEDEBUG=-all")

# Cases left out on Windows, each for a reason of the system, not of the
# engine:
# - they plant symbolic links, which Windows gives only to privileged users
#   (std::filesystem::create_symlink fails); the engine's handling of a link
#   it finds is the same code on both systems, behind kz::fs;
# - they expect the Linux stand-in's answer for "\\?\UNC\..." and relative
#   paths, where Windows asks the system (tests/windows holds the engine to
#   whatever the system answers);
# - the 1023-character case reads the extracted tree back through
#   std::filesystem, which does not reach a path that long under Wine
#   without the long-path prefix (the engine writes it with the prefix).
set(KZ_WINDOWS_LEFT_OUT
  FsTest.QueryEntryReportsLinksAndQueryTargetFollowsThem
  FsTest.ReplaceFileReplacesALinkAndNeverWritesThroughIt
  FsTest.ListingTypesLinksAndRefusesALinkedDirectory
  BadInput.NamesOf1023CharactersFailOrAreCutCleanly
  FsTest.ResolveLinksFollowsEveryLink
  ExtractTest.NothingIsWrittenThroughALinkInTheDestination
  Archives/RegressionTest.NothingLeavesTheDestination/3
  Archives/RegressionTest.NothingLeavesTheDestination/5
  Archives/RegressionTest.NothingLeavesTheDestination/7
  Paths/NewArchivePath.IsStoredWithoutPrefixAndWithBackslashes/unc_prefix
  Paths/NewArchivePath.IsStoredWithoutPrefixAndWithBackslashes/lower_case_unc
  Paths/NewArchivePath.IsStoredWithoutPrefixAndWithBackslashes/relative)
list(JOIN KZ_WINDOWS_LEFT_OUT ":" KZ_WINDOWS_FILTER)

foreach(dir enginelib archiver container decode encode exports cli platform)
  if(TARGET test_${dir})
    add_test(NAME windows.${dir} COMMAND test_${dir} --gtest_brief=1 --gtest_filter=-${KZ_WINDOWS_FILTER})
    set_tests_properties(windows.${dir} PROPERTIES LABELS ${dir} ENVIRONMENT "${KZ_WINE_ENV}")
  endif()
endforeach()

# Windows-only cases: path forms of opening an archive.
file(GLOB KZ_WINDOWS_TESTS CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.cpp)
add_executable(test_windows ${KZ_WINDOWS_TESTS})
target_link_libraries(test_windows PRIVATE kz_test_support GTest::gtest_main)
target_compile_options(test_windows PRIVATE ${KZ_WARNINGS})
add_test(NAME windows.windows COMMAND test_windows --gtest_brief=1)
set_tests_properties(windows.windows PROPERTIES LABELS windows ENVIRONMENT "${KZ_WINE_ENV}")

# A host in C that knows the public header and nothing else.
add_executable(kz_host_test ${CMAKE_CURRENT_LIST_DIR}/host_test.c)
target_include_directories(kz_host_test PRIVATE ${CMAKE_SOURCE_DIR}/include)
target_compile_definitions(kz_host_test PRIVATE __USE_MINGW_ANSI_STDIO=1)
target_compile_options(kz_host_test PRIVATE -Wall -Wextra -Werror)
add_dependencies(kz_host_test KzLha73)
set(KZ_ARCHIVES ${CMAKE_SOURCE_DIR}/../shared/archives)
add_test(NAME windows.host
  COMMAND kz_host_test $<TARGET_FILE:KzLha73> ${CMAKE_CURRENT_BINARY_DIR}/host-out
    ${KZ_ARCHIVES}/lha213/lh5.lzh ${KZ_ARCHIVES}/lharc113/lh1.lzh ${KZ_ARCHIVES}/lha_amiga_122/lh4.lzh
    ${KZ_ARCHIVES}/lha_unix114i/h2_lh7.lzh ${KZ_ARCHIVES}/lha_unix114i/h1_subdir.lzh
    ${KZ_ARCHIVES}/lha_amiga_122/sfx.run)
set_tests_properties(windows.host PROPERTIES LABELS windows ENVIRONMENT "${KZ_WINE_ENV}")
