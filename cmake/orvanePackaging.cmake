# Debian packages of the install components (cpack -G DEB in the build tree):
#   liborvane<soversion>  the shared library with its soname (component runtime)
#   liborvane-dev         headers, CMake package, orvane.pc and the .so link
#                         (component dev), depending on the exact runtime version
# The package architecture follows the compiler's target, so a cross build
# packages for its board.
set(ORVANE_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

set(CPACK_PACKAGE_NAME orvane)
set(CPACK_PACKAGE_VENDOR "orvane")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "orvane developers <orvane@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

if(CMAKE_CROSSCOMPILING)
    set(ORVANE_DEB_ARCHITECTURES aarch64=arm64 arm=armhf armv7l=armhf riscv64=riscv64
                                 x86_64=amd64 i686=i386)
    foreach(pair IN LISTS ORVANE_DEB_ARCHITECTURES)
        string(REPLACE "=" ";" pair "${pair}")
        list(GET pair 0 processor)
        list(GET pair 1 debArch)
        if(CMAKE_SYSTEM_PROCESSOR STREQUAL processor)
            set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${debArch})
        endif()
    endforeach()
endif()

# The library package is named after the soname, as Debian's policy wants, so
# that two incompatible versions can be installed side by side. Its
# dependencies come from dpkg-shlibdeps; its shlibs file lets programs
# packaged against it depend on it the same way.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liborvane${ORVANE_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# dpkg-shlibdeps reads the build machine's package database, which knows
# nothing of a cross toolchain's libraries: a cross build names them plainly.
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6")
else()
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "${PROJECT_DESCRIPTION}\n The shared library liborvane.so.${ORVANE_SOVERSION}.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME liborvane-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "liborvane${ORVANE_SOVERSION} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "${PROJECT_DESCRIPTION} (development files)\n Headers, the CMake package and the pkg-config file of liborvane.")

include(CPack)
