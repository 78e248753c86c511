# Installs every given build tree (one per Qt flavour) into one fresh prefix, checks that no two
# flavours install the same file, then for each flavour builds the consumer project and the
# README's host example against its installed CMake package, runs them, and checks its
# pkg-config file.
cmake_policy(VERSION 3.18)
foreach(var BUILD_DIRS SOURCE_DIR WORK_DIR)
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

set(installed "")
foreach(build_dir ${BUILD_DIRS})
    run(${CMAKE_COMMAND} --install ${build_dir} --prefix ${prefix})
    file(STRINGS ${build_dir}/install_manifest.txt files)
    foreach(file ${files})
        if(file IN_LIST installed)
            message(FATAL_ERROR "two flavours install ${file}")
        endif()
    endforeach()
    list(APPEND installed ${files})
endforeach()

foreach(build_dir ${BUILD_DIRS})
    load_cache(${build_dir} READ_WITH_PREFIX build_ ZQDATABASE_QT_MAJOR_VERSION)
    if(build_ZQDATABASE_QT_MAJOR_VERSION STREQUAL "5")
        set(package ZqDatabase)
        set(suffix "")
    else()
        set(package ZqDatabase-Qt${build_ZQDATABASE_QT_MAJOR_VERSION})
        set(suffix -qt${build_ZQDATABASE_QT_MAJOR_VERSION})
    endif()
    set(work ${WORK_DIR}/${package})
    run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${work} -DCMAKE_PREFIX_PATH=${prefix}
        -DZQ_PACKAGE=${package} -DREADME_HOST=${WORK_DIR}/readme_host.cpp)
    run(${CMAKE_COMMAND} --build ${work})
    # Both hosts start from the installed tree alone: no LD_LIBRARY_PATH.
    set(host_env ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH QT_QPA_PLATFORM=offscreen
        QT_LOGGING_RULES=zq.console.info=false ZQDATABASE_SYS_DIR=${work}/system
        ZQDATABASE_USR_DIR=${work}/user)
    run(${host_env} ${work}/consumer)
    run(${host_env} ${work}/readme_host)
    message(STATUS "${package}: README host printed: ${last_output}")
    if(NOT last_output STREQUAL "2 rows; row 1, column 1: Jiangsu\n")
        message(FATAL_ERROR "unexpected README host output: '${last_output}'")
    endif()
    run(readelf -d ${work}/readme_host)
    if(NOT last_output MATCHES "libzqdatabase${suffix}\\.so")
        message(FATAL_ERROR "the ${package} host does not link libzqdatabase${suffix}")
    endif()

    run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig
        pkg-config --cflags --libs zqdatabase${suffix})
    string(REGEX MATCH "-I([^ \n]+)" include_flag "${last_output}")
    if(NOT last_output MATCHES "-lzqdatabase${suffix} "
       OR NOT EXISTS "${CMAKE_MATCH_1}/database/databasemanager.h")
        message(FATAL_ERROR "unexpected pkg-config output: '${last_output}'")
    endif()
endforeach()
