# SPDX-License-Identifier: Apache-2.0
include(CMakePackageConfigHelpers)

install(TARGETS QZsys QZmath QZmathFiles QZmathViewer EXPORT QZmathTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT QZmathTargets NAMESPACE QZmath:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QZmath COMPONENT development)
# Apart, because clients of it need MPI too.
if(QZMATH_BUILD_MPI)
    install(TARGETS QZmathDistributed EXPORT QZmathDistributedTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT cluster
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT cluster)
    install(EXPORT QZmathDistributedTargets NAMESPACE QZmath:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QZmath
            COMPONENT cluster)
endif()

configure_package_config_file(cmake/QZmathConfig.cmake.in QZmathConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QZmath)
write_basic_package_version_file(QZmathConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/QZmathConfig.cmake" "${CMAKE_CURRENT_BINARY_DIR}/QZmathConfigVersion.cmake"
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QZmath COMPONENT development)

# Relative to the file itself, so that the installed tree may be moved.
file(RELATIVE_PATH QZMATH_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" QZMATH_PC_PREFIX "${QZMATH_PC_PREFIX}")
foreach(package QZmath QZmathFiles QZmathViewer)
    configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
endforeach()
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/QZmath.pc" "${CMAKE_CURRENT_BINARY_DIR}/QZmathFiles.pc"
    "${CMAKE_CURRENT_BINARY_DIR}/QZmathViewer.pc"
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The notices of what is linked, from the packages that the table names: most licences ask for them.
install(FILES docs/licences.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
file(STRINGS docs/licences.md rows REGEX "^\\| `")
foreach(row IN LISTS rows)
    string(REGEX REPLACE "^\\| `[^|]*\\| *([^| ]+) *\\|.*" "\\1" package "${row}")
    if(EXISTS "/usr/share/doc/${package}/copyright")
        install(FILES "/usr/share/doc/${package}/copyright" DESTINATION ${CMAKE_INSTALL_DOCDIR}/notices
                RENAME "${package}")
    endif()
endforeach()
