# Processes, files and commands against the plain way (process_bench): the library's own sources and options.
add_executable(process_bench process_bench.cpp)
foreach(source process/command process/files process/processes text/decimal)
    target_sources(process_bench PRIVATE "${PROJECT_SOURCE_DIR}/src/${source}.cpp")
endforeach()
target_include_directories(process_bench PRIVATE
    $<TARGET_PROPERTY:utils_ozu_objects,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(process_bench PRIVATE ozu_flags)
