# SPDX-License-Identifier: Apache-2.0
# Installs the tree and checks what it is linked with; then that the check finds what is not allowed.
function(check expected)
    execute_process(COMMAND bash "${SOURCE_DIR}/scripts/check-licences" "${WORK_DIR}/prefix"
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(result EQUAL 77)
        message("skipped: there is no dpkg")
        return()
    endif()
    string(FIND "${output}" "${expected}" place)
    if(NOT result EQUAL ${ARGV1} OR place EQUAL -1)
        message(FATAL_ERROR "ended with ${result} instead of ${ARGV1}, or without '${expected}':\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix"
                        --config "${CONFIGURATION}" OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
check("of the table only" 0)

# A program with a library that is not in the table, and a function of a name that tells where it is from.
file(WRITE "${WORK_DIR}/private.cpp" "extern \"C\" int foreignFunction() { return 0; }\n")
execute_process(COMMAND "${COMPILER}" -shared -fPIC "${WORK_DIR}/private.cpp" -o "${WORK_DIR}/libforeign.so"
                COMMAND_ERROR_IS_FATAL ANY)
file(WRITE "${WORK_DIR}/main.cpp" "extern \"C\" int foreignFunction();\nextern \"C\" int cholmod_like() { return 0; }\n"
     "int main() { return foreignFunction() + cholmod_like(); }\n")
execute_process(COMMAND "${COMPILER}" "${WORK_DIR}/main.cpp" -o "${WORK_DIR}/prefix/bin/foreign"
                "${WORK_DIR}/libforeign.so" "-Wl,-rpath,${WORK_DIR}" COMMAND_ERROR_IS_FATAL ANY)
check("libforeign.so () is not in docs/licences.md" 1)
check("cholmod_like is linked in from a library under the GPL" 1)
# What is for clusters, in another program.
if(EXISTS "${WORK_DIR}/prefix/bin/qzrecon-mpi")
    file(COPY_FILE "${WORK_DIR}/prefix/bin/qzrecon-mpi" "${WORK_DIR}/prefix/bin/other-mpi")
    check("libmpi.so.40 is for clusters only" 1)
    file(REMOVE "${WORK_DIR}/prefix/bin/other-mpi")
endif()
file(REMOVE "${WORK_DIR}/prefix/bin/foreign" "${WORK_DIR}/prefix/share/doc/QZmath/notices/libsuperlu5")
check("no notices of libsuperlu5 are installed" 1)
