# SPDX-License-Identifier: Apache-2.0
# Debian packages, by scripts/packages: cpack -G DEB in a tree of the preset "packages". And the archive of the
# sources: cmake --build build/release --target package_source.
set(CPACK_PACKAGE_NAME qzmath)
set(CPACK_PACKAGE_VENDOR "QZmath developers")
set(CPACK_PACKAGE_CONTACT "QZmath developers <qzmath@packages.example.org>")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    "${PROJECT_BINARY_DIR}/QZsys;${PROJECT_BINARY_DIR}/QZmath;${PROJECT_BINARY_DIR}/QZmath/Files;${PROJECT_BINARY_DIR}/QZmath/Viewer")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE qzmath)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# qz_package(<component> <name> <section> <summary> <text> [DEPENDS components...])
function(qz_package component name section summary text)
    cmake_parse_arguments(PARSE_ARGV 5 ARG "" "" "DEPENDS")
    string(TOUPPER ${component} COMPONENT)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
    set(CPACK_COMPONENT_${COMPONENT}_DEPENDS ${ARG_DEPENDS} PARENT_SCOPE)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
    foreach(file copyright changelog.gz)
        install(FILES "${CMAKE_CURRENT_BINARY_DIR}/debian/${file}" DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
                COMPONENT ${component} EXCLUDE_FROM_ALL)
    endforeach()
endfunction()

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND QZMATH_BUILD_APPS AND QZMATH_BUILD_PYTHON)
    set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
    set(text "QZmath reconstructs triangle surfaces from point clouds, solves large sparse\n\
systems, fits curves and shapes, and estimates normals and curvature.")
    qz_package(runtime libqzmath1 libs "processing of 3D scans: shared libraries" "${text}")
    qz_package(development libqzmath-dev libdevel "processing of 3D scans: development files"
               "${text}\n.\nHeaders, and what CMake and pkg-config need." DEPENDS runtime)
    qz_package(tools qzmath-tools graphics "reconstruction of surfaces from scans on the command line"
               "${text}\n.\nThe programs qzrecon and qzrecon-sample." DEPENDS runtime)
    qz_package(debian_python python3-qzmath python "processing of 3D scans: Python package"
               "${text}\n.\nTakes and gives numpy arrays." DEPENDS runtime)
    set(CPACK_DEBIAN_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9), python3-numpy")
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
    # Python's own tools write compiled files beside the installed ones, and take them away.
    set(CPACK_DEBIAN_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
        "${PROJECT_SOURCE_DIR}/cmake/packages/postinst;${PROJECT_SOURCE_DIR}/cmake/packages/prerm")
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/packages/triggers")

    # The day of the last entry, by the file that has it, so that the same sources give the same packages.
    file(TIMESTAMP "${PROJECT_SOURCE_DIR}/CHANGELOG.md" QZMATH_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
    configure_file(cmake/packages/changelog.in debian/changelog @ONLY)
    configure_file(cmake/packages/copyright.in debian/copyright @ONLY)
    execute_process(COMMAND gzip --best --no-name --force --keep "${CMAKE_CURRENT_BINARY_DIR}/debian/changelog"
                    COMMAND_ERROR_IS_FATAL ANY)
endif()

set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME "qzmath-${PROJECT_VERSION}")
set(CPACK_SOURCE_IGNORE_FILES "/\\.git/;/build/;/out/;/node_modules/;/__pycache__/;\\.egg-info/;/\\.[^/]*_cache/")
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
