# The library. Its sources are compiled once, into objects: `krodll` is the shared
# library made of them; `krodll_objects` serves tests that must see the inside or
# put failing functions in the place of the system's.
file(GLOB krodll_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp)
if(WIN32)
  list(FILTER krodll_sources EXCLUDE REGEX "_posix(_[a-z]+)?\\.cpp$")
else()
  list(FILTER krodll_sources EXCLUDE REGEX "_win32\\.cpp$")
endif()

# Where each branch of the machine's loop lies makes a seventh of its speed; left to chance it
# changes with any other line of that file.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set_source_files_properties(${PROJECT_SOURCE_DIR}/src/xmachine_loop.cpp PROPERTIES
    COMPILE_OPTIONS "-falign-jumps=32;-falign-labels=32")
endif()
add_library(krodll_objects OBJECT ${krodll_sources})
target_compile_definitions(krodll_objects PRIVATE STDKRO_BUILD)
target_include_directories(krodll_objects PUBLIC ${PROJECT_SOURCE_DIR}/include)
stdkro_options(krodll_objects)
stdkro_counted(krodll_objects)
if(STDKRO_COVERAGE)
  target_link_options(krodll_objects INTERFACE --coverage)
endif()
if(NOT WIN32)
  # Nobody replaces our functions at load time: calls inside the library are direct,
  # and may be inlined, as they are in a DLL.
  target_compile_options(krodll_objects PRIVATE -fno-semantic-interposition)
endif()

add_library(krodll SHARED)
target_link_libraries(krodll PRIVATE krodll_objects)
target_include_directories(krodll PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:include>)
target_compile_features(krodll PUBLIC cxx_std_17)
add_library(stdkro::krodll ALIAS krodll)
stdkro_options(krodll)
stdkro_version_resource(krodll krodll.dll 2 "${PROJECT_DESCRIPTION}")

if(WIN32)
  set_target_properties(krodll PROPERTIES PREFIX "" OUTPUT_NAME krodll)
  set(krodll_system_libraries ws2_32)
else()
  set_target_properties(krodll PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  find_package(Threads REQUIRED)
  set(krodll_system_libraries Threads::Threads ${CMAKE_DL_LIBS} rt)
  # Only what the classes export stays visible, not the standard library's templates.
  target_link_options(krodll PRIVATE -Wl,-Bsymbolic-functions
    -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/krodll.map -Wl,--no-undefined-version)
  set_target_properties(krodll PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/krodll.map)
  if(NOT STDKRO_SANITIZE)
    target_link_options(krodll PRIVATE -Wl,--no-undefined)
  endif()
endif()
target_link_libraries(krodll PRIVATE ${krodll_system_libraries})
target_link_libraries(krodll_objects PRIVATE ${krodll_system_libraries})

# The compiler's runtime travels beside the DLL: exceptions cross its boundary.
if(MINGW AND CMAKE_CROSSCOMPILING)
  foreach(runtime libgcc_s_dw2-1.dll libstdc++-6.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${runtime}
      OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT EXISTS ${path})
      message(FATAL_ERROR "The compiler's ${runtime} was not found")
    endif()
    list(APPEND krodll_runtime_dlls ${path})
  endforeach()
  file(COPY ${krodll_runtime_dlls} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endif()
