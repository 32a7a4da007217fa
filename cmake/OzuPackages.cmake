# Debian packages along the install components. The dependencies are written out, not derived: a cross build has no
# package database to ask, and tests/install holds the list against what the files really need.

if(NOT TARGET utils_ozu OR NOT TARGET ozu_platform)
    return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME utils-ozu)
set(CPACK_PACKAGE_VERSION "${OZU_PACKAGE_VERSION}")
set(CPACK_PACKAGE_CONTACT "Panel firmware <firmware@panel.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # it would come before every package's own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev platform doc)
if(TARGET ozuctl)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET ozu_fake_platform)
    list(APPEND CPACK_COMPONENTS_ALL testkit)
endif()
if(TARGET alarm_core)
    list(APPEND CPACK_COMPONENTS_ALL examples)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
if(CMAKE_LIBRARY_ARCHITECTURE MATCHES "^arm-.*hf$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()

set(_ozu_version "(= ${OZU_PACKAGE_VERSION})")
set(_ozu_c "libc6 (>= 2.34)")
set(_ozu_cxx "libstdc++6 (>= 12), libgcc-s1")
set(_ozu_backends "libfmt9, libmosquitto1, libspdlog1.10, libsqlite3-0")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libutils-ozu0)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "shared library of alarm panel processes
Start-up, reboot, commands, text, dates, network, panel state, devices and ciphers: loaded by every process of the panel.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
    "${_ozu_c}, libc-ares2, libjpeg62-turbo, libssl3, libozu-platform0 ${_ozu_version}")

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME libozu-platform0)
set(CPACK_DEBIAN_PLATFORM_DESCRIPTION "reference platform of alarm panel processes
Database, shared record, log, message bus and system events for a workstation or a bare board.")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS
    "${_ozu_c}, ${_ozu_cxx}, ${_ozu_backends}")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_RECOMMENDS mosquitto)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libutils-ozu-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "headers of the alarm panel library and its platform
With pkg-config files and a CMake package, to build panel processes.")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libutils-ozu0 ${_ozu_version}, libozu-platform0 ${_ozu_version}")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ozuctl)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "command-line tool to look at an alarm panel
ozuctl shows state, messages, log lines and events, changes them, and boots panels in a box.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "${_ozu_c}, ${_ozu_cxx}, ${_ozu_backends}, libssl3, libutils-ozu0 ${_ozu_version}")
# What panel boxes are made of.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "bubblewrap, iproute2, mosquitto, procps, tzdata")

set(CPACK_DEBIAN_TESTKIT_PACKAGE_NAME ozu-testkit)
set(CPACK_DEBIAN_TESTKIT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TESTKIT_DESCRIPTION "test kit for alarm panel processes
A fake platform for unit tests, pytest fixtures and scenarios for panels in boxes.")
set(CPACK_DEBIAN_TESTKIT_PACKAGE_DEPENDS "${_ozu_c}, libutils-ozu-dev ${_ozu_version}")
# What the Python package uses; on a board the fake platform alone is of use.
set(CPACK_DEBIAN_TESTKIT_PACKAGE_RECOMMENDS
    "ozuctl ${_ozu_version}, python3-pytest, python3-pytest-bdd, python3-pytest-xdist, python3-dnslib, faketime, \
mosquitto, mosquitto-clients, bubblewrap, iproute2, procps, tzdata, cmake, gcc")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME libutils-ozu-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_DESCRIPTION "documentation of the alarm panel library
Guides and reference as one site with search, manual pages of every function, sources of the examples.")

set(CPACK_DEBIAN_EXAMPLES_PACKAGE_NAME ozu-examples)
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_EXAMPLES_DESCRIPTION "example processes of an alarm panel
Four small panel processes, ready to run: an alarm core, a lamp, a door contact and a safety siren.")
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_DEPENDS
    "${_ozu_c}, libutils-ozu0 ${_ozu_version}, libozu-platform0 ${_ozu_version}")
if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE STREQUAL "armhf") # its C++ programs name the unwinder, even if nothing is thrown
    string(APPEND CPACK_DEBIAN_EXAMPLES_PACKAGE_DEPENDS ", libgcc-s1")
endif()

include(CPack)
