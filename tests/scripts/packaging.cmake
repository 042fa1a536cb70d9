# Packaging checks. Linux: the installed tree serves a consumer project
# through find_package and pkg-config, and CPack makes the three .debs.
# Sanitizer builds are left out: their library needs the sanitizer runtime
# in every program that loads it.
if(NOT WIN32 AND NOT ZYNET_SANITIZE AND TARGET zynet)
  add_test(NAME packaging.consumer
    COMMAND bash ${CMAKE_SOURCE_DIR}/tests/consumer/check.sh ${CMAKE_BINARY_DIR} ${CMAKE_COMMAND} ${CMAKE_GENERATOR})
  set_tests_properties(packaging.consumer PROPERTIES TIMEOUT 300 LABELS packaging)
  add_test(NAME packaging.debs
    COMMAND bash ${CMAKE_SOURCE_DIR}/tests/consumer/check-debs.sh ${CMAKE_BINARY_DIR} ${CMAKE_CPACK_COMMAND})
  set_tests_properties(packaging.debs PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77 LABELS packaging)
endif()
# The Windows zip (built with the real curl DLL): unpacked into a fresh
# directory, the examples built against it with mingw both ways and run under
# Wine, and its zynet.exe fetching from a loopback server on its own.
if(WIN32 AND ZYNET_WIN_CURL_DLL AND TARGET zynet AND CMAKE_CROSSCOMPILING_EMULATOR)
  find_package(Python3 COMPONENTS Interpreter)
  if(Python3_Interpreter_FOUND)
    add_test(NAME packaging.zip
      COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/windows_zip.py --build ${CMAKE_BINARY_DIR}
              --source ${CMAKE_SOURCE_DIR} --cpack ${CMAKE_CPACK_COMMAND} --cmake ${CMAKE_COMMAND}
              --toolchain ${CMAKE_TOOLCHAIN_FILE} --emulator ${CMAKE_CROSSCOMPILING_EMULATOR})
    set_tests_properties(packaging.zip PROPERTIES TIMEOUT 600 LABELS packaging)
  endif()
endif()
