# The QoS wrappers over a stub qWAVE module (complete, and without
# QOSSetFlow), one process per scenario: the wrappers load their module once
# per process. The stubs sit beside the program, so bare names find them.
if(WIN32)
  set(qwave_stub_source ${CMAKE_CURRENT_LIST_DIR}/../support/qwave_stub.c)
  add_library(zytest_qwave_stub MODULE ${qwave_stub_source})
  add_library(zytest_qwave_stub_nosetflow MODULE ${qwave_stub_source})
  target_compile_definitions(zytest_qwave_stub_nosetflow PRIVATE ZY_QWAVE_STUB_WITHOUT_SETFLOW)
  foreach(stub zytest_qwave_stub zytest_qwave_stub_nosetflow)
    set_target_properties(${stub} PROPERTIES PREFIX ""
      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin
      RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  endforeach()

  add_executable(qwave_scenarios ${CMAKE_CURRENT_LIST_DIR}/../qwave/qwave_scenarios.cpp)
  target_link_libraries(qwave_scenarios PRIVATE ZyTestSupport)
  add_dependencies(qwave_scenarios zytest_qwave_stub zytest_qwave_stub_nosetflow)

  set(qwave_scenario_stub "QwaveStubModule.*" "zytest_qwave_stub.dll")
  set(qwave_scenario_once "QwaveStubModule.LoadedOnce*" "zytest_qwave_stub.dll")
  set(qwave_scenario_missing-function "QwaveMissingFunction.*" "zytest_qwave_stub_nosetflow.dll")
  set(qwave_scenario_missing-module "QwaveMissingModule.*" "zytest-no-such-qwave.dll")
  foreach(scenario stub once missing-function missing-module)
    list(GET qwave_scenario_${scenario} 0 filter)
    list(GET qwave_scenario_${scenario} 1 module)
    add_test(NAME qwave.${scenario} COMMAND qwave_scenarios --gtest_filter=${filter})
    set_tests_properties(qwave.${scenario} PROPERTIES TIMEOUT 120
      ENVIRONMENT "ZYTEST_QWAVE_SCENARIO=${scenario};ZYNET_QWAVE_MODULE=${module};WINEDEBUG=-all")
  endforeach()
endif()
