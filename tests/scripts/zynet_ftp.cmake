# The tool's transfer commands over FTP, FTPS and SFTP against the servers
# of the ftp_servers fixture (tests/CMakeLists.txt).
if(TARGET zynet)
  foreach(case ftp sftp)
    add_test(NAME zynet.transfer.${case}
      COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/zynet_ftp.py
              --zynet $<TARGET_FILE:zynet> --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}" ${case})
    set_tests_properties(zynet.transfer.${case} PROPERTIES
      TIMEOUT 300 SKIP_RETURN_CODE 77 LABELS tool FIXTURES_REQUIRED ftp_servers
      ENVIRONMENT "WINEDEBUG=-all;ZYTEST_FTP_SERVERS=${ZYNET_FTP_STATE}/servers.json")
  endforeach()
endif()
