# Tests of the Windows build, run under Wine by ctest (the toolchain sets
# Wine as the emulator). Each program is one ctest entry: starting Wine
# once per test case would cost a second each.
set(KZ_WINE_ENV "WINEDEBUG=-all")

foreach(dir enginelib archiver container decode encode exports cli platform)
  if(TARGET test_${dir})
    add_test(NAME windows.${dir} COMMAND test_${dir} --gtest_brief=1)
    set_tests_properties(windows.${dir} PROPERTIES LABELS ${dir} ENVIRONMENT "${KZ_WINE_ENV}")
  endif()
endforeach()
