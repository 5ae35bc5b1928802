# Installs the built library into a scratch prefix, then configures, builds
# and runs a tiny consumer with find_package(nerva), and checks pkg-config.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install "${NERVA_BUILD_DIR}" --prefix "${prefix}")
if(NOT EXISTS "${prefix}/include/nerva/nerva.h" OR NOT EXISTS "${prefix}/include/nerva/geometry/rectangle.h")
  message(FATAL_ERROR "headers not installed under include/nerva/<subsystem>/")
endif()

# Only public headers: nothing from an internal/ folder, and no installed
# header that includes one.
file(GLOB_RECURSE installed_headers RELATIVE "${prefix}/include" "${prefix}/include/*")
foreach(header ${installed_headers})
  if(header MATCHES "(^|/)internal/")
    message(FATAL_ERROR "internal header installed: include/${header}")
  endif()
  file(STRINGS "${prefix}/include/${header}" internal_includes REGEX "^#include \"nerva/.*internal/")
  if(internal_includes)
    message(FATAL_ERROR "installed header include/${header} includes an internal one: ${internal_includes}")
  endif()
endforeach()

# The installed program starts from the prefix as it is, library found beside it.
if(EXISTS "${prefix}/bin/nerva-blobs")
  run("${prefix}/bin/nerva-blobs" --help)
endif()

run(${CMAKE_COMMAND} -S "${CONSUMER_SOURCE_DIR}" -B "${WORK_DIR}/consumer"
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build "${WORK_DIR}/consumer")
run("${WORK_DIR}/consumer/consumer")
if(NOT last_output MATCHES "nerva [0-9]+\\.[0-9]+\\.[0-9]+ ok")
  message(FATAL_ERROR "consumer printed: ${last_output}")
endif()

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB pcdirs "${prefix}/lib*/pkgconfig" "${prefix}/lib/*/pkgconfig")
  string(REPLACE ";" ":" pcpath "${pcdirs}")
  set(ENV{PKG_CONFIG_PATH} "${pcpath}")
  run(${PKG_CONFIG} --cflags --libs nerva)
  string(STRIP "${last_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  find_program(CXX NAMES c++ g++)
  run(${CXX} -std=c++17 "${CONSUMER_SOURCE_DIR}/main.cpp" ${flags}
      "-Wl,-rpath,${prefix}/lib" "-Wl,-rpath,${prefix}/lib/x86_64-linux-gnu" -o "${WORK_DIR}/pc-consumer")
  run("${WORK_DIR}/pc-consumer")
endif()
