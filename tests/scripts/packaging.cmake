# Packaging checks (Linux): the installed tree serves a consumer project
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
