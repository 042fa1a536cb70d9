# Writes the manual page and the bash completion that the built tool makes
# from its own table of commands:
#   cmake -DZYNET=path/to/zynet -DOUTPUT_DIR=dir -P GenerateDocs.cmake
foreach(doc "zynet.1;--man" "zynet.bash;--completion;bash")
  list(POP_FRONT doc file)
  execute_process(COMMAND ${ZYNET} ${doc} OUTPUT_FILE ${OUTPUT_DIR}/${file}.new RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "zynet ${doc} failed: ${result}")
  endif()
  file(RENAME ${OUTPUT_DIR}/${file}.new ${OUTPUT_DIR}/${file})
endforeach()
