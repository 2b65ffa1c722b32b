# stdkro_options(TARGET): the warnings that all code of the project obeys, and
# the sanitizers where they were asked for.
function(stdkro_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(STDKRO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(STDKRO_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${STDKRO_SANITIZE} -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${STDKRO_SANITIZE})
    if(STDKRO_SANITIZE MATCHES undefined)
      target_compile_options(${target} PRIVATE -fno-sanitize-recover=undefined)
    endif()
  endif()
endfunction()

# stdkro_counted(TARGET): counts how often each of its lines is executed, where that was asked for.
function(stdkro_counted target)
  if(STDKRO_COVERAGE)
    target_compile_options(${target} PRIVATE -O0 -g --coverage -fprofile-update=atomic)
  endif()
endfunction()
