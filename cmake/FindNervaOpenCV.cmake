# Finds the OpenCV modules nerva and its tools use, as imported targets
# nerva_opencv::<module>. Prefers OpenCV's own package config; Debian ships
# that only with the full libopencv-dev, so with just the per-module -dev
# packages installed the headers and libraries are located directly.
#
#   find_package(NervaOpenCV REQUIRED COMPONENTS core imgproc ...)
if(NOT NervaOpenCV_FIND_COMPONENTS)
  set(NervaOpenCV_FIND_COMPONENTS core)
endif()

find_package(OpenCV QUIET CONFIG COMPONENTS ${NervaOpenCV_FIND_COMPONENTS})
if(OpenCV_FOUND)
  foreach(module ${NervaOpenCV_FIND_COMPONENTS})
    if(NOT TARGET nerva_opencv::${module})
      add_library(nerva_opencv::${module} INTERFACE IMPORTED)
      set_target_properties(nerva_opencv::${module} PROPERTIES INTERFACE_LINK_LIBRARIES opencv_${module})
    endif()
    set(NervaOpenCV_${module}_FOUND TRUE)
  endforeach()
  set(NervaOpenCV_INCLUDE_DIR "${OpenCV_INCLUDE_DIRS}")
  set(NervaOpenCV_FOUND TRUE)
  return()
endif()

find_path(NervaOpenCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
foreach(module ${NervaOpenCV_FIND_COMPONENTS})
  find_library(NervaOpenCV_${module}_LIBRARY opencv_${module})
  if(NervaOpenCV_INCLUDE_DIR AND NervaOpenCV_${module}_LIBRARY)
    set(NervaOpenCV_${module}_FOUND TRUE)
    if(NOT TARGET nerva_opencv::${module})
      add_library(nerva_opencv::${module} UNKNOWN IMPORTED)
      set_target_properties(nerva_opencv::${module} PROPERTIES
        IMPORTED_LOCATION "${NervaOpenCV_${module}_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${NervaOpenCV_INCLUDE_DIR}")
    endif()
  endif()
  mark_as_advanced(NervaOpenCV_${module}_LIBRARY)
endforeach()
mark_as_advanced(NervaOpenCV_INCLUDE_DIR)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(NervaOpenCV REQUIRED_VARS NervaOpenCV_INCLUDE_DIR HANDLE_COMPONENTS)
