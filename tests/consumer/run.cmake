# Installs the build tree into a fresh prefix, builds the consumer project against the
# installed CMake package, runs it, and checks the pkg-config file.
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

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen QT_LOGGING_RULES=zq.console.info=false
    ${WORK_DIR}/build/consumer)
message(STATUS "consumer printed: ${last_output}")
if(NOT last_output STREQUAL "2 Jiangsu\n")
    message(FATAL_ERROR "unexpected consumer output: '${last_output}'")
endif()

run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig
    pkg-config --cflags --libs zqdatabase)
string(REGEX MATCH "-I([^ \n]+)" include_flag "${last_output}")
if(NOT last_output MATCHES "-lzqdatabase" OR NOT EXISTS "${CMAKE_MATCH_1}/database/databasemanager.h")
    message(FATAL_ERROR "unexpected pkg-config output: '${last_output}'")
endif()
