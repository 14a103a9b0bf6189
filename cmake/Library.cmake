# SPDX-License-Identifier: Apache-2.0

# qz_sources(<target> PUBLIC_HEADERS h... SOURCES cpp...)
# Adds the files of one folder to a library; the public headers are installed under the library's name. Where
# there is an object library <target>_objects, the sources are compiled there.
function(qz_sources target)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "PUBLIC_HEADERS;SOURCES")
    if(ARG_PUBLIC_HEADERS)
        list(TRANSFORM ARG_PUBLIC_HEADERS PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
        target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}"
                       FILES ${ARG_PUBLIC_HEADERS})
    endif()
    list(TRANSFORM ARG_SOURCES PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
    if(TARGET ${target}_objects)
        set(target ${target}_objects)
    endif()
    target_sources(${target} PRIVATE ${ARG_SOURCES})
endfunction()

# qz_link_objects(<program>)
# Makes a program of the library's own objects, so that it reaches what the shared library hides. The shared
# library, which other targets may still name, then has nothing to add and stays out.
function(qz_link_objects program)
    target_link_libraries(${program} PRIVATE QZmath_objects)
    target_link_options(${program} PRIVATE LINKER:--as-needed)
endfunction()

# qz_add_tests(<name> [SLOW] [OBJECTS] SOURCES cpp... [LIBRARIES targets...])
# One GoogleTest program for a folder; every test in it becomes a ctest entry. SLOW labels them all "slow",
# OBJECTS is for tests of what the shared library hides.
function(qz_add_tests name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "SLOW;OBJECTS" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${ARG_SOURCES})
    if(ARG_OBJECTS)
        qz_link_objects(${name})
    endif()
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${name} PRIVATE qz_options QZmath::QZmath GTest::gmock GTest::gtest_main ${ARG_LIBRARIES})
    set(properties TIMEOUT 600)
    if(ARG_SLOW)
        list(APPEND properties LABELS slow)
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()
