# The tool's transfer commands (zynet_transfer.py): over HTTP(S) against the
# servers of the http_servers fixture, over FTP, FTPS and SFTP against those
# of the ftp_servers fixture (tests/CMakeLists.txt), and upload-log (on
# Windows against a recording server of its own, on Linux its refusal).
if(TARGET zynet)
  foreach(case get_put get_many get_safety credentials ls_head listings usage ftp vsftpd sftp upload_log)
    set(name zynet.transfer.${case})
    set(fixture)
    set(environment "WINEDEBUG=-all")
    if(case STREQUAL "upload_log")
      set(name zynet.upload_log)
    elseif(case MATCHES "ftp")
      set(fixture FIXTURES_REQUIRED ftp_servers)
      list(APPEND environment "ZYTEST_FTP_SERVERS=${ZYNET_FTP_STATE}/servers.json")
    else()
      set(fixture FIXTURES_REQUIRED http_servers)
      list(APPEND environment "ZYTEST_HTTP_SERVERS=${ZYNET_HTTP_STATE}/servers.json")
    endif()
    add_test(NAME ${name}
      COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/zynet_transfer.py
              --zynet $<TARGET_FILE:zynet> --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}" ${case})
    set_tests_properties(${name} PROPERTIES
      TIMEOUT 300 SKIP_RETURN_CODE 77 LABELS tool ENVIRONMENT "${environment}" ${fixture})
  endforeach()
endif()
