# The API reference (Linux): doxygen reads the public headers, and the test
# fails on a public class or function without a comment and on broken
# comment markup.
if(NOT WIN32)
  find_program(ZYNET_DOXYGEN doxygen)
  find_package(Python3 COMPONENTS Interpreter)
  if(ZYNET_DOXYGEN AND Python3_Interpreter_FOUND)
    add_test(NAME docs.documented
      COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/docs/api/check_documented.py ${ZYNET_DOXYGEN}
              ${CMAKE_BINARY_DIR}/docs/api/Doxyfile-check ${CMAKE_SOURCE_DIR}
      WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
    set_tests_properties(docs.documented PROPERTIES TIMEOUT 120 LABELS docs)
  endif()
endif()
