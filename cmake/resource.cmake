# stdkro_version_resource(TARGET FILE TYPE DESCRIPTION): gives a Windows file its version.
# TYPE is 1 for a program, 2 for a DLL. Nothing on other systems.
if(WIN32)
  enable_language(RC)
endif()
function(stdkro_version_resource target file type description)
  if(WIN32)
    set(resource_name ${file})
    set(resource_type ${type})
    set(resource_description ${description})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/resource.rc.in ${PROJECT_BINARY_DIR}/resources/${target}.rc @ONLY)
    target_sources(${target} PRIVATE ${PROJECT_BINARY_DIR}/resources/${target}.rc)
  endif()
endfunction()
