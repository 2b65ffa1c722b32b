# Runs a program whose statics log, and compares what it writes.
# cmake -DPROGRAM=... -DMODULE=... -DFOLDER=... -DEMULATOR=... -P statics.cmake

# of_program(TEXT): the lines that must be there in this order. Those of the module
# stand anywhere among them, and those of `silent` may or may not come.
function(of_program text)
  string(REGEX REPLACE "[^\n]*(module|silent)[^\n]*\n" "" text "${text}")
  set(text "${text}" PARENT_SCOPE)
endfunction()

function(of_module text)
  string(REGEX MATCHALL "[^\n]*module[^\n]*\n" lines "${text}")
  string(CONCAT text ${lines})
  set(text "${text}" PARENT_SCOPE)
endfunction()

function(run)
  execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${ARGN} WORKING_DIRECTORY ${FOLDER} RESULT_VARIABLE status
    OUTPUT_VARIABLE printed ERROR_VARIABLE logged)
  if(NOT status EQUAL 0 OR NOT printed STREQUAL "")
    message(FATAL_ERROR "${PROGRAM} ${ARGN}: ${status}\n${printed}${logged}")
  endif()
  string(REPLACE "\r" "" logged "${logged}")
  set(logged "${logged}" PARENT_SCOPE)
endfunction()

function(expect what expected text)
  if(NOT text STREQUAL expected)
    message(FATAL_ERROR "${what}: expected\n${expected}but it was\n${text}")
  endif()
endfunction()

set(ends "[stdkro] hint: in main ends\n[stdkro] hint: latest ends\n[stdkro] hint: earliest ends\n")
string(CONCAT lines "[stdkro] hint: earliest begins\n[stdkro] hint: latest begins\n[stdkro] hint: main\n"
  "[stdkro] hint: in main begins\n" "${ends}")
set(module_lines "[stdkro] hint: module begins\n[stdkro] hint: module ends\n")

file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})

run()
of_program("${logged}")
expect("the console" "${lines}" "${text}")

run(module ${MODULE})
of_program("${logged}")
expect("the console with a module" "${lines}" "${text}")
of_module("${logged}")
expect("the module" "${module_lines}${module_lines}" "${text}")

# A file that is open at the end gets the last lines and its banner.
run(file statics.log)
file(READ ${FOLDER}/statics.log text)
string(REPLACE "\r" "" text "${text}")
string(REGEX REPLACE "[0-9]" "9" text "${text}")
of_program("${text}")
string(CONCAT expected "******begin:9999/99/99-99:99:99*****\n"
  "[stdkro] hint: main\n[stdkro] hint: in main begins\n" "${ends}" "******end:9999/99/99-99:99:99*****\n")
expect("the file" "${expected}" "${text}")
