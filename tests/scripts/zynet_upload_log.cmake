# `zynet upload-log`: on Windows against the scripted loopback server, on
# Linux its refusal.
if(TARGET zynet)
  if(EXISTS /usr/bin/python3)
    set(upload_log_python /usr/bin/python3)
  else()
    find_package(Python3 COMPONENTS Interpreter REQUIRED)
    set(upload_log_python ${Python3_EXECUTABLE})
  endif()
  add_test(NAME zynet.upload_log
    COMMAND ${upload_log_python} ${CMAKE_CURRENT_LIST_DIR}/zynet_upload_log.py
            --zynet $<TARGET_FILE:zynet> --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
  set_tests_properties(zynet.upload_log PROPERTIES TIMEOUT 180 LABELS tool ENVIRONMENT "WINEDEBUG=-all")
endif()
