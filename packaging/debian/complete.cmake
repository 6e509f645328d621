# Adds to each package's tree what Debian wants of it, in front of packing: copyright, changelog, compressed man pages,
# static libraries without debug information, and reasons for what lintian warns of without need.

if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX})
  set(doc ${tree}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  file(COPY ${CPACK_VNDLP_DEBIAN_DIR}/copyright DESTINATION ${doc}
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  configure_file(${CPACK_VNDLP_DEBIAN_DIR}/changelog.in ${doc}/changelog.Debian @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  # these packages are not for upload to Debian, and the packer writes the call of ldconfig itself
  set(overrides "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}: initial-upload-closes-no-bugs *\n")
  if(component STREQUAL "library")
    string(APPEND overrides "${CPACK_DEBIAN_${upper}_PACKAGE_NAME}: maintscript-calls-ldconfig *\n")
  endif()
  file(WRITE ${tree}/share/lintian/overrides/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} "${overrides}")
  file(GLOB_RECURSE archives ${tree}/lib/*.a)
  foreach(archive IN LISTS archives)
    execute_process(COMMAND strip --strip-debug --remove-section=.comment ${archive} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  file(GLOB pages ${tree}/share/man/man*/*.1)
  foreach(file IN LISTS pages ITEMS ${doc}/changelog.Debian)
    execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
endforeach()
