# The echo examples run against each other on loopback (Linux).
if(NOT WIN32 AND TARGET echo_server AND TARGET echo_client AND TARGET selector_server)
  find_package(Python3 COMPONENTS Interpreter)
  if(Python3_Interpreter_FOUND)
    add_test(NAME examples.echo_roundtrip
      COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/examples_roundtrip.py $<TARGET_FILE_DIR:echo_server>)
    set_tests_properties(examples.echo_roundtrip PROPERTIES TIMEOUT 120 LABELS examples)
  endif()
endif()
