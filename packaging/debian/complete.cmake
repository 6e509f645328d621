# Adds to each package's tree what Debian wants of it, in front of packing: copyright, changelog, compressed man pages.

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
  file(GLOB pages ${tree}/share/man/man*/*.1)
  foreach(file IN LISTS pages ITEMS ${doc}/changelog.Debian)
    execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
endforeach()
