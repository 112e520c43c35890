# kv_subsystem(NAME DIR SOURCES ... DEPS ...): one static library per folder of plug-in code, from the
# sources listed (headers alone need no listing), so that a file's room is a choice made here; a
# subsystem's tests link only what they use.
function(kv_subsystem name dir)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS" ${ARGN})
  list(TRANSFORM A_SOURCES PREPEND ${dir}/)
  add_library(${name} STATIC ${A_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/platform)
  target_link_libraries(${name} PUBLIC ${A_DEPS})
endfunction()
