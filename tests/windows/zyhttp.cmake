# The WinINet client's suite runs as one program beside the scripted loopback
# servers, the recording ones included.
if(TARGET test_zyhttp)
  add_test(NAME zyhttp.wininet
    COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/../support/scripted_servers.py
            --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}" --records -- $<TARGET_FILE:test_zyhttp>)
  set_tests_properties(zyhttp.wininet PROPERTIES TIMEOUT 300 ENVIRONMENT "WINEDEBUG=-all")
endif()
