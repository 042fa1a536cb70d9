# The module that test_utility_classes loads: built beside the test program,
# so that the test finds it through the directory of its own executable.
if(TARGET test_utility_classes)
  add_library(zytest_module MODULE ${CMAKE_CURRENT_LIST_DIR}/../support/zytest_module.c)
  set_target_properties(zytest_module PROPERTIES
    PREFIX ""
    C_VISIBILITY_PRESET hidden
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  add_dependencies(test_utility_classes zytest_module)
  target_compile_definitions(test_utility_classes PRIVATE
    ZYTEST_MODULE_NAME="$<TARGET_FILE_NAME:zytest_module>")
endif()
