# Resolvers in time: NgetHostByName against the bare exchange and res_nquery, nslookup_ares against bare c-ares.
# Needs port 53 of the loopback address, so run it in a panel box: tools/box/panel-box run -- .../network_bench
add_executable(network_bench network_bench.cpp
    "${PROJECT_SOURCE_DIR}/src/network/dns_message.cpp"
    "${PROJECT_SOURCE_DIR}/src/network/raw_dns.cpp"
    "${PROJECT_SOURCE_DIR}/src/ares_dns/attempt.cpp"
    "${PROJECT_SOURCE_DIR}/src/ares_dns/resolver.cpp"
    "${PROJECT_SOURCE_DIR}/src/text/copies.cpp")
target_include_directories(network_bench PRIVATE
    $<TARGET_PROPERTY:utils_ozu_objects,INTERFACE_INCLUDE_DIRECTORIES>)
target_compile_options(network_bench PRIVATE $<TARGET_PROPERTY:utils_ozu_objects,COMPILE_OPTIONS>)
target_compile_definitions(network_bench PRIVATE CARES_NO_DEPRECATED)
target_link_libraries(network_bench PRIVATE ozu_flags PkgConfig::CARES resolv)
