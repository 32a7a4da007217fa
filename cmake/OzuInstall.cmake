# What gets installed, by component:
#   runtime   libutils_ozu.so.0            what every panel process loads
#   dev       headers, link names, pkg-config files, CMake package
#   platform  libozu_platform.so.0         the reference platform
#   tools     ozuctl
#   testkit   libozu_fake_platform with its header, pkg-config file and targets; the Python package pytest_ozu
#   examples  the example processes
#   doc       pages, site, man pages, sources of the examples
# The packages of packaging/ are cut along these components.

include(CMakePackageConfigHelpers)

if(NOT TARGET utils_ozu)
    return()
endif()

set(OZU_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/ozu")
set(OZU_INSTALL_PLATFORM_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/ozu_platform")

# Installed files find each other wherever the prefix is, and need nothing else: the same in the build tree, so that
# installing changes no file. (What CMake rewrites while it installs has an entry that ends in ":" before, which is
# the current folder.)
file(RELATIVE_PATH _ozu_to_libraries "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
foreach(_ozu_target utils_ozu ozu_platform ozuctl)
    if(TARGET ${_ozu_target})
        set_target_properties(${_ozu_target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "$ORIGIN")
    endif()
endforeach()
if(TARGET ozuctl)
    set(_ozu_tool_paths "$ORIGIN/${_ozu_to_libraries}")
    if(NOT _ozu_to_libraries STREQUAL "../lib")
        list(APPEND _ozu_tool_paths "$ORIGIN/../lib") # where the build tree has them
    endif()
    set_target_properties(ozuctl PROPERTIES INSTALL_RPATH "${_ozu_tool_paths}")
endif()

target_include_directories(utils_ozu INTERFACE $<INSTALL_INTERFACE:${OZU_INSTALL_PLATFORM_INCLUDEDIR}>)
install(TARGETS utils_ozu EXPORT ozu
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev)
set_target_properties(ozu_platform_libraries PROPERTIES EXPORT_NAME platform_libraries)
install(TARGETS ozu_platform_libraries EXPORT ozu)
if(TARGET ozu_platform)
    set_target_properties(ozu_platform PROPERTIES EXPORT_NAME platform)
    target_include_directories(ozu_platform INTERFACE $<INSTALL_INTERFACE:${OZU_INSTALL_PLATFORM_INCLUDEDIR}>)
    install(TARGETS ozu_platform EXPORT ozu
        LIBRARY COMPONENT platform NAMELINK_COMPONENT dev)
endif()

install(FILES "${PROJECT_SOURCE_DIR}/include/utils_ozu.h"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/utils_ozu"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev FILES_MATCHING PATTERN "*.h")
if(EXISTS "${PROJECT_SOURCE_DIR}/include/inc_ozu")
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/inc_ozu"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev FILES_MATCHING PATTERN "*.h")
endif()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/platform/include/"
    DESTINATION "${OZU_INSTALL_PLATFORM_INCLUDEDIR}" COMPONENT dev FILES_MATCHING PATTERN "*.h")

# CMake package: find_package(ozu) against what is installed and against the build tree (ozu_DIR is
# BUILD/package), targets ozu::utils_ozu and ozu::platform.
install(EXPORT ozu NAMESPACE ozu:: FILE ozuTargets.cmake
    DESTINATION "${OZU_INSTALL_CMAKEDIR}" COMPONENT dev)
export(EXPORT ozu NAMESPACE ozu:: FILE "${PROJECT_BINARY_DIR}/package/ozuTargets.cmake")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/ozuConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/package/ozuConfig.cmake"
    INSTALL_DESTINATION "${OZU_INSTALL_CMAKEDIR}"
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/ozuConfigVersion.cmake"
    VERSION "${PROJECT_VERSION}" COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/package/ozuConfig.cmake"
    "${PROJECT_BINARY_DIR}/package/ozuConfigVersion.cmake"
    DESTINATION "${OZU_INSTALL_CMAKEDIR}" COMPONENT dev)

# pkg-config: paths relative to the file itself, so that an installed tree may be moved or stand in a sysroot.
file(RELATIVE_PATH OZU_PC_TO_PREFIX
    "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
# A panel process calls the platform as well (its log, its bus), so both come with one name.
set(OZU_PC_REQUIRES "")
set(OZU_PC_PLATFORM_LIBS "")
if(TARGET ozu_platform)
    set(OZU_PC_REQUIRES ozu_platform)
else()
    foreach(_ozu_library IN LISTS OZU_PLATFORM_LIBRARIES)
        if(NOT IS_ABSOLUTE "${_ozu_library}")
            string(PREPEND _ozu_library -l)
        endif()
        string(APPEND OZU_PC_PLATFORM_LIBS " ${_ozu_library}")
    endforeach()
endif()
foreach(_ozu_name utils_ozu ozu_platform)
    if(_ozu_name STREQUAL "utils_ozu" OR TARGET ozu_platform)
        configure_file("${PROJECT_SOURCE_DIR}/cmake/${_ozu_name}.pc.in"
            "${PROJECT_BINARY_DIR}/package/${_ozu_name}.pc" @ONLY)
        install(FILES "${PROJECT_BINARY_DIR}/package/${_ozu_name}.pc"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)
    endif()
endforeach()

if(TARGET ozu_fake_platform)
    set_target_properties(ozu_fake_platform PROPERTIES EXPORT_NAME fake_platform)
    set_target_properties(ozu_fake_platform_static PROPERTIES EXPORT_NAME fake_platform_static)
    install(TARGETS ozu_fake_platform ozu_fake_platform_static EXPORT ozu_fake_platform
        LIBRARY COMPONENT testkit NAMELINK_COMPONENT testkit
        ARCHIVE COMPONENT testkit)
    install(FILES "${PROJECT_SOURCE_DIR}/testkit/fake_platform/ozu_fake_platform.h"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT testkit)
    # A file of its own: the package config reads it where the test kit is installed.
    install(EXPORT ozu_fake_platform NAMESPACE ozu:: FILE ozuFakePlatformTargets.cmake
        DESTINATION "${OZU_INSTALL_CMAKEDIR}" COMPONENT testkit)
    export(EXPORT ozu_fake_platform NAMESPACE ozu:: FILE "${PROJECT_BINARY_DIR}/package/ozuFakePlatformTargets.cmake")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/ozu_fake_platform.pc.in"
        "${PROJECT_BINARY_DIR}/package/ozu_fake_platform.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/package/ozu_fake_platform.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT testkit)
endif()

# The test kit's Python package, where Debian's Python looks; pytest finds the plugin by its entry point.
if(OZU_BUILD_TESTKIT)
    set(_ozu_python lib/python3/dist-packages)
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/testkit/pytest_ozu" DESTINATION ${_ozu_python}
        COMPONENT testkit PATTERN "__pycache__" EXCLUDE)
    foreach(_ozu_name METADATA entry_points.txt)
        configure_file("${PROJECT_SOURCE_DIR}/testkit/${_ozu_name}.in" "${PROJECT_BINARY_DIR}/package/${_ozu_name}" @ONLY)
        install(FILES "${PROJECT_BINARY_DIR}/package/${_ozu_name}"
            DESTINATION "${_ozu_python}/pytest_ozu-${PROJECT_VERSION}.dist-info" COMPONENT testkit)
    endforeach()
    # ozuctl of the build folder finds it in the same place.
    file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/${_ozu_python}")
    file(CREATE_LINK "${PROJECT_SOURCE_DIR}/testkit/pytest_ozu" "${PROJECT_BINARY_DIR}/${_ozu_python}/pytest_ozu" SYMBOLIC)
endif()

if(TARGET ozuctl)
    install(TARGETS ozuctl RUNTIME COMPONENT tools)
    # ozuctl box runs this script, found relative to itself.
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/tools/box/" DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/ozu"
        COMPONENT tools USE_SOURCE_PERMISSIONS)
endif()

if(TARGET alarm_core)
    set(_ozu_examples_folder "${CMAKE_INSTALL_LIBEXECDIR}/ozu/examples")
    file(RELATIVE_PATH _ozu_to_libraries "/prefix/${_ozu_examples_folder}" "/prefix/${CMAKE_INSTALL_LIBDIR}")
    foreach(_ozu_example alarm_core arm_lamp door_contact safety_siren)
        # Installed they stand elsewhere than in the build folder, so both places are named.
        set_target_properties(${_ozu_example} PROPERTIES BUILD_WITH_INSTALL_RPATH ON
            INSTALL_RPATH "$ORIGIN/${_ozu_to_libraries};$ORIGIN/../lib")
        install(TARGETS ${_ozu_example} RUNTIME DESTINATION "${_ozu_examples_folder}" COMPONENT examples)
    endforeach()
endif()

# Every package carries the copyright under its own name.
foreach(_ozu_package runtime:libutils-ozu0 dev:libutils-ozu-dev platform:libozu-platform0 tools:ozuctl testkit:ozu-testkit
        examples:ozu-examples doc:libutils-ozu-doc)
    string(REPLACE ":" ";" _ozu_package "${_ozu_package}")
    list(GET _ozu_package 0 _ozu_component)
    list(GET _ozu_package 1 _ozu_package)
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/copyright"
        DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${_ozu_package}" COMPONENT ${_ozu_component})
endforeach()

# Pages and examples. docs/build makes the site and the manual pages of section 3.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/build/site/" DESTINATION "${CMAKE_INSTALL_DOCDIR}/html" COMPONENT doc OPTIONAL)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/build/man/man3/" DESTINATION "${CMAKE_INSTALL_MANDIR}/man3" COMPONENT doc OPTIONAL)
install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT doc)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs/"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" COMPONENT doc
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT doc
    FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.h")

# Man pages, from scdoc where it is installed.
find_program(OZU_SCDOC scdoc)
file(GLOB _ozu_pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.scd")
if(OZU_SCDOC AND _ozu_pages)
    set(_ozu_man)
    foreach(_ozu_page IN LISTS _ozu_pages)
        get_filename_component(_ozu_man_name "${_ozu_page}" NAME_WLE)
        string(REGEX MATCH "[0-9]$" _ozu_section "${_ozu_man_name}")
        set(_ozu_output "${PROJECT_BINARY_DIR}/man/${_ozu_man_name}")
        add_custom_command(OUTPUT "${_ozu_output}"
            COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_BINARY_DIR}/man"
            COMMAND sed "1s/$/ \"libutils_ozu ${OZU_VERSION}\"/" "${_ozu_page}" | "${OZU_SCDOC}" > "${_ozu_output}"
            DEPENDS "${_ozu_page}" VERBATIM)
        list(APPEND _ozu_man "${_ozu_output}")
        set(_ozu_component doc)
        if(_ozu_section EQUAL 1)
            set(_ozu_component tools)
        endif()
        install(FILES "${_ozu_output}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${_ozu_section}"
            COMPONENT ${_ozu_component})
    endforeach()
    add_custom_target(ozu_man ALL DEPENDS ${_ozu_man})
endif()
