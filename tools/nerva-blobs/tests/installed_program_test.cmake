# Installs the build into a scratch prefix and has the installed program
# write a picture: nothing lies beside it in bin/, so it must find its I/O
# module where the installation put it.
set(prefix "${WORK_DIR}/prefix")
set(sheet "${WORK_DIR}/sheet.png")
file(REMOVE_RECURSE "${WORK_DIR}")

execute_process(COMMAND ${CMAKE_COMMAND} --install "${NERVA_BUILD_DIR}" --prefix "${prefix}"
  RESULT_VARIABLE installed ERROR_VARIABLE why OUTPUT_QUIET)
if(NOT installed EQUAL 0)
  message(FATAL_ERROR "cannot install into ${prefix}: ${why}")
endif()
execute_process(COMMAND "${prefix}/bin/nerva-blobs" "${VIDEO}" -q -o "${WORK_DIR}/blobs.jsonl" --overview "${sheet}"
  RESULT_VARIABLE status ERROR_VARIABLE why)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the installed program failed (${status}): ${why}")
endif()
file(READ "${sheet}" signature LIMIT 4 HEX)
if(NOT signature STREQUAL "89504e47")
  message(FATAL_ERROR "the installed program wrote no PNG picture (it starts with ${signature})")
endif()
file(REMOVE_RECURSE "${WORK_DIR}")
