# Installs the build into a scratch prefix and has the installed program
# write a picture: nothing lies beside it in bin/, so it must find its I/O
# module where the installation put it.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install "${NERVA_BUILD_DIR}" --prefix "${prefix}")
run("${prefix}/bin/nerva-blobs" "${VIDEO}" -q -o "${WORK_DIR}/blobs.jsonl" --overview "${WORK_DIR}/sheet.png")
file(READ "${WORK_DIR}/sheet.png" signature LIMIT 4 HEX)
if(NOT signature STREQUAL "89504e47")
  message(FATAL_ERROR "the installed program wrote no PNG picture (it starts with ${signature})")
endif()
file(REMOVE_RECURSE "${WORK_DIR}")
