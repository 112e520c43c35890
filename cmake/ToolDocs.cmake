# Manual pages and bash completions of the tools, made at build time from each tool's own --help
# and --version (help2man for the pages, BashCompletion.cmake for the completions), so that neither
# can go stale, and installed with the tools. Both run the tools: a cross build (the camera's) makes
# neither.
find_program(HELP2MAN help2man)
if(CMAKE_CROSSCOMPILING)
  message(STATUS "Cross build: the tools' manual pages and bash completions are not made")
elseif(NOT HELP2MAN)
  message(WARNING "help2man not found: the tools get no manual pages (scripts/install-deps.sh installs it)")
endif()

# kv_tool_docs(TOOL SUMMARY): TOOL.1 (and TOOL.1.gz, installed) and completions/TOOL in this build
# folder; SUMMARY is the manual page's one-line description.
function(kv_tool_docs tool summary)
  if(CMAKE_CROSSCOMPILING)
    return()
  endif()
  # A sanitizer build's tool must not fail the build over what its short run left allocated.
  set(run ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0)
  set(completion ${CMAKE_CURRENT_BINARY_DIR}/completions/${tool})
  add_custom_command(OUTPUT ${completion}
    COMMAND ${run} ${CMAKE_COMMAND} -DTOOL=$<TARGET_FILE:${tool}> -DNAME=${tool} -DOUTPUT=${completion}
      -P ${PROJECT_SOURCE_DIR}/cmake/BashCompletion.cmake
    DEPENDS ${tool} ${PROJECT_SOURCE_DIR}/cmake/BashCompletion.cmake
    COMMENT "Bash completion of ${tool}" VERBATIM)
  install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  set(made ${completion})
  if(HELP2MAN)
    set(page ${CMAKE_CURRENT_BINARY_DIR}/${tool}.1)
    add_custom_command(OUTPUT ${page} ${page}.gz
      COMMAND ${run} ${HELP2MAN} --no-info --name=${summary} --output=${page} $<TARGET_FILE:${tool}>
      COMMAND gzip -9 -n -f -k ${page}
      DEPENDS ${tool}
      COMMENT "Manual page of ${tool}" VERBATIM)
    install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    list(APPEND made ${page} ${page}.gz)
  endif()
  add_custom_target(${tool}-docs ALL DEPENDS ${made})
endfunction()
