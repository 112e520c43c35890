# kv_subsystem(NAME DIR DEPS ... EXCLUDE ...): one static library per folder of plug-in code, built
# from every .cpp in that folder, so that adding a class needs no build change and a subsystem's
# tests link only what they use.
function(kv_subsystem name dir)
  cmake_parse_arguments(A "" "" "DEPS;EXCLUDE" ${ARGN})
  file(GLOB srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  foreach(ex IN LISTS A_EXCLUDE)
    list(FILTER srcs EXCLUDE REGEX "/${ex}$")
  endforeach()
  if(srcs)
    add_library(${name} STATIC ${srcs})
    set(scope PUBLIC)
  else()
    # A folder with headers only so far.
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${name} ${scope} ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/platform)
  target_link_libraries(${name} ${scope} ${A_DEPS})
endfunction()
