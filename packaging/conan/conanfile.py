"""Recipe for Conan 2: conan create packaging/conan"""

import os
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir
from conan.tools.gnu import PkgConfigDeps


class VndlpConan(ConanFile):
    name = "vndlp"
    license = "MIT"
    description = "Reads, writes and checks the slice files of masked-LCD and DLP resin printers"
    topics = ("3d-printing", "slicer", "resin", "dlp")
    package_type = "library"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "fPIC": [True, False], "with_libdeflate": [True, False], "with_highway": [True, False],
               "tools": [True, False]}
    default_options = {"shared": True, "fPIC": True, "with_libdeflate": True, "with_highway": True, "tools": False}
    implements = ["auto_shared_fpic"]

    @property
    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        header = load(self, os.path.join(self._root, "include", "vndlp", "export.h"))
        parts = re.findall(r"#define VNDLP_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header)
        self.version = ".".join(parts)

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "cmake/*", "include/*", "io/*", "image/*", "vndlp/*", "ctb/*",
                        "v4/*", "printtime/*", "writer/*", "tools/*", "docs/vndlp.1", "packaging/debian/*"):
            copy(self, pattern, self._root, self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def validate(self):
        check_min_cppstd(self, 20)

    def requirements(self):
        if self.options.with_libdeflate or self.options.tools:
            self.requires("libdeflate/[>=1.14 <2]")
        if self.options.with_highway:
            self.requires("highway/[>=1.0 <2]")
        if self.options.tools:
            self.requires("cli11/[>=2.3 <3]")
            self.requires("libspng/[>=0.7 <1]")
            self.requires("libzip/[>=1.7 <2]")
            self.requires("nlohmann_json/[>=3.11 <4]")
            self.requires("pugixml/[>=1.13 <2]")

    def build_requirements(self):
        if self.options.tools and not self.conf.get("tools.gnu:pkg_config", check_type=str):
            self.tool_requires("pkgconf/[>=2 <3]")

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["VNDLP_BUILD_TOOLS"] = bool(self.options.tools)
        toolchain.cache_variables["VNDLP_BUILD_TESTS"] = False
        toolchain.cache_variables["VNDLP_BUILD_EXAMPLES"] = False
        toolchain.cache_variables["VNDLP_WITH_LIBDEFLATE"] = "ON" if self.options.with_libdeflate else "OFF"
        toolchain.cache_variables["VNDLP_WITH_HIGHWAY"] = "ON" if self.options.with_highway else "OFF"
        toolchain.cache_variables["VNDLP_WITH_TRIMESH2"] = "OFF"
        toolchain.generate()
        CMakeDeps(self).generate()
        PkgConfigDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))
        CMake(self).install()
        rmdir(self, os.path.join(self.package_folder, "lib", "cmake"))
        rmdir(self, os.path.join(self.package_folder, "lib", "pkgconfig"))

    def package_info(self):
        self.cpp_info.libs = ["vndlp"]
        self.cpp_info.set_property("cmake_file_name", "vndlp")
        self.cpp_info.set_property("cmake_target_name", "vndlp::vndlp")
        self.cpp_info.set_property("pkg_config_name", "vndlp")
        if not self.options.shared:
            self.cpp_info.defines = ["VNDLP_STATIC"]
