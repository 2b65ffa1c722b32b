# The example page server, asked by clients that others wrote.
function(stdkro_page_server name)
  add_test(NAME ${STDKRO_TEST_PREFIX}page_server_${name}
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/page_server.py --program $<TARGET_FILE:page_server>
    --site ${PROJECT_SOURCE_DIR}/examples/page_server/site --scratch ${CMAKE_CURRENT_BINARY_DIR}/page_server_${name}
    --emulator "${CMAKE_CROSSCOMPILING_EMULATOR}" ${ARGN})
  set_tests_properties(${STDKRO_TEST_PREFIX}page_server_${name} PROPERTIES TIMEOUT 300)
endfunction()
foreach(loop selector poller epoller)
  stdkro_page_server(${loop} --loop ${loop} requests)
endforeach()
# What they measure and draw is the program's, not the sanitizers' or Wine's.
if(NOT STDKRO_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
  foreach(loop selector poller epoller)
    stdkro_page_server(load_${loop} --loop ${loop} load)
  endforeach()
  stdkro_page_server(browser browser)
endif()
