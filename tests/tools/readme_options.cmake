# Checks that the README's vantor-render option table names exactly the options
# that --help lists.   cmake -DRENDER=prog -DREADME=README.md -P readme_options.cmake
execute_process(COMMAND ${RENDER} --help OUTPUT_VARIABLE help RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "--help failed: ${rc}")
endif()
string(REGEX MATCHALL "\n  (-[a-zA-Z],)?--[a-z-]+" lines "${help}")
set(from_help "")
foreach(line ${lines})
  string(REGEX MATCH "--[a-z-]+" option "${line}")
  list(APPEND from_help ${option})
endforeach()

file(READ ${README} readme)
string(FIND "${readme}" "## User guide: vantor-render" start)
string(SUBSTRING "${readme}" ${start} -1 guide)
string(FIND "${guide}" "### Options" start)
string(SUBSTRING "${guide}" ${start} -1 guide)
string(FIND "${guide}" "\n\n" end) # the heading's blank line
math(EXPR after "${end} + 2")
string(SUBSTRING "${guide}" ${after} -1 guide)
string(FIND "${guide}" "\n\n" end) # the end of the table
string(SUBSTRING "${guide}" 0 ${end} table)
string(REGEX REPLACE "[][;]" "" table "${table}") # list syntax: brackets join items, ; splits
string(REPLACE "\n" ";" rows "${table}")
set(from_readme "")
foreach(row ${rows})
  string(FIND "${row}" "` |" end) # the first cell: the option and its value
  if(end GREATER 0)
    string(SUBSTRING "${row}" 0 ${end} cell)
    string(REGEX MATCHALL "--[a-z-]+" options "${cell}")
    list(APPEND from_readme ${options})
  endif()
endforeach()

list(SORT from_help)
list(SORT from_readme)
if(NOT from_help STREQUAL from_readme)
  message(FATAL_ERROR "--help: ${from_help}\nREADME: ${from_readme}")
endif()
message(STATUS "${from_help}")
