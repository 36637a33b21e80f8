# chainvet.1 from the program's own help texts, so the manual cannot drift from --help.
# Usage: cmake -DTOOL=chainvet -DOUT=chainvet.1.gz -DVERSION=X.Y.Z -P manpage.cmake
function(run_help out)
  execute_process(COMMAND ${TOOL} ${ARGN} --help OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${TOOL} ${ARGN} --help: exit ${status}")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Verbatim text for roff: backslashes and hyphens escaped, no line read as a request.
function(roff_literal out text)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out} ".nf\n${text}.fi\n" PARENT_SCOPE)
endfunction()

run_help(main)
string(FIND "${main}" "\nCommands:\n" at)
string(SUBSTRING "${main}" 0 ${at} head)
math(EXPR at "${at} + 11")
string(SUBSTRING "${main}" ${at} -1 list)
roff_literal(synopsis "${head}\n")

set(commands "")
string(REPLACE "\n" ";" lines "${list}")
foreach(line IN LISTS lines)
  if(line MATCHES "^  ([a-z][a-z -]*[a-z])  ")
    string(STRIP "${CMAKE_MATCH_1}" path)
    string(REPLACE " " ";" words "${path}")
    run_help(help ${words})
    roff_literal(help "${help}")
    string(REPLACE "-" "\\-" title "${path}")
    string(APPEND commands ".SS ${title}\n${help}")
  endif()
endforeach()

file(WRITE ${OUT}.tmp ".TH CHAINVET 1 \"\" \"chainvet ${VERSION}\" \"User Commands\"
.SH NAME
chainvet \\- asks libchainvet's certificate chain policies about certificates on disk
.SH SYNOPSIS
${synopsis}.SH COMMANDS
Each command prints its own part below with \\fBchainvet\\fR \\fICOMMAND\\fR \\fB\\-\\-help\\fR.
${commands}.SH EXIT STATUS
0 pass, 1 the chain failed the policy (or the file was refused), 2 the policy could not
run or a file could not be read, 64 bad usage; each command's part above gives its own.
")
file(ARCHIVE_CREATE OUTPUT ${OUT} PATHS ${OUT}.tmp FORMAT raw COMPRESSION GZip)
file(REMOVE ${OUT}.tmp)
