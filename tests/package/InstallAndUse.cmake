# SPDX-License-Identifier: Apache-2.0
function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}\nended with ${result}:\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}" --config "${CONFIGURATION}")

# Nothing private may have come along, and the files of the package must be where they are looked for.
file(GLOB_RECURSE headers RELATIVE "${prefix}/include" "${prefix}/include/*")
foreach(header IN LISTS headers)
    if(header MATCHES "(Impl|Detail)\\.h$|/Backend/|/(Files|Viewer|Distributed)/.*/|\\.cpp$")
        message(FATAL_ERROR "private file installed: ${header}")
    endif()
endforeach()
foreach(file include/QZmath/QZmath.h include/QZmath/Files/Files.h include/QZmath/Viewer/Viewer.h include/QZsys/QZsys.h ${LIBDIR}/pkgconfig/QZmath.pc
        ${LIBDIR}/cmake/QZmath/QZmathConfig.cmake)
    if(NOT EXISTS "${prefix}/${file}")
        message(FATAL_ERROR "not installed: ${file}")
    endif()
endforeach()
foreach(program IN LISTS PROGRAMS)
    run("${prefix}/bin/${program}" --version)
endforeach()

# Through the CMake package. The tree is moved first: an installed package may not remember where it was made.
set(moved "${WORK_DIR}/elsewhere")
file(RENAME "${prefix}" "${moved}")
run("${CMAKE_COMMAND}" -S "${CLIENT_DIR}" -B "${WORK_DIR}/client" -G "${GENERATOR}" -D "CMAKE_PREFIX_PATH=${moved}"
    -D "CMAKE_CXX_COMPILER=${COMPILER}" -D "CMAKE_CXX_FLAGS=${FLAGS}" -D "CMAKE_BUILD_TYPE=${CONFIGURATION}")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/client" --config "${CONFIGURATION}")
run("${WORK_DIR}/client/client")
run("${WORK_DIR}/client/files")
run("${WORK_DIR}/client/viewer")
if(EXISTS "${WORK_DIR}/client/cluster")
    # MPI keeps some memory to the end, which is none of ours.
    run("${CMAKE_COMMAND}" -E env "ASAN_OPTIONS=detect_leaks=0" "${WORK_DIR}/client/cluster")
endif()
file(RENAME "${moved}" "${prefix}")

# Through pkg-config, and the older dynamic linker path.
set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig")
run("${PKG_CONFIG}" --modversion QZmath)
string(STRIP "${output}" version)
run("${PKG_CONFIG}" --cflags --libs QZmath)
separate_arguments(package_flags UNIX_COMMAND "${output}")
separate_arguments(sanitizer_flags UNIX_COMMAND "${FLAGS}")
run("${COMPILER}" -std=c++17 ${sanitizer_flags} "-DPACKAGE_VERSION=\"${version}\"" "${CLIENT_DIR}/client.cpp"
    -o "${WORK_DIR}/pc-client" ${package_flags} "-Wl,-rpath,${prefix}/${LIBDIR}")
run("${WORK_DIR}/pc-client")
run("${PKG_CONFIG}" --cflags --libs QZmathFiles)
separate_arguments(package_flags UNIX_COMMAND "${output}")
run("${COMPILER}" -std=c++17 ${sanitizer_flags} "${CLIENT_DIR}/files.cpp" -o "${WORK_DIR}/pc-files" ${package_flags}
    "-Wl,-rpath,${prefix}/${LIBDIR}")
run("${WORK_DIR}/pc-files")
run("${PKG_CONFIG}" --cflags --libs QZmathViewer)
separate_arguments(package_flags UNIX_COMMAND "${output}")
run("${COMPILER}" -std=c++17 ${sanitizer_flags} "${CLIENT_DIR}/viewer.cpp" -o "${WORK_DIR}/pc-viewer" ${package_flags}
    "-Wl,-rpath,${prefix}/${LIBDIR}")
run("${WORK_DIR}/pc-viewer")
message(STATUS "the installed package works")
