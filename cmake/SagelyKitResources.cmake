# sagely_copy_resources(<target> [DESTINATION <folder>])
#
# Copies the kit's resource directory (SagelyKit_SagelyCore.bundle) to where <target> finds it
# at run time: beside the target's file, or into Contents/Resources of a macOS app bundle, or
# into <folder>. Hosts that link the kit statically from a build tree (add_subdirectory) or that
# ship a self-contained folder need it; an installed kit finds its own resources.
function(sagely_copy_resources target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESTINATION" "")
  get_property(bundle GLOBAL PROPERTY SAGELY_RESOURCE_BUNDLE_DIR)
  if(NOT bundle)
    message(FATAL_ERROR "sagely_copy_resources: the SagelyKit resource directory is unknown")
  endif()
  get_filename_component(name "${bundle}" NAME)
  get_target_property(is_app_bundle ${target} MACOSX_BUNDLE)
  if(arg_DESTINATION)
    set(destination "${arg_DESTINATION}")
  elseif(APPLE AND is_app_bundle)
    set(destination "$<TARGET_BUNDLE_CONTENT_DIR:${target}>/Resources")
  else()
    set(destination "$<TARGET_FILE_DIR:${target}>")
  endif()
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E copy_directory "${bundle}" "${destination}/${name}"
    COMMENT "Copying the SagelyKit resources for ${target}")
  get_property(producer GLOBAL PROPERTY SAGELY_RESOURCE_BUNDLE_TARGET)
  if(producer)
    add_dependencies(${target} ${producer})
  endif()
endfunction()
