# The WinINet client's suite runs against scripted loopback servers that a
# Linux-side driver starts around the test program.
if(TARGET test_zyhttp)
  if(EXISTS /usr/bin/python3)
    set(zyhttp_python /usr/bin/python3)
  else()
    find_package(Python3 COMPONENTS Interpreter REQUIRED)
    set(zyhttp_python ${Python3_EXECUTABLE})
  endif()
  add_test(NAME zyhttp.wininet
    COMMAND ${zyhttp_python} ${CMAKE_CURRENT_LIST_DIR}/run_with_servers.py
            --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}" $<TARGET_FILE:test_zyhttp>)
  set_tests_properties(zyhttp.wininet PROPERTIES TIMEOUT 300 ENVIRONMENT "WINEDEBUG=-all")
endif()
