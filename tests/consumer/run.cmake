# Installs the build tree into a fresh prefix, builds the consumer project and the README's
# host example against the installed CMake package, runs them, and checks the pkg-config file.
foreach(var BUILD_DIR SOURCE_DIR WORK_DIR)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "${var} not set")
    endif()
endforeach()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

# The README's host example, as the README shows it.
file(READ ${SOURCE_DIR}/../../README.md readme)
string(REGEX MATCH "<!-- host example[^\n]*\n```cpp\n(.*)" readme "${readme}")
string(FIND "${CMAKE_MATCH_1}" "```" end)
string(SUBSTRING "${CMAKE_MATCH_1}" 0 ${end} host)
file(WRITE ${WORK_DIR}/readme_host.cpp "${host}")

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DREADME_HOST=${WORK_DIR}/readme_host.cpp)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
# Both hosts start from the installed tree alone: no LD_LIBRARY_PATH.
set(host_env ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH QT_QPA_PLATFORM=offscreen
    QT_LOGGING_RULES=zq.console.info=false ZQDATABASE_SYS_DIR=${WORK_DIR}/system
    ZQDATABASE_USR_DIR=${WORK_DIR}/user)
run(${host_env} ${WORK_DIR}/build/consumer)
run(${host_env} ${WORK_DIR}/build/readme_host)
message(STATUS "README host printed: ${last_output}")
if(NOT last_output STREQUAL "2 rows; row 1, column 1: Jiangsu\n")
    message(FATAL_ERROR "unexpected README host output: '${last_output}'")
endif()

run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig
    pkg-config --cflags --libs zqdatabase)
string(REGEX MATCH "-I([^ \n]+)" include_flag "${last_output}")
if(NOT last_output MATCHES "-lzqdatabase" OR NOT EXISTS "${CMAKE_MATCH_1}/database/databasemanager.h")
    message(FATAL_ERROR "unexpected pkg-config output: '${last_output}'")
endif()
