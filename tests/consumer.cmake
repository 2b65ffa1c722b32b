# Installs the build into a scratch folder and builds and runs a separate project
# against it, by the CMake package and by pkg-config.
# cmake -DBUILD=... -DSOURCE=... -DCXX=... -DFLAGS=... -DEMULATOR=... -P consumer.cmake
set(scratch ${BUILD}/consumer)
file(REMOVE_RECURSE ${scratch})
set(prefix ${scratch}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE text ERROR_VARIABLE text)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "${command}\n${text}")
  endif()
  set(text "${text}" PARENT_SCOPE)
endfunction()

function(expect_output)
  run(${ARGN})
  string(REPLACE "\r" "" text "${text}")
  if(NOT text STREQUAL "syntax error: line 7\n")
    message(FATAL_ERROR "the consumer printed: ${text}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
foreach(header config platform_types xcpt share_str str base_var base_lexer eparser ecalc xpp)
  if(NOT EXISTS ${prefix}/include/stdkro/${header}.h)
    message(FATAL_ERROR "${header}.h was not installed")
  endif()
endforeach()

set(options -G Ninja -S ${SOURCE} -B ${scratch}/build -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Debug
  -DCMAKE_CXX_FLAGS=${FLAGS})
if(TOOLCHAIN)
  list(APPEND options -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DCMAKE_FIND_ROOT_PATH=${prefix})
else()
  list(APPEND options -DCMAKE_CXX_COMPILER=${CXX})
endif()
run(${CMAKE_COMMAND} ${options})
run(${CMAKE_COMMAND} --build ${scratch}/build)
if(TOOLCHAIN)
  file(GLOB dlls ${prefix}/bin/*.dll)
  file(COPY ${dlls} DESTINATION ${scratch}/build)
  expect_output(${EMULATOR} ${scratch}/build/consumer.exe)
  return()
endif()
expect_output(${scratch}/build/consumer)

# A package that asks for another major version is refused.
file(MAKE_DIRECTORY ${scratch}/refused)
file(WRITE ${scratch}/refused/CMakeLists.txt
  "cmake_minimum_required(VERSION 3.22)\nproject(refused LANGUAGES CXX)\nfind_package(stdkro 2.0 REQUIRED)\n")
execute_process(COMMAND ${CMAKE_COMMAND} -G Ninja -S ${scratch}/refused -B ${scratch}/refused/build
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE text)
if(status EQUAL 0 OR NOT text MATCHES "stdkro-config.cmake, version: 1\\.")
  message(FATAL_ERROR "version 2.0 was not refused because the package has version 1: ${text}")
endif()

file(GLOB_RECURSE pc ${prefix}/*/stdkro.pc)
get_filename_component(pc_dir ${pc} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
execute_process(COMMAND pkg-config --cflags --libs stdkro
  OUTPUT_VARIABLE words RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know stdkro")
endif()
separate_arguments(words)
separate_arguments(FLAGS)
get_filename_component(libdir ${pc_dir} DIRECTORY)
run(${CXX} -std=c++17 ${FLAGS} ${SOURCE}/main.cpp -o ${scratch}/by_pkg_config ${words} -Wl,-rpath,${libdir})
expect_output(${scratch}/by_pkg_config)

run(${prefix}/bin/kro version)
