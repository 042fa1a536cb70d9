# The tool's transfer commands against the loopback servers of the HTTP
# tests (the http_servers fixture of tests/CMakeLists.txt).
if(TARGET zynet)
  foreach(case get_put ls_head usage progress)
    add_test(NAME zynet.transfer.${case}
      COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/zynet_transfer.py
              --zynet $<TARGET_FILE:zynet> --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}" ${case})
    set_tests_properties(zynet.transfer.${case} PROPERTIES
      TIMEOUT 300 SKIP_RETURN_CODE 77 LABELS tool FIXTURES_REQUIRED http_servers
      ENVIRONMENT "WINEDEBUG=-all;ZYTEST_HTTP_SERVERS=${ZYNET_HTTP_STATE}/servers.json")
  endforeach()
endif()
