# stp_generate(<target> TABLE <file.stp>...): the protocol classes of each table, made by
# tools/stpgen/stpgen.py at build time into <build>/generated/<table base name>_impl.h/.cpp and
# compiled into <target>, which also gets that folder on its include path. The generator
# rewrites an output only when its text changed, so editing a table rebuilds only what it
# changes.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(STPGEN_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/../tools/stpgen/stpgen.py)
get_filename_component(STPGEN_SCRIPT ${STPGEN_SCRIPT} ABSOLUTE)
set(STPGEN_OUTPUT_DIR ${CMAKE_BINARY_DIR}/generated)

function(stp_generate target)
    cmake_parse_arguments(ARG "" "" "TABLE" ${ARGN})
    if(NOT ARG_TABLE)
        message(FATAL_ERROR "stp_generate(${target}): no TABLE given")
    endif()
    foreach(table IN LISTS ARG_TABLE)
        get_filename_component(table ${table} ABSOLUTE)
        get_filename_component(base ${table} NAME_WE)
        set(header ${STPGEN_OUTPUT_DIR}/${base}_impl.h)
        set(source ${STPGEN_OUTPUT_DIR}/${base}_impl.cpp)
        add_custom_command(
            OUTPUT ${header} ${source}
            COMMAND Python3::Interpreter ${STPGEN_SCRIPT} --root ${CMAKE_SOURCE_DIR}
                    --out-dir ${STPGEN_OUTPUT_DIR} ${table}
            DEPENDS ${table} ${STPGEN_SCRIPT}
            COMMENT "Generating ${base}_impl from ${base}.stp"
            VERBATIM)
        target_sources(${target} PRIVATE ${header} ${source})
    endforeach()
    target_include_directories(${target} PUBLIC ${STPGEN_OUTPUT_DIR})
    target_link_libraries(${target} PUBLIC stp_transport)
endfunction()
