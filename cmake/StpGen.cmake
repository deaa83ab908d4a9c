# stp_generate(<target> TABLE <file.stp>...): the protocol classes of each table, made by
# tools/stpgen/stpgen.py at build time and compiled into <target>. Each table gets a folder of
# its own, <build>/generated/<table path below the source root, without .stp>/, holding
# <table base name>_impl.h/.cpp, so that tables of one base name in different folders cannot
# overwrite each other; <target> gets each of those folders on its include path, and consumers
# include "<table base name>_impl.h". The generator rewrites an output only when its text
# changed, so editing a table rebuilds only what it changes.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

get_filename_component(STPGEN_DIR ${CMAKE_CURRENT_LIST_DIR}/../tools/stpgen ABSOLUTE)
set(STPGEN_SCRIPT ${STPGEN_DIR}/stpgen.py)
file(GLOB STPGEN_MODULES ${STPGEN_DIR}/stpgen*.py)
set(STPGEN_OUTPUT_DIR ${CMAKE_BINARY_DIR}/generated)

function(stp_generate target)
    cmake_parse_arguments(ARG "" "" "TABLE" ${ARGN})
    if(NOT ARG_TABLE)
        message(FATAL_ERROR "stp_generate(${target}): no TABLE given")
    endif()
    foreach(table IN LISTS ARG_TABLE)
        get_filename_component(table ${table} ABSOLUTE)
        get_filename_component(base ${table} NAME_WE)
        file(RELATIVE_PATH relative ${CMAKE_SOURCE_DIR} ${table})
        string(REGEX REPLACE "\\.stp$" "" relative ${relative})
        set(out_dir ${STPGEN_OUTPUT_DIR}/${relative})
        set(header ${out_dir}/${base}_impl.h)
        set(source ${out_dir}/${base}_impl.cpp)
        add_custom_command(
            OUTPUT ${header} ${source}
            COMMAND Python3::Interpreter ${STPGEN_SCRIPT} --root ${CMAKE_SOURCE_DIR}
                    --out-dir ${out_dir} ${table}
            DEPENDS ${table} ${STPGEN_MODULES}
            COMMENT "Generating ${base}_impl from ${relative}.stp"
            VERBATIM)
        target_sources(${target} PRIVATE ${header} ${source})
        target_include_directories(${target} PUBLIC ${out_dir})
    endforeach()
    target_link_libraries(${target} PUBLIC stp_transport)
endfunction()
