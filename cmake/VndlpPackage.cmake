# Packages: `cpack -G DEB` makes the library's, its -dev, the program's, Python's and the documents'; `cpack -G TGZ` one
# archive of all.

set(CPACK_PACKAGE_NAME vndlp)
set(CPACK_PACKAGE_VENDOR "vndlp developers")
set(CPACK_PACKAGE_CONTACT "vndlp developers <vndlp@example.org>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
# each package has a synopsis of its own, the first line of its description
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_COMPONENTS_ALL library dev doc)
if(VNDLP_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(VNDLP_PYTHON AND NOT VNDLP_IS_STATIC)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# man pages, copyright and changelog as Debian wants them
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/complete.cmake)
set(CPACK_VNDLP_DEBIAN_DIR ${PROJECT_SOURCE_DIR}/packaging/debian)

set(about "These are the vendor DLP container, its line variant, CTB and V4: what a\nslicer hands to the printer.")
set(soversion ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(exactly "libvndlp${soversion} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvndlp${soversion})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "slice files of resin 3D printers - shared library\nReads, writes and checks the slice files of masked-LCD and DLP printers.\n${about}")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvndlp-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "slice files of resin 3D printers - development files\nHeaders, static library, CMake package and pkg-config file of libvndlp, with\nwhich a slicer writes and reads the files of masked-LCD and DLP printers.\n${about}")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${exactly}")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "libvndlp-doc")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME libvndlp-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOC_DESCRIPTION
    "slice files of resin 3D printers - guides and examples\nGuides to libvndlp and its program, the pages of the file formats, and small\ncomplete programs to copy from.\n${about}")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vndlp)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION graphics)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "slice files of resin 3D printers - program\nConverts print jobs into slice files of masked-LCD and DLP printers,\ndescribes and verifies such files, extracts layers and estimates print times.\n${about}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${exactly}")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-vndlp)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "slice files of resin 3D printers - Python package\nReads, checks, changes, converts and writes slice files with numpy arrays as layers,\nand does so for thousands of files on many machines.\n${about}")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= 3.9), python3-cffi-backend, python3-cffi, python3-numpy, libvndlp${soversion} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-distributed")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/packaging/debian/python/postinst;${PROJECT_SOURCE_DIR}/packaging/debian/python/prerm")

include(CPack)
