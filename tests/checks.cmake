# Tests of the tree itself: layers, exports, headers, the installed package.
add_test(NAME ${STDKRO_TEST_PREFIX}layers
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/check_layers.py ${PROJECT_SOURCE_DIR})

add_test(NAME ${STDKRO_TEST_PREFIX}version
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/check_version.py ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION}
  $<TARGET_FILE:krodll> ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:kro>)

# The pictures of the guide show things as they are.
if(NOT CMAKE_CROSSCOMPILING)
  foreach(picture glance layers automaton bench)
    add_test(NAME ${STDKRO_TEST_PREFIX}picture_${picture}
      COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/draw.py --check ${picture} $<TARGET_FILE:kro>)
  endforeach()
endif()

if(NOT CMAKE_CROSSCOMPILING)
  add_test(NAME ${STDKRO_TEST_PREFIX}links
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/check_links.py ${PROJECT_SOURCE_DIR})
endif()

# The reference pages and the index say what the headers say, and leave nothing out.
if(NOT CMAKE_CROSSCOMPILING)
  add_test(NAME ${STDKRO_TEST_PREFIX}reference
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/reference.py --check)
endif()

# Sanitizers add symbols of their own.
if(NOT STDKRO_SANITIZE)
  add_test(NAME ${STDKRO_TEST_PREFIX}exports
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/check_exports.py ${PROJECT_SOURCE_DIR}
    $<TARGET_FILE:krodll> ${CMAKE_NM} ${CMAKE_CURRENT_SOURCE_DIR}/exports/$<IF:$<BOOL:${WIN32}>,windows,linux>.txt)
endif()

set(consumer_flags "")
if(STDKRO_SANITIZE)
  set(consumer_flags "-fsanitize=${STDKRO_SANITIZE}")
endif()
add_test(NAME ${STDKRO_TEST_PREFIX}consumer
  COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -DSOURCE=${CMAKE_CURRENT_SOURCE_DIR}/consumer
  -DCXX=${CMAKE_CXX_COMPILER} -DFLAGS=${consumer_flags} -DTOOLCHAIN=${CMAKE_TOOLCHAIN_FILE}
  "-DEMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}" -P ${CMAKE_CURRENT_SOURCE_DIR}/consumer.cmake)
set_tests_properties(${STDKRO_TEST_PREFIX}consumer PROPERTIES TIMEOUT 300)

# The packages, made from this build. Sanitized ones are for nobody.
if(NOT STDKRO_SANITIZE)
  add_test(NAME ${STDKRO_TEST_PREFIX}packages
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/check_packages.py --build ${PROJECT_BINARY_DIR}
    --consumer ${CMAKE_CURRENT_SOURCE_DIR}/consumer --version ${PROJECT_VERSION}
    "--toolchain=${CMAKE_TOOLCHAIN_FILE}" "--emulator=${CMAKE_CROSSCOMPILING_EMULATOR}")
  set_tests_properties(${STDKRO_TEST_PREFIX}packages PROPERTIES TIMEOUT 300)
endif()

# The manual page and the completion of the tool say what its table says.
if(NOT CMAKE_CROSSCOMPILING)
  add_test(NAME ${STDKRO_TEST_PREFIX}tool_pages
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/tool_pages.py --check $<TARGET_FILE:kro>)
endif()

# What debuggers show. gdb runs the program, which a sanitizer would not like.
if(NOT CMAKE_CROSSCOMPILING)
  add_test(NAME ${STDKRO_TEST_PREFIX}natvis
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/debuggers/check_natvis.py ${PROJECT_SOURCE_DIR})
endif()
if(NOT CMAKE_CROSSCOMPILING AND NOT STDKRO_SANITIZE)
  add_executable(debugged_values debuggers/values.cpp)
  target_link_libraries(debugged_values PRIVATE krodll)
  target_compile_options(debugged_values PRIVATE -O0 -g)
  stdkro_options(debugged_values)
  add_test(NAME ${STDKRO_TEST_PREFIX}gdb
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/debuggers/check_gdb.py
    ${PROJECT_SOURCE_DIR}/tools/debuggers/krodll_gdb.py ${CMAKE_CURRENT_SOURCE_DIR}/debuggers/values.cpp
    $<TARGET_FILE:debugged_values>)
  set_tests_properties(${STDKRO_TEST_PREFIX}gdb PROPERTIES TIMEOUT 300)
endif()

# The grammar for editors reads scripts as the library's lexer does.
if(NOT CMAKE_CROSSCOMPILING)
  add_executable(lexer_listing editors/lexer_listing.cpp)
  target_link_libraries(lexer_listing PRIVATE krodll)
  stdkro_options(lexer_listing)
  add_test(NAME ${STDKRO_TEST_PREFIX}editor_grammar
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/editors/check_grammar.py ${PROJECT_SOURCE_DIR}
    $<TARGET_FILE:lexer_listing>)
endif()

# Each public header compiles alone, without a warning.
file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/stdkro/*.h)
foreach(header ${headers})
  get_filename_component(name ${header} NAME)
  file(CONFIGURE OUTPUT headers/${name}.cpp CONTENT "#include <stdkro/${name}>\n#include <stdkro/${name}>\n")
  list(APPEND header_sources ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.cpp)
endforeach()
add_library(headers_alone OBJECT ${header_sources})
target_include_directories(headers_alone PRIVATE ${PROJECT_SOURCE_DIR}/include)
stdkro_options(headers_alone)
