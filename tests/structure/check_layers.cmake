# The library's folders form a dependency graph without a cycle, and public
# headers never include an internal one (they would not compile from an
# install prefix). Run with -DSOURCE_DIR=<repository root>.
#
#   geometry  <- blob, image
#   rle       (segments, lines, run-length images: nothing above it)
#   segmentation -> rle, blob, geometry
#   render    -> rle, image, blob, geometry
#   tracking  -> blob, geometry
#
# Everything may use the top-level headers (version, messages) and
# nerva/internal/.
set(allowed_geometry "")
set(allowed_blob geometry)
set(allowed_image geometry)
set(allowed_rle "")
set(allowed_segmentation rle blob geometry)
set(allowed_render rle image blob geometry)
set(allowed_tracking blob geometry)
set(folders geometry blob image rle segmentation render tracking)

set(problems "")
file(GLOB subsystems LIST_DIRECTORIES true RELATIVE "${SOURCE_DIR}/nerva" "${SOURCE_DIR}/nerva/*")
foreach(folder ${subsystems})
  if(IS_DIRECTORY "${SOURCE_DIR}/nerva/${folder}" AND NOT folder STREQUAL "internal")
    list(FIND folders "${folder}" known)
    if(known EQUAL -1)
      string(APPEND problems "  nerva/${folder}/ has no place in the layer list of this test\n")
    endif()
  endif()
endforeach()

foreach(folder ${folders})
  file(GLOB_RECURSE sources RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/nerva/${folder}/*.h" "${SOURCE_DIR}/nerva/${folder}/*.cpp")
  foreach(source ${sources})
    file(STRINGS "${SOURCE_DIR}/${source}" includes REGEX "^#include \"nerva/")
    foreach(line ${includes})
      string(REGEX REPLACE "^#include \"([^\"]*)\".*" "\\1" target "${line}")
      if(target MATCHES "^nerva/([^/]+)/" AND NOT CMAKE_MATCH_1 STREQUAL "internal")
        set(used "${CMAKE_MATCH_1}")
        list(FIND allowed_${folder} "${used}" ok)
        if(NOT used STREQUAL folder AND ok EQUAL -1)
          string(APPEND problems "  ${source} includes ${target}: ${folder}/ may not depend on ${used}/\n")
        endif()
      endif()
      if(target MATCHES "/internal/" AND source MATCHES "\\.h$" AND NOT source MATCHES "/internal/")
        string(APPEND problems "  public header ${source} includes internal ${target}\n")
      endif()
    endforeach()
  endforeach()
endforeach()

if(problems)
  message(FATAL_ERROR "layering broken:\n${problems}")
endif()
