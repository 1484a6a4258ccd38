# Only the shell (src/app and src/views) includes GTK, GDK or libadwaita headers; the runtime link
# reaches GTK only through WebKit's own headers. tomekeeper_keep_gtk_free(TARGET) makes TARGET's
# build fail while a source or header of its folder includes one of them.
#
# As a script (cmake -DSOURCES=a;b -DSTAMP=file -P GtkFreeSources.cmake) it checks SOURCES and
# touches STAMP when none does.
if(CMAKE_SCRIPT_MODE_FILE)
  set(offenders "")
  foreach(source IN LISTS SOURCES)
    file(STRINGS "${source}" includes
      REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"](gtk/|gdk/|adwaita\\.h)")
    if(includes)
      list(APPEND offenders "${source}: ${includes}")
    endif()
  endforeach()
  if(offenders)
    list(JOIN offenders "\n  " listed)
    message(FATAL_ERROR
      "Only src/app and src/views include GTK headers; these files do:\n  ${listed}")
  endif()
  file(TOUCH "${STAMP}")
  return()
endif()

set(TOMEKEEPER_GTK_FREE_SCRIPT "${CMAKE_CURRENT_LIST_FILE}")

function(tomekeeper_keep_gtk_free target)
  file(GLOB sources CONFIGURE_DEPENDS
    "${CMAKE_CURRENT_SOURCE_DIR}/*.h" "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  set(stamp "${CMAKE_CURRENT_BINARY_DIR}/${target}_gtk_free.stamp")
  add_custom_command(
    OUTPUT "${stamp}"
    COMMAND "${CMAKE_COMMAND}" "-DSOURCES=${sources}" "-DSTAMP=${stamp}"
            -P "${TOMEKEEPER_GTK_FREE_SCRIPT}"
    DEPENDS ${sources} "${TOMEKEEPER_GTK_FREE_SCRIPT}"
    COMMENT "Checking that ${target} includes no GTK header"
    VERBATIM)
  add_custom_target(${target}_gtk_free DEPENDS "${stamp}")
  add_dependencies(${target} ${target}_gtk_free)
endfunction()
