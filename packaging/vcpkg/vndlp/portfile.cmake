# An overlay port of the tree it lies in: vcpkg install vndlp --overlay-ports=packaging/vcpkg
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

vcpkg_check_features(OUT_FEATURE_OPTIONS options FEATURES tools VNDLP_BUILD_TOOLS)
if("tools" IN_LIST FEATURES)
  vcpkg_find_acquire_program(PKGCONFIG)
  list(APPEND options "-DPKG_CONFIG_EXECUTABLE=${PKGCONFIG}")
endif()

vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS ${options} -DVNDLP_BUILD_TESTS=OFF -DVNDLP_BUILD_EXAMPLES=OFF -DVNDLP_INSTALL=ON -DVNDLP_WITH_LIBDEFLATE=ON
          -DVNDLP_WITH_HIGHWAY=ON -DVNDLP_WITH_TRIMESH2=OFF
  MAYBE_UNUSED_VARIABLES PKG_CONFIG_EXECUTABLE)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/vndlp)
vcpkg_fixup_pkgconfig()
if("tools" IN_LIST FEATURES)
  vcpkg_copy_tools(TOOL_NAMES vndlp AUTO_CLEAN)
endif()
vcpkg_copy_pdbs()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
file(INSTALL "${CURRENT_PORT_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
