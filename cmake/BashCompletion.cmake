# Writes the bash completion of one tool from the tool's own help: its options, its subcommands and
# each subcommand's options. The build runs it after linking the tool, so the completion always
# offers what that tool takes.
#   cmake -DTOOL=/path/to/tool -DNAME=tool -DOUTPUT=/path/to/completion -P BashCompletion.cmake

function(run_help out)
  execute_process(COMMAND ${TOOL} ${ARGN} --help OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${TOOL} ${ARGN} --help failed (${status})")
  endif()
  set(${out} "\n${text}" PARENT_SCOPE)
endfunction()

# Every option the text names ("--out", "-n"); of those that take a value ("--out FILE"), the ones
# whose value is a file and the others.
function(options_in text out files values)
  # Brackets would join CMake list items: "[--out FILE]" reads as " --out FILE ".
  string(REGEX REPLACE "[][]" " " text "${text}")
  string(REGEX MATCHALL "[\n (,]--?[a-zA-Z][-a-zA-Z0-9]*( [A-Z][A-Z_.]*)?" found "${text}")
  set(all "")
  set(fileValued "")
  set(otherValued "")
  foreach(match IN LISTS found)
    string(REGEX REPLACE "^[\n (,](--?[a-zA-Z][-a-zA-Z0-9]*).*" "\\1" option "${match}")
    list(APPEND all ${option})
    if(match MATCHES " (FILE|PATH|PNG|DIR)$")
      list(APPEND fileValued ${option})
    elseif(match MATCHES " [A-Z]")
      list(APPEND otherValued ${option})
    endif()
  endforeach()
  list(REMOVE_DUPLICATES all)
  set(${out} ${all} PARENT_SCOPE)
  set(${files} ${fileValued} PARENT_SCOPE)
  set(${values} ${otherValued} PARENT_SCOPE)
endfunction()

# Bash's pattern for a list of options; one that matches no word when the list is empty.
function(pattern_of list out)
  list(REMOVE_DUPLICATES list)
  list(JOIN list "|" joined)
  if(joined STREQUAL "")
    set(joined "--no-such-option")
  endif()
  set(${out} "${joined}" PARENT_SCOPE)
endfunction()

run_help(help)
# The tool's own options: the first word of each indented line that starts with a dash.
string(REGEX MATCHALL "\n  +--?[a-zA-Z][-a-zA-Z0-9]*( [A-Z][A-Z_.]*)?" lines "${help}")
string(REPLACE ";" "" lines "${lines}")
options_in("${lines}" options fileValued otherValued)
list(JOIN options " " toolOptions)

# Subcommands: the names listed under "commands:", each with the options its own help names before
# the options of every command.
set(commands "")
set(cases "")
if(help MATCHES "\ncommands:\n(  [^\n]+\n)+")
  string(REGEX MATCHALL "\n  [a-z][-a-z0-9]*" names "${CMAKE_MATCH_0}")
  foreach(name IN LISTS names)
    string(STRIP "${name}" name)
    list(APPEND commands ${name})
    run_help(commandHelp ${name})
    string(FIND "${commandHelp}" "\noptions of every command:" end)
    string(SUBSTRING "${commandHelp}" 0 ${end} own)
    options_in("${own}" commandOptions commandFiles commandValues)
    list(APPEND fileValued ${commandFiles})
    list(APPEND otherValued ${commandValues})
    list(JOIN commandOptions " " commandOptions)
    string(APPEND cases "        ${name}) options=\"$options ${commandOptions}\" ;;\n")
  endforeach()
endif()
list(JOIN commands " " commands)
pattern_of("${fileValued}" fileValued)
pattern_of("${otherValued}" otherValued)
string(REPLACE "-" "_" function "_kv_${NAME}")

file(WRITE ${OUTPUT} "# bash completion for ${NAME}, made from its --help when it was built
${function}()
{
    local cur=\${COMP_WORDS[COMP_CWORD]} previous=\${COMP_WORDS[COMP_CWORD-1]} commands=\"${commands}\"
    local command=\"\" word options=\"${toolOptions}\"
    for word in \"\${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do
        case \" \$commands \" in *\" \$word \"*) command=\$word && break ;; esac
    done
    case \$command in
${cases}    esac
    case \$previous in
        ${fileValued}) COMPREPLY=(\$(compgen -f -- \"\$cur\")) && return ;;
        ${otherValued}) COMPREPLY=() && return ;;
    esac
    if [[ \$cur == -* ]]; then
        COMPREPLY=(\$(compgen -W \"\$options\" -- \"\$cur\"))
    elif [[ -z \$command && -n \$commands ]]; then
        COMPREPLY=(\$(compgen -W \"\$commands\" -- \"\$cur\"))
    else
        COMPREPLY=(\$(compgen -f -- \"\$cur\"))
    fi
}
complete -o filenames -F ${function} ${NAME}
")
