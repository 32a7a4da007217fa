# Lookups of names: names_bench in time, names_count for counting instructions (lookups_count.py).
find_program(GPERF gperf REQUIRED)
set(peers_dir "${CMAKE_CURRENT_BINARY_DIR}/names_peers")
set(names_data "${PROJECT_SOURCE_DIR}/tests/unit/alarm/data")
set(gperf_tables device_types tarn1_sub_opcodes tarn_plus_sub_opcodes)
set(gperf_inputs ${gperf_tables})
list(TRANSFORM gperf_inputs PREPEND "${peers_dir}/")
list(TRANSFORM gperf_inputs APPEND ".gperf")
file(MAKE_DIRECTORY "${peers_dir}")
file(GLOB names_lists CONFIGURE_DEPENDS "${names_data}/*.txt")
add_custom_command(
    OUTPUT "${peers_dir}/names_switch.c" "${peers_dir}/names_known.h" ${gperf_inputs}
    COMMAND /usr/bin/python3 "${CMAKE_CURRENT_SOURCE_DIR}/names_peers.py" "${names_data}" "${peers_dir}"
    DEPENDS names_peers.py ${names_lists}
    COMMENT "Writing switches and gperf input of the names")
set(peer_sources "${peers_dir}/names_switch.c")
foreach(table IN LISTS gperf_tables)
    add_custom_command(
        OUTPUT "${peers_dir}/${table}.c"
        COMMAND "${GPERF}" -m 20 --output-file=${peers_dir}/${table}.c "${peers_dir}/${table}.gperf"
        DEPENDS "${peers_dir}/${table}.gperf")
    list(APPEND peer_sources "${peers_dir}/${table}.c")
endforeach()

# Compiled like the library, generated code's warnings aside.
add_library(names_peers STATIC ${peer_sources} "${peers_dir}/names_known.h")
target_include_directories(names_peers PUBLIC
    "${CMAKE_CURRENT_SOURCE_DIR}" "${peers_dir}" "${PROJECT_SOURCE_DIR}/platform/include")
target_link_libraries(names_peers PRIVATE ozu_flags)
target_compile_options(names_peers PRIVATE -w -Wno-error)

set(names_sources alarm/device_names.cpp alarm/tarn_names.cpp)
ozu_bench(names_bench SOURCES names_bench.cpp product_info.cpp LIBRARY_SOURCES ${names_sources} LIBRARIES names_peers)

add_executable(names_count names_count.cpp product_info.cpp $<TARGET_OBJECTS:names_bench_objects>)
target_include_directories(names_count PRIVATE $<TARGET_PROPERTY:utils_ozu_objects,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(names_count PRIVATE ozu_flags names_peers)
