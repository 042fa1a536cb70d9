# Tests of the zynet tool's real output: each runs the built tool through
# tests/scripts/zynet_cli.py, which checks what it prints and its exit
# status. On the Windows target the tool runs under the cross emulator.
if(TARGET zynet)
  find_package(Python3 COMPONENTS Interpreter)
  if(Python3_Interpreter_FOUND)
    set(zynet_cli_cases tour addr json_escaping resolve reverse cidr mask probe ifaces blacklist
        ping curl_version usage help_clients man_completion proxy)
    if(WIN32)
      # What Wine can run cheaply; name look-ups and interface lists under
      # Wine go to the host and are covered by the Linux run.
      set(zynet_cli_cases tour addr cidr mask probe curl_version usage help_clients proxy)
    endif()
    foreach(case ${zynet_cli_cases})
      add_test(NAME zynet.${case}
        COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/zynet_cli.py
                --zynet $<TARGET_FILE:zynet> --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}" ${case})
      set_tests_properties(zynet.${case} PROPERTIES
        TIMEOUT 120 SKIP_RETURN_CODE 77 LABELS tool ENVIRONMENT "WINEDEBUG=-all")
      if(case MATCHES "^(tour|ping)$")
        # Raw ICMP sockets see each other's echo traffic: one pinger at a time.
        set_tests_properties(zynet.${case} PROPERTIES RESOURCE_LOCK icmp)
      endif()
    endforeach()
  endif()
endif()
